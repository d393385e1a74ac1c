# How long the lock of the table store is held, and what is allocated.
target_link_options(hostile_multiplex_test PRIVATE -Wl,--wrap=Orva_MutexP -Wl,--wrap=Orva_MutexV
                    -Wl,--wrap=g_slice_free1)

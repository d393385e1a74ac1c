# Frees are counted, as allocations are.
target_link_options(stress_test PRIVATE -Wl,--wrap=g_slice_free1)

# The hook that the clean-up of the store calls.
target_link_options(${name} PRIVATE -Wl,--wrap=Orva_Si_PrintMemSize)

# The locks that the store creates.
target_link_options(${name} PRIVATE -Wl,--wrap=Orva_InitMutex)

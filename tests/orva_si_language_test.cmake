# The client's numbering fails on demand.
target_link_options(orva_si_language_test PRIVATE -Wl,--wrap=Orva_Si_ISO639Map2ID)

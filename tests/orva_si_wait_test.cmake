# Sleeps are counted.
foreach(function Orva_Sleep)
    target_link_options(orva_si_wait_test PRIVATE -Wl,--wrap=${function})
endforeach()

# Walks over a list are counted.
foreach(function si_list_find si_list_get)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()

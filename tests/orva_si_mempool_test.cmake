# What the pool asks of the system heap is written down, and the heap fails on demand. The compiler
# may turn malloc and memset into calloc.
foreach(function malloc calloc free)
    target_link_options(${name} PRIVATE -Wl,--wrap=${function})
endforeach()

# Writes a source that has others in it, each in a namespace of its name: cmake -D sources=LIST -D output=FILE -P together.cmake
#
# What they all make of the same templates is compiled once, which is most of what tests are: together they take a third of the
# time. All that they include comes first, so that inside the namespaces nothing is left to be included.
set(headers "")
set(parts "")
foreach(source ${sources})
    file(STRINGS ${source} included REGEX "^#include ")
    list(APPEND headers ${included})
    cmake_path(GET source STEM name)
    string(APPEND parts "namespace ${name} {\n#include \"${source}\"\n}\n")
endforeach()
list(REMOVE_DUPLICATES headers)
list(JOIN headers "\n" headers)
file(WRITE ${output} "${headers}\n${parts}")

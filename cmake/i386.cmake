# 32-bit x86. The processor runs it as it is; the loader is named because the machine need not have one for it.
set(orva_arch i386)
set(orva_processor i686)
set(orva_compiler i686-linux-gnu)
set(orva_multiarch i386-linux-gnu)
set(orva_clang_target i686-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/OrvaCross.cmake)
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,--dynamic-linker=${orva_runtime}/ld-linux.so.2")

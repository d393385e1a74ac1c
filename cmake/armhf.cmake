# 32-bit ARM with hardware floating point, under an emulator: char is unsigned, unaligned words are not always read.
set(orva_arch armhf)
set(orva_processor armv7l)
set(orva_compiler arm-linux-gnueabihf)
set(orva_multiarch arm-linux-gnueabihf)
set(orva_clang_target armv7-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/OrvaCross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;/usr/${orva_compiler})
# Arguments of some sizes were passed in another way by g++ 6: it tells so of every one.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

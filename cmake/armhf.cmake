# 32-bit ARM with hardware floating point, under an emulator: char is unsigned, unaligned words are not always read.
set(orva_arch armhf)
set(orva_processor armv7l)
set(orva_compiler arm-linux-gnueabihf)
set(orva_multiarch arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/OrvaCross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;/usr/${orva_compiler})

set(CMAKE_SYSTEM_PROCESSOR arm)
set(HALCYON_ARCHITECTURE armhf)
set(HALCYON_TRIPLET arm-linux-gnueabihf)
set(HALCYON_EMULATOR qemu-arm)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # a note on how other compilers pass arguments
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)

# Cross build for the Zorvi HPB boards: 32-bit ARM, hard-float, with Debian's
# g++-arm-linux-gnueabihf (its libraries and headers lie in /usr/arm-linux-gnueabihf).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(SWITCH_TARGET_TRIPLET arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${SWITCH_TARGET_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${SWITCH_TARGET_TRIPLET}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${SWITCH_TARGET_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Target programs run on the build machine under qemu-user, where it is there.
find_program(SWITCH_QEMU_ARM qemu-arm)
if(SWITCH_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${SWITCH_QEMU_ARM} -L /usr/${SWITCH_TARGET_TRIPLET})
endif()

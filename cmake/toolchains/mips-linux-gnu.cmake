# 32-bit big-endian MIPS (o32, glibc) with Debian's cross compiler
# (g++-mips-linux-gnu).  Programs run under qemu user mode (qemu-user),
# which finds the target's loader and libraries under /usr/mips-linux-gnu;
# CTest and gtest_discover_tests run test programs through it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mips)

set(KIV_CROSS_TRIPLET mips-linux-gnu)
set(CMAKE_C_COMPILER ${KIV_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KIV_CROSS_TRIPLET}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${KIV_CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mips;-L;/usr/${KIV_CROSS_TRIPLET})

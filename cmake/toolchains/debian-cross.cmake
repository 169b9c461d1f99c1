# Shared part of the toolchain files of this folder: a cross build with
# Debian's cross compilers (g++-TRIPLE), whose programs run under qemu-user.
# The including file sets POIPARSER_CROSS_TRIPLE (aarch64-linux-gnu), the
# processor name and POIPARSER_QEMU (qemu-aarch64).
#
# Libraries are looked for, in this order, in
#   - POIPARSER_CROSS_DEPS: a directory of the target's packages unpacked by
#     scripts/cross-sysroot.sh (make test-arm64 and make test-armhf pass it);
#   - the target's multiarch directories of this machine
#     (apt-get install libcjson-dev:arm64 puts them in /usr/lib/TRIPLE);
#   - the cross compiler's own tree, /usr/TRIPLE.
# Programs built for the target (tests, gtest_discover_tests, ctest) run as
# `qemu-ARCH -L /usr/TRIPLE PROGRAM`: the C and C++ runtimes come from the
# cross compiler's tree, the other libraries through the build's RPATH.
set(CMAKE_SYSTEM_NAME Linux)

set(CMAKE_CXX_COMPILER ${POIPARSER_CROSS_TRIPLE}-g++)
set(CMAKE_C_COMPILER ${POIPARSER_CROSS_TRIPLE}-gcc)
set(CMAKE_LIBRARY_ARCHITECTURE ${POIPARSER_CROSS_TRIPLE})

# try_compile projects load this file again and see only the variables
# listed here.
set(POIPARSER_CROSS_DEPS "" CACHE PATH "The target's packages unpacked by scripts/cross-sysroot.sh")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES POIPARSER_CROSS_DEPS)
set(CMAKE_FIND_ROOT_PATH ${POIPARSER_CROSS_DEPS} / /usr/${POIPARSER_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config (the fallback for cJSON) reads the target's .pc files only.
if(POIPARSER_CROSS_DEPS)
  set(ENV{PKG_CONFIG_SYSROOT_DIR} ${POIPARSER_CROSS_DEPS})
  set(ENV{PKG_CONFIG_LIBDIR} ${POIPARSER_CROSS_DEPS}/usr/lib/${POIPARSER_CROSS_TRIPLE}/pkgconfig)
else()
  set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${POIPARSER_CROSS_TRIPLE}/pkgconfig)
endif()

set(CMAKE_CROSSCOMPILING_EMULATOR ${POIPARSER_QEMU} -L /usr/${POIPARSER_CROSS_TRIPLE})

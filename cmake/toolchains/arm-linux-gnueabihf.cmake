# 32-bit ARM Linux (Debian's armhf: ARMv7-A, Thumb-2, VFPv3-D16 hard float,
# no NEON assumed), tests under qemu-arm:
#   cmake -S . -B build/armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
# Needs g++-arm-linux-gnueabihf, qemu-user and the target's libraries (see
# debian-cross.cmake; make test-armhf provides them).
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(POIPARSER_CROSS_TRIPLE arm-linux-gnueabihf)
set(POIPARSER_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)

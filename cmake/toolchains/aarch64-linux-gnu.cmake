# 64-bit ARM Linux (ARMv8-A, AArch64), tests under qemu-aarch64:
#   cmake -S . -B build/arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
# Needs g++-aarch64-linux-gnu, qemu-user and the target's libraries (see
# debian-cross.cmake; make test-arm64 provides them).
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(POIPARSER_CROSS_TRIPLE aarch64-linux-gnu)
set(POIPARSER_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)

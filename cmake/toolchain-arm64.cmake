# A 64-bit ARM box (aarch64-linux-gnu). See CrossDebian.cmake.
set(TUNER_CROSS_ARCH arm64)
set(TUNER_CROSS_TRIPLET aarch64-linux-gnu)
set(TUNER_QEMU aarch64)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/CrossDebian.cmake)

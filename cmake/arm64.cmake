# Toolchain file: builds for arm64 (Debian) on a machine of another processor, and runs what it built under
# qemu-user: `dpkg --add-architecture arm64 && tools/install-packages arm64`.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)

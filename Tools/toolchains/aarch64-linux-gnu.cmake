# Cross build for 64-bit ARM Linux with Debian's g++-aarch64-linux-gnu; the libraries come from
# Debian's arm64 architecture (multiarch), and the tests run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# The programs run on Debian's arm64 runtime (libc6, libstdc++6 and libcurl of the arm64
# architecture), found by qemu at its usual multiarch paths. Not with -L /usr/aarch64-linux-gnu:
# that mixes the cross toolchain's dynamic loader with the arm64 C library the multiarch
# libraries pull in, two builds of glibc 2.36 that hang together at the first new thread.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
# pkg-config answers for the target's libraries, not the build machine's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)

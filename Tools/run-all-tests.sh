#!/usr/bin/env bash
# Builds and runs every test in every configuration, and stops at the first failure:
#   debug, release          g++ and libstdc++ on this machine; release also installs the package
#                           and builds and runs a consumer project against it
#   tsan, asan              under ThreadSanitizer, and AddressSanitizer with UBSan
#   clang14-libcxx,         clang and libc++ of the Android NDK r25 / Xcode 14 generation, and of
#   clang19-libcxx          today's (GoogleTest built from Debian's sources for libc++)
#   arm64                   g++ cross build for ARM64, the tests run under qemu-user
#   no-exceptions, no-rtti  the library alone compiled as mobile codebases often compile it (the
#                           first on the portable host backend, as a non-Linux host builds it)
set -euo pipefail
cd "$(dirname "$0")/.."

# Each configuration is one workflow preset: configure, build and (but for the last two) test.
for preset in debug release tsan asan clang14-libcxx clang19-libcxx arm64 no-exceptions no-rtti; do
  echo "=== ${preset}"
  cmake --workflow --preset "$preset"
  if [ "$preset" = release ]; then
    echo "=== release: the installed package"
    bash Tools/check-installed-package.sh build/release
  fi
done

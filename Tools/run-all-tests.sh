#!/usr/bin/env bash
# Builds and runs every test four times: a debug build, an optimised release build (the one the
# demo and the benchmarks use), under ThreadSanitizer, and under AddressSanitizer with
# UndefinedBehaviorSanitizer. Stops at the first failing run.
set -euo pipefail
cd "$(dirname "$0")/.."

for preset in debug release tsan asan; do
  echo "=== ${preset}: configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  echo "=== ${preset}: test"
  ctest --preset "$preset"
done

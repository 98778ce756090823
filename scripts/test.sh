#!/usr/bin/env bash
# Builds and runs every test: the 64-bit build (both code paths are tested in
# every kernel test), the same suite under AddressSanitizer and
# UndefinedBehaviorSanitizer, and the 32-bit (-m32, stdcall) build.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test
jobs=$(nproc)

suite() {
  local dir=$1
  shift
  echo "=== $dir"
  cmake -S . -B "$dir" "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  ctest --test-dir "$dir" --output-on-failure -j "$jobs"
}

suite build/x86-64 -DCMAKE_BUILD_TYPE=Release
suite build/sanitize -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPVX_SANITIZE=ON -DPVX_BUILD_BENCH=OFF
suite build/i386 -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/i386.cmake -DPVX_GTEST_FROM_SOURCE=ON
echo "all suites passed"

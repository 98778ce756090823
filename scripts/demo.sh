#!/usr/bin/env bash
# Builds pvx and runs the demo tool: version record, CPU features, selected
# code path, and a small pipeline of operations timed beside memcpy.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh demo
cmake -S . -B build/demo -DCMAKE_BUILD_TYPE=Release -DPVX_BUILD_TESTS=OFF -DPVX_BUILD_BENCH=OFF >/dev/null
cmake --build build/demo -j "$(nproc)" --target pvxdemo
build/demo/pvxdemo

#!/usr/bin/env bash
# Configures and builds the program, its tests and benchmarks into build/, or
# into the folder given as the first argument.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
if [ -f "$build/CMakeCache.txt" ]; then
  # Configured before: keep its settings (build type included), look again
  # for tools installed since.
  cmake -S . -B "$build"
else
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
cmake --build "$build" -j "$(nproc)"

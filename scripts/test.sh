#!/usr/bin/env bash
# The whole test run: installs what is needed, builds, runs every unit, GUI and
# network-namespace test with CTest, the threaded parts again under
# ThreadSanitizer, then the fuzzers for a bounded time.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" -eq 0 ]; then
  bash scripts/install-deps.sh
else
  echo "Not root: skipping package installation; namespace tests will skip." >&2
fi
bash scripts/build.sh
export QT_QPA_PLATFORM=offscreen
ctest --test-dir build --output-on-failure -j "$(nproc)" --timeout 600
bash scripts/tsan.sh
bash scripts/fuzz.sh

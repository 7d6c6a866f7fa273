#!/usr/bin/env bash
# Renders every window, menu and dialog of the desktop program, with sample
# contents, in Polish and in English: build/screenshots/pl/*.png and
# build/screenshots/en/*.png. Runs on the offscreen platform with fake
# sockets; no server listens anywhere.
set -euo pipefail
cd "$(dirname "$0")/.."
[ -f build/build.ninja ] || cmake -S . -B build -G Ninja
cmake --build build --target quorvy_screenshots quorvy_lrelease
export QT_QPA_PLATFORM=offscreen
rm -rf build/screenshots
build/tests/gui/quorvy_screenshots build/screenshots/pl
build/tests/gui/quorvy_screenshots build/screenshots/en build/src/gui/quorvy_en
echo "Pictures in build/screenshots/pl and build/screenshots/en"

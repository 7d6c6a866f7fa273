#!/usr/bin/env bash
# Renders every window, menu and dialog of the desktop program, with sample
# contents, in Polish and in English: build/screenshots/pl/*.png and
# build/screenshots/en/*.png. Runs in a real X server (Xvfb) when xvfb-run is
# there, else on the offscreen platform; fake sockets, so no server listens
# anywhere.
set -euo pipefail
cd "$(dirname "$0")/.."
[ -f build/build.ninja ] || cmake -S . -B build -G Ninja
cmake --build build --target quorvy_screenshots quorvy_lrelease
render() {
  if command -v xvfb-run >/dev/null; then
    xvfb-run -a -s "-screen 0 1280x1024x24" env QT_QPA_PLATFORM=xcb build/tools/quorvy_screenshots "$@"
  else
    QT_QPA_PLATFORM=offscreen build/tools/quorvy_screenshots "$@"
  fi
}
rm -rf build/screenshots
render build/screenshots/pl
render build/screenshots/en build/src/gui/quorvy_en
echo "Pictures in build/screenshots/pl and build/screenshots/en"

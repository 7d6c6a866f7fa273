#!/usr/bin/env bash
# Installs what is needed, builds, and starts the desktop program.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" -eq 0 ]; then
  bash scripts/install-deps.sh
fi
bash scripts/build.sh
exec build/src/gui/quorvy "$@"

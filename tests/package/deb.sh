#!/usr/bin/env bash
# Builds the Debian package from the build folder with cpack (no compiling:
# it installs what the build made) and checks it with lintian: no errors, and
# the name tarnvel-dhcp-server_<version>_<arch>.deb.
# Usage: deb.sh BUILD_DIR VERSION
set -euo pipefail
source "$(dirname "$0")/common.sh"
build=$1
version=$2
command -v lintian >/dev/null || fail "lintian is missing (scripts/install-deps.sh installs it)"
rm -f "$build"/package/tarnvel-dhcp-server_*.deb
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$build/package" > "$build/package-cpack.log" 2>&1 ||
  { cat "$build/package-cpack.log" >&2; fail "cpack"; }
deb=$build/package/tarnvel-dhcp-server_${version}_$(dpkg --print-architecture).deb
[ -f "$deb" ] || fail "no $deb; cpack made: $(ls "$build/package")"
status=0
findings=$(lintian --fail-on error "$deb" 2>&1) || status=$?
echo "$findings"
[ "$status" -eq 0 ] || fail "lintian found errors in $deb"
echo "built and clean: $deb"

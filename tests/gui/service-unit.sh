#!/usr/bin/env bash
# The service unit as `cmake --install` puts it beside the program: it passes
# `systemd-analyze verify`, and its offline security rating (printed) stays
# below 4.0. No running systemd is needed. Usage: service-unit.sh BUILD_DIR
set -euo pipefail
command -v systemd-analyze >/dev/null || { echo "systemd-analyze is missing; skipped" >&2; exit 77; }
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
DESTDIR=$root cmake --install "$1" >/dev/null
unit=$(find "$root" -name quorvy.service -path '*/lib/systemd/system/*')
program=$(sed -n 's/^ExecStart=\([^ ]*\) --headless --data-dir \/var\/lib\/tarnvel-dhcp$/\1/p' "$unit")
[ -x "$root$program" ] || { echo "ExecStart names $program, which the install did not put there" >&2; exit 1; }
# Verified where it points at the installed program, since verify looks for
# the program under its path on this machine.
sed "s|^ExecStart=$program |ExecStart=$root$program |" "$unit" > "$root/quorvy.service"
# An unknown key is only a warning to verify; here it fails as well.
problems=$(systemd-analyze verify --man=no "$root/quorvy.service" 2>&1) || { echo "$problems" >&2; exit 1; }
[ -z "$problems" ] || { echo "$problems" >&2; exit 1; }
rating=$(systemd-analyze security --offline=true "$unit" | sed -n 's/.*exposure level for quorvy.service: \([0-9.]*\).*/\1/p')
echo "systemd-analyze security --offline=true: exposure $rating"
awk -v r="$rating" 'BEGIN { exit !(r != "" && r < 4.0) }'

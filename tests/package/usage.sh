#!/usr/bin/env bash
# quorvy --help and --version: status 0 and their texts without any display,
# even where Qt would have to open one (QT_QPA_PLATFORM=xcb without DISPLAY
# ends a program that builds its QApplication).
# Usage: usage.sh PROGRAM VERSION
set -euo pipefail
source "$(dirname "$0")/common.sh"
program=$1
version=$2
run() { env -u DISPLAY -u WAYLAND_DISPLAY QT_QPA_PLATFORM=xcb "$program" "$@"; }

help=$(run --help) || fail "--help ended with status $?"
for word in "Usage: quorvy" " -m " " -s " "--help" "--version" settings.cfg log.txt \
            '$TEMP' quorvy_en.qm cap_net_bind_service tarnvel-dhcp "usermod -aG" SIGTERM; do
  grep -qF -- "$word" <<<"$help" || fail "--help does not mention $word"
done
wide=$(awk 'length > 80' <<<"$help")
[ -z "$wide" ] || fail "--help lines wider than 80 columns: $wide"

text=$(run --version) || fail "--version ended with status $?"
[ "$text" = "quorvy (Tarnvel DHCP Server) $version" ] || fail "--version printed: $text"
# The switches count in capitals, as -m and -s do.
[ "$(run --VERSION)" = "$text" ] || fail "--VERSION differs from --version"
echo "help and version: fine without a display"

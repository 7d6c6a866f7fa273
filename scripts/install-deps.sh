#!/usr/bin/env bash
# Installs every Debian package that building, running, packaging and testing
# need. Run as root on Debian 12. Packages that are already there cost nothing.
# With --check it installs nothing: it names the missing packages and ends
# with status 1 when there are any (scripts/run.sh asks first, so that a
# normal user needs sudo only when something is missing).
set -euo pipefail

packages=(
  # build
  build-essential cmake ninja-build ccache pkg-config
  clang libclang-rt-14-dev
  qt6-base-dev qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools libgl-dev
  libcap-dev libcap2-bin
  # package: manual page, dependencies, checks
  help2man dpkg-dev lintian desktop-file-utils appstream
  # tests and benchmarks
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  iproute2 procps busybox isc-dhcp-client dhcpcd5 kea-admin nftables tcpdump util-linux
  systemd
  xvfb xauth sudo
  # bench/perf.sh runs kea-dhcp4 itself, inside its namespaces
  kea-dhcp4-server
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ "${1:-}" = "--check" ]; then
  [ ${#missing[@]} -eq 0 ] && exit 0
  echo "missing packages: ${missing[*]}"
  exit 1
fi
if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update
  apt-get install -y --no-install-recommends "${missing[@]}"
  # The package's own service must never answer on the machine's interfaces.
  if [[ " ${missing[*]} " == *" kea-dhcp4-server "* ]] && command -v systemctl >/dev/null; then
    systemctl disable --now kea-dhcp4-server 2>/dev/null || true
  fi
fi

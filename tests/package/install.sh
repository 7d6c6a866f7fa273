#!/usr/bin/env bash
# The Debian package on this machine, from install to purge:
#   apt-get install ./tarnvel-dhcp-server_<version>_<arch>.deb
#   postinst: the group, root:tarnvel-dhcp 0754 and cap_net_bind_service;
#   run again with a failing setcap, it warns and succeeds
#   a member of the group runs the installed /usr/bin/quorvy -m -s from its
#   home folder in a network namespace whose privileged-port limit is left at
#   its default, serves busybox udhcpc, stops on SIGTERM; settings, lease file
#   and log are in that user's folders
#   a user outside the group cannot run it
#   the service unit is there, naming /usr/bin/quorvy, and not enabled
#   apt-get purge: no file the package listed is left, nor the group, nor a
#   record of the service
# The package, the test users and the namespaces go also when a step fails.
# Needs root (77 without). Usage: install.sh BUILD_DIR VERSION
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/common.sh"
source "$here/../../scripts/sandbox.sh"
package=tarnvel-dhcp-server
deb=$(realpath "$1")/package/${package}_${2}_$(dpkg --print-architecture).deb
require_root "apt-get, users, network namespaces"
[ -f "$deb" ] || fail "no $deb (package.deb builds it)"
command -v busybox >/dev/null || skip "busybox is missing"
# Never purge a copy that somebody installed for real.
if dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed"; then
  skip "$package is installed on this machine already; this test would purge it"
fi

member=qpkgm$$
outsider=qpkgo$$
work=$(mktemp -d /tmp/quorvy-package.XXXXXX)
installed=
pid=
cleanup() {
  set +e
  if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
    kill -TERM "$pid"; wait "$pid" 2>/dev/null
  fi
  sandbox_remove
  [ -n "$installed" ] && apt-get purge -y -q -o DPkg::Lock::Timeout=300 "$package" >/dev/null 2>&1
  userdel -r "$member" 2>/dev/null
  userdel -r "$outsider" 2>/dev/null
  rm -rf "$work"
  return 0
}
trap cleanup EXIT

echo "== apt-get install $deb"
installed=yes
apt-get install -y -q -o DPkg::Lock::Timeout=300 "$deb" > "$work/install.out" 2>&1 ||
  { cat "$work/install.out" >&2; fail "apt-get install"; }
grep -q "sudo usermod -aG tarnvel-dhcp USER" "$work/install.out" || fail "postinst did not say how to join the group"
dpkg -L "$package" > "$work/listed"
unit=/usr/lib/systemd/system/quorvy.service
for path in /usr/bin/quorvy /usr/share/tarnvel-dhcp-server/quorvy_en.qm /usr/share/applications/quorvy.desktop \
            /usr/share/metainfo/org.tarnvel.quorvy.metainfo.xml /usr/share/icons/hicolor/48x48/apps/quorvy.png \
            /usr/share/man/man1/quorvy.1.gz /usr/share/doc/$package/copyright $unit; do
  grep -qx "$path" "$work/listed" || fail "the package lacks $path"
done
grep -qx "ExecStart=/usr/bin/quorvy --headless --data-dir /var/lib/tarnvel-dhcp" "$unit" ||
  fail "the unit does not start the installed program: $(grep ExecStart "$unit")"
# Shipped, not enabled.
services=/etc/systemd/system
! ls $services/*.wants/quorvy.service > /dev/null 2>&1 || fail "the service was enabled on installation"
[ "$(stat -c '%U:%G %a' /usr/bin/quorvy)" = "root:tarnvel-dhcp 754" ] ||
  fail "/usr/bin/quorvy is $(stat -c '%U:%G %a' /usr/bin/quorvy)"
capabilities=$(getcap /usr/bin/quorvy)
[[ "$capabilities" == *"cap_net_bind_service=ep" ]] || fail "capabilities: '$capabilities'"
gid=$(getent group tarnvel-dhcp | cut -d: -f3) || fail "no group tarnvel-dhcp"
[ "$gid" -lt 1000 ] || fail "tarnvel-dhcp is not a system group (gid $gid)"

# A file system without extended attributes: setcap fails, postinst warns and succeeds.
mkdir "$work/nosetcap"
printf '#!/bin/sh\nexit 1\n' > "$work/nosetcap/setcap"
chmod +x "$work/nosetcap/setcap"
PATH="$work/nosetcap:$PATH" sh "/var/lib/dpkg/info/$package.postinst" configure > "$work/nosetcap.out" 2>&1 ||
  { cat "$work/nosetcap.out" >&2; fail "postinst failed with a failing setcap"; }
grep -q "WARNING: could not give /usr/bin/quorvy the capability" "$work/nosetcap.out" ||
  fail "no warning for the failed setcap: $(cat "$work/nosetcap.out")"

useradd -m -s /bin/sh -G tarnvel-dhcp "$member"
useradd -m -s /bin/sh "$outsider"
if runuser -u "$outsider" -- /usr/bin/quorvy --version > "$work/outsider.out" 2>&1; then
  fail "a user outside the group ran /usr/bin/quorvy"
fi
grep -q "Permission denied" "$work/outsider.out" || fail "outsider: $(cat "$work/outsider.out")"

echo "== $member serves a client with the installed program"
home=$(getent passwd "$member" | cut -d: -f6)
data="$home/.local/share/Tarnvel/DHCP Server"
sandbox_create 10.214.0 qpkg "$work"
limit=$(ip netns exec "$SANDBOX_SERVER_NS" cat /proc/sys/net/ipv4/ip_unprivileged_port_start)
[ "$limit" -gt 67 ] || fail "port 67 is unprivileged in the namespace (limit $limit)"
mkdir -p "$data" "$work/runtime"
sandbox_settings "$data/settings.cfg"
chown -R "$member": "$home/.local" "$work/runtime"
chmod 700 "$work/runtime"
(
  cd "$home"
  exec ip netns exec "$SANDBOX_SERVER_NS" setpriv --reuid="$member" --regid="$member" --init-groups \
    env -i HOME="$home" USER="$member" PATH=/usr/bin:/bin QT_QPA_PLATFORM=offscreen \
    XDG_RUNTIME_DIR="$work/runtime" /usr/bin/quorvy -m -s
) > "$work/program.out" 2>&1 &
pid=$!
sandbox_wait_for_server || { cat "$work/program.out" >&2; fail "the program does not listen on port 67"; }
[ "$(stat -c %U "/proc/$pid")" = "$member" ] || fail "the server runs as $(stat -c %U "/proc/$pid")"
# Effective: cap_net_bind_service (bit 10) alone, from the program file.
effective=$(awk '/^CapEff:/ { print $2 }' "/proc/$pid/status")
[ "$effective" = 0000000000000400 ] || fail "effective capabilities of the server: $effective"
sandbox_run_client > "$work/client.out" 2>&1 || { cat "$work/client.out" >&2; fail "udhcpc got no lease"; }
grep -q "^address:    10.214.0.1[0-9][0-9]/" "$work/client-lease.txt" || fail "lease: $(cat "$work/client-lease.txt")"
kill -TERM "$pid"
status=0
wait "$pid" || status=$?
pid=
[ "$status" -eq 0 ] || { cat "$work/program.out" >&2; fail "quorvy ended with status $status after SIGTERM"; }

# The program saved the settings again (with the keys that the test's file
# left out), appended its log and wrote the lease file, all as the member.
grep -q "^MinimizeToSystemTray " "$data/settings.cfg" || fail "settings.cfg was not saved again"
leases=$home/.local/state/quorvy/quorvy_leases_10.214.0.1.dat
for file in "$data/settings.cfg" "$data/log.txt" "$leases"; do
  [ -s "$file" ] || fail "missing or empty: $file"
  [ "$(stat -c %U "$file")" = "$member" ] || fail "$file belongs to $(stat -c %U "$file")"
done
grep -q "DHCP ACK sent" "$data/log.txt" || fail "no ACK in the log"

echo "== apt-get purge"
apt-get purge -y -q -o DPkg::Lock::Timeout=300 "$package" > "$work/purge.out" 2>&1 ||
  { cat "$work/purge.out" >&2; fail "apt-get purge"; }
installed=
# Directories stay where other packages' files still live in them.
while read -r path; do
  if [ -d "$path" ]; then
    [ -n "$(ls -A "$path")" ] || dpkg-query -S "$path" >/dev/null 2>&1 || fail "empty folder left: $path"
  elif [ -e "$path" ] || [ -L "$path" ]; then
    fail "left after purge: $path"
  fi
done < "$work/listed"
! getent group tarnvel-dhcp >/dev/null || fail "the group tarnvel-dhcp is left"
! ls $services/quorvy.service /var/lib/systemd/deb-systemd-helper-*/*quorvy* > /dev/null 2>&1 ||
  fail "records of the service are left: $(ls $services/quorvy.service /var/lib/systemd/deb-systemd-helper-*/*quorvy* 2>/dev/null)"
! dpkg-statoverride --list /usr/bin/quorvy >/dev/null || fail "the owner override of /usr/bin/quorvy is left"
echo "installed, served as a group member, refused to an outsider, purged without a trace"

#!/usr/bin/env bash
# scripts/run.sh where there is no display: status 0, the sandbox's client got
# its lease, and nothing listened on UDP port 67 outside the sandbox while it
# ran. MODE root runs it as root; MODE sudo as a throwaway normal user with a
# NOPASSWD sudoers entry, who owns the build folder for the time of the run
# (run.sh builds as the user; the build is reused, nothing is compiled).
# Needs root (77 without). Usage: run_sh.sh root|sudo BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/common.sh"
source_tree=$(cd "$here/../.." && pwd)
mode=$1
build=$(realpath "$2")
require_root "network namespaces, users"
command -v sudo >/dev/null || fail "sudo is missing (scripts/install-deps.sh installs it)"
if ss -Huln 'sport = :67' | grep -q .; then
  skip "something listens on UDP port 67 on this machine already"
fi

user=qrun$$
sudoers=/etc/sudoers.d/quorvy-test-$$
work=$(mktemp -d /tmp/quorvy-run.XXXXXX)
build_owner=$(stat -c %u:%g "$build")
sampler=
cleanup() {
  set +e
  [ -n "$sampler" ] && kill "$sampler" 2>/dev/null
  rm -f "$sudoers"
  if [ "$mode" = sudo ]; then
    chown -R "$build_owner" "$build"
    userdel -r "$user" 2>/dev/null
  fi
  rm -rf "$work"
  return 0
}
trap cleanup EXIT

# Without SUDO_USER even where the test command itself runs under sudo: root
# here is root without a caller.
command=(env -u DISPLAY -u WAYLAND_DISPLAY -u SUDO_USER TARNVEL_BUILD_DIR="$build" bash "$source_tree/scripts/run.sh")
if [ "$mode" = sudo ]; then
  useradd -m -s /bin/bash "$user"
  runuser -u "$user" -- test -r "$source_tree/scripts/run.sh" ||
    skip "the source tree is not readable by other users"
  echo "$user ALL=(ALL) NOPASSWD: ALL" > "$sudoers"
  chmod 440 "$sudoers"
  visudo -cqf "$sudoers" || fail "sudoers entry rejected"
  chown -R "$user": "$build"
  command=(runuser -u "$user" -- "${command[@]}")
fi

# Every listener on port 67 of this namespace, sampled while run.sh runs.
(
  while :; do
    ss -Hulnp 'sport = :67' >> "$work/port67.txt"
    sleep 0.1
  done
) &
sampler=$!
status=0
"${command[@]}" > "$work/run.out" 2>&1 || status=$?
kill "$sampler"
wait "$sampler" 2>/dev/null || true
sampler=

[ "$status" -eq 0 ] || { tail -n 40 "$work/run.out" >&2; fail "run.sh ended with status $status"; }
grep -q "There is no desktop here" "$work/run.out" || fail "run.sh did not say that there is no desktop"
grep -q "^address:    10.213.0.1[0-9][0-9]/" "$work/run.out" || { cat "$work/run.out" >&2; fail "no lease in the sandbox"; }
[ ! -s "$work/port67.txt" ] || fail "port 67 was open outside the sandbox: $(sort -u "$work/port67.txt")"
echo "run.sh as $mode without a display: the sandbox served its client; port 67 stayed closed here"

#!/usr/bin/env bash
# Shows the desktop program serving a real DHCP client, entirely inside two
# network namespaces that this script creates and removes (scripts/sandbox.sh):
#   server namespace: veth end with 10.213.0.1/24, `quorvy -m -s` (offscreen)
#   client namespace: the other veth end, busybox udhcpc with its own hook
# It prints what the client got and the program's log, stops the program by
# its PID with SIGTERM (which closes it like "Zakończ") and cleans up.
# Usage: demo.sh [BUILD_DIR], by default build/.
# Needs root; installs and builds first when the program is not built yet. Never touches the
# machine's own interfaces or /etc/resolv.conf.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/sandbox.sh

build=${1:-build}
program=$(realpath -m "$build/src/gui/quorvy")
if [ ! -x "$program" ]; then
  # A fresh machine: install what is needed and build first.
  [ "$(id -u)" -eq 0 ] && bash scripts/install-deps.sh
  bash scripts/build.sh "$build"
fi
# 77: skipped (CTest runs this script as a test).
[ "$(id -u)" -eq 0 ] || { echo "the demo needs root (network namespaces); skipped" >&2; exit 77; }
command -v busybox >/dev/null || { echo "busybox is missing; skipped" >&2; exit 77; }
ip netns add "qdemo-probe-$$" 2>/dev/null || { echo "cannot create network namespaces; skipped" >&2; exit 77; }
ip netns del "qdemo-probe-$$"

data=$(mktemp -d /tmp/quorvy-demo.XXXXXX)
pid=

cleanup() {
  if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
    kill -TERM "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  fi
  sandbox_remove
  rm -rf "$data"
}
trap cleanup EXIT INT TERM

sandbox_create 10.213.0 qdemo "$data"
echo "== namespaces $SANDBOX_SERVER_NS and $SANDBOX_CLIENT_NS"
sandbox_settings "$data/settings.cfg"

echo "== starting quorvy -m -s in $SANDBOX_SERVER_NS"
# The data folder is the current directory (a home folder itself would not
# be: the program would move to its XDG data folder then).
mkdir -p "$data/home" "$data/runtime"
chmod 700 "$data/runtime"
(
  cd "$data"
  exec ip netns exec "$SANDBOX_SERVER_NS" env QT_QPA_PLATFORM=offscreen TEMP="$data" HOME="$data/home" \
    XDG_RUNTIME_DIR="$data/runtime" "$program" -m -s
) > "$data/program.out" 2>&1 &
pid=$!
sandbox_wait_for_server || { echo "the program does not listen on port 67" >&2; cat "$data/program.out" >&2; exit 1; }

echo "== busybox udhcpc in $SANDBOX_CLIENT_NS"
sandbox_run_client

echo "== what the client got"
cat "$data/client-lease.txt"
ip -n "$SANDBOX_CLIENT_NS" -4 address show dev "$SANDBOX_CLIENT_LINK" | sed -n 's/^ *inet /inet /p'

echo "== stopping quorvy (PID $pid) with SIGTERM"
kill -TERM "$pid"
status=0
wait "$pid" || status=$?
pid=
echo "exit status: $status"
[ "$status" -eq 0 ] || exit 1

echo "== the program's log ($data/log.txt)"
cat "$data/log.txt"
grep -q "DHCP ACK sent" "$data/log.txt" || { echo "no ACK in the log" >&2; exit 1; }
grep -q "Server stop" "$data/log.txt" || { echo "no stop in the log" >&2; exit 1; }
echo "== the settings it saved at closing"
tr -d '\r' < "$data/settings.cfg" | head -n 9

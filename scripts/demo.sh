#!/usr/bin/env bash
# Shows the desktop program serving a real DHCP client, entirely inside two
# network namespaces that this script creates and removes:
#   server namespace: veth end with 10.213.0.1/24, `quorvy -m -s` (offscreen)
#   client namespace: the other veth end, busybox udhcpc with its own hook
# It prints what the client got and the program's log, stops the program by
# its PID with SIGTERM (which closes it like "Zakończ") and cleans up.
# Needs root; installs and builds first when the program is not built yet. Never touches the
# machine's own interfaces or /etc/resolv.conf.
set -euo pipefail
cd "$(dirname "$0")/.."

program=$PWD/build/src/gui/quorvy
if [ ! -x "$program" ]; then
  # A fresh machine: install what is needed and build first.
  [ "$(id -u)" -eq 0 ] && bash scripts/install-deps.sh
  bash scripts/build.sh
fi
# 77: skipped (CTest runs this script as a test).
[ "$(id -u)" -eq 0 ] || { echo "the demo needs root (network namespaces); skipped" >&2; exit 77; }
command -v busybox >/dev/null || { echo "busybox is missing; skipped" >&2; exit 77; }
ip netns add "qdemo-probe-$$" 2>/dev/null || { echo "cannot create network namespaces; skipped" >&2; exit 77; }
ip netns del "qdemo-probe-$$"

id=$$
server_ns=qdemo-srv-$id
client_ns=qdemo-cli-$id
server_link=qds$id
client_link=qdc$id
data=$(mktemp -d /tmp/quorvy-demo.XXXXXX)
pid=

cleanup() {
  if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
    kill -TERM "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  fi
  ip netns del "$client_ns" 2>/dev/null || true
  ip netns del "$server_ns" 2>/dev/null || true
  rm -rf "$data"
}
trap cleanup EXIT INT TERM

echo "== namespaces $server_ns and $client_ns"
ip netns add "$server_ns"
ip netns add "$client_ns"
ip link add "$server_link" type veth peer name "$client_link"
ip link set "$server_link" netns "$server_ns"
ip link set "$client_link" netns "$client_ns"
ip -n "$server_ns" link set lo up
ip -n "$client_ns" link set lo up
ip -n "$server_ns" address add 10.213.0.1/24 dev "$server_link"
ip -n "$server_ns" link set "$server_link" up
ip -n "$client_ns" link set "$client_link" up

# The settings file of the data folder: a pool in the namespace's subnet and
# the log switched on. CR LF line ends, as the program writes them.
printf '%s\r\n' \
  "PoolStartAddress 10.213.0.100" \
  "PoolEndAddress 10.213.0.150" \
  "SubnetMask 255.255.255.0" \
  "DefaultGateway 10.213.0.1" \
  "DNSAddress1 10.213.0.1" \
  "LeaseDuration 600" \
  "PreferredListeningAddress 10.213.0.1" \
  "LoggingEnabled True" \
  "LogFilePath \"log.txt\"" > "$data/settings.cfg"

echo "== starting quorvy -m -s in $server_ns"
# The data folder is the current directory (a home folder itself would not
# be: the program would move to its XDG data folder then).
mkdir -p "$data/home" "$data/runtime"
chmod 700 "$data/runtime"
(
  cd "$data"
  exec ip netns exec "$server_ns" env QT_QPA_PLATFORM=offscreen TEMP="$data" HOME="$data/home" \
    XDG_RUNTIME_DIR="$data/runtime" "$program" -m -s
) > "$data/program.out" 2>&1 &
pid=$!

# The program binds its socket while the window starts; give it a moment.
for _ in $(seq 1 50); do
  if ip netns exec "$server_ns" ss -uln 2>/dev/null | grep -q ':67 '; then break; fi
  sleep 0.1
done
ip netns exec "$server_ns" ss -uln | grep -q ':67 ' || { echo "the program does not listen on port 67" >&2; cat "$data/program.out" >&2; exit 1; }

# The client's hook only writes down what it was given and puts the address
# on its own namespace's link.
cat > "$data/udhcpc-hook.sh" <<HOOK
#!/bin/sh
case "\$1" in
  bound|renew)
    ip address add "\$ip/\${mask:-24}" dev "\$interface"
    {
      echo "address:    \$ip/\${mask}"
      echo "router:     \${router:-none}"
      echo "dns:        \${dns:-none}"
      echo "lease:      \${lease}s"
      echo "server id:  \${serverid}"
    } > "$data/client-lease.txt"
    ;;
esac
exit 0
HOOK
chmod +x "$data/udhcpc-hook.sh"

echo "== busybox udhcpc in $client_ns"
ip netns exec "$client_ns" busybox udhcpc -i "$client_link" -f -q -n -t 5 -T 2 \
  -s "$data/udhcpc-hook.sh" -x hostname:quorvy-demo

echo "== what the client got"
cat "$data/client-lease.txt"
ip -n "$client_ns" -4 address show dev "$client_link" | sed -n 's/^ *inet /inet /p'

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

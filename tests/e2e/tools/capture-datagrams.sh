#!/bin/bash
# Records one DISCOVER and one REQUEST of busybox udhcpc and of ISC dhclient
# into tests/data/datagrams/ (and the fuzz seed corpus). Run by hand, as root:
#   tests/e2e/tools/capture-datagrams.sh
# Everything happens inside two network namespaces joined by a veth pair,
# created here and removed on exit; the clients run with hook scripts of
# their own that change nothing, and with their own lease and pid files.
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/../../.." && pwd)
OUT="$ROOT/tests/data/datagrams"
CORPUS="$ROOT/tests/fuzz/corpus/Datagram"
WORK=$(mktemp -d /tmp/tarnvel-capture.XXXXXX)
TAG="tvcap$$"
SERVER_NS="${TAG}s"
CLIENT_NS="${TAG}c"
SERVER_IF="${TAG}s"
CLIENT_IF="${TAG}c"
SERVER_ADDRESS=10.77.1.1
OFFERED_ADDRESS=10.77.1.2
HOST_NAME=tarnveltest
UDHCPC_MAC=02:74:76:75:64:01
DHCLIENT_MAC=02:74:76:64:68:02
# Option 61 for udhcpc: type 0 and the text "tarnvel-udhcpc".
UDHCPC_CLIENT_ID=007461726e76656c2d756468637063
CLIENT_PID=""
CAPTURE_PID=""

cleanup() {
    for pid in $CLIENT_PID $CAPTURE_PID; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    ip netns del "$SERVER_NS" 2>/dev/null || true
    ip netns del "$CLIENT_NS" 2>/dev/null || true
    rm -rf "$WORK"
}
trap cleanup EXIT

[ "$(id -u)" = 0 ] || { echo "run as root" >&2; exit 1; }

echo "building the capture tool"
g++ -std=c++20 -O1 -Wall -Wextra -I"$ROOT/src/core" -I"$ROOT/tests" "$ROOT/tests/e2e/tools/capture_datagrams.cpp" \
    "$ROOT/tests/support/ClientDatagram.cpp" "$ROOT"/src/core/platform/*.cpp "$ROOT"/src/core/foundation/*.cpp \
    -pthread -o "$WORK/capture"

cat > "$WORK/hook.sh" <<HOOK
#!/bin/sh
# Records the event and changes nothing on the machine.
echo "hook: \$0 \$1 reason=\${reason:-} ip=\${ip:-} new_ip_address=\${new_ip_address:-}" >> "$WORK/hook.log"
exit 0
HOOK
chmod +x "$WORK/hook.sh"

# Debian's default dhclient.conf, with a fixed host name instead of the machine's.
cat > "$WORK/dhclient.conf" <<CONF
option rfc3442-classless-static-routes code 121 = array of unsigned integer 8;
send host-name "$HOST_NAME";
request subnet-mask, broadcast-address, time-offset, routers,
	domain-name, domain-name-servers, domain-search, host-name,
	dhcp6.name-servers, dhcp6.domain-search, dhcp6.fqdn, dhcp6.sntp-servers,
	netbios-name-servers, netbios-scope, interface-mtu,
	rfc3442-classless-static-routes, ntp-servers;
CONF

make_namespaces() {
    local mac=$1
    ip netns add "$SERVER_NS"
    ip netns add "$CLIENT_NS"
    ip link add "$SERVER_IF" netns "$SERVER_NS" type veth peer name "$CLIENT_IF" netns "$CLIENT_NS"
    ip -n "$CLIENT_NS" link set "$CLIENT_IF" address "$mac"
    ip -n "$SERVER_NS" address add "$SERVER_ADDRESS/24" dev "$SERVER_IF"
    ip -n "$SERVER_NS" link set "$SERVER_IF" up
    ip -n "$CLIENT_NS" link set "$CLIENT_IF" up
}

remove_namespaces() {
    ip netns del "$SERVER_NS"
    ip netns del "$CLIENT_NS"
}

start_capture() {
    local prefix=$1
    # Ended by the time-out when the client never gets as far as a REQUEST.
    timeout 30 ip netns exec "$SERVER_NS" "$WORK/capture" "$SERVER_ADDRESS" "$OFFERED_ADDRESS" "$WORK/$prefix" \
        2> "$WORK/capture-$prefix.log" &
    CAPTURE_PID=$!
    for _ in $(seq 50); do
        grep -q listening "$WORK/capture-$prefix.log" && return 0
        sleep 0.1
    done
    cat "$WORK/capture-$prefix.log" >&2
    return 1
}

finish_capture() {
    local prefix=$1 status=0
    wait "$CAPTURE_PID" || status=$?
    CAPTURE_PID=""
    cat "$WORK/capture-$prefix.log"
    [ "$status" = 0 ] || { echo "capture for $prefix failed" >&2; exit 1; }
    cp "$WORK/$prefix-discover.bin" "$WORK/$prefix-request.bin" "$OUT/"
    mkdir -p "$CORPUS"
    cp "$WORK/$prefix-discover.bin" "$WORK/$prefix-request.bin" "$CORPUS/"
}

mkdir -p "$OUT"

echo "== busybox udhcpc"
make_namespaces "$UDHCPC_MAC"
start_capture udhcpc
timeout 30 ip netns exec "$CLIENT_NS" busybox udhcpc -i "$CLIENT_IF" -s "$WORK/hook.sh" -f -q -n -t 3 -T 2 \
    -x "hostname:$HOST_NAME" -x "0x3d:$UDHCPC_CLIENT_ID" > "$WORK/udhcpc.log" 2>&1 &
CLIENT_PID=$!
finish_capture udhcpc
wait "$CLIENT_PID" || true
CLIENT_PID=""
cat "$WORK/udhcpc.log"
remove_namespaces

echo "== ISC dhclient"
make_namespaces "$DHCLIENT_MAC"
start_capture dhclient
ip netns exec "$CLIENT_NS" dhclient -4 -d -1 -v -cf "$WORK/dhclient.conf" -sf "$WORK/hook.sh" \
    -lf "$WORK/dhclient.leases" -pf "$WORK/dhclient.pid" "$CLIENT_IF" > "$WORK/dhclient.log" 2>&1 &
CLIENT_PID=$!
finish_capture dhclient
sleep 1 # let it take the ACK, so the log shows a complete exchange
kill "$CLIENT_PID"
wait "$CLIENT_PID" || true
CLIENT_PID=""
cat "$WORK/dhclient.log"
remove_namespaces

cat "$WORK/hook.log"
echo "written to $OUT and $CORPUS"

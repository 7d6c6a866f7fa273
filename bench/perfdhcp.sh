#!/bin/bash
# Throughput of the engine under Kea's perfdhcp: full DISCOVER/OFFER/REQUEST/ACK
# exchanges per second, drops, and the server's CPU time.
#
#   sudo bench/perfdhcp.sh [build-dir]
#
# Everything runs inside two network namespaces that this script creates and
# removes: the engine (tests/e2e/tarnvel_engine_driver) on one end of a veth
# pair with a /16 pool, perfdhcp on the other. perfdhcp poses as a relay: it
# sends from port 67 and listens there, while the server always answers to
# 255.255.255.255:68. A stateless nftables rule in the client namespace hands
# those replies to perfdhcp's socket. The templates carry giaddr 0, hops 0 and
# the broadcast flag, so the server sees what a directly attached client sends.
#
# The rate is searched with short probes (each on a fresh server), doubling
# until more than MAX_DROP_PERCENT of the exchanges stay incomplete and then
# halving the gap twice; the best rate runs for DURATION seconds. Every run is bounded in time.
#
# Environment: DURATION (10); PROBE (DURATION: a rate counts as sustainable
# only when it holds as long as the final run); MAX_DROP_PERCENT (1); LOGGING
# (0: the server keeps no log; 1: it logs every event to a file); PROFILE (0;
# 1: the final run is sampled with `perf record`, hottest functions printed).
set -euo pipefail

BUILD_DIR=${1:-build}
DRIVER=$(realpath "$BUILD_DIR/tests/e2e/tarnvel_engine_driver")
DURATION=${DURATION:-10}
PROBE=${PROBE:-$DURATION}
MAX_DROP_PERCENT=${MAX_DROP_PERCENT:-1}
LOGGING=${LOGGING:-0}
PROFILE=${PROFILE:-0}
RATES=(250 500 1000 2000 4000 8000 16000 32000)

die() { echo "perfdhcp.sh: $*" >&2; exit 1; }
[ "$(id -u)" = 0 ] || die "needs root (network namespaces)"
command -v perfdhcp >/dev/null || die "perfdhcp missing (package kea-admin)"
command -v nft >/dev/null || die "nft missing (package nftables)"
[ -x "$DRIVER" ] || die "no driver at $DRIVER; build first"

# Unique names: the PID keeps parallel runs apart; 15 characters at most.
SERVER_NS=tvb$$s
CLIENT_NS=tvb$$c
SERVER_IF=tvb$$s
CLIENT_IF=tvb$$c
SERVER_ADDRESS=10.199.0.1
CLIENT_ADDRESS=10.199.0.2
POOL=10.199.1.1-10.199.254.254
WORK=$(mktemp -d /tmp/tarnvel-bench.XXXXXX)
SERVER_PID=""
TICKS=$(getconf CLK_TCK)

cleanup() {
    stop_server || true
    ip netns del "$CLIENT_NS" 2>/dev/null || true
    ip netns del "$SERVER_NS" 2>/dev/null || true
    rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

ip netns add "$SERVER_NS"
ip netns add "$CLIENT_NS"
ip link add "$SERVER_IF" netns "$SERVER_NS" type veth peer name "$CLIENT_IF" netns "$CLIENT_NS"
ip -n "$SERVER_NS" link set lo up
ip -n "$CLIENT_NS" link set lo up
ip -n "$SERVER_NS" address add "$SERVER_ADDRESS/16" dev "$SERVER_IF"
ip -n "$CLIENT_NS" address add "$CLIENT_ADDRESS/16" dev "$CLIENT_IF"
ip -n "$SERVER_NS" link set "$SERVER_IF" up
ip -n "$CLIENT_NS" link set "$CLIENT_IF" up

# Replies to 255.255.255.255:68 become datagrams to perfdhcp's own address and
# port, before routing and without connection tracking.
ip netns exec "$CLIENT_NS" nft -f - <<EOF
table ip tarnvel_bench {
    chain replies {
        type filter hook prerouting priority raw; policy accept;
        iifname "$CLIENT_IF" udp dport 68 notrack ip daddr set $CLIENT_ADDRESS udp dport set 67
    }
}
EOF

# Templates: the fixed header (op 1, htype 1, hlen 6, hops 0, flags 0x8000,
# giaddr 0, chaddr 02:00:00:00:00:00), the cookie, then the options.
# DISCOVER: 53=1, 55=1,3,6, End.
# REQUEST:  53=3, 50 at offset 243, 54 at offset 249, 55=1,3,6, End.
python3 - "$WORK" <<'EOF'
import sys
header = bytes([1, 1, 6, 0]) + bytes(6) + bytes([0x80, 0]) + bytes(16) + bytes([2, 0, 0, 0, 0, 0]) \
    + bytes(10) + bytes(64) + bytes(128) + bytes([99, 130, 83, 99])
assert len(header) == 240
discover = header + bytes([53, 1, 1, 55, 3, 1, 3, 6, 255])
request = header + bytes([53, 1, 3, 50, 4, 0, 0, 0, 0, 54, 4, 0, 0, 0, 0, 55, 3, 1, 3, 6, 255])
for name, packet in (("discover.hex", discover), ("request.hex", request)):
    with open(f"{sys.argv[1]}/{name}", "w") as file:
        file.write(packet.hex() + "\n")
EOF
TEMPLATE_OPTIONS=(-T "$WORK/discover.hex" -T "$WORK/request.hex" -X 4 -O 33 -S 249 -I 243)

RUN=0
start_server() {
    RUN=$((RUN + 1))
    local folder="$WORK/run$RUN"
    mkdir -p "$folder"
    local logging=()
    [ "$LOGGING" = 1 ] && logging=(--log "$folder/log.txt")
    # Its own folder as working directory and TEMP: a fresh, empty lease table.
    (cd "$folder" && exec env TEMP="$folder" ip netns exec "$SERVER_NS" "$DRIVER" \
        --pool "$POOL" --mask 16 --lease 3600 "${logging[@]}" >"$folder/server.out" 2>&1) &
    SERVER_PID=$!
    for _ in $(seq 100); do
        grep -q '^listening' "$folder/server.out" 2>/dev/null && return 0
        kill -0 "$SERVER_PID" 2>/dev/null || break
        sleep 0.05
    done
    cat "$folder/server.out" >&2
    die "server did not start"
}

stop_server() {
    [ -n "$SERVER_PID" ] || return 0
    kill -TERM "$SERVER_PID" 2>/dev/null || true
    wait "$SERVER_PID" 2>/dev/null || true
    SERVER_PID=""
}

cpu_seconds() {
    awk -v ticks="$TICKS" '{ printf "%.2f", ($14 + $15) / ticks }' "/proc/$1/stat"
}

# perfdhcp at `rate` for `seconds`; leaves its report in $WORK/perfdhcp.out.
run_perfdhcp() {
    local rate=$1 seconds=$2
    ip netns exec "$CLIENT_NS" timeout $((seconds + 20)) perfdhcp -4 -l "$CLIENT_ADDRESS" "${TEMPLATE_OPTIONS[@]}" \
        -R 16000000 -r "$rate" -p "$seconds" "$SERVER_ADDRESS" >"$WORK/perfdhcp.out" 2>&1 || true
}

# Fields of the last report: sent and received of both exchanges, the rate.
read_report() {
    awk '
        /Statistics for: DISCOVER-OFFER/ { section = "do" }
        /Statistics for: REQUEST-ACK/ { section = "ra" }
        /^sent packets:/ { sent[section] = $3 }
        /^received packets:/ { received[section] = $3 }
        /^Rate:/ { rate = $2 }
        END {
            printf "%s %d %d %d %d\n", (rate == "" ? 0 : rate), sent["do"], received["do"], sent["ra"], received["ra"]
        }' "$WORK/perfdhcp.out"
}

# Exchanges started but not completed, in percent.
incomplete_percent() {
    local discovers=$1 acks=$2
    awk -v d="$discovers" -v a="$acks" 'BEGIN { printf "%.2f", (d == 0 ? 100 : (d - a) * 100 / d) }'
}

# One probe on a fresh server; true when at most MAX_DROP_PERCENT of its
# exchanges stayed incomplete.
probe() {
    local rate=$1
    start_server
    run_perfdhcp "$rate" "$PROBE"
    stop_server
    read -r achieved do_sent do_received ra_sent ra_received < <(read_report)
    incomplete=$(incomplete_percent "$do_sent" "$ra_received")
    printf "  rate %6d/s: %8s exchanges/s, %s %% incomplete\n" "$rate" "$achieved" "$incomplete"
    awk -v i="$incomplete" -v m="$MAX_DROP_PERCENT" 'BEGIN { exit !(i <= m) }'
}

echo "Searching the highest rate with at most $MAX_DROP_PERCENT % incomplete exchanges ($PROBE s probes)..."
best=0
failed=0
for rate in "${RATES[@]}"; do
    if probe "$rate"; then
        best=$rate
    else
        failed=$rate
        break
    fi
done
# Two halvings of the gap between the last good rate and the first bad one.
for _ in 1 2; do
    [ "$best" -gt 0 ] && [ "$failed" -gt 0 ] || break
    middle=$(((best + failed) / 2))
    if probe "$middle"; then best=$middle; else failed=$middle; fi
done
[ "$best" -gt 0 ] || best=${RATES[0]}

start_server
cpu_before=$(cpu_seconds "$SERVER_PID")
PERF_PID=""
if [ "$PROFILE" = 1 ]; then
    perf record -q -g -p "$SERVER_PID" -o "$WORK/perf.data" -- sleep "$DURATION" >/dev/null 2>&1 &
    PERF_PID=$!
fi
run_perfdhcp "$best" "$DURATION"
cpu_after=$(cpu_seconds "$SERVER_PID")
[ -z "$PERF_PID" ] || wait "$PERF_PID" || true
stop_server
read -r achieved do_sent do_received ra_sent ra_received < <(read_report)
leases=$(awk '/^stopped/ { print $2 }' "$WORK/run$RUN/server.out")

echo
echo "perfdhcp, $DURATION s at $best exchanges/s requested (logging $( [ "$LOGGING" = 1 ] && echo on || echo off )):"
echo "  exchanges per second:    $achieved"
echo "  DISCOVER sent/OFFER received:  $do_sent / $do_received (drops $((do_sent - do_received)))"
echo "  REQUEST sent/ACK received:     $ra_sent / $ra_received (drops $((ra_sent - ra_received)))"
echo "  incomplete exchanges:    $(incomplete_percent "$do_sent" "$ra_received") %"
echo "  leases at stop:          $leases"
if [ "$PROFILE" = 1 ]; then
    echo "  hottest functions of the server (self time):"
    perf report -i "$WORK/perf.data" --no-children --stdio --sort symbol 2>/dev/null |
        grep -E '^ +[0-9.]+%' | head -12 | sed -E 's/[[:space:]]+-[[:space:]]+-[[:space:]]*$//' | cut -c1-110 |
        sed 's/^/    /'
fi
echo "  server CPU seconds:      $(awk -v a="$cpu_after" -v b="$cpu_before" 'BEGIN { printf "%.2f", a - b }') (user+system, during the run)"

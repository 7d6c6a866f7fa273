#!/bin/bash
# The performance figures of the program, in one run:
#
#   sudo bench/perf.sh [build-dir]        (default: build; builds nothing)
#
# Needs from the build dir: src/gui/quorvy, bench/FixedReplyResponder,
# bench/LeaseFileLoad and bench/AllocationBench; perfdhcp (package kea-admin),
# kea-dhcp4 (package kea-dhcp4-server) and nft (nftables).
#
# All DHCP traffic stays inside two network namespaces this script creates and
# removes (also on failure or interrupt): the server on one end of a veth pair,
# perfdhcp on the other. The server runs on CPU 0, perfdhcp on CPU 1.
#
# perfdhcp plays broadcast clients: its templates carry giaddr 0, hops 0 and
# the broadcast flag, so the server treats them as clients on its own link and
# answers to 255.255.255.255:68. perfdhcp itself listens on port 67 of its own
# address; a stateless nftables rule in the client namespace hands the
# broadcast replies to that socket. An exchange counts as complete when the ACK
# of its REQUEST came back; perfdhcp waits one more second after each run for
# answers still on their way.
#
# perfdhcp runs in its single-thread mode (-g single): pinned to one CPU, its
# default multi-thread mode cannot receive in parallel, it only adds a thread
# switch per burst and loses about a third of the replies in its own socket
# buffer even against the fixed-reply responder. The flood is measured in the
# multi-thread mode as well, (a') and (d'), for comparison with figures taken
# that way.
#
# Cases (RUNS runs of DURATION seconds each, a fresh server for every run,
# medians printed):
#   (a) the fixed-reply responder at flood: the floor of the load generator;
#   (b) quorvy -m -s at RATE exchanges/s offered, CLIENTS distinct clients,
#       logging off (every lease change goes to the lease journal);
#   (r) the fixed-reply responder and (k) ISC Kea (memfile, persist true, the
#       same pool, its lease file in the run folder) at the same RATE, right
#       after (b), so that the CPU per exchange of the three compares on the
#       same machine at the same moment;  (c) quorvy with every event type logged;
#   (d) quorvy at flood, and its ratio to (a); (a') and (d') the same with
#       perfdhcp's multi-thread mode;
#   (e) memory after MEMORY_EXCHANGES exchanges offered at RATE/s (at most
#       MEMORY_SECONDS), logging off, then on: bytes per log item;
#   (f) a lease file of LEASE_FILE_LEASES leases: its load time (LeaseFileLoad,
#       median of 5), the start-up step of the lease files with and without a
#       4 MiB journal, and the program's start-up (to a bound port and a
#       journal begun afresh) with the file, and with the file and that journal;
#   (g) the allocation benchmark's ratio lines.
# Server CPU is user + system time of all its threads (/proc/<pid>/stat) over
# the perfdhcp run, divided by the completed exchanges. Peak memory is VmHWM.
#
# Environment: DURATION (10), RUNS (3), RATE (8000), CLIENTS (60000),
# THREAD_MODE (single: perfdhcp's -g for every case but (a') and (d')),
# MEMORY_EXCHANGES (200000), MEMORY_SECONDS (60), LEASE_FILE_LEASES (60000),
# SKIP_ALLOCATION_BENCH (0), CASES (all: "a b r k c d a2 d2 e f g"; a subset
# runs only those, e.g. CASES="b r k d a f").
set -euo pipefail

BUILD_DIR=$(realpath "${1:-build}")
QUORVY=$BUILD_DIR/src/gui/quorvy
RESPONDER=$BUILD_DIR/bench/FixedReplyResponder
LEASE_FILE_LOAD=$BUILD_DIR/bench/LeaseFileLoad
ALLOCATION_BENCH=$BUILD_DIR/bench/AllocationBench
DURATION=${DURATION:-10}
RUNS=${RUNS:-3}
RATE=${RATE:-8000}
CLIENTS=${CLIENTS:-60000}
MEMORY_EXCHANGES=${MEMORY_EXCHANGES:-200000}
MEMORY_SECONDS=${MEMORY_SECONDS:-60}
LEASE_FILE_LEASES=${LEASE_FILE_LEASES:-60000}
SKIP_ALLOCATION_BENCH=${SKIP_ALLOCATION_BENCH:-0}
THREAD_MODE=${THREAD_MODE:-single}
CASES=" ${CASES:-a b r k c d a2 d2 e f g} "
SERVER_CPU=0
CLIENT_CPU=1
LATE_ANSWER_WAIT_US=1000000 # perfdhcp -W: answers still on their way at the end count
START_TIMEOUT_S=20
STOP_TIMEOUT_S=60 # a stop saves the lease table and the whole log

die() { echo "perf.sh: $*" >&2; exit 1; }
[ "$(id -u)" = 0 ] || die "needs root (network namespaces, port 67)"
command -v perfdhcp >/dev/null || die "perfdhcp missing (package kea-admin)"
command -v nft >/dev/null || die "nft missing (package nftables)"
command -v kea-dhcp4 >/dev/null || die "kea-dhcp4 missing (package kea-dhcp4-server)"
command -v taskset >/dev/null || die "taskset missing (package util-linux)"
for program in "$QUORVY" "$RESPONDER" "$LEASE_FILE_LOAD"; do
    [ -x "$program" ] || die "no $program; build first (cmake --build $BUILD_DIR)"
done
[ "$(nproc)" -ge 2 ] || die "needs two CPUs (server and perfdhcp each on its own)"

# Unique names: the PID keeps parallel runs apart; 15 characters at most.
SERVER_NS=tvp$$s
CLIENT_NS=tvp$$c
SERVER_IF=tvp$$s
CLIENT_IF=tvp$$c
SERVER_ADDRESS=10.198.0.1
CLIENT_ADDRESS=10.198.0.2
POOL_START=10.198.1.1
POOL_END=10.198.254.254
WORK=$(mktemp -d /tmp/tarnvel-perf.XXXXXX)
TICKS=$(getconf CLK_TCK)
SERVER_PID=""
PERFDHCP_PID=""
EVENT_NAMES=(ServerStart ServerStop DHCPDiscoverReceived DHCPRequestReceived DHCPOfferSent DHCPAckSent
    DHCPNakSent DHCPInformReceived DHCPReleaseReceived)

cleanup() {
    if [ -n "$PERFDHCP_PID" ]; then
        kill -TERM "$PERFDHCP_PID" 2>/dev/null || true
        wait "$PERFDHCP_PID" 2>/dev/null || true
    fi
    stop_server || true
    ip netns del "$CLIENT_NS" 2>/dev/null || true
    ip netns del "$SERVER_NS" 2>/dev/null || true
    rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# ---- Network ---------------------------------------------------------------

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
table ip tarnvel_perf {
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
# perfdhcp writes the client number into the last bytes of chaddr (-O 33).
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

# ---- Servers ---------------------------------------------------------------

RUN=0
RUN_FOLDER=""
START_MS=0 # launch to bound socket, of the last start
LAUNCH_MS=0 # when the last server was launched

now_ms() { echo $(($(date +%s%N) / 1000000)); }

# Waits until the process `$1`, named `$2`, has its socket on port 67.
# /proc/<pid>/net shows the namespace of that process once it runs as itself.
wait_until_bound() {
    local pid=$1 name=$2 started
    started=$(now_ms)
    LAUNCH_MS=$started
    local deadline=$((started + START_TIMEOUT_S * 1000))
    while [ "$(now_ms)" -lt "$deadline" ]; do
        kill -0 "$pid" 2>/dev/null || break
        if [ "$(cat "/proc/$pid/comm" 2>/dev/null)" = "$name" ] &&
            awk '$2 ~ /:0043$/ { found = 1 } END { exit !found }' "/proc/$pid/net/udp" 2>/dev/null; then
            START_MS=$(($(now_ms) - started))
            return 0
        fi
        sleep 0.01
    done
    [ -z "$RUN_FOLDER" ] || cat "$RUN_FOLDER/server.out" >&2 2>/dev/null || true
    die "$name did not bind port 67 within $START_TIMEOUT_S s"
}

new_run_folder() {
    RUN=$((RUN + 1))
    RUN_FOLDER=$WORK/run$RUN
    mkdir -p "$RUN_FOLDER/temp"
}

start_responder() {
    new_run_folder
    taskset -c "$SERVER_CPU" ip netns exec "$SERVER_NS" "$RESPONDER" "$SERVER_IF" "$SERVER_ADDRESS" \
        >"$RUN_FOLDER/server.out" 2>&1 &
    SERVER_PID=$!
    local name
    name=$(basename "$RESPONDER")
    wait_until_bound "$SERVER_PID" "${name:0:15}" # the kernel keeps 15 characters
}

# settings.cfg of a /16 pool inside the namespace subnet; logging off, or on
# with every event type and ignored messages too. CR LF line ends.
write_settings() {
    local folder=$1 logging=$2 flag=False
    [ "$logging" = 1 ] && flag=True
    {
        printf '%s\r\n' "PoolStartAddress $POOL_START" "PoolEndAddress $POOL_END" "SubnetMask 255.255.0.0" \
            "LeaseDuration 3600" "PreferredListeningAddress $SERVER_ADDRESS" "MinimizeToSystemTray False" \
            "LoggingEnabled $flag" "LogIgnoredDHCPMessages $flag" "LogFilePath \"$folder/quorvy.log\""
        for event in "${EVENT_NAMES[@]}"; do
            printf '%s\r\n' "LogEvent_$event $flag"
        done
    } >"$folder/settings.cfg"
}

# quorvy -m -s in a fresh folder: its settings and log there (the working
# directory is its data directory), its lease file in temp/ ($TEMP). A lease
# file given as $2 is placed there first, and a journal given as $3 beside it.
start_quorvy() {
    local logging=$1 lease_file=${2:-} journal=${3:-}
    new_run_folder
    write_settings "$RUN_FOLDER" "$logging"
    [ -z "$lease_file" ] || cp "$lease_file" "$RUN_FOLDER/temp/"
    [ -z "$journal" ] || cp "$journal" "$RUN_FOLDER/temp/$(basename "$lease_file").journal"
    (cd "$RUN_FOLDER" && exec taskset -c "$SERVER_CPU" env QT_QPA_PLATFORM=offscreen TEMP="$RUN_FOLDER/temp" \
        ip netns exec "$SERVER_NS" "$QUORVY" -m -s >"$RUN_FOLDER/server.out" 2>&1) &
    SERVER_PID=$!
    wait_until_bound "$SERVER_PID" quorvy
}

# ISC Kea's DHCPv4 server on the server end: memfile with persist true (each
# lease change appended to its CSV lease file before the reply, not synced),
# the same pool and lease time, logging errors only. Everything it writes,
# pid and lock files included, stays in the run folder; it never runs as a
# service and sees only the namespace's interface. Raw sockets, Kea's mode
# for clients on its own link: its UDP socket cannot broadcast the replies.
start_kea() {
    new_run_folder
    cat >"$RUN_FOLDER/kea-dhcp4.conf" <<EOF
{ "Dhcp4": {
    "interfaces-config": { "interfaces": [ "$SERVER_IF" ], "dhcp-socket-type": "raw" },
    "lease-database": { "type": "memfile", "persist": true, "lfc-interval": 0,
                        "name": "$RUN_FOLDER/kea-leases4.csv" },
    "valid-lifetime": 3600,
    "subnet4": [ { "id": 1, "subnet": "10.198.0.0/16",
                   "pools": [ { "pool": "$POOL_START - $POOL_END" } ] } ],
    "loggers": [ { "name": "kea-dhcp4", "severity": "ERROR",
                   "output_options": [ { "output": "$RUN_FOLDER/kea.log" } ] } ]
} }
EOF
    (cd "$RUN_FOLDER" && exec taskset -c "$SERVER_CPU" env KEA_PIDFILE_DIR="$RUN_FOLDER" \
        KEA_LOCKFILE_DIR="$RUN_FOLDER" ip netns exec "$SERVER_NS" kea-dhcp4 -c "$RUN_FOLDER/kea-dhcp4.conf" \
        >"$RUN_FOLDER/server.out" 2>&1) &
    SERVER_PID=$!
    wait_until_bound "$SERVER_PID" kea-dhcp4
}

# SIGTERM by PID, then wait; a server that does not end in time is killed
# and said so.
stop_server() {
    [ -n "$SERVER_PID" ] || return 0
    kill -TERM "$SERVER_PID" 2>/dev/null || true
    local waited=0
    while kill -0 "$SERVER_PID" 2>/dev/null && [ "$waited" -lt $((STOP_TIMEOUT_S * 10)) ]; do
        sleep 0.1
        waited=$((waited + 1))
    done
    if kill -0 "$SERVER_PID" 2>/dev/null; then
        echo "perf.sh: server $SERVER_PID did not stop within $STOP_TIMEOUT_S s; killed" >&2
        kill -KILL "$SERVER_PID" 2>/dev/null || true
    fi
    wait "$SERVER_PID" 2>/dev/null || true
    SERVER_PID=""
}

# Clock ticks of user + system time of all threads. The fields after the
# command name, which ends with ")": utime and stime are the 12th and 13th.
cpu_ticks() {
    sed 's/.*) //' "/proc/$1/stat" | awk '{ print $12 + $13 }'
}

# A field of /proc/<pid>/status in KiB (VmHWM, VmRSS).
status_kib() {
    awk -v key="$2:" '$1 == key { print $2 }' "/proc/$1/status"
}

# ---- Load ------------------------------------------------------------------

# perfdhcp with the given extra switches, bounded in time; its report goes to
# $WORK/perfdhcp.out.
run_perfdhcp() {
    local seconds=$1
    shift
    taskset -c "$CLIENT_CPU" ip netns exec "$CLIENT_NS" timeout --kill-after=5 $((seconds + 30)) \
        perfdhcp -4 -g "$THREAD_MODE" -l "$CLIENT_ADDRESS" "${TEMPLATE_OPTIONS[@]}" -R "$CLIENTS" \
        -W "$LATE_ANSWER_WAIT_US" "$@" \
        "$SERVER_ADDRESS" >"$WORK/perfdhcp.out" 2>&1 &
    PERFDHCP_PID=$!
    wait "$PERFDHCP_PID" || true # 3: some exchanges incomplete
    PERFDHCP_PID=""
}

# DISCOVER sent, OFFER received, REQUEST sent, ACK received of the last report.
read_report() {
    awk '
        /Statistics for: DISCOVER-OFFER/ { section = "do" }
        /Statistics for: REQUEST-ACK/ { section = "ra" }
        /^sent packets:/ { sent[section] = $3 }
        /^received packets:/ { received[section] = $3 }
        END { printf "%d %d %d %d\n", sent["do"], received["do"], sent["ra"], received["ra"] }
    ' "$WORK/perfdhcp.out"
}

# One measured run: the server is up; perfdhcp runs with the given switches.
# Appends to file $1: exchanges/s DISCOVERs OFFERs REQUESTs ACKs incomplete-%
# CPU-µs-per-exchange VmHWM-KiB.
measure_run() {
    local results=$1 seconds=$2
    shift 2
    local before after
    before=$(cpu_ticks "$SERVER_PID")
    run_perfdhcp "$seconds" "$@"
    after=$(cpu_ticks "$SERVER_PID")
    local hwm
    hwm=$(status_kib "$SERVER_PID" VmHWM)
    read -r discovers offers requests acks < <(read_report)
    [ "$discovers" -gt 0 ] || { cat "$WORK/perfdhcp.out" >&2; die "perfdhcp sent nothing"; }
    awk -v s="$seconds" -v d="$discovers" -v o="$offers" -v r="$requests" -v a="$acks" -v c=$((after - before)) \
        -v t="$TICKS" -v h="$hwm" 'BEGIN {
        printf "%.0f %d %d %d %d %.2f %.1f %d\n", a / s, d, o, r, a, (d - a) * 100 / d, (a == 0 ? 0 : c * 1e6 / t / a), h
    }' >>"$results"
    local rate cpu
    read -r rate _ _ _ _ _ cpu _ < <(tail -1 "$results")
    printf '      run: %6s exchanges/s, %d of %d complete (OFFERs %d, REQUESTs %d), %s µs CPU each, VmHWM %d KiB\n' \
        "$rate" "$acks" "$discovers" "$offers" "$requests" "$cpu" "$hwm"
}

# Median of column $2 of file $1 (an odd number of rows).
median() {
    cut -d' ' -f"$2" "$1" | sort -g | awk '{ value[NR] = $1 } END { print value[int((NR + 1) / 2)] }'
}

declare -A FIGURE # case letter -> "exchanges/s lost% cpu-us hwm-MiB"

print_case() {
    local label=$1 results=$2
    local rate discovers offers requests acks lost cpu hwm
    rate=$(median "$results" 1)
    discovers=$(median "$results" 2)
    offers=$(median "$results" 3)
    requests=$(median "$results" 4)
    acks=$(median "$results" 5)
    lost=$(median "$results" 6)
    cpu=$(median "$results" 7)
    hwm=$(awk -v k="$(median "$results" 8)" 'BEGIN { printf "%.1f", k / 1024 }')
    FIGURE[$label]="$rate $lost $cpu $hwm"
    echo "    exchanges per second:     $rate (median of $RUNS; runs: $(cut -d' ' -f1 "$results" | tr '\n' ' '))"
    echo "    loss:                     $lost % of exchanges incomplete (medians: $discovers started, $acks completed;" \
        "drops $((discovers - offers)) DISCOVER-OFFER, $((requests - acks)) REQUEST-ACK)"
    echo "    server CPU per exchange:  $cpu µs (median; user + system, all threads)"
    echo "    peak memory (VmHWM):      $hwm MiB (median)"
}

# RUNS runs of one case: `$1` label, `$2` how to start the server, then the
# perfdhcp switches.
run_case() {
    local label=$1 start=$2
    shift 2
    local results=$WORK/case-$label
    : >"$results"
    for _ in $(seq "$RUNS"); do
        $start
        measure_run "$results" "$DURATION" -p "$DURATION" "$@"
        stop_server
    done
    print_case "$label" "$results"
}

# Whether case `$1` is among CASES.
wanted() { [[ "$CASES" == *" $1 "* ]]; }
# Case `$1`, titled `$2`, when wanted: run_case with the rest.
case_if_wanted() {
    local label=$1 title=$2
    shift 2
    wanted "$label" || return 0
    echo "$title"
    run_case "$label" "$@"
}
for label in a b r k c d a2 d2; do FIGURE[$label]="0 0 0 0"; done

start_quorvy_quiet() { start_quorvy 0; }
start_quorvy_logging() { start_quorvy 1; }

# ---- The run ---------------------------------------------------------------

echo "Tarnvel DHCP Server performance, $(date '+%Y-%m-%d %H:%M:%S')"
echo "  machine: $(nproc) CPUs, $(awk -F': ' '/^model name/ { print $2; exit }' /proc/cpuinfo)"
echo "  load average at start: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "  server on CPU $SERVER_CPU, perfdhcp on CPU $CLIENT_CPU (-g $THREAD_MODE); $RUNS runs of $DURATION s per case, $CLIENTS clients"
echo

case_if_wanted a "(a) fixed-reply responder, flood (the floor)" start_responder
case_if_wanted b "(b) quorvy -m -s, $RATE exchanges/s offered, logging off" start_quorvy_quiet -r "$RATE"
case_if_wanted r "(r) fixed-reply responder, $RATE exchanges/s offered" start_responder -r "$RATE"
case_if_wanted k "(k) ISC Kea kea-dhcp4 $(kea-dhcp4 -v), memfile persist true, $RATE exchanges/s offered" start_kea -r "$RATE"
case_if_wanted c "(c) quorvy -m -s, $RATE exchanges/s offered, every event type logged" start_quorvy_logging -r "$RATE"
case_if_wanted d "(d) quorvy -m -s, flood" start_quorvy_quiet
read -r floor_rate _ <<<"${FIGURE[a]}"
read -r flood_rate _ <<<"${FIGURE[d]}"
FLOOD_RATIO=$(awk -v q="$flood_rate" -v f="$floor_rate" 'BEGIN { printf "%.3f", (f == 0 ? 0 : q / f) }')
echo "    flood ratio quorvy / responder: $FLOOD_RATIO"
SELECTED_THREAD_MODE=$THREAD_MODE
THREAD_MODE=multi
case_if_wanted a2 "(a') fixed-reply responder, flood, perfdhcp in its multi-thread mode" start_responder
case_if_wanted d2 "(d') quorvy -m -s, flood, perfdhcp in its multi-thread mode" start_quorvy_quiet
THREAD_MODE=$SELECTED_THREAD_MODE
read -r multi_floor_rate _ <<<"${FIGURE[a2]}"
read -r multi_flood_rate _ <<<"${FIGURE[d2]}"
MULTI_FLOOD_RATIO=$(awk -v q="$multi_flood_rate" -v f="$multi_floor_rate" 'BEGIN { printf "%.3f", (f == 0 ? 0 : q / f) }')
echo "    flood ratio quorvy / responder: $MULTI_FLOOD_RATIO"

# (e) One long run per logging mode. Resident memory is read right after the
# start and at the end; the difference between the two modes is what the log
# holds (the lease table and the transactions grow alike in both).
declare -A MEMORY # logging mode -> "rss-start rss-end hwm (KiB) started completed log-items"
memory_run() {
    local logging=$1
    start_quorvy "$logging"
    local rss_start rss_end hwm
    rss_start=$(status_kib "$SERVER_PID" VmRSS)
    run_perfdhcp "$MEMORY_SECONDS" -r "$RATE" -n "$MEMORY_EXCHANGES" -p "$MEMORY_SECONDS"
    rss_end=$(status_kib "$SERVER_PID" VmRSS)
    hwm=$(status_kib "$SERVER_PID" VmHWM)
    stop_server
    local items=0 discovers acks
    [ ! -f "$RUN_FOLDER/quorvy.log" ] || items=$(wc -l <"$RUN_FOLDER/quorvy.log")
    read -r discovers _ _ acks < <(read_report)
    MEMORY[$logging]="$rss_start $rss_end $hwm $discovers $acks $items"
}
mib() { awk -v k="$1" 'BEGIN { printf "%.1f", k / 1024 }'; }
off_start=0 off_end=0 off_hwm=0 off_acks=0 BYTES_PER_ITEM=n/a
if wanted e; then
    echo "(e) memory, $MEMORY_EXCHANGES exchanges offered at $RATE/s (at most $MEMORY_SECONDS s)"
    memory_run 0
    read -r off_start off_end off_hwm off_started off_acks _ <<<"${MEMORY[0]}"
    echo "    logging off: $off_acks of $off_started exchanges completed; VmRSS $(mib "$off_start") MiB after the start, $(mib "$off_end") MiB at the end; VmHWM $(mib "$off_hwm") MiB"
    memory_run 1
    read -r on_start on_end on_hwm on_started on_acks on_items <<<"${MEMORY[1]}"
    echo "    logging on:  $on_acks of $on_started exchanges completed, $on_items log items; VmRSS $(mib "$on_start") MiB after the start, $(mib "$on_end") MiB at the end; VmHWM $(mib "$on_hwm") MiB"
    BYTES_PER_ITEM=$(awk -v a="$on_start" -v b="$on_end" -v c="$off_start" -v d="$off_end" -v n="$on_items" 'BEGIN {
        if (n == 0) { print "n/a"; exit }
        printf "%.0f", ((b - a) - (d - c)) * 1024 / n }')
    echo "    bytes per log item:       $BYTES_PER_ITEM (RSS growth with logging minus without, per line of the log file)"
fi

LEASE_LOAD_MS=n/a
JOURNAL_STEP_MS=n/a
START_EXTRA_MS=n/a
START_JOURNAL_MS=n/a
if wanted f; then
    echo "(f) start-up with a lease file of $LEASE_FILE_LEASES leases"
    mkdir -p "$WORK/leasefile"
    TEMP=$WORK/leasefile taskset -c "$SERVER_CPU" "$LEASE_FILE_LOAD" "$SERVER_ADDRESS" "$POOL_START" "$LEASE_FILE_LEASES" 5 |
        tee "$WORK/leasefile.out" | sed 's/^/    /'
    LEASE_LOAD_MS=$(awk '/^load of the lease file/ { print $(NF - 1) }' "$WORK/leasefile.out")
    JOURNAL_STEP_MS=$(awk '/^the journal adds/ { print $(NF - 1) }' "$WORK/leasefile.out")
    LEASE_FILE=$(ls "$WORK"/leasefile/quorvy_leases_*.dat)
    # Launch to ready of RUNS fresh starts, with the lease file $1 or none,
    # and the journal $2 beside it or none. Ready: the port is bound and the
    # journal, replayed once the port is bound, has been begun afresh (a
    # journal of its 64-byte header alone).
    start_times() {
        local file=$1 journal=${2:-} times=()
        for _ in $(seq "$RUNS"); do
            if [ -n "$file" ]; then start_quorvy 0 "$file" "$journal"; else start_quorvy 0; fi
            local deadline=$((LAUNCH_MS + START_TIMEOUT_S * 1000))
            until [ "$(stat -c %s "$RUN_FOLDER"/temp/quorvy_leases_*.dat.journal 2>/dev/null)" = 64 ] ||
                [ "$(now_ms)" -gt "$deadline" ]; do
                sleep 0.005
            done
            START_MS=$(($(now_ms) - LAUNCH_MS))
            times+=("$START_MS")
            # A journal the start could not use would make the figure meaningless.
            grep -h '^quorvy:' "$RUN_FOLDER/server.out" | sed 's/^/    (start) /' || true
            stop_server
        done
        START_MEDIAN_MS=$(printf '%s\n' "${times[@]}" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }')
        START_SUMMARY="$START_MEDIAN_MS ms (median; runs: ${times[*]})"
    }
    start_times ""
    echo "    quorvy -m -s, launch to ready, no lease file:           $START_SUMMARY"
    START_EMPTY_MS=$START_MEDIAN_MS
    start_times "$LEASE_FILE"
    echo "    quorvy -m -s, launch to ready, with that file:          $START_SUMMARY"
    START_EXTRA_MS=$((START_MEDIAN_MS - START_EMPTY_MS))
    echo "    the file adds to the program's start-up:                  $START_EXTRA_MS ms (difference of the medians)"
    START_FILE_MS=$START_MEDIAN_MS
    start_times "$LEASE_FILE" "$LEASE_FILE.journal.sample"
    echo "    quorvy -m -s, launch to ready, file and 4 MiB journal: $START_SUMMARY"
    START_JOURNAL_MS=$((START_MEDIAN_MS - START_FILE_MS))
    echo "    the journal adds to the program's start-up:               $START_JOURNAL_MS ms (difference of the medians)"
fi

ALLOCATION_LINES=""
wanted g && echo "(g) allocation benchmark"
if ! wanted g; then
    :
elif [ "$SKIP_ALLOCATION_BENCH" = 1 ]; then
    echo "    skipped (SKIP_ALLOCATION_BENCH=1)"
elif [ ! -x "$ALLOCATION_BENCH" ]; then
    echo "    no $ALLOCATION_BENCH (Google Benchmark missing at configure time?)"
else
    taskset -c "$SERVER_CPU" timeout 900 "$ALLOCATION_BENCH" >"$WORK/allocation.out" 2>&1 ||
        echo "    AllocationBench ended with status $? (output below)"
    ALLOCATION_LINES=$(grep -E 'leases / [0-9]+ leases' "$WORK/allocation.out" || true)
    if [ -n "$ALLOCATION_LINES" ]; then
        echo "    ${ALLOCATION_LINES//$'\n'/$'\n'    }"
    else
        echo "    no ratio line in its output:"
        tail -20 "$WORK/allocation.out" | sed 's/^/      /'
    fi
fi

# ---- Against the targets (printed, not asserted) -----------------------------

read -r b_rate b_lost b_cpu _ <<<"${FIGURE[b]}"
read -r c_rate c_lost c_cpu _ <<<"${FIGURE[c]}"
read -r r_rate r_lost r_cpu _ <<<"${FIGURE[r]}"
read -r k_rate k_lost k_cpu _ <<<"${FIGURE[k]}"
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b == 0) print "n/a"; else printf "%.2f", a / b }'; }
echo
echo "Summary (targets in brackets; not asserted)"
echo "  1. $RATE/s offered, logging off: $b_rate exchanges/s, $b_lost % incomplete [0], $b_cpu µs CPU per exchange [<= 45]"
echo "     beside it at $RATE/s: responder $r_cpu µs ($r_lost % incomplete), Kea $k_cpu µs ($k_lost % incomplete);" \
    "quorvy / responder $(ratio "$b_cpu" "$r_cpu") [<= 1.5], quorvy / Kea $(ratio "$b_cpu" "$k_cpu") [<= 0.5]"
echo "     $RATE/s offered, logging on:  $c_rate exchanges/s, $c_lost % incomplete [0], $c_cpu µs CPU per exchange [<= 60]"
echo "  2. flood: quorvy $flood_rate exchanges/s, responder $floor_rate; ratio $FLOOD_RATIO [>= 0.90]"
echo "     (perfdhcp -g $THREAD_MODE; in its multi-thread mode: quorvy $multi_flood_rate, responder $multi_floor_rate;" \
    "ratio $MULTI_FLOOD_RATIO)"
if [ -n "$ALLOCATION_LINES" ]; then
    while IFS= read -r line; do
        echo "  3. $line [< 2]"
    done <<<"$ALLOCATION_LINES"
else
    echo "  3. allocation ratio: not measured"
fi
echo "  4. memory after $off_acks completed exchanges (of $MEMORY_EXCHANGES offered), logging off: VmRSS $(mib "$off_end") MiB, VmHWM $(mib "$off_hwm") MiB [< 64]"
echo "     logging on: $BYTES_PER_ITEM bytes per log item"
echo "  5. load of a $LEASE_FILE_LEASES-lease file: $LEASE_LOAD_MS ms [< 100]; in the program's start-up: +$START_EXTRA_MS ms"
echo "     a 4 MiB journal beside it: +$JOURNAL_STEP_MS ms in the start-up step [< 150], +$START_JOURNAL_MS ms in the program's start-up"
echo "  load average at end: $(cut -d' ' -f1-3 /proc/loadavg)"

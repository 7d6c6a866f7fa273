#!/usr/bin/env bash
# Builds the libFuzzer targets (tests/fuzz/*Fuzzer.cpp: datagrams, the engine,
# the lease file, the lease journal, the settings file) with clang (ASan +
# UBSan) into build-fuzz/ and runs each for a bounded time: FUZZ_SECONDS
# (default 60) for the engine, a third of that for the others. A
# crash fails the script.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DTARNVEL_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build-fuzz -j "$(nproc)"
mkdir -p build-fuzz/artifacts
# The settings fuzzer writes a file per input; memory-backed storage keeps it fast.
[ -d /dev/shm ] && [ -w /dev/shm ] && export TMPDIR=/dev/shm
status=0
for fuzzer in build-fuzz/tests/fuzz/*Fuzzer; do
  [ -x "$fuzzer" ] || continue
  name=$(basename "$fuzzer")
  budget=$seconds
  [ "$name" = "EngineFuzzer" ] || budget=$(( seconds / 3 > 5 ? seconds / 3 : 5 ))
  corpus=tests/fuzz/corpus/${name%Fuzzer}
  work=build-fuzz/corpus/${name%Fuzzer}
  mkdir -p "$work"
  echo "== $name for ${budget}s"
  if ! "$fuzzer" -max_total_time="$budget" -rss_limit_mb=2048 -print_final_stats=1 \
       -artifact_prefix=build-fuzz/artifacts/ "$work" "$corpus" 2>build-fuzz/$name.log; then
    tail -n 40 build-fuzz/$name.log
    status=1
  else
    grep -E '^(#|stat::number_of_executed_units|Done)' build-fuzz/$name.log | tail -n 3
  fi
done
exit $status

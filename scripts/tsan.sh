#!/usr/bin/env bash
# Builds the test programs of the parts that share data between threads (the
# engine with its receive thread, the lease table, the log and its saving
# thread) with ThreadSanitizer into build-tsan/, and runs them. Any data race
# or lock-order problem fails the script. Tests that fork stay out: a fork
# from a process that TSan watches can hang. Namespace tests live in other
# programs and never run here.
set -euo pipefail
cd "$(dirname "$0")/.."
programs=(engine_tests allocation_tests log_tests)
# Forks a child that runs with a file size limit.
excluded="LeaseFileTest.InterruptedSaveLeavesThePreviousFileIntact"

CXX=clang++ cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTARNVEL_BUILD_GUI=OFF -DTARNVEL_BUILD_BENCH=OFF \
  -DCMAKE_CXX_FLAGS="-fsanitize=thread" -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread"
cmake --build build-tsan -j "$(nproc)" --target "${programs[@]}"
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 exitcode=66"
status=0
for program in "${programs[@]}"; do
  echo "== $program under ThreadSanitizer"
  if ! "build-tsan/tests/$program" --gtest_filter="-$excluded" --gtest_brief=1 >"build-tsan/$program.log" 2>&1; then
    tail -n 60 "build-tsan/$program.log"
    status=1
  else
    tail -n 3 "build-tsan/$program.log"
  fi
done
exit $status

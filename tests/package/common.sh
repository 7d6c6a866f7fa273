# Shared by the package tests; sourced. A test ends with 0 (passed), 1
# (failed, with the reason) or 77 (skipped, with the reason).
fail() { echo "FAILED: $*" >&2; exit 1; }
skip() { echo "skipped: $*" >&2; exit 77; }
require_root() { [ "$(id -u)" -eq 0 ] || skip "needs root ($1)"; }

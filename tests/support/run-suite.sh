#!/bin/sh
# run-suite.sh SECONDS SUITE [ARGUMENTS...]
#
# Runs one test suite for CTest. A suite that passes prints its log as it
# would alone. One that fails prints what failed first (each failure with its
# location and the lines around it), then the whole log: a failing suite's
# log runs to thousands of lines of requests and messages, and whoever reads
# only its start should still see why it failed.
#
# The suite gets SECONDS to finish. It is stopped with SIGABRT a little before
# CTest would kill it, so that a suite that hangs still tells where it was.
set -u
limit=$1
shift
log=$(mktemp "${TMPDIR:-/tmp}/zuvero-suite.XXXXXX")
trap 'rm -f "$log"' EXIT

timeout --signal=ABRT --kill-after=5 "$limit" "$@" >"$log" 2>&1
status=$?

if [ "$status" -ne 0 ]; then
    echo "=== $(basename "$1") failed (exit status $status); what failed, then the whole log:"
    grep -n -B2 -A4 -E '^(FAIL!|XPASS|QFATAL|Totals:)|^=+ *(ERROR|WARNING): [A-Za-z]*Sanitizer|runtime error:' "$log" \
        | head -n 80
    [ "$status" -eq 124 ] && echo "(stopped: it ran past $limit seconds)"
    echo "=== the whole log:"
fi
cat "$log"
exit "$status"

#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer, UBSan) in build-fuzz/
# and runs each for a fixed time, two at a time on two cores.
#
#   fuzz/run.sh [--time SECONDS] [TARGET...]     (default: 60 seconds, every target)
#
# The corpus grows in build-fuzz/corpus/<target>/ from run to run, starting
# from fuzz/seeds/<target>/. An input that breaks a target is written to
# build-fuzz/artifacts/<target>/ and the script fails; copy it to
# fuzz/regressions/<target>/ once fixed, where every test run replays it.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$here"

seconds=60
targets=()
while (($#)); do
    case "$1" in
        --time) seconds=$2; shift 2 ;;
        -h|--help) sed -n '2,11p' "$0"; exit 0 ;;
        *) targets+=("$1"); shift ;;
    esac
done
if ((${#targets[@]} == 0)); then
    targets=(message attachment push jwt hex base64url plist configuration reply devmultipart preview links animatedimage rows)
fi

build=build-fuzz
if [ -f "$build/CMakeCache.txt" ]; then
    scripts/setup.sh "$build"
else
    scripts/setup.sh "$build" -DZUVERO_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++
fi

runtime="$here/$build/runtime"
mkdir -p "$runtime" && chmod 700 "$runtime"
export QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR="$runtime"
export DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/zuvero-fuzz-bus
export ASAN_OPTIONS=abort_on_error=1:detect_leaks=1
export LSAN_OPTIONS="suppressions=$here/tests/sanitizers/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# Attachments are read inside messages: one dictionary serves both.
dictionary_of() {
    case "$1" in attachment) echo message ;; *) echo "$1" ;; esac
}

run() {
    local target=$1
    local corpus="$build/corpus/$target" artifacts="$build/artifacts/$target"
    local dictionary="$build/dictionaries/$target.dict"
    mkdir -p "$corpus" "$artifacts" "$(dirname "$dictionary")"
    cat fuzz/dictionaries/json.dict "fuzz/dictionaries/$(dictionary_of "$target").dict" \
        >"$dictionary" 2>/dev/null || true
    local inputs=(fuzz/seeds/"$target")
    [ -d fuzz/regressions/"$target" ] && inputs+=(fuzz/regressions/"$target")
    # Hangs count as failures after 10 s on one input.
    "$build/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 \
        -print_final_stats=1 -dict="$dictionary" -artifact_prefix="$artifacts/" \
        "$corpus" "${inputs[@]}" >"$build/fuzz-$target.log" 2>&1
}

jobs=$(nproc)
declare -A status
pending=("${targets[@]}")
running=()
while ((${#pending[@]} || ${#running[@]})); do
    while ((${#pending[@]})) && ((${#running[@]} < jobs)); do
        target=${pending[0]}
        pending=("${pending[@]:1}")
        echo "fuzz: $target for ${seconds}s"
        run "$target" &
        running+=("$!:$target")
    done
    wait -n || true
    still=()
    for entry in "${running[@]}"; do
        pid=${entry%%:*} target=${entry#*:}
        if kill -0 "$pid" 2>/dev/null; then
            still+=("$entry")
        else
            wait "$pid" && status[$target]=0 || status[$target]=$?
        fi
    done
    running=("${still[@]}")
done

stat() {
    sed -n "s/^stat::$2: *//p" "$build/fuzz-$1.log" | tail -1
}

failed=0
printf '\n%-14s %12s %10s %8s %8s  %s\n' target executions "exec/s" corpus edges result
for target in "${targets[@]}"; do
    log="$build/fuzz-$target.log"
    edges=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
    size=$(find "$build/corpus/$target" -type f | wc -l)
    if [ "${status[$target]}" = 0 ]; then
        result=ok
    else
        result="FAILED (exit ${status[$target]}): see $log, input in $build/artifacts/$target/"
        failed=1
    fi
    printf '%-14s %12s %10s %8s %8s  %s\n' "$target" "$(stat "$target" number_of_executed_units)" \
        "$(stat "$target" average_exec_per_sec)" "$size" "${edges:-?}" "$result"
done
exit $failed

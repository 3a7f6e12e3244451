#!/bin/sh
# Builds the fuzz preset and runs every fuzz target in turn for SECONDS each, with its seeds and
# dictionary, at the lowest priority (the machine is shared); prints a table of executions,
# exec/s, coverage and the longest input reached.
#
#   fuzz/run_all.sh [--goal] SECONDS [TARGET...]   (no TARGET: every *_fuzz program that was built)
#
# With --goal a target stops at its goal of executions (1M for the CSV and XDR file targets, 10M
# for the others) or after SECONDS, whichever comes first; TARGET:RUNS sets a goal of its own.
#
# Every target built from a fuzz/<area>.cmake is picked up. Per target, optional files in fuzz/:
#   dict/<target>.dict        its dictionary (else dict/<area>.dict by the name's first word)
#   <target>.options          more libFuzzer flags, one line (e.g. -max_len=4096)
# The working corpus grows in build/fuzz/fuzz/corpus/<target>; findings go to
# build/fuzz/fuzz/findings/. The exit status is 1 when any target found something.
# Environment: KBASE_SHARED_DATA (the shared real files), FUZZ_NO_BUILD=1 to skip the build.
set -eu

goal=0
if [ "${1:-}" = --goal ]; then
    goal=1
    shift
fi
if [ $# -lt 1 ]; then
    echo "usage: $0 [--goal] SECONDS [TARGET[:RUNS]...]" >&2
    exit 2
fi
seconds=$1
shift
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/fuzz
out=$build/fuzz

if [ "${FUZZ_NO_BUILD:-0}" != 1 ]; then
    shared=${KBASE_SHARED_DATA:-$root/../shared/data}
    cmake --preset fuzz -S "$root" -DKBASE_SHARED_DATA="$shared" >/dev/null
    nice -n 19 cmake --build "$build" -j 2
fi

if [ $# -eq 0 ]; then
    set -- $(cd "$out" && for f in *_fuzz; do [ -x "$f" ] && echo "$f"; done)
fi

# Per-area default for the longest input: past the buffers of the fuzz build (CSV blocks of up
# to 200 bytes and 64-byte masks, a 24-byte XDR buffer), small enough to stay fast. A decoder's
# longest sequence is a few bytes, so 512 cross many pieces.
max_len_of() {
    case $1 in
        csv_*) echo 1024 ;;
        xdr_* | xdstdio_*) echo 600 ;;
        string_* | stringlist_*) echo 256 ;;
        codepage_*) echo 512 ;;
        *) echo 2048 ;;
    esac
}

goal_of() {
    case $1 in
        csv_* | xdr_* | xdstdio_*) echo 1000000 ;;
        *) echo 10000000 ;;
    esac
}

dict_of() {
    area=${1%%_*}
    for d in "$root/fuzz/dict/$1.dict" "$root/fuzz/dict/$area.dict"; do
        [ -f "$d" ] && { echo "$d"; return; }
    done
    case $area in
        xdstdio) echo "$root/fuzz/dict/xdr.dict" ;;
        stringlist) echo "$root/fuzz/dict/string.dict" ;;
        *) echo "" ;;
    esac
}

tmp=${TMPDIR:-/tmp}
[ -d /dev/shm ] && tmp=/dev/shm  # targets that need a file write it here
mkdir -p "$out/findings"
status=0
table="| target | executions | exec/s | coverage (edges) | features | longest input |
|---|---|---|---|---|---|"
for arg in "$@"; do
    t=${arg%%:*}
    runs=-1
    [ "$goal" = 1 ] && runs=$(goal_of "$t")
    [ "$arg" != "$t" ] && runs=${arg#*:}
    corpus=$out/corpus/$t
    mkdir -p "$corpus"
    seeds=$out/seeds/$t
    [ -d "$seeds" ] || seeds=
    dict=$(dict_of "$t")
    extra=
    [ -f "$root/fuzz/$t.options" ] && extra=$(cat "$root/fuzz/$t.options")
    log=$out/findings/$t.log
    echo "== $t: ${seconds}s$([ "$runs" -gt 0 ] && echo " or $runs executions")" >&2
    # Allocation stacks are recorded for reports only (a finding is rerun with them); leaving
    # them out saves a stack walk per allocation and weakens no check.
    # shellcheck disable=SC2086  # the flags are words
    if ! ASAN_OPTIONS=${ASAN_OPTIONS:-malloc_context_size=0} TMPDIR=$tmp nice -n 19 "$out/$t" \
        -max_total_time="$seconds" -runs="$runs" -len_control=0 -max_len="$(max_len_of "$t")" \
        -print_final_stats=1 -artifact_prefix="$out/findings/$t-" ${dict:+-dict="$dict"} $extra \
        "$corpus" $seeds >"$log" 2>&1; then
        status=1
        echo "   FINDING: see $log" >&2
    fi
    done=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)
    cov=$(grep -o 'cov: [0-9]*' "$log" | tail -n 1 | cut -d' ' -f2)
    ft=$(grep -o 'ft: [0-9]*' "$log" | tail -n 1 | cut -d' ' -f2)
    longest=$(grep -o 'L: [0-9]*/[0-9]*' "$log" | cut -d/ -f2 | sort -n | tail -n 1)
    table="$table
| $t | ${done:--} | ${rate:--} | ${cov:--} | ${ft:--} | ${longest:--} bytes |"
done
echo "$table"
exit $status

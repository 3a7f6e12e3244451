#!/bin/sh
# Puts `kbase csv` beside Miller, csvkit and GNU sort on the same generated CSV in the same run and
# prints ratios (peer time / kbase time: above 1 means kbase is faster) and kbase's peak memory.
# Run by bench/program_bench.sh, or alone:
#
#   bench/csv_program_bench.sh [build dir, default build/release]
#
# The file (KBASE_BENCH_CSV_ROWS rows, default 15M, about 1 GB) is generated once into
# $KBASE_BENCH_DATA and kept. csvkit is timed on the first million rows only (it needs minutes
# per million), beside kbase on the same rows. Peers: hyperfine, miller, csvkit (apt-get).
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
kbase=$build/tools/kbase
data=${KBASE_BENCH_DATA:-${TMPDIR:-/tmp}/kbase_program_bench}
runs=${KBASE_BENCH_CSV_RUNS:-2}
rows=${KBASE_BENCH_CSV_ROWS:-15000000}

[ -x "$kbase" ] || { echo "csv_program_bench: build $kbase first" >&2; exit 1; }
need() {  # need COMMAND PACKAGE
    command -v "$1" >/dev/null 2>&1 && return
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    $sudo apt-get install -y "$2" >/dev/null
}
need hyperfine hyperfine
need mlr miller
need csvsort csvkit
need mawk mawk

mkdir -p "$data"
csv=$data/table_$rows.csv
small=$data/table_1m.csv
if [ ! -s "$csv" ]; then
    echo "csv_program_bench: generating $rows rows in $csv ..." >&2
    mawk -v n="$rows" 'BEGIN {
        srand(1); split("Nord Sued Ost West Mitte Lindenthal Ehrenfeld Nippes Porz Kalk", d, " ")
        split("Meier Schulz Krause Koenig Bauer Wagner Becker Hoffmann", s, " ")
        print "Id;Bezirk;Betrag;Jahr;Name;Strasse;Kommentar"
        for (i = 1; i <= n; i++)
            printf "%d;%s;%d.%02d;%d;%s %d;%s-Strasse %d;Lieferung Nr. %d\n", i, d[int(rand() * 10) + 1],
                   int(rand() * 5000), int(rand() * 100), 2000 + int(rand() * 25), s[int(rand() * 8) + 1],
                   i % 97, s[int(rand() * 8) + 1], int(rand() * 200), int(rand() * 1e6)
    }' >"$csv"
fi
[ -s "$small" ] || head -n 1000001 "$csv" >"$small"
ls -l "$csv" | awk '{printf "csv_program_bench: %s: %.0f MB\n", $NF, $5 / 1e6}'

# compare NAME PEER_COMMAND KBASE_COMMAND: both timed by hyperfine, ratio printed.
compare() {
    json=$data/csv_compare.json
    hyperfine --style basic --runs "$runs" --export-json "$json" -n peer "$2" -n kbase "$3" >&2
    python3 - "$json" "$1" <<'PY'
import json, sys
r = {x["command"]: x for x in json.load(open(sys.argv[1]))["results"]}
peer, ours = r["peer"]["median"], r["kbase"]["median"]
print(f"{sys.argv[2]:<40} peer {peer:7.2f} s   kbase {ours:7.2f} s   ratio {peer / ours:5.2f}")
PY
}

echo "== csv (median of $runs runs; ratio = peer / kbase) =="
compare "--group --sum vs Miller" \
    "mlr --icsv --ifs ';' --ocsv stats1 -a sum -f Betrag -g Bezirk '$csv' >/dev/null" \
    "'$kbase' csv '$csv' --group Bezirk --sum Betrag >/dev/null"
compare "--group --sum vs csvkit csvsql (1M rows)" \
    "csvsql -d ';' --query 'select Bezirk, sum(Betrag) from table_1m group by Bezirk' '$small' >/dev/null" \
    "'$kbase' csv '$small' --group Bezirk --sum Betrag >/dev/null"
compare "--sort (numeric key) vs Miller" \
    "mlr --icsv --ifs ';' --ocsv sort -nf Betrag '$csv' >/dev/null" \
    "'$kbase' csv '$csv' --sort Betrag >/dev/null"
compare "--sort (numeric key) vs GNU sort" \
    "LC_ALL=C sort -t';' -k3,3n '$csv' >/dev/null" \
    "'$kbase' csv '$csv' --sort Betrag >/dev/null"
compare "--sort vs csvkit csvsort (1M rows)" \
    "csvsort -d ';' -c Betrag '$small' >/dev/null" \
    "'$kbase' csv '$small' --sort Betrag >/dev/null"
# The describe pass beside a plain count of the lines (a floor for any reader of the file).
compare "describe vs wc -l (floor)" "wc -l '$csv' >/dev/null" "'$kbase' csv '$csv' >/dev/null"

echo "== csv peak memory on $(($(wc -c <"$csv") / 1000000)) MB =="
for args in "" "--group Bezirk --sum Betrag" "--sort Betrag"; do
    # shellcheck disable=SC2086
    rss=$(/usr/bin/time -v "$kbase" csv "$csv" $args 2>&1 >/dev/null | awk -F': ' '/Maximum resident set size/ {print $2}')
    echo "kbase csv ${args:-(describe)}: peak RSS $((rss / 1024)) MiB"
done

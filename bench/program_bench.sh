#!/bin/sh
# Puts the kbase program beside the tools people would use instead, on the same data in the same
# run, and prints ratios (peer time / kbase time: above 1 means kbase is faster).
#
#   cmake --preset release && cmake --build build/release --target kbase
#   bench/program_bench.sh [build dir, default build/release]
#
# The data (about 500 MB of German text) is generated once into $KBASE_BENCH_DATA (default
# ${TMPDIR:-/tmp}/kbase_program_bench) and kept for later runs. KBASE_BENCH_RSS=1 also measures
# the peak memory of kbase recode on a 2 GB file (made from the 500 MB one, removed afterwards).
# Peers: hyperfine, iconv (libc-bin), uconv (icu-devtools), miller, csvkit, GNU sort and envsubst, installed
# with apt-get when missing. The csv and subst parts generate their own files (see below).
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
kbase=$build/tools/kbase
data=${KBASE_BENCH_DATA:-${TMPDIR:-/tmp}/kbase_program_bench}
runs=${KBASE_BENCH_RUNS:-5}
warmup=1

if [ ! -x "$kbase" ]; then
    echo "program_bench: $kbase is missing; build it first:" >&2
    echo "  cmake --preset release && cmake --build build/release --target kbase" >&2
    exit 1
fi

need() {  # need COMMAND PACKAGE
    command -v "$1" >/dev/null 2>&1 && return
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    $sudo apt-get install -y "$2" >/dev/null
}
need hyperfine hyperfine
need iconv libc-bin
need uconv icu-devtools
need python3 python3

mkdir -p "$data"
german=$data/german_1252.txt
german8=$data/german_utf8.txt
if [ ! -s "$german" ]; then
    echo "program_bench: generating about 500 MB of German text in $data ..." >&2
    python3 - "$german" <<'EOF'
import random, sys
random.seed(20240501)
words = ("Baubeschreibung Mehrfamilienhaus Königstraße Außenwände Mauerwerk Wärmedämmung Fenster "
         "Dreifachverglasung Preis Wohnfläche Stellplätze Grüße Planungsabteilung Jürgen Größe "
         "Architekt und der die das mit für über unter Tür Böden Fußbodenheizung Schließanlage "
         "Gebäude Außenanlagen Küche Bäder Müllentsorgung Dachdämmung Balkon Geländer Stahlträger "
         "Übergabe Prüfung Maßnahme Gewährleistung Höhe Länge Breite Öffnungen Estrich Putz").split()
signs = ["€", "m²", "–", "„", "“", "×", "°C", "§", "½", "…", "€/m²"]
def line():
    parts = []
    for _ in range(random.randint(6, 14)):
        r = random.random()
        if r < 0.12:
            parts.append(f"{random.randint(1, 99999)},{random.randint(0, 99):02d}")
        elif r < 0.2:
            parts.append(random.choice(signs))
        else:
            parts.append(random.choice(words))
    return " ".join(parts) + ".\n"
pool = "".join(line() for _ in range(200000)).encode("cp1252")
lines = pool.splitlines(keepends=True)
with open(sys.argv[1], "wb") as f:
    size = 0
    while size < 500_000_000:
        random.shuffle(lines)
        chunk = b"".join(lines)
        f.write(chunk)
        size += len(chunk)
EOF
fi
[ -s "$german8" ] || iconv -f CP1252 -t UTF-8 "$german" >"$german8"
ls -l "$german" "$german8" | awk '{printf "program_bench: %s: %.0f MB\n", $NF, $5 / 1e6}'

# compare NAME PEER_COMMAND KBASE_COMMAND: both timed by hyperfine, ratio printed.
compare() {
    name=$1
    json=$data/$name.json
    hyperfine --style basic --warmup "$warmup" --runs "$runs" --export-json "$json" -n peer "$2" -n kbase "$3" >&2
    python3 - "$json" "$name" <<'EOF'
import json, sys
r = {x["command"]: x for x in json.load(open(sys.argv[1]))["results"]}
peer, ours = r["peer"]["median"], r["kbase"]["median"]
print(f"{sys.argv[2]:<28} peer {peer:7.2f} s   kbase {ours:7.2f} s   ratio {peer / ours:5.2f}")
EOF
}

out=$data/out.txt
echo "== recode (median of $runs runs; ratio = peer / kbase) =="
compare "1252->UTF-8 vs iconv" "iconv -f CP1252 -t UTF-8 '$german' >'$out'" \
    "'$kbase' recode -f 1252 -t 65001 '$german' '$out'"
compare "UTF-8->1252 vs iconv" "iconv -f UTF-8 -t CP1252 '$german8' >'$out'" \
    "'$kbase' recode -f 65001 -t 1252 '$german8' '$out'"
compare "UTF-8 NFC vs uconv" "uconv -f utf-8 -t utf-8 -x nfc '$german8' >'$out'" \
    "'$kbase' recode -f 65001 -t 65001 -n C '$german8' '$out'"
rm -f "$out"

if [ "${KBASE_BENCH_RSS:-0}" = 1 ]; then
    big=$data/german_2gb.txt
    cat "$german" "$german" "$german" "$german" >"$big"
    echo "== recode peak memory on $(($(wc -c <"$big") / 1000000)) MB =="
    for args in "-f 1252 -t 65001" "-f 1252 -t 65001 -n C" "-f 1252 -t 1200"; do
        # shellcheck disable=SC2086
        rss=$(/usr/bin/time -v "$kbase" recode $args "$big" "$out" 2>&1 >/dev/null |
              awk -F': ' '/Maximum resident set size/ {print $2}')
        echo "kbase recode $args: peak RSS $((rss / 1024)) MiB"
    done
    rm -f "$big" "$out"
fi

# The csv job beside Miller, csvkit and GNU sort on a generated CSV (KBASE_BENCH_CSV_ROWS rows,
# default 15M, about 1 GB); csvkit needs minutes per million rows, so it and kbase are timed on the
# first million only. Fewer runs and no warm-up: a run of Miller takes minutes.
need mlr miller
need csvsort csvkit
need mawk mawk
runs=${KBASE_BENCH_CSV_RUNS:-2}
warmup=0
rows=${KBASE_BENCH_CSV_ROWS:-15000000}
csv=$data/table_$rows.csv
small=$data/table_1m.csv
if [ ! -s "$csv" ]; then
    echo "program_bench: generating $rows rows in $csv ..." >&2
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
ls -l "$csv" | awk '{printf "program_bench: %s: %.0f MB\n", $NF, $5 / 1e6}'

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
compare "--sort (two text keys) vs GNU sort -s" \
    "LC_ALL=C sort -s -t';' -k2,2 -k5,5r '$csv' >/dev/null" \
    "'$kbase' csv '$csv' --sort Bezirk --sort Name:desc >/dev/null"
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

# The subst job beside envsubst (gettext-base) on about 100 MB of text with 100 variables, keys
# $v00..$v99 (none a prefix of another, so both fill the same text), and its peak memory.
need envsubst gettext-base
template=$data/subst_template.txt
if [ ! -s "$template" ]; then
    awk 'BEGIN { srand(7); split("Wand Decke Fenster Tuer Achse Raster Geschoss Dach", w, " ");
                 while (bytes < 100000000) { line = "";
                     while (length(line) < 72) line = line (rand() < 0.2 ? sprintf("$v%02d", int(rand() * 100)) : w[int(rand() * 8) + 1]) " ";
                     print line; bytes += length(line) + 1 } }' >"$template"
fi
vars=""
envs=""
i=0
while [ $i -lt 100 ]; do
    name=$(printf 'v%02d' $i)
    vars="$vars --var $name=Wert-$((i * 37))"
    envs="$envs $name=Wert-$((i * 37))"
    i=$((i + 1))
done
echo "== subst (median of $runs runs; ratio = peer / kbase) =="
compare "subst vs envsubst" "env $envs envsubst <'$template' >/dev/null" "'$kbase' subst '$template' $vars >/dev/null"
# shellcheck disable=SC2086
rss=$(/usr/bin/time -v "$kbase" subst "$template" $vars 2>&1 >/dev/null | awk -F': ' '/Maximum resident set size/ {print $2}')
echo "kbase subst on $(($(wc -c <"$template") / 1000000)) MB: peak RSS $((rss / 1024)) MiB"

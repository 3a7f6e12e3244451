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
# Peers: hyperfine, iconv (libc-bin) and uconv (icu-devtools), installed with apt-get when missing.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
kbase=$build/tools/kbase
data=${KBASE_BENCH_DATA:-${TMPDIR:-/tmp}/kbase_program_bench}
runs=${KBASE_BENCH_RUNS:-5}

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
    hyperfine --style basic --warmup 1 --runs "$runs" --export-json "$json" -n peer "$2" -n kbase "$3" >&2
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

#!/usr/bin/env bash
# Builds the kbase program and runs it on the bundled samples: the quantity takeoff of a small
# house becomes a GAEB bill of quantities, shown as a tree; a German Windows-1252 text is
# recoded to UTF-8 (with normalisation) and back, and the round trip is checked byte for byte;
# the bundled order list is described and totalled per district.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
cmake --preset release >/dev/null
cmake --build --preset release --target kbase
kbase=build/release/tools/kbase
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
"$kbase" boq examples/boq/einfamilienhaus.csv -o "$out/einfamilienhaus.X83" --title "Einfamilienhaus"
echo "--- examples/boq/einfamilienhaus.csv as a GAEB bill (kbase gaeb show):"
"$kbase" gaeb show "$out/einfamilienhaus.X83"
"$kbase" recode --from 1252 --to 65001 --normalize C examples/german_1252.txt "$out/german_utf8.txt"
echo "--- examples/german_1252.txt as UTF-8:"
cat "$out/german_utf8.txt"
"$kbase" recode --from 65001 --to 1252 "$out/german_utf8.txt" "$out/back_1252.txt"
cmp examples/german_1252.txt "$out/back_1252.txt"
echo "--- round trip 1252 -> UTF-8 -> 1252 is byte-identical"
echo "--- examples/bestellungen.csv described, then totalled per district:"
"$kbase" csv examples/bestellungen.csv
"$kbase" csv examples/bestellungen.csv --group Bezirk --sum Menge Betrag

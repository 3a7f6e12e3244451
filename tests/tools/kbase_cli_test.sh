#!/bin/sh
# The kbase program as a person runs it: exit codes and messages, standard streams, names of code
# pages, and what becomes of the output file when a run fails.
#
#   kbase_cli_test.sh KBASE SAMPLE WORKDIR GROUP
#
# GROUP: "exit-codes" (every row of the table), "files" (links, permissions, a full disk),
# "csv" (the csv job's streams, exit codes and output), "subst" (the subst job), "memory" (address-space limits; not under AddressSanitizer, which needs terabytes of it).
set -u
K=$1
SAMPLE=$2
work=$3
group=$4
export K SAMPLE
rm -rf "$work"
mkdir -p "$work"
cd "$work" || exit 1
failures=0

# expect RC PATTERN COMMAND: runs COMMAND with sh and checks its exit code, and that its standard
# output and error together match the extended regular expression PATTERN (empty: are empty).
expect() {
    rc=$1
    pattern=$2
    shift 2
    sh -c "$*" >run.log 2>&1
    got=$?
    if [ -z "$pattern" ]; then
        matched=$(wc -c <run.log)
        [ "$matched" -eq 0 ] && matched=yes
    else
        matched=no
        grep -Eaq -- "$pattern" run.log && matched=yes
    fi
    if [ "$got" -ne "$rc" ] || [ "$matched" != yes ]; then
        echo "FAIL: $*"
        echo "    exit $got (wanted $rc), output (wanted /$pattern/):"
        sed 's/^/    | /' run.log
        failures=$((failures + 1))
    else
        echo "ok ($got): $*"
    fi
}

# posix_only CHECK...: runs a check that needs a POSIX program, which sees a closed or folder
# standard stream and /dev/full as they are; KBASE_CLI_WINE=1 (a Windows program under Wine, where
# these arrive as other kinds of handle) leaves it out.
posix_only() {
    [ -n "${KBASE_CLI_WINE:-}" ] && return 0
    "$@"
}

# untouched FILE: FILE still holds "previous", and no temporary file is left beside it.
untouched() {
    expect 0 '^previous$' "cat '$1'"
    expect 0 '^0$' "ls -A '$(dirname "$1")' | grep -c 'kbase-.*tmp' || true"
}

case $group in
gaeb)
    # kbase boq and kbase gaeb: the bundled takeoff, standard streams, the exit-code table.
    TAKEOFF="$(dirname "$SAMPLE")/boq/einfamilienhaus.csv"
    export TAKEOFF
    expect 0 'Exit codes:' '"$K" boq --help'
    expect 0 'Exit codes:' '"$K" gaeb show --help'
    expect 0 '' '"$K" boq "$TAKEOFF" -o haus.X83 --date 01.03.2026'
    expect 0 '^#end\[GAEB\]$' 'tail -c 10 haus.X83; echo'
    expect 0 '43 positions in 9 ranges' '"$K" gaeb show haus.X83'
    expect 0 '01.02.0040  Betonstahl B500B  3882.500 kg' '"$K" gaeb show - < haus.X83'
    expect 0 '' '"$K" gaeb csv haus.X83 haus.csv && "$K" boq haus.csv --name einfamilienhaus --date 01.03.2026 > again.X83 && cmp haus.X83 again.X83'
    expect 0 '' '"$K" boq - --name einfamilienhaus --date 01.03.2026 < "$TAKEOFF" | cmp - haus.X83'
    expect 0 '' '"$K" gaeb copy haus.X83 copy.X83 && cmp haus.X83 copy.X83'
    expect 0 '457 lines, 43 positions, 9 ranges, 0 blocks' '"$K" gaeb check haus.X83'
    # 1: input and output; 2: usage; 3: content. A failed run leaves the output as it was.
    echo previous >keep.X83
    expect 1 "kbase boq: cannot open 'missing.csv'" '"$K" boq missing.csv -o keep.X83'
    untouched keep.X83
    expect 1 "kbase gaeb show: cannot open 'missing.X83'" '"$K" gaeb show missing.X83'
    if [ -w /dev/full ]; then
        posix_only expect 1 "cannot write '/dev/full'" '"$K" boq "$TAKEOFF" -o /dev/full'
        posix_only expect 1 "cannot write '/dev/full'" '"$K" gaeb copy haus.X83 /dev/full'
    fi
    expect 2 'kbase gaeb: .*subcommand' '"$K" gaeb'
    expect 2 'kbase boq: .*--bogus' '"$K" boq "$TAKEOFF" --bogus'
    expect 2 'kbase boq: --map needs KEY=NAME' '"$K" boq "$TAKEOFF" --map preis=Preis'
    printf 'OZ,Kurztext,Menge,ME\n01.0010,Aushub,12,m3\n01.0010,Aushub,zwei,m3\n' >bad.csv
    expect 3 "kbase boq: 'bad.csv' line 3: quantity 'zwei' is no number" '"$K" boq bad.csv -o keep.X83'
    untouched keep.X83
    printf '#begin[GAEB]\n#begin[Vergabe]\n' >bad.X83
    expect 3 "kbase gaeb check: 'bad.X83': line 2: #begin\[Vergabe\] never ends" '"$K" gaeb check bad.X83'
    expect 3 'line 2: #begin' '"$K" gaeb copy bad.X83 keep.X83'
    untouched keep.X83
    ;;
exit-codes)
    # 0: done; help, version and the list of code pages are no errors.
    expect 0 'Exit codes:' '"$K" --help'
    expect 0 'Exit codes:.*' '"$K" recode --help'
    expect 0 '3 +content: text that cannot be converted' '"$K" csv --help'
    expect 0 '^[0-9]+\.[0-9]+' '"$K" --version'
    expect 0 '28591 +latin1, iso-8859-1' '"$K" recode --list'
    expect 0 '65001 +utf-8, utf8' '"$K" recode --list'
    expect 0 '^ *1252 +windows-1252' '"$K" recode -l'
    expect 0 'c3 b6' 'printf "K\366ln" | "$K" recode -f windows-1252 - | od -An -tx1'
    # Names people type, whatever the case; latin1 is not 1252.
    expect 0 'e2 82 ac' 'printf "\200" | "$K" recode -f CP1252 -t UTF8 - | od -An -tx1'
    expect 0 'c2 80' 'printf "\200" | "$K" recode -f latin1 -t utf-8 - | od -An -tx1'
    expect 0 '61 00 00 00' 'printf "a" | "$K" recode -f iso-8859-1 -t utf-32le - | od -An -tx1'
    expect 0 'ff fe 61 00' 'printf "a" | "$K" recode -f Shift_JIS -t utf-16 --bom - | od -An -tx1'
    expect 0 '^ *61 00 62$' 'printf "a\000b" | "$K" recode -f 1252 - | od -An -tx1'
    # 1: input and output.
    expect 1 "kbase recode: cannot open 'missing.txt': No such file" '"$K" recode missing.txt'
    expect 1 "kbase recode: cannot read '.': it is a directory" '"$K" recode . out.txt'
    posix_only expect 1 'kbase recode: standard input is a directory' '"$K" recode - out.txt < .'
    posix_only expect 1 'kbase recode: standard input is closed' '"$K" recode - out.txt <&-'
    posix_only expect 1 'kbase recode: standard output is closed' '"$K" recode -f 1252 "$SAMPLE" >&-'
    expect 1 "kbase recode: cannot write '.': it is a directory" '"$K" recode -f 1252 "$SAMPLE" .'
    expect 1 "kbase recode: cannot write 'no/such/x.txt': No such file" '"$K" recode -f 1252 "$SAMPLE" no/such/x.txt'
    if [ -w /dev/full ]; then
        posix_only expect 1 "cannot write '/dev/full': No space left on device" '"$K" recode -f 1252 "$SAMPLE" /dev/full'
        expect 1 'cannot write standard output: No space left on device' '"$K" recode -f 1252 "$SAMPLE" >/dev/full'
    fi
    # 2: usage, every parser error included.
    expect 2 '^kbase: .*subcommand' '"$K"'
    expect 2 '^kbase: ' '"$K" bogus'
    expect 2 '^kbase recode: .*--bogus' '"$K" recode --bogus "$SAMPLE"'
    expect 2 '^kbase recode: .*input is required' '"$K" recode'
    expect 2 "Run 'kbase recode --help'" '"$K" recode "$SAMPLE" -f'
    expect 2 '^kbase recode: .*a b c|not expected' '"$K" recode a b c'
    expect 2 "unknown code page 'latin99'" '"$K" recode -f latin99 "$SAMPLE"'
    expect 2 "unknown code page '66788'" '"$K" recode -f 66788 "$SAMPLE"'
    expect 2 "unknown code page '-5'" '"$K" recode -t -5 "$SAMPLE"'
    expect 2 'unknown code page 12345' '"$K" recode -t 12345 "$SAMPLE"'
    expect 2 '^kbase recode: .*normalize' '"$K" recode -n X "$SAMPLE"'
    expect 2 'kbase recode: the output path is empty' '"$K" recode -f 1252 "$SAMPLE" ""'
    expect 2 'kbase recode: the input path is empty' '"$K" recode ""'
    expect 2 '^kbase csv: ' '"$K" csv'
    # 3: content.
    expect 3 'not valid text in code page 65001: malformed UTF-8 at byte offset 1' \
        'printf "a\377" | "$K" recode -f utf-8 -t 1252 -'
    expect 3 'line 2, column 1: U\+0100 .* cannot be represented in code page 1252' \
        'printf "ok\n\304\200" | "$K" recode -f utf-8 -t cp1252 -'
    expect 3 'line 1, column 1: U\+FFFE cannot be represented' 'printf "\357\277\276" | "$K" recode -f 65001 -t 1252 -'
    expect 3 'unpaired surrogate at byte offset 2' 'printf "a\000\000\330b\000" | "$K" recode -f utf-16le -'
    # A failed run leaves the output as it was.
    echo previous >keep.txt
    expect 3 'cannot be represented' 'printf "\304\200" | "$K" recode -f 65001 -t 1252 - keep.txt'
    untouched keep.txt
    posix_only expect 1 'standard input is closed' '"$K" recode - keep.txt <&-'
    untouched keep.txt
    ;;
files)
    # A link is written through: the link stays, the file it names gets the text and keeps its mode.
    echo previous >real.txt
    chmod 640 real.txt
    ln -s real.txt link.txt
    mkdir sub
    ln -s ../link.txt sub/chain.txt
    expect 0 '' '"$K" recode -f 1252 "$SAMPLE" sub/chain.txt'
    expect 0 'link.txt' 'find . -maxdepth 1 -type l -name link.txt'
    expect 0 '^640 ' 'stat -c "%a %s" real.txt'
    expect 0 'Königstraße' 'cat real.txt'
    chmod 755 real.txt
    expect 0 '' 'printf x | "$K" recode -f 1252 - link.txt'
    expect 0 '^755 1$' 'stat -c "%a %s" real.txt'
    # A link to a file not there yet makes the file.
    ln -s new.txt dangling.txt
    expect 0 '' 'printf y | "$K" recode -f 1252 - dangling.txt && test -L dangling.txt'
    expect 0 '^y$' 'cat new.txt'
    # A write that fails (the file-size limit; the signal ignored so that the write reports it)
    # leaves the old file and no temporary one.
    i=0
    cp "$SAMPLE" big.txt
    while [ $i -lt 12 ]; do cat big.txt big.txt >big2.txt && mv big2.txt big.txt; i=$((i + 1)); done
    echo previous >keep.txt
    expect 1 "cannot write 'keep.txt': File too large" \
        'trap "" XFSZ; ulimit -f 64; exec "$K" recode -f 1252 big.txt keep.txt'
    untouched keep.txt
    expect 1 'cannot write standard output: File too large' \
        'trap "" XFSZ; ulimit -f 64; exec "$K" recode -f 1252 big.txt - >>keep.txt'
    ;;
memory)
    # 100 MB of text (the sample doubled), converted under address-space limits: a run either
    # writes the whole text or fails with "out of memory" (1) and leaves the file as it was; the
    # loader itself may fail at the lowest limits (127).
    cp "$SAMPLE" in.txt
    while [ "$(wc -c <in.txt)" -lt 100000000 ]; do cat in.txt in.txt >in2.txt && mv in2.txt in.txt; done
    "$K" recode -f 1252 -t 65001 in.txt want.txt || failures=$((failures + 1))
    for limit in 409600 921600; do
        echo previous >out.txt
        expect 0 '' "ulimit -v $limit; exec \"\$K\" recode -f 1252 -t 65001 in.txt out.txt"
        expect 0 '' 'cmp want.txt out.txt'
    done
    for limit in 30000 36000 40000 42000 44000 48000 56000 64000; do
        for job in "-f 1252 -t 65001 in.txt" "-f 65001 -t 65001 -n C want.txt" "-f 1252 -t 1200 in.txt"; do
            echo previous >out.txt
            sh -c "ulimit -v $limit; exec \"\$K\" recode $job out.txt" >run.log 2>&1
            rc=$?
            if [ $rc -eq 0 ] && [ "$(wc -c <out.txt)" -gt 100000000 ]; then
                echo "ok (0 under $limit KiB): $job"
            elif { [ $rc -eq 1 ] && grep -q 'out of memory' run.log; } || [ $rc -eq 127 ]; then
                untouched out.txt
            else
                echo "FAIL under $limit KiB: $job -> exit $rc, $(wc -c <out.txt) bytes:"
                sed 's/^/    | /' run.log
                failures=$((failures + 1))
            fi
        done
    done    # The csv job under limits: the whole answer, or "out of memory" (1), never a crash or a part.
    awk 'BEGIN { print "k;v"; for (i = 0; i < 300000; i++) printf "g%d;%d.%02d\n", i % 1000, i % 977, i % 100 }' >t.csv
    for job in "--sort v" "--group k --sum v"; do
        "$K" csv t.csv $job >"want $job.csv" || failures=$((failures + 1))
        for limit in 30000 40000 56000 80000 160000; do
            sh -c "ulimit -v $limit; exec \"\$K\" csv t.csv $job" >out.csv 2>run.log
            rc=$?
            if [ $rc -eq 0 ] && cmp -s "want $job.csv" out.csv; then
                echo "ok (0 under $limit KiB): csv $job"
            elif { [ $rc -eq 1 ] && grep -q 'out of memory' run.log; } || [ $rc -eq 127 ]; then
                echo "ok ($rc under $limit KiB): csv $job"
            else
                echo "FAIL under $limit KiB: csv $job -> exit $rc, $(wc -c <out.csv) bytes:"
                sed 's/^/    | /' run.log
                failures=$((failures + 1))
            fi
        done
    done
    ;;
csv)
    CSV=$(dirname "$SAMPLE")/bestellungen.csv
    export CSV
    # Standard input, read once; the same answers as from the file.
    expect 0 '^rows: +7$' '"$K" csv - < "$CSV"'
    expect 0 '^rows: +7$' 'cat "$CSV" | "$K" csv /dev/stdin'
    expect 0 '^Nord;1222,35$' 'cat "$CSV" | "$K" csv - --group Bezirk --sum Betrag'
    # CR-only line ends, and output that reads back to the same rows.
    expect 0 '^rows: +2$' 'printf "a,b\r1,2\r3,4\r" | "$K" csv -'
    expect 0 '' '"$K" csv "$CSV" --sort Kunde > s1.csv && "$K" csv s1.csv --sort Kunde > s2.csv && cmp s1.csv s2.csv'
    # 1: input and output.
    posix_only expect 1 'kbase csv: standard input is a directory' '"$K" csv - < .'
    posix_only expect 1 'kbase csv: standard input is closed' '"$K" csv - <&-'
    expect 1 "kbase csv: cannot open 'missing.csv'" '"$K" csv missing.csv'
    expect 1 'kbase csv: cannot write the output' '"$K" csv "$CSV" > /dev/full'
    expect 1 'kbase csv: cannot write the output' '"$K" csv "$CSV" --sort 1 > /dev/full'
    expect 1 'kbase csv: cannot write the output' '"$K" csv "$CSV" --group 1 --sum 5 > /dev/full'
    # 2: usage, whatever the parser or the file says.
    expect 2 "kbase csv: no column '99' to sum" '"$K" csv "$CSV" --sum 99'
    expect 2 "kbase csv: no column 'Preis' to sort by" '"$K" csv "$CSV" --sort Preis'
    expect 2 "kbase csv: no column '0' to group by" '"$K" csv "$CSV" --group 0'
    expect 2 'kbase csv: .*--bogus' '"$K" csv "$CSV" --bogus'
    expect 2 'kbase csv: --memory' '"$K" csv "$CSV" --sort 1 --memory 1K'
    expect 2 "kbase csv: unknown code page 'klingon'" '"$K" csv "$CSV" -e klingon'
    # 3: content.
    expect 3 'kbase csv: line 2 is not valid' 'printf "a;b\nK\366ln;1\n" | "$K" csv -e utf-8 - --sort 1'
    ;;
subst)
    # The template filled from typed variables and the environment, through files and pipes.
    printf 'Dear $name, you owe $sum (due: $paid) in $HOME_KBASE_SUBST.\n' >t.txt
    expect 0 '^Dear Anna, you owe 12.500000 \(due: false\) in Berlin\.$' \
        '"$K" subst t.txt --var name=Anna --var sum=12.5 --var paid=false --env HOME_KBASE_SUBST=Berlin'
    expect 0 '^Dear Anna, .* in Köln\.$' \
        'HOME_KBASE_SUBST=Köln "$K" subst - --var name=Anna --env HOME_KBASE_SUBST=Berlin < t.txt'
    expect 0 "^Variables: Environment 'HOME_KBASE_SUBST' has value 'x'$" \
        'HOME_KBASE_SUBST=x "$K" subst t.txt out.txt --env HOME_KBASE_SUBST=y --protocol p.txt && cat p.txt'
    # 3: a value that refers to itself stops at the pass limit; the output is left as it was.
    echo previous >out.txt
    expect 3 "kbase subst: line 1: '\\\$a' is still replaced after 100 passes" \
        'printf "x \$a\n" | "$K" subst - out.txt --var "a=(\$a)"'
    untouched out.txt
    expect 3 "after 4 passes" 'printf "\$a\n" | "$K" subst - --var "a=\$a" --max-passes 4'
    # 2: usage; 1: files.
    expect 2 "kbase subst: --var 'x': give NAME=VALUE" '"$K" subst t.txt --var x'
    expect 2 'kbase subst: .*max-passes' '"$K" subst t.txt --max-passes 0'
    expect 1 "kbase subst: cannot open 'missing.txt'" '"$K" subst missing.txt'
    if [ -w /dev/full ]; then
        expect 1 'kbase subst: cannot write' '"$K" subst t.txt --var name=x >/dev/full'
    fi
    ;;
*)
    echo "unknown group $group"
    exit 2
    ;;
esac

echo "$failures failure(s)"
[ "$failures" -eq 0 ] && cd / && rm -rf "$work"
[ "$failures" -eq 0 ]

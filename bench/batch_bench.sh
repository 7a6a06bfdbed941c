#!/usr/bin/env bash
# `quil screen --batch` over a million rows beside the same CSV read and written through the same library, the memory at
# ten million rows through a pipe, and two processes by parallel. The best of five runs each.
#
#     bench/batch_bench.sh build/release
set -euo pipefail
quil=$(readlink -f -- "${1:?name a build folder}")/quil
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

cat > copy.c <<'C'
#include <csv.h>
#include <stdio.h>
static int first = 1;
static void cell(void *bytes, size_t size, void *data) { (void)data; if (!first) putc(',', stdout); first = 0; csv_fwrite(stdout, bytes, size); }
static void row(int mark, void *data) { (void)mark; (void)data; putc('\n', stdout); first = 1; }
int main(void) {
    static char block[65536];
    struct csv_parser parser;
    csv_init(&parser, 0);
    for (size_t size; (size = fread(block, 1, sizeof block, stdin)) > 0;) csv_parse(&parser, block, size, cell, row, 0);
    csv_fini(&parser, cell, row, 0);
    return 0;
}
C
gcc -O2 copy.c -o copy -lcsv

rows() {
    awk -v n="$1" 'BEGIN {
        srand(3)
        print "facility,chemical,state,level-of-concern,amount,concentration,duration,terrain,wind,stability,units"
        split("1.5 2 2.5 3", wind, " "); split("D E F", class, " "); split("open urban", terrain, " ")
        for (i = 0; i < 200; ++i) loc[i] = sprintf("%.4f", 0.002 + 2 * rand())
        for (i = 0; i < n; ++i) {
            c = int(rand() * 200)
            printf "Facility %d,Chemical %d,gas,%s g/m3,%d lb,%d,10 min,%s,%s m/s,%s,km\n", i, c, loc[c], \
                1 + rand() * 20000, 100 / (1 + int(rand() * 3)), terrain[1 + int(rand() * 2)], wind[1 + int(rand() * 4)], \
                class[1 + int(rand() * 3)]
        }
    }'
}
rows 1000000 > table.csv

# best COMMAND: processor seconds (user and system) of the fastest run.
best() {
    local TIMEFORMAT='%U %S'
    for _ in 1 2 3 4 5; do
        { time bash -c "$1" 2>/dev/null; } 2>&1
    done | awk '{ s = $1 + $2 } NR == 1 || s < least { least = s } END { printf "%.2f", least }'
}
# elapsed COMMAND: seconds of the fastest run.
elapsed() {
    local TIMEFORMAT='%R'
    for _ in 1 2 3; do
        { time bash -c "$1" 2>/dev/null; } 2>&1
    done | sort -n | head -n 1
}
ours=$(best "'$quil' screen --batch table.csv > out")
peer=$(best "./copy < table.csv > out")
awk -v a="$ours" -v b="$peer" 'BEGIN { printf "1,000,000 rows: %s s, %d rows/s; copied %s s; ratio %.2f (at most 3)\n", a, 1e6 / a, b, a / b }'

memory() { rows "$1" | /usr/bin/time -f %M "$quil" screen --batch 2>&1 >/dev/null | tail -n 1; }
echo "memory: $(memory 100000) KiB at 100,000 rows, $(memory "${ROWS:-10000000}") KiB at ${ROWS:-10000000}"

one=$(elapsed "parallel --will-cite -j1 --pipepart --header : --block 20M -a table.csv \"'$quil' screen --batch\" > out")
two=$(elapsed "parallel --will-cite -j2 --pipepart --header : --block 20M -a table.csv \"'$quil' screen --batch\" > out")
awk -v a="$one" -v b="$two" 'BEGIN { printf "one process %s s, two %s s: %.2f times (at least 1.8)\n", a, b, a / b }'

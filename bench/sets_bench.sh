#!/usr/bin/env bash
# `quil sets` as a whole command beside sort and comm, over a million 20-character IDs. The best of five runs each.
#
#     bench/sets_bench.sh build/release
set -euo pipefail
quil=$(readlink -f -- "${1:?name a build folder}")/quil
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# Half of the second list is in the first one.
awk 'BEGIN {
    srand(5); digits = "0123456789ABCDEFGHJKLMNPQRSTUVWXYZ"
    for (i = 0; i < 1500000; ++i) {
        id = "CH000000"
        for (k = 0; k < 12; ++k) id = id substr(digits, int(rand() * 34) + 1, 1)
        if (i < 1000000) print id > "a"
        if (i >= 500000) print id > "b"
    }
}'

# best COMMAND: seconds of the fastest run.
best() {
    for _ in 1 2 3 4 5; do
        local start=$EPOCHREALTIME
        bash -c "$1"
        echo "$start $EPOCHREALTIME"
    done | awk 'NR == 1 || $2 - $1 < least { least = $2 - $1 } END { printf "%.3f", least }'
}

# compare NAME COMMAND PEER: one line, after checking that both answer the same.
compare() {
    bash -c "$2" | sort > ours
    bash -c "$3" | sort > theirs
    cmp ours theirs
    local ours theirs
    ours=$(best "$2 > out")
    theirs=$(best "$3 > out")
    awk -v name="$1" -v a="$ours" -v b="$theirs" \
        'BEGIN { printf "%-8s %s s   peer %s s   %.1f times as fast\n", name, a, b, b / a }'
}

compare dedupe "'$quil' sets dedupe a" "sort -u a"
compare and "'$quil' sets and a b" "sort -u a > sa; sort -u b > sb; comm -12 sa sb"

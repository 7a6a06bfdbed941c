#!/usr/bin/env bash
# Files and submission years as whole commands beside rg, grep, cp and ls, in one run. The best of five runs each.
# Sizes in MB may follow the build folder (1 and 256 without any); the files are made in a temporary folder.
#
#     bench/years_bench.sh build/release 1 256 2048
set -eu  # a head that has enough ends what writes to it
quil=$(readlink -f -- "${1:?name a build folder}")/quil
shift
sizes=("${@:-}")
[[ -n ${sizes[0]} ]] || sizes=(1 256)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
export LC_ALL=C
pattern='([Cc][KLMTVklmtv]|[Ff][AaDd]|[Pp][Hh])[Tt]R20[01][0-9]'

# best COMMAND [PREPARATION]: seconds of the fastest run.
best() {
    for _ in 1 2 3 4 5; do
        bash -c "${2:-true}"
        local start=$EPOCHREALTIME
        bash -c "$1" || true
        echo "$start $EPOCHREALTIME"
    done | awk 'NR == 1 || $2 - $1 < least { least = $2 - $1 } END { printf "%.4f", least }'
}

# compare NAME OURS PEER LIMIT: one line, times in seconds.
compare() {
    awk -v name="$1" -v a="$2" -v b="$3" -v limit="$4" \
        'BEGIN { printf "%-44s %8.4f s   peer %8.4f s   ratio %5.2f   limit %s\n", name, a, b, a / b, limit }'
}

# fill KIND MEGABYTES NUMBER: a file of a kind.
fill() {
    case $1 in
        random) head -c "$2M" /dev/urandom ;;
        text) yes 'On 12 March 2015 the Report CKT-2015 (Rev. R2) named 20 tanks of chlorine, FATR1999, and others.' ;;
        equal) tr '\0' 'R' < /dev/zero ;;
        near) yes 'CKTr2015FDTR2025xR2015CKTR20CKTR2115' ;;
    esac 2> /dev/null | head -c "$2M" > "$1$3"
}

memory() {
    /usr/bin/time -f %M "$@" 2>&1 > /dev/null | tail -1
}

# rpc_lines: a request for each file.
rpc_lines() {
    echo '{"jsonrpc":"2.0","method":"initialize","params":{}}'
    for i in $(seq "$count"); do
        printf '{"jsonrpc":"2.0","method":"call","params":{"name":"GLN1CopyFile","parameter":"%s"}}\n' "Work:random$i|Work:copy:random$i"
    done
}

for size in "${sizes[@]}"; do
    # Of small files many are taken at once, as people do: else the start of the programs is all that is measured.
    count=1
    ((size > 16)) || count=64
    echo "-- $count x $size MB"
    mkdir copy
    for kind in random text equal near; do
        for i in $(seq "$count"); do fill "$kind" "$size" "$i"; done
        ours=$(best "'$quil' years $kind* > out")
        compare "years, $kind, rg" "$ours" "$(best "rg -j1 --no-mmap -a -c '$pattern' $kind* > out")" 1.2
        compare "years, $kind, grep" "$ours" "$(best "grep -a -c -E '$pattern' $kind* > out")" 1
        [[ $kind == random ]] || rm "$kind"*
    done
    rpc_lines > requests
    copy=$(best "cp -t copy random*" "rm -f copy/*; sync")
    compare "GLN1CopyFile" "$(best "'$quil' rpc --volume Work=. < requests" "rm -f copy/*; sync")" "$copy" 1.2
    cmp "random$count" "copy/random$count"
    # What is rewritten replaces what was there, whose blocks the disk frees: the same is asked of cp.
    replaced=$(best "cp -t copy random*" "cp -t copy random*; sync")
    rm -r copy
    for i in $(seq "$count"); do
        yes 'CKTR2015,12 Harbour Road,Chlorine,7782-50-5,2000 lb,storage tank,north of the plant,reported in March' 2> /dev/null | head -c "${size}M" > "random$i"
    done
    ours=$(best "'$quil' renumber 2011 random* > out" "'$quil' renumber 2012 random* > out; sync")
    compare "quil renumber, cp over files" "$ours" "$replaced" 2.5
    compare "quil renumber, cp to new ones" "$ours" "$copy" -
    sed 's/GLN1CopyFile/GLN1ChangeTorvaneIDsInFile/; s/Work:random\([0-9]*\)|[^"]*/2011|Work:random\1/' requests > changes
    ours=$(best "'$quil' rpc --volume Work=. < changes" "'$quil' renumber 2012 random* > out; sync")
    "$quil" years "random$count" | grep -q ': 2011$'
    compare "GLN1ChangeTorvaneIDsInFile, cp over files" "$ours" "$replaced" 2.5
    compare "GLN1ChangeTorvaneIDsInFile, cp to new ones" "$ours" "$copy" -
    echo "memory, $size MB: years $(memory "$quil" years random*) KiB, renumber $(memory "$quil" renumber 2010 random*) KiB"
    rm -f random*
done

mkdir folder
(cd folder && seq -f 'item %.0f.dat' 100000 | xargs -d '\n' touch)
compare "list 100,000 items" \
    "$(best "'$quil' --volume Work=. call GLN1GetListOfFilesInFolder 'Work:folder:item 1.dat' > out")" \
    "$(best "ls -f folder | grep -c '\.dat\$' > out")" 2

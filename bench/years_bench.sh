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
        'BEGIN { printf "%-40s %8.4f s   peer %8.4f s   ratio %5.2f   limit %s\n", name, a, b, a / b, limit }'
}

# fill NAME MEGABYTES: a file of a kind.
fill() {
    case $1 in
        random) head -c "$2M" /dev/urandom ;;
        text) yes 'On 12 March 2015 the Report CKT-2015 (Rev. R2) named 20 tanks of chlorine, FATR1999, and others.' ;;
        equal) tr '\0' 'R' < /dev/zero ;;
        near) yes 'CKTr2015FDTR2025xR2015CKTR20CKTR2115' ;;
    esac 2> /dev/null | head -c "$2M" > "$1"
}

memory() {
    /usr/bin/time -f %M "$@" 2>&1 > /dev/null | tail -1
}

for size in "${sizes[@]}"; do
    echo "-- $size MB"
    for kind in random text equal near; do
        fill "$kind" "$size"
        ours=$(best "'$quil' years $kind > out")
        compare "years, $kind, rg" "$ours" "$(best "rg --no-mmap -a -c '$pattern' $kind > out")" 1.2
        compare "years, $kind, grep" "$ours" "$(best "grep -a -c -E '$pattern' $kind > out")" 1
        [[ $kind == random ]] || rm "$kind"
    done
    copy=$(best "cp random copy" "rm -f copy; sync")
    compare "GLN1CopyFile" \
        "$(best "'$quil' --volume Work=. call GLN1CopyFile 'Work:random|Work:copy' > out" "rm -f copy; sync")" "$copy" 1.2
    # What is rewritten replaces what was there, whose blocks the disk frees: the same is asked of cp.
    replaced=$(best "cp random copy" "cp random copy; sync")
    yes 'CKTR2015,12 Harbour Road,Chlorine,7782-50-5,2000 lb,storage tank,north of the plant,reported in March' 2> /dev/null | head -c "${size}M" > random
    for function in "renumber 2011 random" "--volume Work=. call GLN1ChangeTorvaneIDsInFile '2011|Work:random'"; do
        ours=$(best "'$quil' $function > out" "'$quil' renumber 2012 random > out; sync")
        compare "change, quil ${function%% *}, cp over a file" "$ours" "$replaced" 2.5
        compare "change, quil ${function%% *}, cp to a new one" "$ours" "$copy" -
    done
    echo "memory, $size MB: years $(memory "$quil" years random) KiB, renumber $(memory "$quil" renumber 2010 random) KiB"
    rm -f random copy
done

mkdir folder
(cd folder && seq -f 'item %.0f.dat' 100000 | xargs -d '\n' touch)
compare "list 100,000 items" \
    "$(best "'$quil' --volume Work=. call GLN1GetListOfFilesInFolder 'Work:folder:item 1.dat' > out")" \
    "$(best "ls -f folder | grep -c '\.dat\$' > out")" 2

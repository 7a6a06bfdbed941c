#!/bin/bash
# Asks the plug-in how far a release of chlorine reaches, and shows what a user would have seen for a wrong input. The
# program `quil` is looked up in the environment variable QUIL, else on the path.
set -euo pipefail

fields='SCREEN|0.0087|G|OPEN|3.35|MPH|%s|LBS|100|F||||||10|MINUTES|||MI'

coproc quil { exec "${QUIL:-quil}" rpc; }
process=$quil_PID
exec 3<&"${quil[0]}" 4>&"${quil[1]}"
eval "exec ${quil[0]}<&- ${quil[1]}>&-"

# request METHOD [PARAMS]: prints the answer.
request() {
    local answer
    printf '{"jsonrpc":"2.0","id":1,"method":"%s","params":%s}\n' "$1" "${2:-{\}}" >&4
    read -r answer <&3
    printf '%s\n' "$answer"
}

# A request that the session refuses has an "error" where others have a "result".
expect_result() {
    case $1 in
        *'"result":'*) ;;
        *) echo "refused: $1" >&2; exit 1 ;;
    esac
}

expect_result "$(request initialize)"
for amount in 150 ''; do
    # shellcheck disable=SC2059
    parameter=$(printf "$fields" "$amount")
    answer=$(request call "{\"name\":\"VSTACalculatePlumeDistance\",\"parameter\":\"$parameter\"}")
    expect_result "$answer"
    printf '%s\n' "$answer"
done

exec 4>&-
wait "$process"

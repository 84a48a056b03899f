#!/usr/bin/env bash
# Proves that the build keeps the rooms apart: a file that includes a header of a room compiles with that room's
# include roots and does not with those of a room that may not see it.
#
#   layers_test.sh COMPILER SOURCE-FOLDER ROOM=ROOT[:ROOT...]...
set -euo pipefail
compiler=$1 sources=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
declare -A roots
for pair in "$@"; do
    roots[${pair%%=*}]=${pair#*=}
done

compiles() {
    local folders flags=()
    IFS=: read -r -a folders <<<"${roots[$1]}"
    flags=("${folders[@]/#/-I}")
    "$compiler" -std=c++20 -fsyntax-only "${flags[@]}" "$work/probe.cpp" 2>"$work/words"
}

# Each row stands on those before it; rooms of one row do not see each other. Said here and not read from the build:
# a change of the order has to be meant.
rows=(core account "services notify" "mail tally backup" runner)
maySee() {
    local row seesIt=no
    [[ $1 != "$2" ]] || return 0
    for row in "${rows[@]}"; do
        [[ " $row " != *" $1 "* ]] || break
        [[ " $row " != *" $2 "* ]] || seesIt=yes
    done
    [[ $seesIt == yes ]]
}

proven=0 wrong=0
# probe HEADER: everybody who sees its room may include it, nobody else.
probe() {
    local header=$1 home=${1%%/*} room
    printf '#include "%s"\n' "$header" >"$work/probe.cpp"
    compiles "$home" || { cat "$work/words"; wrong=$((wrong + 1)); }
    for room in "${!roots[@]}"; do
        ! maySee "$room" "$home" || continue
        if compiles "$room" || ! grep -qE "$header'? ?(file not found|: No such file)" "$work/words"; then
            printf '%s can include %s\n' "$room" "$header"
            wrong=$((wrong + 1))
        fi
        proven=$((proven + 1))
    done
}

for room in "${!roots[@]}"; do
    [[ -d $sources/$room ]] || continue
    header=$(cd "$sources" && find "$room" -name '*.h' -o -name '*.cpp' | sort -r -t. -k2 | sed -n 1p)
    [[ -z $header ]] || probe "$header"
done
printf '%d forbidden includes refused, %d wrong\n' "$proven" "$wrong"
((wrong == 0 && proven > 0))

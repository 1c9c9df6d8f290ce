#!/usr/bin/env bash
# Names each include of the simulator that goes against the arrows between its rooms, or takes a library out of its room.
set -euo pipefail
cd "$(dirname "$0")/.."

# What a room may include of the simulator.
declare -A may=(
    [base]="base"
    [lineup]="lineup base"
    [tv]="tv lineup base"
    [cloud]="cloud base"
    [device]="device tv cloud lineup base"
    [reports]="reports tv cloud lineup base"
    [launch]="launch reports tv cloud lineup base"
    [web]="web launch reports tv cloud lineup base"
    [cli]="cli web launch reports tv cloud lineup base"
)
# The rooms that a library stays in.
declare -A home=([sqlite3.h]="base lineup" [curl]=cloud)

# broken_rule ROOM INCLUDE: the rule that a room breaks by an include such as <sqlite3.h>; nothing where it may.
broken_rule() {
    local room=$1 include=$2 target first
    target=$(tr -d '"<>' <<<"$include")
    first=${target%%/*}
    case $include in
        *src/* | *../*) echo "the simulator knows nothing of src/, and no room reaches around another" ;;
        \"simulator/*)
            target=${target#simulator/}
            [[ " ${may[$room]:-} " == *" ${target%%/*} "* ]] || echo "$room/ may include of: ${may[$room]:-nothing}"
            ;;
        \"platform/*) [ "$room" = device ] || echo "simulator/device/ alone implements platform/" ;;
        \"* | \<simulator/* | \<platform/*) echo "own headers are named from the root, as \"simulator/...\"" ;;
        *) [[ " ${home[$first]:-$room} " == *" $room "* ]] || echo "<$first> stays inside ${home[$first]}/" ;;
    esac
}

status=0
while IFS=: read -r file line directive; do
    room=${file#simulator/}
    include=$(grep -oE '["<][^">]+[">]' <<<"$directive" | head -n 1) || include=$directive
    rule=$(broken_rule "${room%%/*}" "$include")
    [ -n "$rule" ] || continue
    echo "check-arrows: $file:$line includes $include; $rule" >&2
    status=1
done < <(grep -rnE --include='*.h' --include='*.cpp' --include='*.inc' '^[[:space:]]*#[[:space:]]*include' simulator)
[ $status -eq 0 ] && echo "check-arrows: includes run one way"
exit $status

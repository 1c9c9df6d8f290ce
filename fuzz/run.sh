#!/usr/bin/env bash
# Runs fuzz targets side by side, each in a folder of its own that it is confined to, from seeds that a simulated TV
# makes.
#   run.sh BIN TARGETS-BIN SECONDS TARGET...
# BIN has halcyon-tv, TARGETS-BIN the fuzz targets.
# What is found stays in build/fuzz-findings/; exit code 1 then.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$(realpath "$1")
targets_bin=$(realpath "$2")
seconds=$3
shift 3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
findings=$PWD/build/fuzz-findings
mkdir -p "$findings"

# A backup of a TV has a seed for each target.
export HALCYON_TV_HOME=$work/tv HALCYON_CLOUD=$work/cloud
"$bin/halcyon-tv" init --channels data/channels.conf >/dev/null
"$bin/halcyon-tv" run -q >/dev/null
backup=$(dirname "$(find "$work/cloud" -name bundle.zip)")
unzip -q "$backup/bundle.zip" -d "$work/bundle"
seed() { mkdir -p "$work/seeds/$1"; cp "${@:2}" "$work/seeds/$1/"; }
seed extractor "$backup/bundle.zip" "$work/bundle/issDB.zip"
seed metadata "$backup/metadata.json"
seed settings "$work/bundle/vconf.json"
for format in m3u dvbv5 lamedb csv; do
    "$bin/halcyon-tv" export --format "$format" >"$work/$format" 2>/dev/null
done
printf '[{"uuid":"m","frequency":11361000,"delsys":"DVB-S2"},{"uuid":"s","multiplex_uuid":"m","sid":1,"svcname":"A",%s' \
    '"stream":[{"pid":1,"type":"H264"}]},{"uuid":"c","number":1,"services":["s"],"tags":["t"]}]' >"$work/tvheadend"
seed channels data/channels.conf data/factory.conf "$work"/{m3u,dvbv5,lamedb,csv,tvheadend}
seed services "$work/tv/service-db/services.db"
seed iss "$work/tv/iss.db"
printf '\x0a\0\0\0\1\0\x18\0\1\5\0\0\0close' >"$work/message" # a call with a text
seed wire "$work/message"
# The application's classes reach the TV by way of the program beside them.
ln -sf "$bin/halcyon-tv" "$targets_bin/halcyon-tv"

fuzz() {
    local target=$1 log=$work/$1.log
    mkdir -p "$work/$target" "$findings/$target"
    ulimit -f 65536  # 32 MiB: an entry may say that it unpacks to anything
    (cd "$findings/$target" && FUZZ_FOLDER=$work/$target ASAN_OPTIONS=detect_leaks=0 "$targets_bin/fuzz-$target" \
        -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -timeout=10 -close_fd_mask=2 -print_final_stats=1 \
        -dict="$OLDPWD/fuzz/dictionaries/$target" "$work/seeds/$target" >"$log" 2>&1) || { cat "$log" >&2; return 1; }
    # The application's log may stand in the same line.
    awk -v target="$target" '
        match($0, /number_of_executed_units: *[0-9]+/) { runs = substr($0, RSTART, RLENGTH); sub(/.*: */, "", runs) }
        match($0, / cov: [0-9]+/) { cov = substr($0, RSTART + 6, RLENGTH - 6) }
        END { printf "fuzz %-10s %8d inputs, %d places covered, nothing found\n", target, runs, cov }' "$log"
}

failed=0
running=()
for target in "$@"; do
    fuzz "$target" &
    running+=($!)
    if [ ${#running[@]} -ge "$(nproc)" ]; then
        wait "${running[0]}" || failed=1
        running=("${running[@]:1}")
    fi
done
for process in "${running[@]}"; do
    wait "$process" || failed=1
done
[ "$failed" -eq 0 ] || echo "fuzz: what was found is in $findings" >&2
exit "$failed"

#!/usr/bin/env bash
# Tells the story of one channel list and four TVs. Fails if the story does not come true.
#   demo.sh BIN [--channels FILE] [--verbose] [--cloud folder|ceph]
#   demo.sh check [OPTION...]     checks the options, and prints the cloud that they name
set -euo pipefail

wrong() { echo "demo: $*" >&2; exit 2; }
bin=${1:?the folder of the programs, or check}
shift
root=$(dirname "$(dirname "$(realpath "$0")")")
channels=$root/data/channels.conf
verbose=
cloud=folder
while [ $# -gt 0 ]; do
    case $1 in
        --channels)
            channels=$(realpath "${2:-}" 2>/dev/null) || true
            [ -f "$channels" ] ||
                wrong "no channel list at '${2:-}'; --channels takes a channel list (docs/formats.md)"
            shift
            ;;
        --cloud)
            cloud=${2:-}
            [[ $cloud =~ ^(folder|ceph)$ ]] || wrong "no cloud '$cloud'; --cloud takes folder or ceph"
            shift
            ;;
        --verbose) verbose=1 ;;
        *) wrong "no option '$1'; there are --channels FILE, --cloud folder|ceph and --verbose" ;;
    esac
    shift
done
if [ "$bin" = check ]; then
    echo "$cloud"
    exit
fi

bin=$(realpath "$bin")
stage=$root/build/demo
rm -rf "$stage"
mkdir -p "$stage"
export HALCYON_CLOUD=$stage/cloud
if [ "$cloud" = ceph ]; then
    export HALCYON_CLOUD=s3://demo
fi
a=$stage/tv-a b=$stage/tv-b c=$stage/tv-c d=$stage/tv-d

say() { printf '\n=== %s\n' "$*"; }
tv() { local home=$1; shift; "$bin/halcyon-tv" --home "$home" "$@"; }
die() { echo "demo: $*" >&2; exit 1; }

# A run, in two lines; verbose: as the tool prints it.
launch() {
    local home=$1 code=0
    shift
    [ -z "$verbose" ] || { tv "$home" run -v "$@"; return; }
    tv "$home" run --json "$@" >"$stage/run.json" || code=$?
    jq -r '"  \(.operation) \(.outcome)" + (if .why == "" then "" else ": " + .why end),
        "  read back, item by item: " + ([.items[].state] | group_by(.) | map("\(length) \(.[0])") | join(", "))' \
        "$stage/run.json"
    return $code
}

# Two channel set-ups that must be the same.
same() {
    tv "$1" diff "$2" >"$stage/diff.txt" || { cat "$stage/diff.txt"; die "$3"; }
    echo "  compared with $(basename "$1"): the same, item by item"
}

if [ "$cloud" = ceph ]; then
    say "An object store starts: three storage daemons, two gateways"
    trap '"$root/scripts/object-store" down "$stage/store"' EXIT
    environment=$("$root/scripts/object-store" up "$stage/store" --osds 3 --gateways 2)
    eval "$environment"
    echo "$AWS_ENDPOINT_URL"
    "$bin/halcyon-tv" cloud create
fi

say "TV A has a channel list, and names and a state of its own"
tv "$a" init --channels "$channels"
services=$(tv "$a" status --json | jq .services)
tv "$a" set favname1 "Family"
tv "$a" set favname2 "News & Sport"
tv "$a" set mode 2/1
tv "$a" set service $(((services + 1) / 2))
tv "$a" set category 1/2/1
tv "$a" status | grep -E 'channels|watching|mode|category|favname[12]'

say "Back TV A up to the cloud; then each item is read back from the store"
launch "$a"

say "What the cloud store holds now"
tv "$a" cloud list
tv "$a" bundle verify | sed -n '1,/ipsrv/p'
[ "$(tv "$a" bundle show --json | jq .channels.services)" -eq "$services" ] ||
    die "the bundle does not hold all $services services"
if [ "$cloud" = folder ]; then
    unzip -tq "$(find "$HALCYON_CLOUD" -name bundle.zip)"
fi

fresh() { tv "$1" init --channels "$root/data/factory.conf"; cp "$1/service-db/ipsrv" "$1.ipsrv"; }
same_as_a() {
    same "$a" "$1" "$1 is not like TV A"
    cmp "$1/service-db/ipsrv" "$1.ipsrv" || die "the IP services of $1 have changed"
}

say "TV B is fresh from the factory; restore it from the cloud; then each item is read back from the TV"
fresh "$b"
launch "$b" operation=restore
same_as_a "$b"

say "TV C is fresh too, and is scanning for channels: the scan is stopped before the viewing state comes back"
fresh "$c"
tv "$c" set scan on
launch "$c" operation=restore scan_activated=1
same_as_a "$c"

say "TV D has another antenna: the backup is refused before anything is touched, and the first line says why"
fresh "$d"
tv "$d" set antenna 0,2
cp -r "$d" "$d.before"
code=0
launch "$d" operation=restore || code=$?
[ $code -eq 5 ] || die "the restore of TV D should have been refused"
same "$d.before" "$d" "TV D was touched"
kept=$(find "$d/tmp/halcyon-lineup" -name '*.zip')
same "$a" "$kept" "the refused bundle is not in the failure folder"
echo "  and kept in the failure folder: $kept"

# The object store ends with the demo.
look="halcyon-tv serve --lab build/demo --cloud build/demo/cloud    the page   "
[ "$cloud" = folder ] ||
    look="scripts/object-store up build/store                      a store like it "
say "Done: every one of the $services services came back"
cat <<END

  +----------------------------------------------------------------------------+
  | A backup, a restore, one during a scan, and one that was refused.          |
  | What to type next, after  export PATH=\$PWD/build/release/bin:\$PATH         |
  |                                                                            |
  |   halcyon-tv --home build/demo/tv-b status --services    the channels      |
  |   halcyon-tv --home build/demo/tv-d record               what was refused  |
  |   $look|
  +----------------------------------------------------------------------------+
END

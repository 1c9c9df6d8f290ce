#!/usr/bin/env bash
# Checks that src/ includes its own headers, platform/, minizip, jsoncpp and the standard library alone, and platform/
# itself, jsoncpp and the standard library alone. Then links the application alone, as for a TV, against a copy of
# platform/ and nothing else of this project: what stays undefined must be declared in platform/. For the simulator, the
# application must load no library beside those of src/.
#   check-seam.sh HALCYON-LINEUP
set -euo pipefail
application=$(realpath "$1")
cd "$(dirname "$0")/.."

# strays FOLDER LIBRARY: its other includes. The standard library's headers have neither suffix nor folder.
strays() {
    grep -nE '^[[:space:]]*#[[:space:]]*include' "$1"/* |
        grep -vE "include[[:space:]]+(\"(platform/)?[[:alnum:]_]+\.h\"|<[[:alnum:]_]+>|<($2)/[[:alnum:]_]+\.h>)" || true
}
found=$(strays src 'minizip|json'; strays platform json)
[ -z "$found" ] || { printf 'check-seam: not to be included here:\n%s\n' "$found" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/sdk"
cp -r platform "$work/sdk/platform"
cp -r CMakeLists.txt src "$work"
{ cmake -S "$work" -B "$work/build" -G Ninja -DHALCYON_PLATFORM_SDK="$work/sdk" \
    -DCMAKE_EXE_LINKER_FLAGS=-Wl,--warn-unresolved-symbols && cmake --build "$work/build"; } >"$work/log" 2>&1 ||
    { cat "$work/log" >&2; exit 1; }
sed -nE "s/.*undefined reference to \`(.*)'$/\1/p" "$work/log" | sort -u >"$work/needed"
[ -s "$work/needed" ] || { echo "check-seam: the application needs nothing of the platform: it cannot be" >&2; exit 1; }

# is_declared NAME: whether one header has each part of a name such as "CIM::TCCIService::CIGeneralInstance".
is_declared() {
    local header part
    for header in platform/*.h; do
        for part in ${1//::/ }; do
            grep -qwF -- "${part#\~}" "$header" || continue 2
        done
        return 0
    done
    return 1
}

failed=0
for library in $(readelf --dynamic "$application" | sed -nE 's/.*\(NEEDED\).*\[(lib)?(.*)\.so.*/\2/p'); do
    [[ $library =~ ^(minizip|z|jsoncpp|stdc\+\+|gcc_s|m|c|ld-linux.*)$ ]] && continue
    echo "check-seam: $application loads lib$library, which src/ does not need" >&2
    failed=1
done
while read -r symbol; do
    is_declared "${symbol%%[([]*}" && continue
    echo "check-seam: src/ needs $symbol, which no header in platform/ declares" >&2
    failed=1
done <"$work/needed"
[ $failed -eq 0 ] && echo "check-seam: src/ needs $(wc -l <"$work/needed") functions, all declared in platform/"
exit $failed

#!/usr/bin/env bash
# Checks that src/ includes nothing but its own headers, platform/, minizip, jsoncpp and the standard library. Then builds the
# application alone, as for a TV, against a copy of platform/ and nothing else of this project. What its objects
# then leave undefined must be declared in platform/ or belong to minizip, jsoncpp or the language's runtime.
set -euo pipefail
cd "$(dirname "$0")/.."

# The standard library's headers have no '.' but for C's own.
allowed='"[A-Za-z]+\.h"|"platform/[a-z_]+\.h"|<minizip/(un)?zip\.h>|<json/[a-z]+\.h>|<[a-z_]+>'
foreign=$(grep -rnE '#include' src | grep -vE "#include ($allowed)\$" || true)
for header in $(grep -rhoE '#include "[A-Za-z]+\.h"' src | grep -oE '[A-Za-z]+\.h' | sort -u); do
    [ -e "src/$header" ] || foreign+="$header, which is not in src/"$'\n'
done
[ -z "$foreign" ] || { printf 'check-seam: src/ may not include:\n%s\n' "$foreign" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/sdk"
cp -r platform "$work/sdk/platform"
cp -r CMakeLists.txt src "$work"
cmake -S "$work" -B "$work/build" -G Ninja -DHALCYON_PLATFORM_SDK="$work/sdk" >"$work/log" || { cat "$work/log"; exit 1; }
cmake --build "$work/build" --target lineup >"$work/log" || { cat "$work/log"; exit 1; }
ninja -C "$work/build" CMakeFiles/halcyon-lineup.dir/src/AppMain.cpp.o >"$work/log" || { cat "$work/log"; exit 1; }
mapfile -t objects < <(find "$work/build" -name '*.o')
mains=$(nm --print-file-name --defined-only --extern-only "${objects[@]}" | grep -c ' T main$')
[ "$mains" -eq 1 ] || { echo "check-seam: main() is in $mains objects" >&2; exit 1; }

names() { awk '{print $NF}' | sed 's/@.*//' | sort -u; }
nm --undefined-only "${objects[@]}" | grep ' U ' | names >"$work/undefined"
nm --defined-only --extern-only "${objects[@]}" | grep -E ' [A-Za-z] ' | names >"$work/own"

libraries=()
for name in libminizip.so libjsoncpp.so libstdc++.so.6 libgcc_s.so.1 libc.so.6 libm.so.6; do
    libraries+=("$(g++ -print-file-name="$name")")
done
for library in "${libraries[@]}"; do
    [ -e "$library" ] || { echo "check-seam: no $library" >&2; exit 1; }
    nm --dynamic --defined-only "$library"
done | names >"$work/libraries"
# The linker's and the compiler's own.
printf '%s\n' _GLOBAL_OFFSET_TABLE_ __dso_handle >>"$work/libraries"
sort -u -o "$work/libraries" "$work/libraries"

comm -23 "$work/undefined" "$work/own" | comm -23 - "$work/libraries" | c++filt >"$work/platform"
[ -s "$work/platform" ] || { echo "check-seam: the application calls nothing of the platform; the check is broken" >&2; exit 1; }

# "CIM::TCCIService::CIGeneralInstance()" must find each of its names in one header.
failed=0
while read -r symbol; do
    name=${symbol%%[([]*}
    declared=0
    for header in platform/*.h; do
        found=1
        for part in ${name//::/ }; do
            grep -qwF -- "${part#\~}" "$header" || { found=0; break; }
        done
        [ $found -eq 0 ] || { declared=1; break; }
    done
    if [ $declared -eq 0 ]; then
        echo "check-seam: src/ needs $symbol, which no header in platform/ declares" >&2
        failed=1
    fi
done <"$work/platform"
[ $failed -eq 0 ] && echo "check-seam: src/ needs $(wc -l <"$work/platform") functions of the platform, all declared in platform/"
exit $failed

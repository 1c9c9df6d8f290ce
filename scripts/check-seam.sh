#!/usr/bin/env bash
# Checks that src/ includes its own headers, platform/, minizip, jsoncpp and the standard library alone, and platform/ itself,
# jsoncpp and the standard library alone. Then builds the application alone, as for a TV, against a copy of platform/ and
# nothing else of this project. What its objects then leave undefined must be declared in platform/ or belong to minizip,
# jsoncpp or the language's runtime.
set -euo pipefail
cd "$(dirname "$0")/.."

may_include() {
    local file=$1 include=$2 name
    name=$(tr -d '"<>' <<<"$include")
    case $include in
        *..*) false ;;
        \"platform/*) [ -e "$name" ] ;;
        \"*/*) false ;;
        \"*) [[ $file == src/* && -e src/$name ]] ;;
        \<minizip/*) [[ $file == src/* ]] ;;
        \<json/*) ;;
        \<*[./]*) false ;; # the standard library's headers have neither suffix nor folder
        \<*) ;;
        *) false ;;
    esac
}

failed=0
while IFS=: read -r file line directive; do
    include=$(grep -oE '["<][^">]+[">]' <<<"$directive" | head -n 1) || include=$directive
    may_include "$file" "$include" && continue
    echo "check-seam: $file:$line must not include $include" >&2
    failed=1
done < <(grep -nE '^[[:space:]]*#[[:space:]]*include' platform/* src/*)
[ $failed -eq 0 ] || exit 1

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/sdk"
cp -r platform "$work/sdk/platform"
cp -r CMakeLists.txt src "$work"
cmake -S "$work" -B "$work/build" -G Ninja -DHALCYON_PLATFORM_SDK="$work/sdk" >"$work/log" || { cat "$work/log"; exit 1; }
cmake --build "$work/build" --target lineup >"$work/log" || { cat "$work/log"; exit 1; }
ninja -C "$work/build" CMakeFiles/halcyon-lineup.dir/src/AppMain.cpp.o >"$work/log" || { cat "$work/log"; exit 1; }
mapfile -t objects < <(find "$work/build" -name '*.o')
mains=$(nm -A --defined-only "${objects[@]}" | sed -nE 's#^.*/([^/:]+):.* T main$#\1#p')
[ "$mains" = AppMain.cpp.o ] || { echo "check-seam: main() must be in AppMain.cpp.o alone; it is in: ${mains//$'\n'/ }" >&2; exit 1; }

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

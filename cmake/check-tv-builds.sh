#!/usr/bin/env bash
# Builds the application alone, as for a TV, for the processors that TVs have and with the oldest compilers that it
# supports, and holds its size under a limit. The sysroots must be there.
set -euo pipefail
cd "$(dirname "$0")/.."

LIMIT=70000 # bytes of the stripped program for armhf

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# sdk_build NAME OPTION...: the program is linked without the TV's own libraries, whose functions stay open.
sdk_build() {
    local name=$1
    shift
    if ! { cmake --preset tv -B "$work/$name" -DHALCYON_PLATFORM_SDK="$PWD" "$@" && ninja -C "$work/$name"; } \
        >"$work/log" 2>&1; then
        cat "$work/log"
        exit 1
    fi
}

for compiler in g++-11 clang++-13; do
    sdk_build "$compiler" -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_EXE_LINKER_FLAGS="-Wl,--unresolved-symbols=ignore-in-object-files"
    echo "check-tv-builds: builds with $compiler"
done
for architecture in armhf arm64; do
    sdk_build "$architecture" --toolchain "$PWD/cmake/$architecture.cmake" \
        -DCMAKE_EXE_LINKER_FLAGS="-Wl,--gc-sections -Wl,--as-needed -Wl,--unresolved-symbols=ignore-in-object-files"
    program=$work/$architecture/bin/halcyon-lineup
    triplet=$(sed -n 's/^set(HALCYON_TRIPLET \(.*\))/\1/p' "cmake/$architecture.cmake")
    "$triplet-strip" "$program"
    needed=$(readelf -d "$program" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd ' ')
    size=$(stat -c %s "$program")
    echo "check-tv-builds: $architecture: $size bytes, needs $needed"
    if [ "$architecture" = armhf ] && [ "$size" -gt $LIMIT ]; then
        echo "check-tv-builds: the program for armhf may have $LIMIT bytes" >&2
        exit 1
    fi
done

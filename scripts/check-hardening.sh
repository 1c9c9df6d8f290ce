#!/usr/bin/env bash
# Checks on the programs themselves that the release build has what it asks for.
#   check-hardening.sh PROGRAM...
set -euo pipefail

failed=0
for program in "$@"; do
    # has WHAT COMMAND PATTERN
    has() {
        grep -qE "$3" <<<"$($2 "$program" 2>/dev/null)" || { echo "check-hardening: $program: no $1" >&2; failed=1; }
    }
    has "position-independent code" "readelf --file-header" 'Type: +DYN'
    has "read-only relocations" "readelf --program-headers --wide" 'GNU_RELRO'
    has "relocations resolved at start" "readelf --dynamic" 'BIND_NOW|Flags:.*NOW'
    has "stack without execution" "readelf --program-headers --wide" 'GNU_STACK.* RW +0x'
    has "stack protector" "nm --dynamic" '__stack_chk_fail'
    has "checked functions of the C library" "nm --dynamic" '__[a-z]+_chk(@|$)'
    has "assertions of the C++ library" "nm --dynamic" 'glibcxx_assert_fail|__glibcxx_assert'
    # In main(), for the C library's start-up code may have it, or lack it, by itself.
    if [ "$(uname -m)" = x86_64 ]; then
        has "control-flow protection" "objdump --disassemble=main" 'endbr64'
    fi
done
[ "$failed" -eq 0 ] && echo "check-hardening: $# programs as they should be"
exit "$failed"

#!/usr/bin/env bash
# Prints what programs and libraries lack of what cmake/Hardening.cmake asks for: `FILE: WHAT`.
#   lacks_hardening.sh FILE...
set -euo pipefail

# lacks FILE WHAT PATTERN READELF_OPTION
lacks() {
    readelf -W "$4" "$1" | grep -e "$3" >/dev/null || printf '%s: %s\n' "$1" "$2"
}

for file in "$@"; do
    lacks "$file" "relocations that are read-only (-z relro)" GNU_RELRO -l
    lacks "$file" "functions that are looked up at the start (-z now)" 'FLAGS.*NOW' -d
    lacks "$file" "a free position (PIE)" 'Type: *DYN' -h
    case $file in
    */bin/*) lacks "$file" "protected stacks (-fstack-protector-strong)" __stack_chk_fail --dyn-syms ;;
    esac
done

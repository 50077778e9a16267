#!/bin/sh
# Lets a module be loaded with a DuckDB library that lacks some of the symbols it needs: those of another version. The
# module checks the library's version before it calls anything else in it, and tells its host when the versions differ;
# without this, the loader would end the attempt first, with a symbol's name. All references to DuckDB in the module's
# dynamic symbol table become weak but that to the function that returns the version. The linker cannot do it.
#   weaken_duckdb.sh READELF MODULE
set -eu
export LC_ALL=C
readelf=$1
module=$2

# In the table a symbol takes 24 bytes; the fifth has the binding (2: weak) in its upper half, the type in its lower one.
table=$("$readelf" --section-headers --wide "$module" |
    sed -n 's/.* \.dynsym  *DYNSYM  *[0-9a-f]*  *\([0-9a-f]*\) .*/\1/p')
[ -n "$table" ] || { echo "$module has no dynamic symbol table" >&2; exit 1; }
"$readelf" --dyn-syms --wide "$module" |
    awk '$5 == "GLOBAL" && $7 == "UND" && $8 ~ /duckdb/ && $8 != "duckdb_library_version" { print $1 + 0, $4 }' |
    while read -r index type; do
        case $type in
        NOTYPE) byte='\040' ;;
        OBJECT) byte='\041' ;;
        FUNC) byte='\042' ;;
        *) echo "$module: symbol $index is of the unexpected type $type" >&2; exit 1 ;;
        esac
        # shellcheck disable=SC2059
        printf "$byte" |
            dd of="$module" bs=1 seek=$((0x$table + index * 24 + 4)) conv=notrunc status=none
    done

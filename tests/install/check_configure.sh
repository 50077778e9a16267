#!/usr/bin/env bash
# Configures the tree without a preset, as somebody who knows only CMake does, and sets up a system that is not Debian
# and processors that have no DuckDB.
#   check_configure.sh SOURCE_FOLDER DUCKDB_FOLDER HEADERS LIBRARY VERSION     the last three are DuckDB's
set -euo pipefail

source=$1
duckdb=$2
headers=$3
library=$4
version=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf 'check_configure: %s\n' "$*" >&2
    exit 1
}

# configure FOLDER OPTION...
configure() {
    local folder=$work/$1
    shift
    cmake -G Ninja -S "$source" -B "$folder" -DDuckDB_ROOT:PATH="$duckdb" -DMDUCKDB_TESTS=OFF "$@" >"$work/log" 2>&1 ||
        fail "cmake $* failed: $(cat "$work/log")"
}

configure build
grep -q 'No CMAKE_BUILD_TYPE is given: building Release' "$work/log" || fail "nothing says what is built: $(cat "$work/log")"
grep -q 'FLAGS = -O[23] ' "$work/build/build.ninja" || fail "the build does not optimise"
printf 'ok: without a preset the build optimises, and says so\n'

# A foundation or modules that are static would not load.
configure build -DBUILD_SHARED_LIBS=OFF
for linked in 'libmshared\.so.*: CXX_SHARED' 'libmduckdb\.so: CXX_MODULE' 'libmduckdb_casts\.so: CXX_MODULE'; do
    grep -q "^build lib/$linked" "$work/build/build.ninja" || fail "BUILD_SHARED_LIBS=OFF builds no $linked"
done
printf 'ok: BUILD_SHARED_LIBS=OFF builds shared libraries nevertheless\n'

configure debug -DCMAKE_BUILD_TYPE=Debug
! grep -q 'No CMAKE_BUILD_TYPE' "$work/log" || fail "a given build type is not seen"
! grep -q 'FLAGS = -O' "$work/debug/build.ninja" || fail "Debug optimises"
printf 'ok: a build type that is given is kept\n'

mkdir "$work/bin"
ln -s /usr/bin/* "$work/bin"
rm -f "$work/bin/dpkg-query" "$work/bin/apt-get"
said=$(env -i PATH="$work/bin" HOME="$work" DuckDB_ROOT="$duckdb" bash "$source/scripts/setup" 2>&1) ||
    fail "scripts/setup failed where nothing is Debian's: $said"
[[ $said == *"This is not a Debian system"* ]] || fail "scripts/setup says: $said"
while read -r group package; do
    [ "$group" != base ] || [[ " $said " == *" $package "* ]] || fail "scripts/setup does not name $package: $said"
done <"$source/scripts/packages"
printf 'ok: another system gets the names of the packages\n'

# refuses TEXT ARGUMENT...: scripts/setup ends with the text before it fetches anything.
refuses() {
    local text=$1
    shift
    said=$("$source/scripts/setup" "$@" 2>&1) && fail "scripts/setup $* succeeds: $said"
    [ "$said" = "$text" ] || fail "scripts/setup $* says: $said"
}
refuses "Unknown processor 'mips'. --arch accepts only arm64." --arch mips
refuses "scripts/duckdb-1.5.pin names no library for arm64. Use one of: --duckdb 1.5.5" --arch arm64 --duckdb 1.5
printf 'ok: a processor for which there is no DuckDB is refused\n'

names=$(cd "$source/scripts" && echo duckdb-*.pin)
names=${names//duckdb-/}
refuses "Unknown DuckDB '9.9'. Use one of: ${names//.pin/}" --duckdb 9.9
refuses "--duckdb NAME must come before the other arguments." base --duckdb 2.0
printf 'ok: a DuckDB without a pin, and a name that would be ignored, are refused\n'

# refuses_to_configure TEXT OPTION...
refuses_to_configure() {
    local text=$1
    shift
    cmake -G Ninja -S "$source" -B "$work/refused" -DMDUCKDB_TESTS=OFF "$@" >"$work/log" 2>&1 && fail "cmake $* succeeds"
    # CMake breaks the lines.
    [[ $(tr -s ' \n' ' ' <"$work/log") == *"$text"* ]] || fail "cmake $* says: $(cat "$work/log")"
}
mkdir -p "$work"/other/{include,lib}
ln -s "$library" "$work/other/lib/libduckdb.so"
ln -s "$headers"/* "$work/other/include"
rm -f "$work/other/include/duckdb_source_version.h"
echo '#define DUCKDB_SOURCE_VERSION "1.4.5"' >"$work/other/include/duckdb_source_version.h"
refuses_to_configure "are of version 1.4.5, and $work/other/lib/libduckdb.so is $version. Both must be the same." \
    -DDuckDB_ROOT:PATH="$work/other"
for name in ${names//.pin/}; do
    pinned=$(sed -n 's/^DUCKDB_VERSION=//p' "$source/scripts/duckdb-$name.pin")
    [ "$pinned" = "$version" ] ||
        refuses_to_configure "DuckDB $pinned is needed (scripts/duckdb-$name.pin), and $duckdb has $version." \
            -DDuckDB_ROOT:PATH="$duckdb" -DMDUCKDB_DUCKDB="$name"
done
printf 'ok: headers of another version than the library, and another version than the pinned one, are refused\n'

# What a download must not be: anything but the file whose checksum is in the pin.
for name in ${names//.pin/}; do
    # shellcheck disable=SC2016
    file=$(cd "$source" && bash -c 'source scripts/lib.sh && echo "$DUCKDB_LIBRARY_FILE"' setup --duckdb "$name")
    mkdir -p "$work/cache-$name/mduckdb/downloads"
    damaged=$work/cache-$name/mduckdb/downloads/$file
    echo damaged >"$damaged"
    said=$(env -u DuckDB_ROOT XDG_CACHE_HOME="$work/cache-$name" MDUCKDB_NO_PACKAGES=1 "$source/scripts/setup" --duckdb "$name" 2>&1) &&
        fail "scripts/setup --duckdb $name takes a damaged file"
    [[ $said == "$damaged is damaged: its SHA-256 sum is "*", and scripts/duckdb-$name.pin has "* ]] ||
        fail "scripts/setup --duckdb $name says of a damaged file: $said"
    [ -z "$(find "$work/cache-$name/mduckdb" -name 'duckdb-*' -type d)" ] || fail "scripts/setup keeps what it has not checked"
done
printf 'ok: a download with another checksum is refused\n'

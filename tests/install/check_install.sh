#!/usr/bin/env bash
# Installs a build, moves the tree elsewhere and uses it there with an empty environment: the program, and
# both examples, built with CMake and with the bare compiler and pkg-config.
#   check_install.sh BUILD_FOLDER SOURCE_FOLDER VERSION IS_HARDENED
set -euo pipefail

build=$1
examples=$2/examples
version=$3
is_hardened=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf 'check_install: %s\n' "$*" >&2
    exit 1
}

# expect WHAT TEXT COMMAND...: the command succeeds and prints the text somewhere.
expect() {
    local what=$1 text=$2 output
    shift 2
    output=$("$@" 2>&1) || fail "$what: '$*' ended with $?: $output"
    [[ $output == *"$text"* ]] || fail "$what: no '$text' in the output of '$*': $output"
    printf 'ok: %s\n' "$what"
}

clean() { env -i PATH=/usr/bin:/bin HOME="$work" LANG=C.UTF-8 "$@"; }

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved tree"
tree="$work/moved tree"

for file in lib/libmshared.so lib/mduckdb/libmduckdb.so lib/mduckdb/libmduckdb_casts.so lib/mduckdb/libduckdb.so \
    include/mirona/extension_api.h include/nbx/string.h include/nbx/version.h lib/pkgconfig/mshared.pc \
    share/man/man1/mduckdb-host.1.gz share/doc/mduckdb/copyright \
    share/bash-completion/completions/mduckdb-host share/zsh/site-functions/_mduckdb-host \
    share/fish/vendor_completions.d/mduckdb-host.fish \
    share/doc/mduckdb/README.md share/doc/mduckdb/docs/host-contract.md share/doc/mduckdb/examples/host-c/host.c; do
    [ -e "$tree/$file" ] || fail "$file is not installed"
done
for file in "$tree"/bin/* "$tree"/lib/libmshared.so "$tree"/lib/mduckdb/*.so; do
    needed=$(clean ldd "$file")
    [[ $needed != *"not found"* ]] || fail "$file lacks a library: $needed"
    [[ $needed != *"$build"* ]] || fail "$file still wants the build folder: $needed"
    [[ $(basename "$file") != libmduckdb*.so || $needed == *"$tree/lib/mduckdb/libduckdb.so"* ]] ||
        fail "$file takes DuckDB from elsewhere: $needed"
done
if [ "$is_hardened" = 1 ]; then
    lacking=$("${BASH_SOURCE%/*}/lacks_hardening.sh" "$tree"/bin/* "$tree"/lib/libmshared.so "$tree"/lib/mduckdb/libmduckdb*.so)
    [ -z "$lacking" ] || fail "not hardened: $lacking"
fi
if grep -rIlF -e "$build" -e "$work/first" "$tree"; then
    fail "these files name a folder that is not there any more"
fi

sample=$work/sample.parquet
expect "a program far from where it was installed" 42 \
    clean "$tree/bin/mduckdb-host" sql :memory: \
    "COPY (SELECT 42 AS answer, 'x' AS letter) TO '$sample' (FORMAT parquet); SELECT 42 AS answer"
for module in mduckdb mduckdb_casts; do
    expect "the version of $module" '["module","'$module'","'"$version"'"]' \
        clean "$tree/bin/mduckdb-host" --module $module --format json version
    expect "fetch_parquet through $module" '"rows":[
[42,"x"]]' clean "$tree/bin/mduckdb-host" --module "$module" --format json call fetch_parquet "$sample"
done

for example in host-c host-cpp; do
    clean cmake -G Ninja -S "$examples/$example" -B "$work/$example" -DCMAKE_PREFIX_PATH="$tree" >"$work/log" 2>&1 ||
        fail "$example does not configure: $(cat "$work/log")"
    clean cmake --build "$work/$example" >"$work/log" 2>&1 ||
        fail "$example does not build with CMake: $(cat "$work/log")"
done
config() { PKG_CONFIG_PATH="$tree/lib/pkgconfig" pkg-config "$@" mshared; }
eval "gcc -std=gnu11 -Wall -Wextra -Werror '$examples/host-c/host.c' -o '$work/c' $(config --cflags) -ldl"
eval "g++ -std=c++20 -Wall -Wextra -Werror '$examples/host-cpp/host.cpp' -o '$work/cpp' \
    $(config --cflags --libs) -Wl,-rpath,'$tree/lib' -pthread -ldl"
# pkg-config escapes what the shell would split.
modules=
eval "modules=$(config --variable=moduledir)"

expect "the C example, by CMake" $'42\tx' clean "$work/host-c/host-c" fetch_parquet "$sample"
expect "the C example, by the compiler" $'42\tx' \
    clean "$work/c" --module "$modules/libmduckdb.so" fetch_parquet "$sample"
mkdir "$work/1" "$work/2"
expect "the C++ example, by CMake" "restored: 4 rows" clean "$work/host-cpp/host-cpp" "$work/1"
expect "the C++ example, by the compiler" "restored: 4 rows" \
    clean "$work/cpp" "$work/2" "$modules/libmduckdb_casts.so"

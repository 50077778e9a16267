# Downloads the pinned DuckDB into the cache; sourced by lib.sh.
# shellcheck shell=bash

DOWNLOADS=$CACHE/downloads
DUCKDB_SOURCE_FILE=$DUCKDB_SOURCE_PACKAGE-$DUCKDB_SOURCE_VERSION.tar.gz
case $DUCKDB_LIBRARY_FROM in
npm) DUCKDB_LIBRARY_FILE=$(sed 's|^@||; s|/|-|' <<<"$DUCKDB_LIBRARY_PACKAGE")-$DUCKDB_LIBRARY_VERSION.tgz ;;
wheel)
    DUCKDB_LIBRARY_FILE=$DUCKDB_LIBRARY_PACKAGE-$DUCKDB_LIBRARY_VERSION
    DUCKDB_LIBRARY_FILE+=-cp311-cp311-manylinux_2_27_x86_64.manylinux_2_28_x86_64.whl
    ;;
*) die "scripts/duckdb-$DUCKDB_NAME.pin: DUCKDB_LIBRARY_FROM is '$DUCKDB_LIBRARY_FROM'. Use npm or wheel." ;;
esac

# describe_folder FOLDER: the size and name of every file in it except the list itself, for comparison with the list
# written when the folder was created.
describe_folder() { (cd "$1" && find . -type f ! -name contents -printf '%s %P\n' | LC_ALL=C sort); }

# Whether the cache holds all files of the pinned DuckDB at their full size.
has_duckdb() {
    [ -e "$DUCKDB_HOME/contents" ] && cmp -s <(describe_folder "$DUCKDB_HOME") "$DUCKDB_HOME/contents" &&
        [ -e "$DUCKDB_HOME/include/$(basename "${DUCKDB_FURTHER_HEADERS:-duckdb}")" ]
}

# check_sum FILE SHA256
check_sum() {
    local sum
    sum=$(sha256sum "$1" | cut -d ' ' -f 1)
    [ "$sum" = "$2" ] || die "$1 is damaged: its SHA-256 sum is $sum, and scripts/duckdb-$DUCKDB_NAME.pin has $2.
Delete the file and run this again."
}

# no_duckdb REASON: ends with status 69, so that a caller can tell this from other failures.
no_duckdb() {
    say "$1
DuckDB $DUCKDB_VERSION is needed. One of these helps:
  - a network, for '$(library_command)' and '$(source_command)';
  - the files that these two commands fetch on another machine, copied into $DOWNLOADS:
    $DUCKDB_LIBRARY_FILE and $DUCKDB_SOURCE_FILE;
  - an installation of your own: DuckDB_ROOT=FOLDER in the environment, where FOLDER has lib/libduckdb.so
    and the C and C++ headers of the same version in include/."
    exit 69
}

library_command() {
    case $DUCKDB_LIBRARY_FROM in
    npm) echo "npm pack $DUCKDB_LIBRARY_PACKAGE@$DUCKDB_LIBRARY_VERSION" ;;
    wheel)
        echo "python3 -m pip download --no-deps --only-binary :all: --python-version 3.11" \
            "--platform manylinux_2_28_x86_64 $DUCKDB_LIBRARY_PACKAGE==$DUCKDB_LIBRARY_VERSION"
        ;;
    esac
}
source_command() {
    echo "python3 -m pip download --no-deps --no-binary $DUCKDB_SOURCE_PACKAGE" \
        "$DUCKDB_SOURCE_PACKAGE==$DUCKDB_SOURCE_VERSION"
}

# get_file FILE SHA256 WORK COMMAND: uses FILE from the downloads folder, or runs COMMAND to download it into WORK. Prints
# the file's path.
get_file() {
    local file=$1 sum=$2 work=$3 command=$4 path=$DOWNLOADS/$1
    if [ ! -e "$path" ]; then
        path=$work/$file
        say "fetching $file"
        # Split on purpose: no argument of these commands contains a blank.
        # shellcheck disable=SC2086
        (cd "$work" && timeout 600 $command >"$work/log" 2>&1 </dev/null) || {
            tail -n 5 "$work/log" >&2
            no_duckdb "Fetching $file failed: $command"
        }
        [ -e "$path" ] || no_duckdb "'$command' did not bring $file."
    fi
    check_sum "$path" "$sum"
    echo "$path"
}

# unpack_library FILE FOLDER: FOLDER gets libduckdb.so.
unpack_library() {
    case $DUCKDB_LIBRARY_FROM in
    npm) tar -xzf "$1" -C "$2" --strip-components=1 package/libduckdb.so ;;
    wheel)
        # A wheel's library has no SONAME and finds Python's symbols in the program that loads it.
        python3 -m zipfile -e "$1" "$2/wheel"
        mv "$2"/wheel/_duckdb.*.so "$2/libduckdb.so"
        rm -rf "$2/wheel"
        # One change per call: patchelf 0.14 crashes on two.
        patchelf --set-soname libduckdb.so "$2/libduckdb.so"
        patchelf --add-needed libpython3.11.so.1.0 "$2/libduckdb.so"
        ;;
    esac
}

# The missing clients that the downloads need.
install_clients() {
    local clients=()
    if [ ! -e "$DOWNLOADS/$DUCKDB_LIBRARY_FILE" ] && [ "$DUCKDB_LIBRARY_FROM" = npm ] && ! command -v npm >/dev/null; then
        clients+=(npm)
    fi
    if ! python3 -m pip --version >/dev/null 2>&1 &&
        { [ ! -e "$DOWNLOADS/$DUCKDB_SOURCE_FILE" ] ||
            { [ "$DUCKDB_LIBRARY_FROM" = wheel ] && [ ! -e "$DOWNLOADS/$DUCKDB_LIBRARY_FILE" ]; }; }; then
        clients+=(python3-pip)
    fi
    [ ${#clients[@]} = 0 ] || install_packages "${clients[@]}"
}

# The folder appears in the cache complete or not at all, also after a failure and with several runs at once.
fetch_duckdb() {
    [ "$(uname -s)-$(uname -m)" = Linux-x86_64 ] ||
        no_duckdb "scripts/duckdb-$DUCKDB_NAME.pin names the library for Linux on x86-64 only; this is $(uname -s) on $(uname -m)."
    install_clients
    begin_fetch
    if has_duckdb; then
        end_fetch
        return
    fi
    local work=$FETCHED library source inside
    library=$(get_file "$DUCKDB_LIBRARY_FILE" "$DUCKDB_LIBRARY_SHA256" "$work" "$(library_command)") || exit
    source=$(get_file "$DUCKDB_SOURCE_FILE" "$DUCKDB_SOURCE_SHA256" "$work" "$(source_command)") || exit

    mkdir -p "$work/home/lib"
    unpack_library "$library" "$work/home/lib"
    inside=$DUCKDB_SOURCE_PACKAGE-$DUCKDB_SOURCE_VERSION/external/duckdb
    tar -xzf "$source" -C "$work/home" --strip-components=3 "$inside/LICENSE"
    tar -xzf "$source" -C "$work/home" --strip-components=4 "$inside/src/include"
    if [ -n "${DUCKDB_FURTHER_HEADERS:-}" ]; then
        tar -xzf "$source" -C "$work/home/include" --strip-components=6 "$inside/$DUCKDB_FURTHER_HEADERS"
    fi
    # The version of the headers, from the checked name of their source: their own version macros may be those of
    # another release (2.0.0's say 1.5.6).
    printf '#define DUCKDB_SOURCE_VERSION "%s"\n' "$DUCKDB_SOURCE_VERSION" >"$work/home/include/duckdb_source_version.h"
    describe_folder "$work/home" >"$work/contents"
    mv "$work/contents" "$work/home/"
    rm -rf "$DUCKDB_HOME"
    mv "$work/home" "$DUCKDB_HOME"
    end_fetch
    say "DuckDB $DUCKDB_VERSION is in $DUCKDB_HOME"
}

# Shared by the scripts beside it; sourced, never run. Sets ROOT and DUCKDB_HOME.
# shellcheck shell=bash
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=duckdb.pin
source "$ROOT/scripts/duckdb.pin"
CACHE=${XDG_CACHE_HOME:-$HOME/.cache}/mduckdb
DUCKDB_HOME=$CACHE/duckdb-$DUCKDB_VERSION

say() { printf '%s\n' "$*" >&2; }
die() {
    say "$*"
    exit 1
}

# packages_of GROUP...: the package names of the groups.
packages_of() {
    local group
    for group in "$@"; do
        awk -v group="$group" '$1 == group { print $2 }' "$ROOT/scripts/packages"
    done
}

# missing_packages NAME...: those that dpkg does not have.
missing_packages() {
    local have name
    have=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null | sort -u) || true
    for name in "$@"; do
        grep -qx "installed $name" <<<"$have" || printf '%s\n' "$name"
    done
}

# as_root COMMAND...: fails, and says nothing, where this user cannot become root without being asked.
can_be_root() { [ "$(id -u)" = 0 ] || sudo -n true 2>/dev/null || { [ -t 0 ] && command -v sudo >/dev/null; }; }
as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# install_packages NAME...: brings in what is missing, or says what is missing and ends.
install_packages() {
    if [ -n "${MDUCKDB_NO_PACKAGES:-}" ]; then
        return
    fi
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        say "This is no Debian system, so nothing is installed here. Needed, by their Debian names:" \
            "$(printf '%s ' "$@")"
        return
    fi
    local missing
    mapfile -t missing < <(missing_packages "$@")
    if [ ${#missing[@]} = 0 ]; then
        return
    fi
    if ! can_be_root; then
        die "These Debian packages are missing, and installing them needs root or sudo:
    apt-get install ${missing[*]}
(MDUCKDB_NO_PACKAGES=1 skips this check.)"
    fi
    say "installing ${missing[*]}"
    as_root apt-get -q update >&2 || say "apt-get update failed; trying with the lists that are there"
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y install --no-install-recommends "${missing[@]}" >&2 ||
        die "apt-get could not install: ${missing[*]}"
}

has_duckdb() { [ -e "$DUCKDB_HOME/lib/libduckdb.so" ] && [ -e "$DUCKDB_HOME/include/duckdb.h" ]; }

# check_sum FILE SHA256
check_sum() {
    local sum
    sum=$(sha256sum "$1" | cut -d ' ' -f 1)
    [ "$sum" = "$2" ] || die "$1 has the sha256 sum $sum, and scripts/duckdb.pin says $2."
}

DUCKDB_LIBRARY_FILE=$(sed 's|^@||; s|/|-|' <<<"$DUCKDB_NPM_PACKAGE")-$DUCKDB_NPM_VERSION.tgz
DUCKDB_SOURCE_FILE=$DUCKDB_SDIST_PACKAGE-$DUCKDB_SDIST_VERSION.tar.gz

no_duckdb() {
    die "$1
DuckDB $DUCKDB_VERSION is needed. One of these helps:
  - a network, for 'npm pack $DUCKDB_NPM_PACKAGE@$DUCKDB_NPM_VERSION' and for
    'pip download --no-deps --no-binary $DUCKDB_SDIST_PACKAGE $DUCKDB_SDIST_PACKAGE==$DUCKDB_SDIST_VERSION';
  - the files that these two commands bring on another machine, put into $CACHE/downloads:
    $DUCKDB_LIBRARY_FILE and $DUCKDB_SOURCE_FILE;
  - an installation of your own: DuckDB_ROOT=FOLDER in the environment, where FOLDER has lib/libduckdb.so
    and the C and C++ headers of the same version in include/."
}

# get_file FILE WORK COMMAND...: takes FILE from the downloads folder, or lets COMMAND bring it into WORK.
get_file() {
    local file=$1 work=$2
    shift 2
    if [ -e "$CACHE/downloads/$file" ]; then
        cp "$CACHE/downloads/$file" "$work/"
        return
    fi
    say "fetching $file"
    (cd "$work" && timeout 600 "$@" >"$work/log" 2>&1 </dev/null) || {
        tail -n 5 "$work/log" >&2
        no_duckdb "Fetching $file failed: $*"
    }
    [ -e "$work/$file" ] || no_duckdb "'$*' did not bring $file."
}

# The folder appears in the cache whole or not at all, whatever happens on the way and however many do this.
fetch_duckdb() {
    [ "$(uname -s)-$(uname -m)" = Linux-x86_64 ] ||
        no_duckdb "scripts/duckdb.pin names the library for Linux on x86-64 only; this is $(uname -s) on $(uname -m)."
    local clients=() package
    for package in $(packages_of fetch); do
        case $package in
        npm) [ -e "$CACHE/downloads/$DUCKDB_LIBRARY_FILE" ] || command -v npm >/dev/null || clients+=(npm) ;;
        python3-pip)
            [ -e "$CACHE/downloads/$DUCKDB_SOURCE_FILE" ] || python3 -m pip --version >/dev/null 2>&1 ||
                clients+=(python3-pip)
            ;;
        esac
    done
    [ ${#clients[@]} = 0 ] || install_packages "${clients[@]}"

    mkdir -p "$CACHE"
    exec 8>"$CACHE/.lock"
    flock 8
    if has_duckdb; then
        exec 8>&-
        return
    fi
    local work
    work=$(mktemp -d "$CACHE/.fetch.XXXXXX")
    # shellcheck disable=SC2064
    trap "rm -rf '$work'" EXIT
    get_file "$DUCKDB_LIBRARY_FILE" "$work" npm pack --silent --fetch-retries=1 \
        --fetch-retry-mintimeout=2000 "$DUCKDB_NPM_PACKAGE@$DUCKDB_NPM_VERSION"
    check_sum "$work/$DUCKDB_LIBRARY_FILE" "$DUCKDB_NPM_SHA256"
    get_file "$DUCKDB_SOURCE_FILE" "$work" python3 -m pip download --quiet --retries 1 --no-deps \
        --no-binary "$DUCKDB_SDIST_PACKAGE" "$DUCKDB_SDIST_PACKAGE==$DUCKDB_SDIST_VERSION"
    check_sum "$work/$DUCKDB_SOURCE_FILE" "$DUCKDB_SDIST_SHA256"

    mkdir -p "$work/home/lib"
    tar -xzf "$work/$DUCKDB_LIBRARY_FILE" -C "$work/home/lib" --strip-components=1 package/libduckdb.so
    local inside=$DUCKDB_SDIST_PACKAGE-$DUCKDB_SDIST_VERSION/external/duckdb
    tar -xzf "$work/$DUCKDB_SOURCE_FILE" -C "$work/home" --strip-components=3 "$inside/LICENSE"
    tar -xzf "$work/$DUCKDB_SOURCE_FILE" -C "$work/home" --strip-components=4 "$inside/src/include"
    rm -rf "$DUCKDB_HOME"
    mv "$work/home" "$DUCKDB_HOME"
    rm -rf "$work"
    trap - EXIT
    exec 8>&-
    say "DuckDB $DUCKDB_VERSION is in $DUCKDB_HOME"
}

# set_up GROUP...: the packages of the groups, and DuckDB. Quick when all of it is there.
set_up() {
    local packages
    mapfile -t packages < <(packages_of "$@")
    install_packages "${packages[@]}"
    if [ -z "${DuckDB_ROOT:-}" ] && ! has_duckdb; then
        fetch_duckdb
    fi
}

# configure PRESET: where that was not done yet, or was done for another DuckDB.
configure() {
    local folder=$ROOT/build/$1 root=$DUCKDB_HOME
    if [ -n "${DuckDB_ROOT:-}" ]; then
        root=$(realpath "$DuckDB_ROOT")
    fi
    if [ ! -e "$folder/build.ninja" ] || ! grep -qsxF "DuckDB_ROOT:PATH=$root" "$folder/CMakeCache.txt"; then
        (cd "$ROOT" && cmake --preset "$1" -DDuckDB_ROOT:PATH="$root" >&2)
    fi
}

# build PRESET [TARGET...]: everything goes to stderr; nothing is said when there is nothing to do.
build() {
    local folder=$ROOT/build/$1
    configure "$1"
    shift
    if ninja -C "$folder" -n "$@" 2>/dev/null | grep -q 'no work to do'; then
        return
    fi
    ninja -C "$folder" "$@" >&2
}

# Shared by the other scripts; sourced, never run. Sets ROOT, CACHE, BUILD (the folder of the builds) and the pin's names.
# shellcheck shell=bash
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
if [ -z "${HOME:-}" ] && [ -z "${XDG_CACHE_HOME:-}" ]; then
    printf 'HOME is not set. Set it, or name a cache folder by XDG_CACHE_HOME=FOLDER.\n' >&2
    exit 1
fi
CACHE=${XDG_CACHE_HOME:-$HOME/.cache}/mduckdb

say() { printf '%s\n' "$*" >&2; }
die() {
    say "$*"
    exit 1
}

# Which DuckDB: `--duckdb NAME` as the first arguments of any script, or MDUCKDB_DUCKDB=NAME, selects
# scripts/duckdb-NAME.pin. Each DuckDB has its own build folders; those of the shipped one have no name in their path.
# Which processor: `--arch arm64` of scripts/setup, test and package, before or after it, cross-compiles with the preset of
# that name. ARCH is empty for the processor of this machine.
DEFAULT_DUCKDB=1.5
ARCH=
while :; do
    case ${0##*/}:${1:-} in
    *:--duckdb) MDUCKDB_DUCKDB=${2:?--duckdb needs a name} ;;
    setup:--arch | test:--arch | package:--arch) ARCH=${2:?--arch needs a name} ;;
    *) break ;;
    esac
    shift 2
done
# ctest and others ignore words that they do not know.
case " $* " in
*" --duckdb "*) die "--duckdb NAME must come before the other arguments." ;;
esac
case $ARCH in
'' | arm64) ;;
*) die "Unknown processor '$ARCH'. --arch accepts only arm64." ;;
esac
DUCKDB_NAME=${MDUCKDB_DUCKDB:-$DEFAULT_DUCKDB}
if [ ! -e "$ROOT/scripts/duckdb-$DUCKDB_NAME.pin" ]; then
    die "Unknown DuckDB '$DUCKDB_NAME'. Use one of: $(cd "$ROOT/scripts" && echo duckdb-*.pin | sed 's/duckdb-//g; s/\.pin//g')"
fi
# shellcheck source=duckdb-1.5.pin
source "$ROOT/scripts/duckdb-$DUCKDB_NAME.pin"
if [ -n "$ARCH" ]; then
    if [ -z "${DUCKDB_LIBRARY_PACKAGE_ARM64:-}" ]; then
        die "scripts/duckdb-$DUCKDB_NAME.pin names no library for arm64. Use one of: $(cd "$ROOT/scripts" &&
            grep -l '^DUCKDB_LIBRARY_PACKAGE_ARM64=' duckdb-*.pin | sed 's/duckdb-/--duckdb /; s/\.pin$//')"
    fi
    DUCKDB_LIBRARY_PACKAGE=$DUCKDB_LIBRARY_PACKAGE_ARM64
    DUCKDB_LIBRARY_SHA256=$DUCKDB_LIBRARY_SHA256_ARM64
fi
DUCKDB_HOME=$CACHE/duckdb-$DUCKDB_VERSION${ARCH:+-$ARCH}
export MDUCKDB_DUCKDB=$DUCKDB_NAME
BUILD=$ROOT/build/$DUCKDB_NAME
if [ "$DUCKDB_NAME" = "$DEFAULT_DUCKDB" ]; then
    # CMakePresets.json puts the variable into the folder's name.
    unset MDUCKDB_DUCKDB
    BUILD=$ROOT/build
fi

# packages_of GROUP...: the package names of the groups.
packages_of() {
    local group
    for group in "$@"; do
        awk -v group="$group" '$1 == group { print $2 }' "$ROOT/scripts/packages"
    done
}

# missing_packages NAME...: those that are not installed.
missing_packages() {
    local have name
    have=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null | sort -u) || true
    for name in "$@"; do
        grep -qx "installed $name" <<<"$have" || printf '%s\n' "$name"
    done
}

# as_root COMMAND...: fails silently if this user cannot become root without a prompt.
can_be_root() { [ "$(id -u)" = 0 ] || sudo -n true 2>/dev/null || { [ -t 0 ] && command -v sudo >/dev/null; }; }
as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# install_packages NAME...: installs missing packages, or lists them and terminates.
install_packages() {
    if [ -n "${MDUCKDB_NO_PACKAGES:-}" ]; then
        return
    fi
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        say "This is not a Debian system, so nothing is installed here. Needed, by their Debian names:" \
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
    as_root apt-get -q update >&2 || say "apt-get update failed; continuing with the existing package lists"
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y install --no-install-recommends "${missing[@]}" >&2 ||
        die "apt-get could not install: ${missing[*]}"
}

# begin_fetch: one run at a time downloads into the cache. Sets FETCHED, a new folder there, which end_fetch removes.
begin_fetch() {
    mkdir -p "$CACHE" || die "The cache folder $CACHE cannot be created. Set XDG_CACHE_HOME=FOLDER to use another one."
    exec 8>"$CACHE/.lock"
    flock 8
    # Under the lock, so left-over folders belong to runs that were killed.
    rm -rf "$CACHE"/.fetch.*
    FETCHED=$(mktemp -d "$CACHE/.fetch.XXXXXX")
    trap 'rm -rf "$FETCHED"' EXIT
}
end_fetch() {
    rm -rf "$FETCHED"
    trap - EXIT
    exec 8>&-
}

# debian_sources: the machine's own sources of Debian packages, one a line.
# shellcheck disable=SC2016
debian_sources() {
    apt-get indextargets --format '$(ORIGIN) deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        sed -n 's/^Debian //p' | sort -u
}

# shellcheck source=fetch_duckdb.sh
source "$ROOT/scripts/fetch_duckdb.sh"
# shellcheck source=fetch_sysroot.sh
source "$ROOT/scripts/fetch_sysroot.sh"

# set_up GROUP...: the packages of the groups, and DuckDB. Quick if everything is present.
set_up() {
    local packages
    if [ "$DUCKDB_LIBRARY_FROM" = wheel ]; then
        set -- "$@" wheel
    fi
    if [ -n "$ARCH" ]; then
        set -- "$@" arm64
    fi
    mapfile -t packages < <(packages_of "$@")
    install_packages "${packages[@]}"
    if [ -z "${DuckDB_ROOT:-}" ] && ! has_duckdb; then
        fetch_duckdb
    fi
    if [ -n "$ARCH" ] && ! has_sysroot; then
        fetch_sysroot
    fi
}

# configure PRESET: unless it is already configured for this DuckDB.
configure() {
    local folder=$BUILD/$1 root=$DUCKDB_HOME flags=()
    if [ -n "$ARCH" ]; then
        flags=(-DMDUCKDB_SYSROOT:PATH="$SYSROOT/root")
    fi
    if [ -n "${DuckDB_ROOT:-}" ]; then
        root=$(realpath "$DuckDB_ROOT")
    fi
    if [ ! -e "$folder/build.ninja" ] || ! grep -qsxF "DuckDB_ROOT:PATH=$root" "$folder/CMakeCache.txt"; then
        (cd "$ROOT" && cmake --preset "$1" -DDuckDB_ROOT:PATH="$root" "${flags[@]}" >&2)
    fi
}

# share_objects FOLDER: lets ccache, where its user has not told it how, give the build in FOLDER the objects of the same
# tree's builds on other DuckDBs: of the terminal, of mshared and their tests. Paths into the folder are then relative.
share_objects() {
    if command -v ccache >/dev/null && [ -z "$(ccache --get-config base_dir)" ]; then
        export CCACHE_BASEDIR=$1 CCACHE_SLOPPINESS=pch_defines,time_macros
    fi
}

# build PRESET [TARGET...]: prints to stderr, and nothing if there is nothing to do.
build() {
    local folder=$BUILD/$1
    configure "$1"
    shift
    if ninja -C "$folder" -n "$@" 2>/dev/null | grep -q 'no work to do'; then
        return
    fi
    (share_objects "$folder" && ninja -C "$folder" "$@" >&2)
}

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
DEFAULT_DUCKDB=1.5
if [ "${1:-}" = --duckdb ]; then
    MDUCKDB_DUCKDB=${2:?--duckdb needs a name}
    shift 2
fi
DUCKDB_NAME=${MDUCKDB_DUCKDB:-$DEFAULT_DUCKDB}
if [ ! -e "$ROOT/scripts/duckdb-$DUCKDB_NAME.pin" ]; then
    die "Unknown DuckDB '$DUCKDB_NAME'. Use one of: $(cd "$ROOT/scripts" && echo duckdb-*.pin | sed 's/duckdb-//g; s/\.pin//g')"
fi
# shellcheck source=duckdb-1.5.pin
source "$ROOT/scripts/duckdb-$DUCKDB_NAME.pin"
DUCKDB_HOME=$CACHE/duckdb-$DUCKDB_VERSION
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

# shellcheck source=fetch_duckdb.sh
source "$ROOT/scripts/fetch_duckdb.sh"

# set_up GROUP...: the packages of the groups, and DuckDB. Quick if everything is present.
set_up() {
    local packages
    if [ "$DUCKDB_LIBRARY_FROM" = wheel ]; then
        set -- "$@" wheel
    fi
    mapfile -t packages < <(packages_of "$@")
    install_packages "${packages[@]}"
    if [ -z "${DuckDB_ROOT:-}" ] && ! has_duckdb; then
        fetch_duckdb
    fi
}

# configure PRESET: unless it is already configured for this DuckDB.
configure() {
    local folder=$BUILD/$1 root=$DUCKDB_HOME
    if [ -n "${DuckDB_ROOT:-}" ]; then
        root=$(realpath "$DuckDB_ROOT")
    fi
    if [ ! -e "$folder/build.ninja" ] || ! grep -qsxF "DuckDB_ROOT:PATH=$root" "$folder/CMakeCache.txt"; then
        (cd "$ROOT" && cmake --preset "$1" -DDuckDB_ROOT:PATH="$root" >&2)
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
    ninja -C "$folder" "$@" >&2
}

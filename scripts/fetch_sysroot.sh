# Unpacks Debian's libraries for the processor $ARCH in the cache, to cross-compile with; sourced by lib.sh. Nothing of
# them is installed, and dpkg does not learn of another architecture.
# shellcheck shell=bash

# root/ has all packages together; packages/NAME each of them, with its control files.
SYSROOT=$CACHE/sysroot-$ARCH

sysroot_packages() {
    packages_of base | grep -e '-dev$'
    packages_of sysroot
}

has_sysroot() { [ -e "$SYSROOT/names" ] && cmp -s <(sysroot_packages) "$SYSROOT/names"; }

# apt_for FOLDER ARGUMENT...: apt-get for $ARCH, with all of its state in the folder.
apt_for() {
    local folder=$1
    shift
    apt-get -qq -o APT::Architecture="$ARCH" -o APT::Architectures="$ARCH" -o APT::Sandbox::User=root \
        -o Dir::State="$folder" -o Dir::State::status="$folder/status" -o Dir::Cache="$folder" \
        -o Dir::Etc::sourcelist="$folder/sources.list" -o Dir::Etc::sourceparts=- "$@" >&2
}

# unpack_packages FOLDER HOME: the archives of apt_for.
unpack_packages() {
    local archive name
    for archive in "$1"/archives/*.deb; do
        name=$(basename "$archive")
        name=$2/packages/${name%%_*}
        dpkg-deb --raw-extract "$archive" "$name"
        rm -rf "$name"/usr/share/{doc,info,locale,man}
        # Linked, so that the files take their space once.
        cp -al "$name/." "$2/root"
        rm -rf "$2/root/DEBIAN"
    done
}

# The folder appears complete or not at all, as that of DuckDB does.
fetch_sysroot() {
    local packages
    command -v apt-get >/dev/null || die "Building for $ARCH needs the packages of a Debian system, which this is not."
    begin_fetch
    if has_sysroot; then
        end_fetch
        return
    fi
    mapfile -t packages < <(sysroot_packages)
    say "fetching the $ARCH packages of ${packages[*]}"
    mkdir -p "$FETCHED"/apt/{lists,archives}/partial "$FETCHED"/home/{packages,root}
    : >"$FETCHED/apt/status"
    debian_sources >"$FETCHED/apt/sources.list"
    [ -s "$FETCHED/apt/sources.list" ] || die "The apt sources of this machine name no Debian mirror, or 'apt-get update' has not run."
    apt_for "$FETCHED/apt" update || die "apt-get cannot read the lists of the $ARCH packages."
    apt_for "$FETCHED/apt" --no-install-recommends --download-only install "${packages[@]}" ||
        die "apt-get could not download the $ARCH packages of ${packages[*]}."
    unpack_packages "$FETCHED/apt" "$FETCHED/home"
    sysroot_packages >"$FETCHED/home/names"
    rm -rf "$SYSROOT"
    mv "$FETCHED/home" "$SYSROOT"
    end_fetch
    say "The libraries for $ARCH are in $SYSROOT"
}

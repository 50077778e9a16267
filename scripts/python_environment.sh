# A Python environment in the cache with packages that tests use; sourced after lib.sh.
# shellcheck shell=bash

skip() {
    say "skipped: $*"
    exit 77
}

# python_environment NAME WHAT PIP_ARGUMENT...: sets PYTHON to the interpreter of the environment, which it installs the
# first time. The arguments say which packages; WHAT says it in the reason why a test is skipped. The folder is complete or
# without the file `ready`, also with several runs at once.
python_environment() {
    local name=$1 what=$2 key home
    shift 2
    key=$({ python3 --version && printf '%s\n' "$@" && cat "${PYTHON_PINS[@]:-/dev/null}"; } | sha256sum | cut -c1-12)
    home=$CACHE/$name-$key
    PYTHON=$home/bin/python
    [ ! -e "$home/ready" ] || return 0
    mkdir -p "$CACHE"
    exec 8>"$CACHE/.$name.lock"
    flock 8
    if [ ! -e "$home/ready" ]; then
        if ! python3 -c 'import ensurepip' 2>/dev/null; then
            (install_packages python3-venv) || skip "the package python3-venv is missing."
        fi
        python3 -m venv --clear "$home" >&2 ||
            skip "Python cannot create an environment. Install the package python3-venv."
        "$home/bin/python" -m pip install -q --disable-pip-version-check --no-deps --only-binary :all: "$@" >&2 ||
            skip "pip cannot install $what."
        touch "$home/ready"
    fi
    exec 8>&-
}

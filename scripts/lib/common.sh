# shellcheck shell=bash
# What every script here shares: where things are, how to speak, how to install what is missing.

TKDAST_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
TKDAST_CACHE=${TKDAST_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/kestrel-desk-assist}
TKDAST_BUILD=$TKDAST_ROOT/build/release
TKDAST_STAGE=$TKDAST_ROOT/build/stage
TKDAST_SYMBOLS=$TKDAST_ROOT/build/symbols
export TKDAST_ROOT TKDAST_CACHE TKDAST_BUILD TKDAST_STAGE TKDAST_SYMBOLS

# A machine that starts a script without a standard input would otherwise hand descriptor 0 to the
# first file that is opened.
[ -e /dev/fd/0 ] || exec </dev/null

say() {
    printf '%s\n' "$*"
}

warn() {
    printf '%s\n' "$*" >&2
}

die() {
    warn "error: $*"
    exit 1
}

# without_host: copies its input, with the host of every address left out. Which mirror a machine
# uses is its own business.
without_host() {
    sed -E 's#[a-z+]+://[^/ ]+#archive:#g'
}

# as_root COMMAND...: runs a command as root, through sudo where needed.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo --non-interactive "$@" ||
            die "'$*' needs root, and sudo would ask for a password. Run it by hand, then start again."
    else
        die "'$*' needs root. Run it by hand, then start again."
    fi
}

# under_lock FILE COMMAND...: runs a command while holding an exclusive lock on FILE.
under_lock() {
    local file=$1
    shift
    mkdir -p "$(dirname "$file")"
    (
        if ! flock --nonblock 9; then
            say "Waiting for another run that holds $file"
            flock 9
        fi
        "$@" 9>&-
    ) 9>"$file"
}

# missing_packages SET...: lists the packages of these sets that are not installed.
missing_packages() {
    local wanted
    wanted=$(awk -v sets=" $* " '!/^#/ && index(sets, " " $1 " ") { print $2 }' \
        "$TKDAST_ROOT/scripts/lib/packages" | sort -u)
    # shellcheck disable=SC2016,SC2086  # dpkg fills these in; the names are words
    comm -23 <(printf '%s\n' "$wanted") <(dpkg-query --show \
        --showformat='${binary:Package} ${db:Status-Status}\n' $wanted 2>/dev/null |
        sed -n 's/\(:[^ ]*\)\{0,1\} installed$//p' | sort -u)
}

# install_packages PACKAGE...: installs them without a question.
install_packages() {
    say "Installing ${#} missing Debian packages (why each is needed: scripts/lib/packages):"
    say "  $*"
    local apt=(env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0
        -o DPkg::Lock::Timeout=600 -o Acquire::Retries=3)
    local log
    log=$(mktemp)
    if ! {
        as_root "${apt[@]}" update &&
            as_root "${apt[@]}" install --yes --no-install-recommends "$@"
    } >"$log" 2>&1 </dev/null; then
        without_host <"$log" | tail -n 30 >&2
        rm -f "$log"
        die "apt could not install: $*"
    fi
    rm -f "$log"
}

# require_packages SET...: sees to it that all packages of these sets are installed.
require_packages() {
    local -a missing
    mapfile -t missing < <(missing_packages "$@")
    [ "${#missing[@]}" -eq 0 ] && return
    command -v apt-get >/dev/null || die "apt-get is missing: this runs on Debian 12 or a near relative."
    install_packages "${missing[@]}"
}

# in_cache FOLDER: answers whether the cache has this folder, and notes that it is still in use.
in_cache() {
    [ -d "$1" ] && touch --no-create "$1"
}

# prune_cache KIND: removes folders of this kind that nobody has used for a month.
prune_cache() {
    find "$TKDAST_CACHE" -mindepth 1 -maxdepth 1 -type d -name "$1-*" -mtime +30 -exec rm -rf {} +
}

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
    local set package
    while read -r set package _; do
        case " $* " in
        *" $set "*) ;;
        *) continue ;;
        esac
        [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
            printf '%s\n' "$package"
    done < <(grep -v -E '^(#|$)' "$TKDAST_ROOT/scripts/lib/packages") | sort -u
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

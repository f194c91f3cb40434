# shellcheck shell=bash
# shellcheck disable=SC2030,SC2031  # variables of a run are meant to end with its subshell
# A Windows desktop for one run: a screen, a Wine prefix and a network of its own, so that runs side
# by side never meet. Needs common.sh. Used through scripts/lib/with-desktop or on_desktop.

# A run may ask for another screen or more dots per inch (TKDAST_SCREEN, TKDAST_DPI).
TKDAST_TEMPLATE_SCREEN=1280x800
TKDAST_SCREEN=${TKDAST_SCREEN:-$TKDAST_TEMPLATE_SCREEN}
TKDAST_DESKTOP_WAIT=60

# wine_environment: the settings every Wine program of this tree runs with.
wine_environment() {
    export WINEARCH=win64 WINEDEBUG=${WINEDEBUG:--all} LC_ALL=C.UTF-8
    # Without the first two Wine asks to download runtimes; the third would write menu entries of the
    # test programs into the user's own desktop.
    export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d${WINEDLLOVERRIDES:+;$WINEDLLOVERRIDES}"
    unset WINELOADER WINESERVER XAUTHORITY
}

# template_registry: a shell on the desktop "Default", and crashes that end the program at once
# instead of waiting in a dialog that nobody sees.
template_registry() {
    cat <<END
REGEDIT4

[HKEY_CURRENT_USER\\Software\\Wine\\Explorer]
"Desktop"="Default"

[HKEY_CURRENT_USER\\Software\\Wine\\Explorer\\Desktops]
"Default"="$TKDAST_TEMPLATE_SCREEN"

[HKEY_CURRENT_USER\\Software\\Wine\\Explorer\\Desktops\\Default]
"EnableShell"=dword:00000001

[HKEY_CURRENT_USER\\Software\\Wine\\WineDbg]
"ShowCrashDialog"=dword:00000000

[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows NT\\CurrentVersion\\AeDebug]
"Debugger"="none"
"Auto"="1"
END
}

# own_folders PREFIX: makes folders of the links that Wine puts into the user's home.
own_folders() {
    local link
    while read -r link; do
        rm "$link"
        mkdir "$link"
    done < <(find "$1/drive_c/users" -type l)
}

# fill_template DIR: makes the prefix that every run copies, and the program that keeps its shell.
fill_template() (
    mkdir -p "$1/home"
    printf 'pcm.!default { type null }\nctl.!default { type null }\n' >"$1/asound.conf"
    template_registry >"$1/template.reg"
    x86_64-w64-mingw32-g++-posix -std=c++20 -O2 -static -s -o "$1/DesktopKeeper.exe" \
        "$TKDAST_ROOT/scripts/lib/DesktopKeeper.cpp" || return
    wine_environment
    export WINEPREFIX=$1/prefix HOME=$1/home ALSA_CONFIG_PATH=$1/asound.conf
    # With no screen nothing of this opens a window.
    unset DISPLAY
    # shellcheck disable=SC2016  # the inner shell expands these
    "${TKDAST_ISOLATED[@]}" sh -c 'wine wineboot --init && wine regedit /S "$1" && wine winecfg -v win10; status=$?
        wineserver -k; wineserver -w; exit $status' sh "$1/template.reg" || return
    own_folders "$1/prefix"
)

# make_template_locked DIR: fills DIR unless another run has done so in the meantime. The folder gets
# its name only when it is whole.
make_template_locked() {
    local work
    in_cache "$1" && return
    say "Making the Windows desktop that every run copies: $1"
    rm -rf "$TKDAST_CACHE"/wine-work.*
    prune_cache wine
    work=$(mktemp --directory "$TKDAST_CACHE/wine-work.XXXXXX")
    # shellcheck disable=SC2064  # the folder of now is the one to remove
    trap "rm -rf '$work'" EXIT
    if ! fill_template "$work/template" >"$work/log" 2>&1 </dev/null; then
        tail -n 20 "$work/log" >&2
        die "Wine could not make a prefix."
    fi
    mv -T "$work/template" "$1"
}

# ensure_wine_template: sees to it that the template is in the cache and sets TKDAST_TEMPLATE to it.
ensure_wine_template() {
    local key
    key=$({
        dpkg-query --show wine wine64
        id -u
        cat "$TKDAST_ROOT"/scripts/lib/{wine-run.sh,DesktopKeeper.cpp}
    } | sha256sum | cut -c1-16)
    TKDAST_TEMPLATE=$TKDAST_CACHE/wine-$key
    in_cache "$TKDAST_TEMPLATE" && return
    under_lock "$TKDAST_CACHE/wine.lock" make_template_locked "$TKDAST_TEMPLATE"
}

# choose_isolation: sets TKDAST_ISOLATED to the words in front of a command that give it a network of its
# own (the port 6129 is fixed) and, where the machine allows it, a process tree that ends as one.
choose_isolation() {
    local -a user=() candidate
    # shellcheck disable=SC2016  # the inner shell expands these
    local -a loopback=(sh -c 'ip link set lo up && exec "$@"' sh)
    [ "$(id -u)" -eq 0 ] || user=(--user --map-root-user)

    TKDAST_OWN_NETWORK=1
    candidate=(unshare "${user[@]}" --net --pid --fork --kill-child --mount-proc "${loopback[@]}")
    if "${candidate[@]}" true 2>/dev/null; then
        TKDAST_ISOLATED=("${candidate[@]}")
        return
    fi
    candidate=(setsid --wait unshare "${user[@]}" --net "${loopback[@]}")
    if "${candidate[@]}" true 2>/dev/null; then
        TKDAST_ISOLATED=("${candidate[@]}")
        return
    fi
    TKDAST_OWN_NETWORK=0
    TKDAST_ISOLATED=(setsid --wait)
}

# start_screen: starts a screen for this run and sets DISPLAY. TKDAST_REAL_DISPLAY=1 takes the one that
# is there already.
start_screen() {
    local number
    if [ "${TKDAST_REAL_DISPLAY:-0}" = 1 ]; then
        [ -n "${DISPLAY:-}" ] || die "TKDAST_REAL_DISPLAY is set, but there is no DISPLAY."
        return
    fi
    mkfifo "$TKDAST_RUN/display"
    Xvfb -displayfd 3 -screen 0 "${TKDAST_SCREEN}x24" -nolisten tcp -noreset \
        3>"$TKDAST_RUN/display" >"$TKDAST_RUN/xvfb.log" 2>&1 </dev/null &
    TKDAST_XVFB=$!
    read -r -t "$TKDAST_DESKTOP_WAIT" number <"$TKDAST_RUN/display" || {
        tail -n 5 "$TKDAST_RUN/xvfb.log" >&2
        die "Xvfb did not start."
    }
    export DISPLAY=:$number
}

# end_desktop: ends whatever this run started. Called on every way out.
end_desktop() {
    trap '' INT TERM HUP
    if [ -n "$TKDAST_SESSION" ]; then
        # The process tree goes with its first process, or else with its process group.
        kill -KILL "$TKDAST_SESSION" 2>/dev/null || true
        kill -KILL -- "-$TKDAST_SESSION" 2>/dev/null || true
        wait "$TKDAST_SESSION" 2>/dev/null || true
    fi
    if [ -d "$TKDAST_RUN/prefix" ]; then
        wineserver -k 2>/dev/null || true
        wineserver -w 2>/dev/null || true
    fi
    if [ -n "$TKDAST_XVFB" ]; then
        kill "$TKDAST_XVFB" 2>/dev/null || true
        wait "$TKDAST_XVFB" 2>/dev/null || true
    fi
    rm -rf "$TKDAST_RUN"
}

# keep_desktop: starts what keeps the desktop alive, and waits for the taskbar.
keep_desktop() {
    local answer=''
    mkfifo "$TKDAST_RUN/keeper"
    wine "$TKDAST_RUN/DesktopKeeper.exe" >"$TKDAST_RUN/keeper" 2>"$TKDAST_RUN/keeper.log" </dev/null &
    read -r -t "$TKDAST_DESKTOP_WAIT" answer <"$TKDAST_RUN/keeper" || true
    rm -f "$TKDAST_RUN/keeper"
    [[ $answer != ready* ]] || return 0
    tail -n 5 "$TKDAST_RUN/keeper.log" >&2
    wineserver -k || true
    wineserver -w || true
    return 1
}

# desktop_session COMMAND...: what runs inside the isolation: waits for the taskbar, runs the command,
# ends Wine.
desktop_session() {
    local status=0
    # Wine has been seen to give up a start at once, without a word, and to make the next one.
    if ! keep_desktop; then
        warn "The Windows desktop did not start; once more."
        keep_desktop || die "the Windows desktop did not start."
    fi
    "$@" || status=$?
    wineserver -k || true
    wineserver -w || true
    return "$status"
}

# adapt_prefix: gives the run's prefix the screen and the dots per inch that the run asked for.
adapt_prefix() {
    sed -i "s/\"Default\"=\"$TKDAST_TEMPLATE_SCREEN\"/\"Default\"=\"$TKDAST_SCREEN\"/" "$TKDAST_RUN/prefix/user.reg"
    [ -z "${TKDAST_DPI:-}" ] || printf '\n[Control Panel\\\\Desktop]\n"LogPixels"=dword:%08x\n' "$TKDAST_DPI" \
        >>"$TKDAST_RUN/prefix/user.reg"
}

# take_turn: where the machine gives no network to each run, waits until no other run is left.
take_turn() {
    [ "$TKDAST_OWN_NETWORK" -eq 0 ] || return 0
    warn "This machine gives a program no network of its own, so runs wait for each other."
    exec 9>"$TKDAST_CACHE/desktop.lock"
    flock 9
}

# run_desktop COMMAND...: runs a command on a desktop of its own and answers its exit code. The traps are
# the whole script's, so nothing but with-desktop calls this.
run_desktop() {
    local status=0
    TKDAST_XVFB='' TKDAST_SESSION=''
    TKDAST_RUN=$(mktemp --directory --tmpdir kda-desktop.XXXXXX)
    export TKDAST_RUN
    trap end_desktop EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP

    take_turn
    start_screen
    cp --archive --reflink=auto "$TKDAST_TEMPLATE/." "$TKDAST_RUN/"
    adapt_prefix
    wine_environment
    export WINEPREFIX=$TKDAST_RUN/prefix HOME=$TKDAST_RUN/home ALSA_CONFIG_PATH=$TKDAST_RUN/asound.conf

    # In the background, because a shell that waits in the foreground answers no signal.
    "${TKDAST_ISOLATED[@]}" "$TKDAST_ROOT/scripts/lib/with-desktop" --session "$@" <&0 9>&- &
    TKDAST_SESSION=$!
    wait "$TKDAST_SESSION" || status=$?
    # What the command left running, where no process tree takes it along.
    kill -KILL -- "-$TKDAST_SESSION" 2>/dev/null || true
    TKDAST_SESSION=''
    return "$status"
}

# prepare_desktop: everything a desktop needs, so that the first one does not pay for it.
prepare_desktop() {
    require_packages build run
    choose_isolation
    ensure_wine_template
}

# on_desktop COMMAND...: runs a command on a Windows desktop of its own and answers its exit code. The
# command finds DISPLAY, WINEPREFIX and a scratch folder TKDAST_RUN that goes away with the desktop, and
# needs only say "wine program.exe". Whatever it leaves running ends with it.
on_desktop() {
    "$TKDAST_ROOT/scripts/lib/with-desktop" "$@"
}

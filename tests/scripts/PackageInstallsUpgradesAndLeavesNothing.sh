#!/usr/bin/env bash
# Installs, changes, repairs, upgrades and removes the agent on a desktop of its own, silently as an administrator
# would, and holds every step against what must then be on the machine. Logs: build/package/logs/.
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=scripts/lib/common.sh
. scripts/lib/common.sh
# shellcheck source=scripts/lib/package.sh
. scripts/lib/package.sh

LOGS=$TKDAST_PACKAGE/logs
SETTINGS='HKLM\SOFTWARE\Tessaran Development\Kestrel Desk Assist Service\Settings'
RUN='HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Run'
EVENTS='HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\tkkdas'
FOLDER='C:\Program Files\Tessaran Development\Kestrel Desk Assist'
LATER=99.0.0

# tell WHAT: what is tried next; a failure names the last one.
tell() {
    step=$1
    say "$1"
}

# value KEY NAME: a registry value as "type data"; nothing where there is none.
value() {
    wine reg query "$1" /v "$2" 2>/dev/null | tr -d '\r' |
        sed -n -E "s/^ +${2//./\\.} +(REG_[A-Z_]+) +(.*)\$/\\1 \\2/p"
}

# must_be WHAT WANTED FOUND
must_be() {
    [ "$2" = "$3" ] || die "$step: $1 must be '$2' and is '$3'."
}

must_have() {
    must_be "$2" "$3" "$(value "$1" "$2")"
}

# install NAME ARGUMENT...: runs the installer silently with the log NAME, and answers its exit code.
install() {
    local name=$1
    shift
    wine msiexec "$@" /qn /l*v "Z:$LOGS/$name.log"
}

succeeds() {
    install "$@" || die "$step: the installer ended with code $?, see build/package/logs/$1.log."
}

refused() {
    ! install "$@" || die "$step: it must be refused."
}

# installed_files: what lies where the agent is installed, a file a line.
installed_files() {
    (cd "$installed" 2>/dev/null && find . -type f -printf '%P\n' | sort) || true
}

# files_must_be SUBSET...: all staged files but these are installed.
files_must_be() {
    must_be files "$(cd "$TKDAST_STAGE" && find . -type f -printf '%P\n' | sort |
        grep -v -x -F -f <(printf '%s\n' "$@"))" "$(installed_files)"
}

# What changes by itself, what Wine's installer keeps for good once anything has been installed (its folder and the
# empty keys of its books; Windows has them from the start), and what belongs to the user.
BOOKS='\[HKEY_LOCAL_MACHINE\\Software\\(Classes|Microsoft\\Windows\\CurrentVersion)\\Installer(\\.*)?\]$'
KEPT=(
    '"DriverDateData"=' # each start of the display's driver writes it
    'drive_c/windows/Installer$'
    "$BOOKS"
    'AppData/Local/Tessaran Development' # the agent's log
)

# snapshot NAME: writes down all of the registry and the names of all files.
snapshot() {
    local root
    for root in HKEY_LOCAL_MACHINE HKEY_CURRENT_USER; do
        wine regedit /E "Z:$TKDAST_RUN/$root.reg" "$root"
        iconv -f UTF-16 -t UTF-8 "$TKDAST_RUN/$root.reg" | tr -d '\r' | sed -e ':a' -e '/\\$/N; s/\\\n *//; ta' |
            awk '/^\[/ { key = $0; print; next } NF { print key " " $0 }'
    done >"$LOGS/registry-$1.txt"
    (cd "$WINEPREFIX" && find drive_c | sort) >"$LOGS/files-$1.txt"
}

# must_be_as_before NAME: nothing has come and nothing has gone since the snapshot "before".
must_be_as_before() {
    local what difference
    snapshot "$1"
    for what in registry files; do
        difference=$(diff "$LOGS/$what-before.txt" "$LOGS/$what-$1.txt" | grep '^[<>]' |
            grep -v -E "$(IFS='|' && printf '%s' "${KEPT[*]}")" || true)
        [ -z "$difference" ] || die "$step left something in the $what:"$'\n'"$difference"
    done
}

# unpack ARCHIVE
unpack() {
    (cd "$TKDAST_RUN" && python3 -m zipfile -e "$TKDAST_PACKAGE/$1" .)
}

play() {
    local name agent later status unpacked
    name=kestrel-desk-assist-$(product_version)
    agent=Z:$TKDAST_PACKAGE/$name-x64.msi
    later=Z:$TKDAST_RUN/later.msi
    installed=$(wine winepath -u "$FOLDER" | tr -d '\r')
    make_msi "$LATER" "${later#Z:}"

    tell "Before anything"
    # Other programs have such entries, too, on every machine.
    wine reg add "$RUN" /v Another /d another.exe /f >"$LOGS/reg.log"
    wine reg add "${EVENTS%tkkdas}another" /v TypesSupported /t REG_DWORD /d 7 /f >>"$LOGS/reg.log"
    snapshot before

    tell "Values that can't be"
    refused port /i "$agent" PORT=65536
    refused port-text /i "$agent" PORT=6129x
    refused icon-mode /i "$agent" ICONMODE=3
    refused permission /i "$agent" PERMISSIONREQUIRED=yes
    refused language /i "$agent" LANGUAGE=tlh
    must_be_as_before refused

    tell "Installing with all settings"
    succeeds install /i "$agent" PORT=6200 ICONMODE=2 PERMISSIONREQUIRED=1 LANGUAGE=de
    files_must_be TKDAS.exe
    must_have "$SETTINGS" Port 'REG_DWORD 0x1838'
    must_have "$SETTINGS" TrayIcon 'REG_DWORD 0x2'
    must_have "$SETTINGS" 'Permission Required' 'REG_DWORD 0x1'
    must_have "$SETTINGS" LangUI 'REG_SZ de'
    must_have "$RUN" 'Kestrel Desk Assist' "REG_SZ \"$FOLDER\\TKDAST.exe\""
    must_have "$EVENTS" EventMessageFile "REG_SZ $FOLDER\\TKDASTEvents.dll"
    must_have "$EVENTS" TypesSupported 'REG_DWORD 0x7'

    tell "Running what is installed"
    status=0
    wine "$FOLDER\\TKDAST.exe" -LockWorkstation || status=$?
    must_be "the exit code" 1 "$status"

    tell "Adding the stand-in"
    wine reg add "$SETTINGS" /v Port /t REG_DWORD /d 6300 /f >>"$LOGS/reg.log"
    wine reg add "$SETTINGS" /v LangUI /t REG_SZ /d fr /f >>"$LOGS/reg.log"
    succeeds add /i "$agent" ADDLOCAL=StandIn
    files_must_be
    must_have "$SETTINGS" Port 'REG_DWORD 0x189c'

    tell "Repairing"
    rm "$installed/TKDAChat.dll" "$installed/TKDAST.exe"
    wine reg delete "$RUN" /v 'Kestrel Desk Assist' /f >>"$LOGS/reg.log"
    # Wine knows "/f" by name only; this is what it stands for.
    succeeds repair /i "$agent" REINSTALL=ALL REINSTALLMODE=omus
    files_must_be
    must_have "$RUN" 'Kestrel Desk Assist' "REG_SZ \"$FOLDER\\TKDAST.exe\""
    must_have "$SETTINGS" Port 'REG_DWORD 0x189c'
    must_have "$SETTINGS" TrayIcon 'REG_DWORD 0x2'
    must_have "$SETTINGS" LangUI 'REG_SZ fr'

    tell "Upgrading"
    # Windows takes the choice of features over, by these two; Wine would fall back to the usual ones.
    must_be "the action that takes features over" 1 \
        "$(msiinfo export "${later#Z:}" InstallExecuteSequence | grep -c '^MigrateFeatureStates')"
    must_be "the row of earlier versions" 769 \
        "$(msiinfo export "${later#Z:}" Upgrade | tr -d '\r' | awk -F '\t' '$7 == "EARLIER_AGENT" { print $5 }')"
    succeeds upgrade /i "$later" ICONMODE=1 ADDLOCAL=Agent,Chat,Settings,StandIn
    files_must_be
    must_have "$SETTINGS" Port 'REG_DWORD 0x189c'
    must_have "$SETTINGS" TrayIcon 'REG_DWORD 0x1'
    must_have "$SETTINGS" 'Permission Required' 'REG_DWORD 0x1'
    must_have "$SETTINGS" LangUI 'REG_SZ fr'
    must_have "$RUN" 'Kestrel Desk Assist' "REG_SZ \"$FOLDER\\TKDAST.exe\""
    must_have "$EVENTS" EventMessageFile "REG_SZ $FOLDER\\TKDASTEvents.dll"
    must_be "the list of programs" "DisplayVersion REG_SZ $LATER" \
        "$(wine reg query 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall' /s | tr -d '\r' |
            grep -A 30 -F 'Kestrel' | awk '/DisplayVersion/ { print $1, $2, $3 }')"
    refused downgrade /i "$agent"

    tell "Removing"
    succeeds remove /x "$later"
    must_be_as_before removed

    tell "Installing without settings, where the service has some"
    wine reg add "$SETTINGS" /v Port /t REG_DWORD /d 6400 /f >>"$LOGS/reg.log"
    snapshot before
    succeeds install-bare /i "$agent" ADDLOCAL=Agent
    files_must_be TKDAS.exe TKDAChat.dll TKDASET.DLL
    must_have "$SETTINGS" Port 'REG_DWORD 0x1900'
    must_have "$SETTINGS" TrayIcon ''
    must_have "$SETTINGS" 'Permission Required' ''
    must_have "$SETTINGS" LangUI ''
    succeeds upgrade-bare /i "$later" ADDLOCAL=Agent
    files_must_be TKDAS.exe TKDAChat.dll TKDASET.DLL
    succeeds remove-bare /x "$later"
    must_be_as_before removed-bare

    tell "Unpacking the archives"
    unpack "$name-x64.zip"
    unpack "$name-policy.zip"
    unpacked=$TKDAST_RUN/$name
    must_be "the difference to build/stage" "Only in $unpacked: policy"$'\n'"Only in $unpacked: try-it.cmd" \
        "$(diff --recursive "$TKDAST_STAGE" "$unpacked")"
    must_be "the difference to the policies" '' "$(diff --recursive packaging/policy "$unpacked/policy")"
    must_be "the difference to the policies by themselves" '' \
        "$(diff --recursive packaging/policy "$unpacked-policy")"
    must_be "lines of try-it.cmd that don't end as Windows wants" 0 \
        "$(grep -c -v $'\r$' "$unpacked/try-it.cmd" || true)"
    wine cmd /c "$(wine winepath -w "$unpacked/try-it.cmd" | tr -d '\r')" --help </dev/null |
        grep -q -F -e --demo || die "$step: try-it.cmd didn't start the stand-in."
}

if [ "${1:-}" = --play ]; then
    play
else
    require_packages package
    make_packages
    mkdir -p "$LOGS"
    scripts/lib/with-desktop "$0" --play
fi

#!/usr/bin/env bash
# The guide is held against the sources as they are, and then against copies in which either has gone its own way.
# shellcheck disable=SC2016  # the back quotes are the page's
set -euo pipefail
cd "$(dirname "$0")/../.."
COPIED=(Include TKDAS certificates channel dialogs docs drop modules resources startup tray)
CHECK=(scripts/lib/check-administration guide)
# shellcheck source=tests/scripts/support/changed-copy.sh
. tests/scripts/support/changed-copy.sh

"${CHECK[@]}"

# A name that only the sources have.
refused Include/UtilRegistry.h 's/L"TrayIcon"/L"IconMode"/' "the registry's IconMode isn't named"
refused dialogs/HostList.cpp 's/L"Use Proxy Secret"/L"Use Proxy Password"/' "the registry's Use Proxy Password isn't named"
refused certificates/CertificateRegistry.h 's/L"a c"/L"a d"/' "the registry's a d isn't named"
refused tray/DesktopOptions.cpp 's/L"Wallpaper"/L"WallPicture"/' "the registry's WallPicture isn't named"
refused startup/CommandLine.h 's/L"-Logoff"/L"-LogOut"/' 'the table of switches has no -LogOut'
refused startup/TKDAST.h 's/EXIT_NO_WINDOW = -14/EXIT_NO_WINDOW = -15/' \
    "has no row ('-15', '0xFFFFFFF1', 'EXIT_NO_WINDOW')"
refused startup/TKDAST.h 's/EXIT_SHOWN = 1,/&\n    EXIT_TIRED = -99,/' "has no row ('-99', '0xFFFFFF9D', 'EXIT_TIRED')"
refused TKDAS/SimultanousSessionMutex.cpp 's/TessaranOti/TessaranNet/' 'TessaranNetSessionIsInProgress'
refused modules/chat/ChatWindow.cpp 's/KDA Chat Window Class/KDA Talk Window Class/' 'KDA Talk Window Class'
refused drop/DroppedFiles.cpp 's/L"mpr.dll"/L"network.dll"/' "network.dll isn't named"
refused drop/DroppedFiles.cpp 's/L"PROGRAMDATA"/L"PUBLIC"/' "PUBLIC isn't named"
refused drop/DropTarget.cpp '$ a const auto\& g_pOther = TKGetLogger("Other");' 'no row for the logger Other'
refused tray/DesktopOptions.h 's/0x4000/0x8000/' 'the table of desktop options has no bit 0x8000'
refused channel/TrayMessages.h 's/QUERY_PORT = 6129/QUERY_PORT = 6128/' "the port QUERY_PORT isn't named"
refused Include/UtilService.cpp 's/Unable to query service/Unable to ask/' "the event log's table has no \"Unable to ask"
refused resources/en/TKDASTRES.rc 's/Please start the service/Please go on/' "the event log's table has no \"The Kestrel"

# What the sources do otherwise than the guide says.
refused startup/OneShotRuns.cpp 's/CONSOLE_LOCK_SWITCH, SWITCH_MATCH::WholeLine/CONSOLE_LOCK_SWITCH, SWITCH_MATCH::Anywhere/' \
    '-ConsoleLock is recognised anywhere'
refused startup/OneShotRuns.cpp '/{INVITATION_SWITCH,/ { h; d }; /{PERMISSION_SWITCH,/ G' \
    "the switches don't stand in the order in which they count"

# What only the guide has.
refused docs/administration.md 's/^| `Last` |/| `First` |/' 'the sources have no value First'
refused docs/administration.md 's/^| `-LogoffForce` |/| `-LogoffNow` |/' 'the sources have no switch -LogoffNow'
refused docs/administration.md 's/^| `UtilWTS` |/| `UtilXYZ` |/' 'the sources have no logger UtilXYZ'
refused docs/administration.md 's/`0xFFFFFFC0`/`0xFFFFFFC1`/' 'the sources have no exit code'
refused docs/administration.md 's/^| `Unable to call OpenService/| `Unable to open/' 'nothing writes "Unable to open'
refused docs/administration.md 's/(#ports)/(#harbours)/' 'there is no heading #harbours'
refused docs/administration.md 's/(protocol.md)/(protocols.md)/' 'there is no protocols.md'
refused docs/administration.md 's/^| `Test` | /| `Test` /' 'a row has 4 cells and not 5'

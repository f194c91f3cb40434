#pragma once

#include <winsock2.h>
#include <windows.h>

#include "channel/TrayMessages.h"

#include <string>
#include <string_view>

/*
 * What the About dialog says, composed from plain values and the texts of the language module. The service's
 * texts are shown as they are, whatever is in them. Any thread.
 */

/// The lines about service, network and user.
std::wstring ComposeAboutText(const MSG_TRAYICON_IP_ADDRESSES& addresses, bool bOneTimeSession);

/// The version line, with the copyright behind it if there is one.
std::wstring ComposeVersionText(std::wstring_view version, std::wstring_view copyright);

/// A version without blanks and with points for commas.
std::wstring DotVersion(std::wstring_view version);

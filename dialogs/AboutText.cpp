#include "dialogs/AboutText.h"

#include "Include/BoundedText.h"
#include "Include/UtilResource.h"
#include "resources/resource.h"

#include <algorithm>

namespace
{
constexpr size_t MAX_LABEL = 260;        // characters, terminator included
constexpr size_t MAX_ABOUT_TEXT = 2048;  // characters, terminator included
constexpr size_t MAX_VERSION_TEXT = 260; // characters, terminator included
constexpr wchar_t WORD_SIZE[] = L", 64 bit";
constexpr wchar_t LINE_END[] = L"\r\n";

std::wstring LoadLabel(UINT uString)
{
    return LoadResourceText(uString, MAX_LABEL);
}

std::wstring Line(UINT uLabel, std::wstring_view text)
{
    return LoadLabel(uLabel).append(text) + LINE_END;
}

// Addresses stand below their label, a line each.
std::wstring Block(UINT uLabel, std::wstring_view text)
{
    return text.empty() ? Line(uLabel, text) : LoadLabel(uLabel) + LINE_END + std::wstring(text) + LINE_END;
}

// Nobody waits for connections in a one-time session: it joins.
std::wstring ComposeReadiness(const MSG_TRAYICON_IP_ADDRESSES& addresses)
{
    if (addresses.bInfoFlag117 != 0)
    {
        return Line(IDS_ABOUT_SERVICE, LoadLabel(IDS_ABOUT_READY));
    }
    return Line(IDS_ABOUT_SERVICE, LoadLabel(IDS_ABOUT_NOT_READY)) +
           Line(IDS_ABOUT_NETWORK,
                LoadLabel(addresses.bInfoFlag119 != 0 ? IDS_ABOUT_AVAILABLE : IDS_ABOUT_NOT_AVAILABLE));
}

std::wstring ComposeInternetAddress(std::wstring_view address)
{
    return address.empty() ? Line(IDS_ABOUT_INTERNET_ADDRESS, LoadLabel(IDS_ABOUT_NOT_KNOWN))
                           : Block(IDS_ABOUT_INTERNET_ADDRESS, address);
}
} // namespace

std::wstring ComposeAboutText(const MSG_TRAYICON_IP_ADDRESSES& addresses, bool bOneTimeSession)
{
    std::wstring text = Line(IDS_ABOUT_COMPUTER, FixedText(addresses.szInfo55));
    if (!bOneTimeSession)
    {
        text += ComposeReadiness(addresses);
    }
    text += Line(IDS_ABOUT_PORT, FixedText(addresses.szInfo56));
    if (addresses.bInfoFlag89 != 0)
    {
        text += Line(IDS_TIP_PERMISSION, {});
    }
    text += Block(IDS_ABOUT_IPV4, FixedText(addresses.szInfo57));
    text += Block(IDS_ABOUT_IPV6, FixedText(addresses.szInfo58));
    text += ComposeInternetAddress(FixedText(addresses.szInfo60));
    text += Line(IDS_ABOUT_WINDOWS_VERSION, FixedText(addresses.szInfo53));
    text += Line(IDS_ABOUT_WINDOWS_USER, FixedText(addresses.szInfo54));
    text += Line(IDS_ABOUT_PROGRAM, FixedText(addresses.szInfo59));
    text += Line(IDS_ABOUT_ENCRYPTION, FixedText(addresses.szInfo61));
    text.resize(std::min(text.size(), MAX_ABOUT_TEXT - 1));
    return text;
}

std::wstring ComposeVersionText(std::wstring_view version, std::wstring_view copyright)
{
    std::wstring text = FillPlaceholders(LoadLabel(IDS_ABOUT_VERSION), {version, WORD_SIZE});
    text += copyright;
    text.resize(std::min(text.size(), MAX_VERSION_TEXT - 1));
    return text;
}

std::wstring DotVersion(std::wstring_view version)
{
    std::wstring text(version);
    std::erase(text, L' ');
    std::replace(text.begin(), text.end(), L',', L'.');
    return text;
}

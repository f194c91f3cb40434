#include "startup/CommandLine.h"

#include <cwchar>
#include <string>

namespace
{
constexpr wchar_t BLANK = L' ';
constexpr size_t MAX_PORT_PARAMETER = 40; // characters, terminator included
constexpr int DECIMAL = 10;

// Up to the next blank.
std::wstring_view FirstWord(std::wstring_view text)
{
    return text.substr(0, text.find(BLANK));
}

// All behind the first blank.
std::optional<std::wstring_view> BehindFirstBlank(std::wstring_view text)
{
    const size_t uBlank = text.find(BLANK);
    return uBlank == std::wstring_view::npos ? std::nullopt : std::optional(text.substr(uBlank + 1));
}

// No port has that many digits, and a cut parameter could become a port that nobody asked for.
std::wstring PortText(std::wstring_view parameter)
{
    return parameter.size() < MAX_PORT_PARAMETER ? std::wstring(parameter) : std::wstring();
}

bool IsPermissionSwitch(std::wstring_view word)
{
    return word == PERMISSION_SWITCH || word == INVITATION_SWITCH;
}
} // namespace

std::optional<std::wstring_view> FindFirstParameter(std::wstring_view line)
{
    const std::optional<std::wstring_view> rest = BehindFirstBlank(line);
    return rest ? std::optional(FirstWord(*rest)) : std::nullopt;
}

unsigned int ParseOneTimePort(std::wstring_view parameter)
{
    return static_cast<unsigned int>(wcstoul(PortText(parameter).c_str(), nullptr, DECIMAL));
}

std::optional<PERMISSION_PARAMETERS> ParsePermissionLine(std::wstring_view line)
{
    std::optional<std::wstring_view> rest = BehindFirstBlank(line);
    if (!rest)
    {
        return std::nullopt;
    }
    // A caller may put words of its own in front of the switch.
    if (IsPermissionSwitch(FirstWord(*rest)))
    {
        rest = BehindFirstBlank(*rest).value_or(std::wstring_view());
    }
    const std::wstring port = PortText(FirstWord(*rest));
    const std::wstring family(BehindFirstBlank(*rest).value_or(std::wstring_view()));
    return PERMISSION_PARAMETERS{_wtoi(port.c_str()), _wtoi(family.c_str())};
}

#include "fuzz/FuzzTarget.h"

#include "fuzz/RecordMutator.h"
#include "startup/CommandLine.h"
#include "startup/OneShotRuns.h"

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <string>

namespace
{
constexpr std::uint32_t MOST_LINES = 64; // of one round
constexpr std::uint32_t MOST_WORDS = 12;
constexpr size_t LONGEST_LINE = 32767; // characters: the system hands over no more

constexpr std::wstring_view WORDS[] = {
    L" ",
    PERMISSION_SWITCH,
    INVITATION_SWITCH,
    SETTINGS_AS_APPLICATION_SWITCH,
    SETTINGS_SWITCH,
    VALIDATE_CERT_SWITCH,
    CONSOLE_LOCK_SWITCH,
    LOGOFF_SWITCH,
    LOGOFF_FORCE_SWITCH,
    LOCK_WORKSTATION_SWITCH,
    L"-onetimesession",
    L"6129",
    L"0",
    L"-1",
    L"+7",
    L"65535",
    L"65536",
    L"2147483647",
    L"2147483648",
    L"4294967295",
    L"4294967296",
    L"99999999999999999999999999999999999999999",
    L"000000000000000000000000000000000006129",
    L"0x10",
    L"2",
    L"23",
    L"\t",
    L"\"",
    L"\\",
    L"\x00A0",
    L"\x00AD",
    L"\x200B",
    L"\x200D",
    L"\xFEFF",
    L"\xD800",
    L"\x0661\x0662",
    L"\xFF16\xFF11",
    L"%s",
    L"-",
    L"-permission",
};

std::wstring MakeLine(CChoices& choices)
{
    std::wstring line;
    for (std::uint32_t nWords = choices.Below(MOST_WORDS); nWords > 0; --nWords)
    {
        line += WORDS[choices.Below(static_cast<std::uint32_t>(std::size(WORDS)))];
        if (choices.Below(2) == 0)
        {
            line += L' ';
        }
    }
    if (choices.OneIn(64))
    {
        line += MakeBadText(choices, LONGEST_LINE);
    }
    return line.substr(0, std::min(line.find(L'\0'), LONGEST_LINE));
}

void PlayLine(const wchar_t* pszLine)
{
    const std::wstring_view line = pszLine;
    const ONE_SHOT_RUN* const pRun = FindOneShotRun(pszLine);
    if (pRun != nullptr)
    {
        // As the system compares texts, for which some characters are none.
        const bool bIs = lstrcmpW(pszLine, pRun->pszSwitch) == 0;
        const bool bHas = line.find(pRun->pszSwitch) != std::wstring_view::npos;
        Expect(pRun->match == SWITCH_MATCH::WholeLine ? bIs : bHas,
               "a run is the one that the line asks for");
    }
    const std::optional<std::wstring_view> parameter = FindFirstParameter(line);
    Expect(parameter.has_value() == (line.find(L' ') != std::wstring_view::npos), "a blank comes before it");
    if (parameter)
    {
        Expect(parameter->find(L' ') == std::wstring_view::npos, "a word holds no blank");
        ParseOneTimePort(*parameter);
    }
    Expect(ParsePermissionLine(line).has_value() == parameter.has_value(), "a blank comes before it");
}
} // namespace

size_t FuzzCommandLine(CChoices& choices)
{
    static const CGuardedMemory s_memory((LONGEST_LINE + 1) * sizeof(wchar_t));
    const std::uint32_t nLines = 1 + choices.Below(MOST_LINES);
    for (std::uint32_t nLine = 0; nLine < nLines; ++nLine)
    {
        choices.Step("line");
        const std::wstring line = MakeLine(choices);
        const auto* const pBytes = reinterpret_cast<const BYTE*>(line.c_str());
        PlayLine(reinterpret_cast<const wchar_t*>(
            s_memory.Put({pBytes, pBytes + (line.size() + 1) * sizeof(wchar_t)})));
    }
    return nLines;
}

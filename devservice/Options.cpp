#include "devservice/Options.h"

#include "devservice/ValueText.h"

#include <algorithm>
#include <iterator>

namespace
{
bool TakePort(const std::wstring& value, unsigned short& nPort)
{
    const std::optional<unsigned short> port = ParsePort(value);
    nPort = port.value_or(nPort);
    return port.has_value();
}

bool TakeText(const std::wstring& value, std::wstring& text)
{
    text = value;
    return !value.empty();
}

bool TakeNothing(bool& bFlag)
{
    bFlag = true;
    return true;
}

struct OPTION
{
    const wchar_t* pszName;
    const wchar_t* pszValue; // null: the option stands alone
    const wchar_t* pszHelp;
    bool (*pfnTake)(const std::wstring& value, TKDAS_OPTIONS& options);
};

constexpr OPTION s_aOptions[] = {
    {L"--port", L"N", L"port to listen on, 0 to 65535; 0 takes any free one (default 6129)",
     [](const std::wstring& value, TKDAS_OPTIONS& options) { return TakePort(value, options.nPort); }},
    {L"--query-port", L"N", L"query port; real agents only ask 6129 (default 6129)",
     [](const std::wstring& value, TKDAS_OPTIONS& options) { return TakePort(value, options.nQueryPort); }},
    {L"--script", L"FILE", L"play a script (UTF-8)",
     [](const std::wstring& value, TKDAS_OPTIONS& options) { return TakeText(value, options.scriptFile); }},
    {L"--demo", nullptr, L"play the built-in story; TKDAST.exe must lie beside this program",
     [](const std::wstring&, TKDAS_OPTIONS& options) { return TakeNothing(options.bDemo); }},
    {L"--play", L"FILE", L"play the service's side of a recorded session",
     [](const std::wstring& value, TKDAS_OPTIONS& options) { return TakeText(value, options.playFile); }},
    {L"--interactive", nullptr, L"take commands from the standard input and go on after errors",
     [](const std::wstring&, TKDAS_OPTIONS& options) { return TakeNothing(options.bInteractive); }},
    {L"--record", L"FILE", L"record the session for --play; secrets are in it",
     [](const std::wstring& value, TKDAS_OPTIONS& options) { return TakeText(value, options.recordFile); }},
    {L"--log", L"FILE", L"write the log to a file, too",
     [](const std::wstring& value, TKDAS_OPTIONS& options) { return TakeText(value, options.logFile); }},
    {L"--marks", L"FOLDER", L"at each mark NAME of a script wait for the file NAME.done in there",
     [](const std::wstring& value, TKDAS_OPTIONS& options) { return TakeText(value, options.marksFolder); }},
    {L"--help", nullptr, L"print this and end",
     [](const std::wstring&, TKDAS_OPTIONS& options) { return TakeNothing(options.bHelp); }},
};

bool HasOneSource(const TKDAS_OPTIONS& options)
{
    const bool abSources[] = {!options.scriptFile.empty(), options.bDemo, !options.playFile.empty(),
                              options.bInteractive};
    return std::count(std::begin(abSources), std::end(abSources), true) <= 1;
}
} // namespace

std::optional<TKDAS_OPTIONS> ParseOptions(std::span<const std::wstring> words, std::wstring& error)
{
    TKDAS_OPTIONS options;
    for (size_t n = 0; n < words.size(); ++n)
    {
        const std::wstring& word = words[n];
        const auto found = std::find_if(std::begin(s_aOptions), std::end(s_aOptions),
                                        [&word](const OPTION& option) { return word == option.pszName; });
        if (found == std::end(s_aOptions))
        {
            error = L"unknown option " + word;
            return std::nullopt;
        }
        std::wstring value;
        if (found->pszValue != nullptr)
        {
            if (++n == words.size())
            {
                error = word + L" needs " + found->pszValue;
                return std::nullopt;
            }
            value = words[n];
        }
        if (!found->pfnTake(value, options))
        {
            error = word + L": " + QuotedText(value, value.size()) + L" is no " + found->pszValue;
            return std::nullopt;
        }
    }
    if (!HasOneSource(options))
    {
        error = L"only one of --script, --demo, --play and --interactive goes at a time";
        return std::nullopt;
    }
    return options;
}

std::wstring UsageText()
{
    constexpr size_t nColumn = 24;
    std::wstring text =
        L"TKDAS [options]\n"
        L"Plays the service for tray agents on this machine. Without --script, --demo or --play it takes\n"
        L"commands from the standard input; the command help lists them.\n\n";
    for (const OPTION& option : s_aOptions)
    {
        std::wstring head = std::wstring(L"  ") + option.pszName;
        if (option.pszValue != nullptr)
        {
            head += std::wstring(L" ") + option.pszValue;
        }
        head.resize(std::max(nColumn, head.size() + 1), L' ');
        text += head + option.pszHelp + L'\n';
    }
    return text + L"\nExit code: 0 if all went as the script expects, 1 if not, 2 for a bad option.\n";
}

// The commands that start programs and wait for their end.

#include "devservice/ScriptRunner.h"
#include "devservice/TextFile.h"
#include "devservice/ValueText.h"

namespace
{
constexpr DWORD EXIT_TIMEOUT_MS = 30000;
} // namespace

bool CScriptRunner::Launch(WORDS words, unsigned int& uProgram)
{
    std::vector<std::wstring> arguments;
    for (const SCRIPT_WORD& word : words.subspan(1))
    {
        if (!IsOption(word, WITHIN_OPTION) && !IsOption(word, L"expect"))
        {
            arguments.push_back(word.text);
        }
    }
    const std::optional<unsigned int> started = m_programs.Start(words[0].text, arguments);
    if (!started)
    {
        return Fail(SystemErrorText(L"cannot start " + words[0].text, GetLastError()));
    }
    uProgram = *started;
    m_service.Note(L"program " + std::to_wstring(uProgram) + L" started: " +
                   MakeCommandLine(words[0].text, arguments));
    return true;
}

bool CScriptRunner::AwaitExit(unsigned int uProgram, DWORD dwMilliseconds, std::optional<DWORD> expected)
{
    DWORD dwCode = 0;
    const std::wstring program = L"program " + std::to_wstring(uProgram);
    switch (m_programs.WaitForEnd(uProgram, dwMilliseconds, m_service.GetInterruptEvent(), dwCode))
    {
    case PROGRAM_RESULT::StillRuns:
        return Fail(program + L" still runs after " + std::to_wstring(dwMilliseconds) + L" ms");
    case PROGRAM_RESULT::Interrupted:
        return Fail(L"interrupted");
    case PROGRAM_RESULT::Ended:
        break;
    }
    const std::wstring ended = program + L" ended with " + HexDword(dwCode) + L" (" +
                               std::to_wstring(static_cast<int>(dwCode)) + L")";
    m_service.Note(ended);
    return !expected || *expected == dwCode || Fail(ended + L", not with " + HexDword(*expected));
}

bool CScriptRunner::StartProgram(WORDS words)
{
    unsigned int uProgram = 0;
    return Launch(words, uProgram);
}

bool CScriptRunner::RunProgram(WORDS words)
{
    DWORD dwMilliseconds = EXIT_TIMEOUT_MS;
    std::optional<DWORD> expected;
    if (const SCRIPT_WORD* const pExpected = FindOption(words, L"expect"))
    {
        DWORD dwCode = 0;
        if (!ReadNumber(pExpected->Value(), dwCode))
        {
            return false;
        }
        expected = dwCode;
    }
    unsigned int uProgram = 0;
    return ReadMilliseconds(words, dwMilliseconds) && Launch(words, uProgram) &&
           AwaitExit(uProgram, dwMilliseconds, expected);
}

bool CScriptRunner::ExpectExit(WORDS words)
{
    DWORD dwMilliseconds = EXIT_TIMEOUT_MS;
    DWORD dwCode = 0;
    DWORD dwProgram = m_programs.Count();
    const SCRIPT_WORD* const pProgram = FindOption(words, L"program");
    if (!ReadMilliseconds(words, dwMilliseconds) || !ReadNumber(words[0].text, dwCode) ||
        (pProgram != nullptr && !ReadNumber(pProgram->Value(), dwProgram)))
    {
        return false;
    }
    if (dwProgram == 0 || dwProgram > m_programs.Count())
    {
        return Fail(L"there is no program " + std::to_wstring(dwProgram));
    }
    return AwaitExit(dwProgram, dwMilliseconds, dwCode);
}

void CScriptRunner::EndPrograms()
{
    const unsigned int uEnded = m_programs.EndAll();
    if (uEnded > 0)
    {
        m_service.Note(std::to_wstring(uEnded) + L" programs that still ran were ended");
    }
}

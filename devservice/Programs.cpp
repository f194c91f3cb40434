#include "devservice/Programs.h"

#include <iterator>

namespace
{
constexpr DWORD END_TIMEOUT_MS = 5000;
constexpr UINT FORCED_EXIT_CODE = 1;

std::wstring QuotedArgument(const std::wstring& argument)
{
    if (!argument.empty() && argument.find_first_of(L" \t\"") == std::wstring::npos)
    {
        return argument;
    }
    std::wstring quoted = L"\"";
    size_t nBackslashes = 0;
    for (const wchar_t ch : argument)
    {
        // Backslashes count only in front of a quote.
        if (ch == L'"')
        {
            quoted.append(nBackslashes + 1, L'\\');
        }
        nBackslashes = ch == L'\\' ? nBackslashes + 1 : 0;
        quoted += ch;
    }
    quoted.append(nBackslashes, L'\\');
    return quoted + L'"';
}
} // namespace

std::wstring MakeCommandLine(const std::wstring& program, std::span<const std::wstring> arguments)
{
    std::wstring line = L'"' + program + L'"';
    for (const std::wstring& argument : arguments)
    {
        line += L' ' + QuotedArgument(argument);
    }
    return line;
}

std::optional<unsigned int> CPrograms::Start(const std::wstring& program,
                                             std::span<const std::wstring> arguments)
{
    std::wstring line = MakeCommandLine(program, arguments);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
    {
        return std::nullopt;
    }
    const CKernelHandle hThread(process.hThread);
    m_programs.emplace_back(process.hProcess);
    return Count();
}

PROGRAM_RESULT CPrograms::WaitForEnd(unsigned int uProgram, DWORD dwMilliseconds, HANDLE hInterrupt,
                                     DWORD& dwExitCode) const
{
    const HANDLE ahWait[] = {m_programs.at(uProgram - 1).get(), hInterrupt};
    const DWORD dwWait =
        WaitForMultipleObjects(static_cast<DWORD>(std::size(ahWait)), ahWait, FALSE, dwMilliseconds);
    if (dwWait == WAIT_TIMEOUT)
    {
        return PROGRAM_RESULT::StillRuns;
    }
    if (dwWait != WAIT_OBJECT_0 || !GetExitCodeProcess(ahWait[0], &dwExitCode))
    {
        return PROGRAM_RESULT::Interrupted;
    }
    return PROGRAM_RESULT::Ended;
}

unsigned int CPrograms::EndAll()
{
    unsigned int uEnded = 0;
    for (const CKernelHandle& hProcess : m_programs)
    {
        if (WaitForSingleObject(hProcess.get(), 0) == WAIT_OBJECT_0 ||
            !TerminateProcess(hProcess.get(), FORCED_EXIT_CODE))
        {
            continue;
        }
        WaitForSingleObject(hProcess.get(), END_TIMEOUT_MS);
        ++uEnded;
    }
    m_programs.clear();
    return uEnded;
}

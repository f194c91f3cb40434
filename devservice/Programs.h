#pragma once

#include "Include/Handles.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

enum class PROGRAM_RESULT
{
    Ended,
    StillRuns,
    Interrupted,
};

/// The programs that a script has started, numbered from 1 on. Those that still run at the end are ended by
/// force. One thread.
class CPrograms
{
  public:
    ~CPrograms() { EndAll(); }

    /// Starts a program, found by its path alone. Result: its number; empty leaves the reason as the last
    /// error.
    std::optional<unsigned int> Start(const std::wstring& program, std::span<const std::wstring> arguments);

    /// The programs that were started since EndAll.
    unsigned int Count() const { return static_cast<unsigned int>(m_programs.size()); }

    /// Waits so long for the program's end, or until the event is set; dwExitCode is set only when it has
    /// ended.
    PROGRAM_RESULT WaitForEnd(unsigned int uProgram, DWORD dwMilliseconds, HANDLE hInterrupt,
                              DWORD& dwExitCode) const;

    /// Ends by force whatever still runs; the number of programs it hit.
    unsigned int EndAll();

  private:
    std::vector<CKernelHandle> m_programs;
};

/// A command line of these words: quoted where a word is empty or holds blanks or quotes. Any thread.
std::wstring MakeCommandLine(const std::wstring& program, std::span<const std::wstring> arguments);

#pragma once

#include <winsock2.h>
#include <windows.h>

#include <optional>
#include <string>

/// Reads lines from a console, a pipe or a file (UTF-8). One thread.
class CLineReader
{
  public:
    /// The handle stays the caller's, and open as long as the object lives.
    explicit CLineReader(HANDLE hInput);

    /// Whether a person types there.
    bool IsConsole() const { return m_bConsole; }

    /// The next line without its end; empty at the end of the input or when the wait was cancelled.
    std::optional<std::wstring> ReadLine();

  private:
    bool ReadMore();

    const HANDLE m_hInput;
    bool m_bConsole = false;
    std::string m_bytes; // UTF-8 that has been read and not given out
};

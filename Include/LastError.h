#pragma once

#include <winsock2.h>
#include <windows.h>

/// Puts the thread's last error back at the end of the scope. Tidying up and logging must not change the
/// answer that the caller is about to read. Any thread.
class CKeepLastError
{
  public:
    CKeepLastError() noexcept = default;
    ~CKeepLastError() { SetLastError(m_dwError); }
    CKeepLastError(const CKeepLastError&) = delete;
    CKeepLastError& operator=(const CKeepLastError&) = delete;

  private:
    const DWORD m_dwError = GetLastError();
};

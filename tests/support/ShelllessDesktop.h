#pragma once

#include <string>

#include <winsock2.h>
#include <windows.h>

/// A desktop on which no shell comes up by itself. It needs a window station of its own, as the test system
/// starts its shell on every desktop of the visible one. One object at a time.
class ShelllessDesktop
{
  public:
    ShelllessDesktop();
    ~ShelllessDesktop();
    ShelllessDesktop(const ShelllessDesktop&) = delete;
    ShelllessDesktop& operator=(const ShelllessDesktop&) = delete;

    bool IsThere() const { return m_hDesktop != nullptr; }
    /// Station and desktop, as a program is started there.
    static std::wstring Name();
    /// Takes the calling thread there for the rest of its life. It must not own windows yet, and no other
    /// thread may look for its first desktop meanwhile.
    bool TakeThread() const;

  private:
    HWINSTA m_hStation;
    HDESK m_hDesktop = nullptr;
};

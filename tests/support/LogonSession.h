#pragma once

#include "Include/Handles.h"

#include <string>
#include <vector>

/// A logon session beside the test's own, there as long as the object. A program that is taken into it has
/// the session's number and its names of kernel objects; the window station is the one of the test's session.
/// The test system starts every program in the same session, so the number is written where programs of that
/// system look it up, and the folder of names is made by hand.
class LogonSession
{
  public:
    explicit LogonSession(DWORD dwId);

    bool IsThere() const { return m_bThere; }
    DWORD Id() const { return m_dwId; }
    /// Moves a program that hasn't begun to run.
    bool Take(HANDLE hProcess) const;

  private:
    DWORD m_dwId;
    std::vector<CKernelHandle> m_names; // the session's folders and links go with their last handle
    bool m_bThere;

    bool MakeNames();
    bool AddFolder(const std::wstring& name);
    bool AddLink(const std::wstring& name, const std::wstring& target);
};

#pragma once

#include <winsock2.h>
#include <windows.h>

#include <optional>
#include <string>
#include <vector>

/// Who takes part in a conversation, as far as the chat window can know: it hears only of those who come, go
/// or speak while it is open. Names must be clean. One thread at a time.
class CChatPeople
{
  public:
    /// Somebody has connected; so many are connected now.
    void Add(const std::wstring& name, DWORD dwCount);

    /// Somebody has left; so many are connected now.
    void Remove(const std::wstring& name, DWORD dwCount);

    /// Somebody has said something, and so is connected, even if nobody has told.
    void Heard(const std::wstring& name);

    /// True when it is known that nobody is connected.
    bool IsNobody() const { return m_dwCount == 0U; }

    /// "Alice, Bob", with " +2" where more are connected than are known by name; empty when nobody is known.
    std::wstring Names() const;

  private:
    void SetCount(DWORD dwCount);

    std::vector<std::wstring> m_names; // a name for each session, so that one can be there twice
    std::optional<DWORD> m_dwCount;    // until it has been told
};

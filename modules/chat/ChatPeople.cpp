#include "modules/chat/ChatPeople.h"

#include "modules/chat/ChatText.h"

#include <algorithm>

namespace
{
constexpr size_t MAX_PEOPLE = 100; // known by name; a head line has room for a few
} // namespace

void CChatPeople::Add(const std::wstring& name, DWORD dwCount)
{
    if (m_names.size() < MAX_PEOPLE)
    {
        m_names.push_back(name);
    }
    SetCount(dwCount);
}

void CChatPeople::Remove(const std::wstring& name, DWORD dwCount)
{
    if (const auto it = std::find(m_names.begin(), m_names.end(), name); it != m_names.end())
    {
        m_names.erase(it);
    }
    SetCount(dwCount);
}

void CChatPeople::Heard(const std::wstring& name)
{
    const bool bRoom = m_names.size() < std::min<size_t>(m_dwCount.value_or(MAX_PEOPLE), MAX_PEOPLE);
    if (bRoom && std::find(m_names.begin(), m_names.end(), name) == m_names.end())
    {
        m_names.push_back(name);
    }
}

// The count is the service's own; a name beyond it belongs to somebody who left unheard.
void CChatPeople::SetCount(DWORD dwCount)
{
    m_dwCount = dwCount;
    if (m_names.size() > dwCount)
    {
        m_names.erase(m_names.begin(), m_names.end() - static_cast<ptrdiff_t>(dwCount));
    }
}

std::wstring CChatPeople::Names() const
{
    std::wstring names;
    for (auto it = m_names.begin(); it != m_names.end(); ++it)
    {
        if (std::find(m_names.begin(), it, *it) == it)
        {
            names.append(names.empty() ? L"" : L", ").append(IsolateText(*it));
        }
    }
    const size_t nUnknown = m_dwCount.value_or(0) - std::min<size_t>(m_names.size(), m_dwCount.value_or(0));
    if (nUnknown != 0 && !names.empty())
    {
        names.append(L" +").append(std::to_wstring(nUnknown));
    }
    return names;
}

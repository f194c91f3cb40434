#include "modules/chat/ChatHistory.h"

#include "modules/chat/ChatText.h"

#include <algorithm>

namespace
{
constexpr size_t LINE_END_LENGTH = std::size(CHAT_LINE_END) - 1;
} // namespace

// What the person sees of the control.
struct CChatHistory::VIEW
{
    DWORD dwSelectionBegin;
    DWORD dwSelectionEnd;
    bool bCaretAtEnd; // nothing is selected, and the caret goes along
    LONG nFirstLine;
    bool bAtEnd;
};

void CChatHistory::Append(const std::wstring& line)
{
    VIEW view = TakeView();
    SendMessageW(m_hEdit, WM_SETREDRAW, FALSE, 0);
    if (m_cchText + line.size() + LINE_END_LENGTH > MAX_HISTORY)
    {
        view.nFirstLine = std::max(view.nFirstLine - DropOldest(view), 0L);
    }
    Insert(line);
    RestoreView(view);
    SendMessageW(m_hEdit, WM_SETREDRAW, TRUE, 0);
    InvalidateRect(m_hEdit, nullptr, TRUE);
}

bool CChatHistory::IsAtEnd() const
{
    return Ask(EM_GETFIRSTVISIBLELINE) + VisibleLines() >= Ask(EM_GETLINECOUNT);
}

void CChatHistory::ScrollToEnd() const
{
    const LRESULT nFirst = std::max<LRESULT>(Ask(EM_GETLINECOUNT) - VisibleLines(), 0);
    Ask(EM_LINESCROLL, 0, nFirst - Ask(EM_GETFIRSTVISIBLELINE));
}

CChatHistory::VIEW CChatHistory::TakeView() const
{
    VIEW view = {};
    Ask(EM_GETSEL, reinterpret_cast<WPARAM>(&view.dwSelectionBegin),
        reinterpret_cast<LPARAM>(&view.dwSelectionEnd));
    view.bCaretAtEnd = view.dwSelectionBegin == m_cchText;
    view.nFirstLine = static_cast<LONG>(Ask(EM_GETFIRSTVISIBLELINE));
    view.bAtEnd = IsAtEnd();
    return view;
}

void CChatHistory::RestoreView(const VIEW& view) const
{
    if (!view.bCaretAtEnd)
    {
        Ask(EM_SETSEL, view.dwSelectionBegin, view.dwSelectionEnd);
    }
    if (view.bAtEnd)
    {
        ScrollToEnd();
    }
    else
    {
        Ask(EM_LINESCROLL, 0, view.nFirstLine - Ask(EM_GETFIRSTVISIBLELINE));
    }
}

// Result: by how many lines, as they are shown, the rest moves up.
LONG CChatHistory::DropOldest(VIEW& view)
{
    size_t cchDropped = 0;
    while (!m_lines.empty() && cchDropped < MAX_HISTORY / 4)
    {
        cchDropped += m_lines.front();
        m_lines.pop_front();
    }
    const LRESULT nLinesBefore = Ask(EM_GETLINECOUNT);
    Ask(EM_SETSEL, 0, static_cast<LPARAM>(cchDropped));
    Ask(EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(L""));
    m_cchText -= cchDropped;
    const auto moveUp = [cchDropped](DWORD dwPlace) {
        return dwPlace - std::min(dwPlace, static_cast<DWORD>(cchDropped));
    };
    view.dwSelectionBegin = moveUp(view.dwSelectionBegin);
    view.dwSelectionEnd = moveUp(view.dwSelectionEnd);
    return static_cast<LONG>(nLinesBefore - Ask(EM_GETLINECOUNT));
}

void CChatHistory::Insert(const std::wstring& line)
{
    const std::wstring text = line + CHAT_LINE_END;
    Ask(EM_SETSEL, m_cchText, static_cast<LPARAM>(m_cchText));
    Ask(EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(text.c_str()));
    m_lines.push_back(text.size());
    m_cchText += text.size();
}

LRESULT CChatHistory::Ask(UINT uMessage, WPARAM wParam, LPARAM lParam) const
{
    return SendMessageW(m_hEdit, uMessage, wParam, lParam);
}

LONG CChatHistory::VisibleLines() const
{
    RECT room = {};
    Ask(EM_GETRECT, 0, reinterpret_cast<LPARAM>(&room));
    return std::max((room.bottom - room.top) / m_nLineHeight, 1L);
}

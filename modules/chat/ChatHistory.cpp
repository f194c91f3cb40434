#include "modules/chat/ChatHistory.h"

#include "modules/chat/ChatText.h"

#include <algorithm>
#include <utility>

namespace
{
constexpr size_t LINE_END_LENGTH = std::size(CHAT_LINE_END) - 1;

// Whoever asks for the text or works on it must have all of it.
bool IsReading(UINT uMessage)
{
    return uMessage == WM_GETTEXT || uMessage == WM_GETTEXTLENGTH || uMessage == WM_COPY ||
           (uMessage >= EM_GETSEL && uMessage <= EM_GETIMESTATUS);
}
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
    m_waiting += line + CHAT_LINE_END;
    m_lines.push_back(line.size() + LINE_END_LENGTH);
    const ULONGLONG ullElapsed = GetTickCount64() - m_ullFlushed;
    if (ullElapsed >= FLUSH_PERIOD || m_waiting.size() > MAX_WAITING)
    {
        Flush();
    }
    else
    {
        SetTimer(m_hEdit, TIMER_FLUSH, static_cast<UINT>(FLUSH_PERIOD - ullElapsed), nullptr);
    }
}

bool CChatHistory::OnMessage(UINT uMessage, WPARAM wParam)
{
    const bool bOwnTimer = uMessage == WM_TIMER && wParam == TIMER_FLUSH;
    if (bOwnTimer || IsReading(uMessage))
    {
        Flush();
    }
    return bOwnTimer;
}

void CChatHistory::Flush()
{
    // Its own questions to the control come back to OnMessage.
    const std::wstring text = std::exchange(m_waiting, std::wstring());
    if (text.empty())
    {
        return;
    }
    KillTimer(m_hEdit, TIMER_FLUSH);
    VIEW view = TakeView();
    SendMessageW(m_hEdit, WM_SETREDRAW, FALSE, 0);
    if (m_cchText + text.size() > MAX_HISTORY)
    {
        view.nFirstLine = std::max(view.nFirstLine - DropOldest(view), 0L);
    }
    Insert(text);
    RestoreView(view);
    SendMessageW(m_hEdit, WM_SETREDRAW, TRUE, 0);
    InvalidateRect(m_hEdit, nullptr, TRUE);
    m_ullFlushed = GetTickCount64();
}

bool CChatHistory::IsAtEnd() const
{
    return Ask(EM_GETFIRSTVISIBLELINE) + VisibleLines() >= Ask(EM_GETLINECOUNT);
}

void CChatHistory::ScrollToEnd()
{
    Flush();
    ShowEnd();
}

void CChatHistory::ShowEnd() const
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
        ShowEnd();
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
    while (cchDropped < MAX_HISTORY / 4 && cchDropped < m_cchText) // those that wait are the newest
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

void CChatHistory::Insert(const std::wstring& text)
{
    Ask(EM_SETSEL, m_cchText, static_cast<LPARAM>(m_cchText));
    Ask(EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(text.c_str()));
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

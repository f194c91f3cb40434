#include "modules/chat/ChatWindow.h"

#include "Include/Placeholders.h"
#include "modules/chat/ChatResource.h"
#include "modules/chat/ChatText.h"
#include "modules/common/ModuleDpi.h"
#include "modules/common/ModuleLanguage.h"
#include "tray/TrayWindowMessages.h"

#include <commctrl.h>
#include <lmcons.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <vector>

namespace
{
constexpr wchar_t CHAT_WINDOW_CLASS[] = L"Tessaran KDA Chat Window Class";

constexpr DWORD WINDOW_STYLE = WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN;
// A taskbar button of its own, although it has an owner; its controls can be walked through.
constexpr DWORD WINDOW_EX_STYLE = WS_EX_APPWINDOW | WS_EX_CONTROLPARENT;

constexpr DWORD LABEL_STYLE = SS_LEFT | SS_ENDELLIPSIS;
constexpr DWORD EDIT_STYLE = ES_MULTILINE | ES_AUTOVSCROLL | WS_VSCROLL | WS_TABSTOP;

// At 96 dots per inch.
constexpr int START_WIDTH = 440;
constexpr int START_HEIGHT = 420;
constexpr int SCREEN_GAP = 12;
constexpr int TEXT_MARGIN = 4; // inside the edit controls

constexpr WPARAM NO_HISTORY_LIMIT = 0x7FFFFFFE; // the largest that an edit control takes
constexpr LPARAM ONE_KEY_STROKE = 1;
constexpr size_t MAX_TIME = 80; // characters, terminator included

std::unique_ptr<CChatWindow> g_pOpenWindow;

std::wstring TimeNow()
{
    wchar_t szTime[MAX_TIME] = {};
    GetTimeFormatEx(LOCALE_NAME_USER_DEFAULT, TIME_NOSECONDS, nullptr, nullptr, szTime,
                    static_cast<int>(std::size(szTime)));
    return szTime;
}

std::wstring DesktopUser()
{
    wchar_t szUser[UNLEN + 1] = {};
    DWORD cchUser = static_cast<DWORD>(std::size(szUser));
    return GetUserNameW(szUser, &cchUser) ? szUser : L"";
}

std::wstring WindowText(HWND hWnd)
{
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(hWnd)) + 1, L'\0');
    text.resize(static_cast<size_t>(GetWindowTextW(hWnd, text.data(), static_cast<int>(text.size()))));
    return text;
}

SIZE TextSize(HDC hDC, const std::wstring& text)
{
    RECT rect = {};
    DrawTextW(hDC, text.c_str(), static_cast<int>(text.size()), &rect, DT_CALCRECT | DT_SINGLELINE);
    return {rect.right, rect.bottom};
}

void Move(HWND hControl, const RECT& rect)
{
    MoveWindow(hControl, rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top, TRUE);
}

RECT TrayWorkArea()
{
    RECT workArea = {};
    SystemParametersInfoW(SPI_GETWORKAREA, 0, &workArea, 0);
    return workArea;
}
} // namespace

CChatWindow::CChatWindow(HMODULE hModule, HWND hOwner)
    : m_hModule(hModule), m_hOwner(hOwner), m_language(CurrentModuleLanguage()), m_userName(DesktopUser())
{
}

HWND CChatWindow::Open(HMODULE hModule, HWND hOwner)
{
    if (g_pOpenWindow)
    {
        return g_pOpenWindow->m_hWnd;
    }
    if (!IsWindow(hOwner))
    {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    WNDCLASSEXW windowClass = {};
    windowClass.cbSize = sizeof(windowClass);
    windowClass.lpfnWndProc = &WndProc;
    windowClass.hInstance = hModule;
    windowClass.hIcon = LoadIconW(hModule, MAKEINTRESOURCEW(IDI_CHAT));
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1); // that of now
    windowClass.lpszClassName = CHAT_WINDOW_CLASS;
    RegisterClassExW(&windowClass); // fails where an earlier window has done it

    g_pOpenWindow.reset(new CChatWindow(hModule, hOwner));
    const HWND hWnd = CreateWindowExW(
        WINDOW_EX_STYLE, CHAT_WINDOW_CLASS, g_pOpenWindow->Text(IDS_CHAT_TITLE).c_str(), WINDOW_STYLE,
        CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, hOwner, nullptr, hModule, nullptr);
    if (hWnd == nullptr)
    {
        g_pOpenWindow.reset();
        return nullptr;
    }
    g_pOpenWindow->Place();
    return hWnd;
}

CChatWindow* CChatWindow::Find(HWND hWnd)
{
    return g_pOpenWindow && hWnd != nullptr && g_pOpenWindow->m_hWnd == hWnd ? g_pOpenWindow.get() : nullptr;
}

void CChatWindow::CloseOpen()
{
    if (g_pOpenWindow)
    {
        DestroyWindow(g_pOpenWindow->m_hWnd);
    }
}

void CChatWindow::Unregister(HMODULE hModule)
{
    UnregisterClassW(CHAT_WINDOW_CLASS, hModule);
}

// There is only one window, and its first message comes from within its creation.
LRESULT CALLBACK CChatWindow::WndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    if (!g_pOpenWindow)
    {
        return DefWindowProcW(hWnd, uMessage, wParam, lParam);
    }
    g_pOpenWindow->m_hWnd = hWnd;
    if (uMessage == WM_NCDESTROY)
    {
        g_pOpenWindow.reset();
        return DefWindowProcW(hWnd, uMessage, wParam, lParam);
    }
    return g_pOpenWindow->Handle(uMessage, wParam, lParam);
}

LRESULT CChatWindow::Handle(UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    switch (uMessage)
    {
    case WM_CREATE:
        return OnCreate() ? 0 : -1;
    case WM_SIZE:
        OnSize();
        return 0;
    case WM_GETMINMAXINFO:
        OnGetMinMaxInfo(*reinterpret_cast<MINMAXINFO*>(lParam));
        return 0;
    case WM_ACTIVATE:
        OnActivate(LOWORD(wParam) != WA_INACTIVE);
        return 0;
    case WM_SETFOCUS:
        OnSetFocus();
        return 0;
    case WM_COMMAND:
        OnCommand(LOWORD(wParam), HIWORD(wParam));
        return 0;
    case WM_CTLCOLORSTATIC:
        return OnColorStatic(reinterpret_cast<HDC>(wParam), reinterpret_cast<HWND>(lParam), wParam, lParam);
    case WM_DPICHANGED:
        OnDpiChanged(HIWORD(wParam), *reinterpret_cast<const RECT*>(lParam));
        return 0;
    case WM_SETTINGCHANGE:
    case WM_SYSCOLORCHANGE:
        OnLookChanged();
        return 0;
    case WM_CHAT_USER_CONNECTED:
    case WM_CHAT_USER_DISCONNECTED:
        OnNotice(reinterpret_cast<const CHAT_CONNECT_NOTICE*>(wParam));
        return 0;
    case WM_DESTROY:
        OnDestroy();
        return 0;
    default:
        return DefWindowProcW(m_hWnd, uMessage, wParam, lParam);
    }
}

bool CChatWindow::OnCreate()
{
    m_uDpi = WindowDpi(m_hWnd);
    if (!MakeControls())
    {
        return false;
    }
    m_history.Attach(m_hHistory);
    m_hFocus = m_hInput;
    TakeFont();
    ShowPeople();
    FollowInput();
    return true;
}

// The order is that of the Tab key. A label stands before what it names, which is where a screen reader looks
// for the name.
bool CChatWindow::MakeControls()
{
    m_hLabel = MakeControl(WC_STATICW, Text(IDS_CHAT_MESSAGE), LABEL_STYLE, 0, IDC_CHAT_LABEL);
    m_hInput = MakeControl(WC_EDITW, L"", EDIT_STYLE | ES_WANTRETURN, WS_EX_CLIENTEDGE, IDC_CHAT_INPUT);
    m_hSend = MakeControl(WC_BUTTONW, Text(IDS_CHAT_SEND), BS_PUSHBUTTON | WS_TABSTOP, 0, IDC_CHAT_SEND);
    m_hPeople = MakeControl(WC_STATICW, L"", LABEL_STYLE | SS_NOPREFIX, 0, IDC_CHAT_PEOPLE);
    m_hHistory = MakeControl(WC_EDITW, L"", EDIT_STYLE | ES_READONLY, WS_EX_CLIENTEDGE, IDC_CHAT_HISTORY);
    if (!m_hLabel || !m_hInput || !m_hSend || !m_hPeople || !m_hHistory)
    {
        return false;
    }
    TakeControl(m_hInput, ChatPart::Input);
    TakeControl(m_hSend, ChatPart::Send);
    TakeControl(m_hHistory, ChatPart::History);
    SendMessageW(m_hInput, EM_LIMITTEXT, MAX_CHAT_TEXT, 0);
    SendMessageW(m_hHistory, EM_LIMITTEXT, NO_HISTORY_LIMIT, 0);
    return true;
}

HWND CChatWindow::MakeControl(const wchar_t* pszClass, const std::wstring& text, DWORD dwStyle,
                              DWORD dwExStyle, int nControl)
{
    return CreateWindowExW(dwExStyle, pszClass, text.c_str(), dwStyle | WS_CHILD | WS_VISIBLE, 0, 0, 0, 0,
                           m_hWnd, reinterpret_cast<HMENU>(static_cast<INT_PTR>(nControl)), m_hModule,
                           nullptr);
}

void CChatWindow::TakeControl(HWND hControl, ChatPart part)
{
    SetWindowSubclass(hControl, &ControlProc, static_cast<UINT_PTR>(part), reinterpret_cast<DWORD_PTR>(this));
}

// The old font must live until no control uses it any more.
void CChatWindow::TakeFont()
{
    CGdiObject hFont = MakeMessageFont(m_uDpi);
    const LPARAM margins = MAKELPARAM(ScaleForDpi(TEXT_MARGIN, m_uDpi), ScaleForDpi(TEXT_MARGIN, m_uDpi));
    for (const HWND hControl : {m_hLabel, m_hInput, m_hSend, m_hPeople, m_hHistory})
    {
        SendMessageW(hControl, WM_SETFONT, reinterpret_cast<WPARAM>(hFont.get()), TRUE);
    }
    for (const HWND hEdit : {m_hInput, m_hHistory})
    {
        SendMessageW(hEdit, EM_SETMARGINS, EC_LEFTMARGIN | EC_RIGHTMARGIN, margins);
    }
    const HDC hDC = GetDC(m_hWnd);
    const HGDIOBJ hPrevious = SelectObject(hDC, hFont ? hFont.get() : GetStockObject(SYSTEM_FONT));
    const SIZE label = TextSize(hDC, Text(IDS_CHAT_MESSAGE));
    const SIZE send = TextSize(hDC, Text(IDS_CHAT_SEND));
    SelectObject(hDC, hPrevious);
    ReleaseDC(m_hWnd, hDC);
    m_metrics = ScaleChatMetrics(m_uDpi, label.cy, label.cx, send.cx);
    m_history.SetLineHeight(label.cy);
    m_hFont = std::move(hFont);
}

void CChatWindow::Place()
{
    const SIZE start = WindowSizeAround({ScaleForDpi(START_WIDTH, m_uDpi), ScaleForDpi(START_HEIGHT, m_uDpi)},
                                        WINDOW_STYLE, WINDOW_EX_STYLE, m_uDpi);
    const RECT place = PlaceChatWindow(TrayWorkArea(), start, ScaleForDpi(SCREEN_GAP, m_uDpi));
    SetWindowPos(m_hWnd, nullptr, place.left, place.top, place.right - place.left, place.bottom - place.top,
                 SWP_NOACTIVATE | SWP_NOZORDER);
    SetWindowPos(m_hWnd, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | SWP_SHOWWINDOW);
}

void CChatWindow::OnSize()
{
    const bool bFollow = m_history.IsAtEnd();
    Arrange();
    if (bFollow)
    {
        m_history.ScrollToEnd();
    }
}

void CChatWindow::Arrange()
{
    RECT client = {};
    GetClientRect(m_hWnd, &client);
    const CHAT_LAYOUT layout = LayOutChat({client.right, client.bottom}, m_metrics);
    Move(m_hPeople, layout.people);
    Move(m_hHistory, layout.history);
    Move(m_hLabel, layout.label);
    Move(m_hInput, layout.input);
    Move(m_hSend, layout.send);
}

SIZE CChatWindow::SmallestWindow() const
{
    return WindowSizeAround(SmallestChatClient(m_metrics), WINDOW_STYLE, WINDOW_EX_STYLE, m_uDpi);
}

void CChatWindow::OnGetMinMaxInfo(MINMAXINFO& info) const
{
    const SIZE smallest = SmallestWindow();
    info.ptMinTrackSize = {smallest.cx, smallest.cy};
}

// The keyboard comes back to where it was.
void CChatWindow::OnActivate(bool bActive)
{
    if (bActive)
    {
        OnSetFocus();
    }
    else if (const HWND hFocus = GetFocus(); IsChild(m_hWnd, hFocus))
    {
        m_hFocus = hFocus;
    }
}

void CChatWindow::OnSetFocus() const
{
    if (!IsIconic(m_hWnd))
    {
        SetFocus(IsWindowEnabled(m_hFocus) ? m_hFocus : m_hInput);
    }
}

void CChatWindow::OnCommand(int nControl, int nCode)
{
    if (nControl == IDC_CHAT_SEND && nCode == BN_CLICKED)
    {
        Send();
    }
    else if (nControl == IDC_CHAT_INPUT && nCode == EN_CHANGE)
    {
        FollowInput();
    }
}

void CChatWindow::FollowInput() const
{
    EnableWindow(m_hSend, IsWorthSending(WindowText(m_hInput)) ? TRUE : FALSE);
}

// A read-only edit control would look like a label.
LRESULT CChatWindow::OnColorStatic(HDC hDC, HWND hControl, WPARAM wParam, LPARAM lParam) const
{
    if (hControl != m_hHistory)
    {
        return DefWindowProcW(m_hWnd, WM_CTLCOLORSTATIC, wParam, lParam);
    }
    SetTextColor(hDC, GetSysColor(COLOR_WINDOWTEXT));
    SetBkColor(hDC, GetSysColor(COLOR_WINDOW));
    return reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_WINDOW));
}

void CChatWindow::OnDpiChanged(UINT uDpi, const RECT& suggested)
{
    m_uDpi = uDpi;
    const bool bFollow = m_history.IsAtEnd();
    TakeFont();
    SetWindowPos(m_hWnd, nullptr, suggested.left, suggested.top, suggested.right - suggested.left,
                 suggested.bottom - suggested.top, SWP_NOZORDER | SWP_NOACTIVATE);
    Arrange(); // where the size has stayed, too
    if (bFollow)
    {
        m_history.ScrollToEnd();
    }
}

void CChatWindow::OnLookChanged()
{
    TakeFont();
    Arrange();
    InvalidateRect(m_hWnd, nullptr, TRUE);
}

void CChatWindow::OnNotice(const CHAT_CONNECT_NOTICE* pNotice)
{
    if (pNotice == nullptr)
    {
        return;
    }
    const bool bConnected = pNotice->bConnected != 0;
    std::wstring name =
        CleanChatName(NameOfNotice(FixedText(pNotice->szNotice), bConnected, std::size(pNotice->szNotice)));
    if (name.empty())
    {
        name = Text(IDS_CHAT_SOMEBODY);
    }
    if (bConnected)
    {
        m_people.Add(name, pNotice->dwConnectCount);
    }
    else
    {
        m_people.Remove(name, pNotice->dwConnectCount);
    }
    ShowPeople();
    m_history.Append(ComposeNoticeLine(
        TimeNow(), FillPlaceholders(Text(bConnected ? IDS_CHAT_CONNECTED : IDS_CHAT_DISCONNECTED),
                                    {IsolateText(name)})));
}

void CChatWindow::ShowPeople()
{
    const std::wstring names = m_people.Names();
    std::wstring text = Text(m_people.IsNobody() ? IDS_CHAT_NOBODY : IDS_CHAT_CONVERSATION);
    if (!names.empty())
    {
        text = FillPlaceholders(Text(IDS_CHAT_CONVERSATION_WITH), {names});
    }
    if (text != WindowText(m_hPeople))
    {
        SetWindowTextW(m_hPeople, text.c_str());
    }
}

void CChatWindow::OnDestroy() const
{
    if (IsWindow(m_hOwner))
    {
        SendMessageW(m_hOwner, WM_CHAT_WINDOW_GONE, 0, 0);
    }
}

void CChatWindow::ShowMessage(const MSG_CHAT_MESSAGE& message)
{
    std::wstring name = CleanChatName(ChatSender(message));
    if (name.empty())
    {
        name = Text(IDS_CHAT_SOMEBODY);
    }
    else
    {
        m_people.Heard(name);
        ShowPeople();
    }
    // A line end may be two characters that become one, so more may be needed than is shown.
    AppendMessage(name, ReadChatText(message, 2 * MAX_CHAT_TEXT));
    DrawAttention();
}

void CChatWindow::AppendMessage(const std::wstring& name, std::wstring_view text)
{
    m_history.Append(ComposeChatLine(TimeNow(), name, CleanChatText(text)));
}

void CChatWindow::DrawAttention() const
{
    if (GetForegroundWindow() == m_hWnd)
    {
        return;
    }
    FLASHWINFO flash = {};
    flash.cbSize = sizeof(flash);
    flash.hwnd = m_hWnd;
    flash.dwFlags = FLASHW_TRAY | FLASHW_TIMERNOFG;
    FlashWindowEx(&flash);
}

void CChatWindow::Send()
{
    const std::wstring text = WindowText(m_hInput);
    if (!IsWorthSending(text))
    {
        return;
    }
    const HWND hWnd = m_hWnd;
    const std::vector<char> record = MakeChatRecord(m_userName, text);
    SendMessageW(m_hOwner, WM_RC_CHAT_MESSAGE_SENT, reinterpret_cast<WPARAM>(record.data()),
                 static_cast<LPARAM>(record.size()));
    if (Find(hWnd) == nullptr)
    {
        return; // the owner has closed the window, and this object is gone
    }
    SetWindowTextW(m_hInput, L"");
    SetFocus(m_hInput); // the button is about to be disabled
    FollowInput();
    AppendMessage(CleanChatName(m_userName), text);
    m_history.ScrollToEnd();
}

LRESULT CALLBACK CChatWindow::ControlProc(HWND hControl, UINT uMessage, WPARAM wParam, LPARAM lParam,
                                          UINT_PTR uPart, DWORD_PTR pThis)
{
    CChatWindow* const pWindow = reinterpret_cast<CChatWindow*>(pThis);
    if (static_cast<ChatPart>(uPart) == ChatPart::History && pWindow->m_history.OnMessage(uMessage, wParam))
    {
        return 0;
    }
    switch (uMessage)
    {
    case WM_KEYDOWN:
        if (pWindow->OnKeyDown(static_cast<ChatPart>(uPart), wParam))
        {
            return 0;
        }
        break;
    case WM_CHAR:
        if (IsTakenCharacter(wParam))
        {
            return 0;
        }
        break;
    case WM_SYSCHAR:
        if (pWindow->OnAccessKey(static_cast<wchar_t>(wParam)))
        {
            return 0;
        }
        break;
    case WM_NCDESTROY:
        RemoveWindowSubclass(hControl, &ControlProc, uPart);
        break;
    default:
        break;
    }
    return DefSubclassProc(hControl, uMessage, wParam, lParam);
}

bool CChatWindow::OnKeyDown(ChatPart part, WPARAM wKey)
{
    switch (DecideChatKey(part, wKey, HeldModifiers()))
    {
    case ChatKey::Send:
        Send();
        return true;
    case ChatKey::NewLine:
        StartNewLine();
        return true;
    case ChatKey::Next:
        MoveFocus(false);
        return true;
    case ChatKey::Previous:
        MoveFocus(true);
        return true;
    case ChatKey::OtherPane:
        SwitchPane();
        return true;
    case ChatKey::SelectAll:
        SendMessageW(PartWindow(part), EM_SETSEL, 0, -1);
        return true;
    case ChatKey::Close:
        DestroyWindow(m_hWnd);
        return true;
    case ChatKey::None:
        return false;
    }
    return false;
}

// The control's own way, which respects its limit and can be undone.
void CChatWindow::StartNewLine() const
{
    DefSubclassProc(m_hInput, WM_CHAR, L'\r', ONE_KEY_STROKE);
}

void CChatWindow::MoveFocus(bool bBack) const
{
    SetFocus(GetNextDlgTabItem(m_hWnd, GetFocus(), bBack ? TRUE : FALSE));
}

void CChatWindow::SwitchPane() const
{
    SetFocus(GetFocus() == m_hHistory ? m_hInput : m_hHistory);
}

bool CChatWindow::OnAccessKey(wchar_t chKey)
{
    CharUpperBuffW(&chKey, 1);
    if (chKey == AccessKeyOf(Text(IDS_CHAT_MESSAGE)))
    {
        SetFocus(m_hInput);
        return true;
    }
    if (chKey == AccessKeyOf(Text(IDS_CHAT_SEND)))
    {
        Send();
        return true;
    }
    return false;
}

HWND CChatWindow::PartWindow(ChatPart part) const
{
    return part == ChatPart::History ? m_hHistory : part == ChatPart::Input ? m_hInput : m_hSend;
}

std::wstring CChatWindow::Text(UINT uString) const
{
    return LoadModuleText(m_hModule, uString, m_language);
}

#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"
#include "channel/NoticeMessages.h"
#include "modules/chat/ChatHistory.h"
#include "modules/chat/ChatKeys.h"
#include "modules/chat/ChatLayout.h"
#include "modules/chat/ChatPayload.h"
#include "modules/chat/ChatPeople.h"

#include <string>

/// The chat window: above who takes part and what was said, below what is being typed. One at a time; the
/// object lives exactly as long as the window. Main thread.
class CChatWindow
{
  public:
    /// Opens the window beside the tray, without taking the keyboard from whoever types elsewhere. The one
    /// that is open already is given as it is. Null with the last error when there is no such owner, or no
    /// window.
    static HWND Open(HMODULE hModule, HWND hOwner);

    /// The open window's object if that is its handle, else null.
    static CChatWindow* Find(HWND hWnd);

    /// Closes the open window, if there is one.
    static void CloseOpen();

    /// Ends the window class; there must be no window any more.
    static void Unregister(HMODULE hModule);

    /// Shows what somebody has written, and draws attention to it.
    void ShowMessage(const MSG_CHAT_MESSAGE& message);

    CChatWindow(const CChatWindow&) = delete;
    CChatWindow& operator=(const CChatWindow&) = delete;

  private:
    CChatWindow(HMODULE hModule, HWND hOwner);

    static LRESULT CALLBACK WndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK ControlProc(HWND hControl, UINT uMessage, WPARAM wParam, LPARAM lParam,
                                        UINT_PTR uPart, DWORD_PTR pThis);
    LRESULT Handle(UINT uMessage, WPARAM wParam, LPARAM lParam);

    // Window messages.
    bool OnCreate();
    void OnSize();
    void OnGetMinMaxInfo(MINMAXINFO& info) const;
    void OnActivate(bool bActive);
    void OnSetFocus() const;
    void OnCommand(int nControl, int nCode);
    LRESULT OnColorStatic(HDC hDC, HWND hControl, WPARAM wParam, LPARAM lParam) const;
    void OnDpiChanged(UINT uDpi, const RECT& suggested);
    void OnLookChanged();
    void OnNotice(const CHAT_CONNECT_NOTICE* pNotice);
    void OnDestroy() const;

    // Keys in the controls; true when they were the window's.
    bool OnKeyDown(ChatPart part, WPARAM wKey);
    bool OnAccessKey(wchar_t chKey);

    bool MakeControls();
    HWND MakeControl(const wchar_t* pszClass, const std::wstring& text, DWORD dwStyle, DWORD dwExStyle,
                     int nControl);
    void TakeControl(HWND hControl, ChatPart part);
    void TakeFont();
    void Place();
    void Arrange();
    void ShowPeople();
    void FollowInput() const;
    void Send();
    void StartNewLine() const;
    void MoveFocus(bool bBack) const;
    void SwitchPane() const;
    void AppendMessage(const std::wstring& name, std::wstring_view text);
    void DrawAttention() const;
    HWND PartWindow(ChatPart part) const;
    SIZE SmallestWindow() const;
    std::wstring Text(UINT uString) const;

    const HMODULE m_hModule;
    const HWND m_hOwner;
    const LANGID m_language;
    HWND m_hWnd = nullptr;
    HWND m_hPeople = nullptr;
    HWND m_hHistory = nullptr;
    HWND m_hLabel = nullptr;
    HWND m_hInput = nullptr;
    HWND m_hSend = nullptr;
    HWND m_hFocus = nullptr; // has the keyboard when the window has it
    UINT m_uDpi = USER_DEFAULT_SCREEN_DPI;
    CGdiObject m_hFont;
    CHAT_METRICS m_metrics = {};
    CChatHistory m_history;
    CChatPeople m_people;
    std::wstring m_userName;
};

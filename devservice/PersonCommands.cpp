// The commands that play the person at the desktop.

#include "devservice/Person.h"
#include "devservice/ScriptRunner.h"
#include "devservice/ValueText.h"
#include "tray/TKDASTWindow.h"

#include <commctrl.h>

#include <iterator>

namespace
{
constexpr DWORD WINDOW_TIMEOUT_MS = 20000;
constexpr std::wstring_view TEXT_OPTION = L"text";
constexpr std::wstring_view TIMES_OPTION = L"times";

// The agent that the person clicks on last: the icon of the newest one.
HWND FindTrayWindow()
{
    return FindWindowW(TRAY_WINDOW_CLASS, nullptr);
}

// One has to turn itself, where a button only tells its window.
bool IsCheckBox(HWND hControl)
{
    const LRESULT lKind = SendMessageW(hControl, WM_GETDLGCODE, 0, 0);
    return (lKind & DLGC_BUTTON) != 0 && (lKind & (DLGC_DEFPUSHBUTTON | DLGC_UNDEFPUSHBUTTON)) == 0;
}

// Text into a field, as if typed. A field of several lines tells its window only of what is really typed.
bool TypeInto(HWND hControl, const std::wstring& text)
{
    const LPARAM lText = reinterpret_cast<LPARAM>(text.c_str());
    wchar_t szClass[16] = {};
    GetClassNameW(hControl, szClass, static_cast<int>(std::size(szClass)));
    if (lstrcmpiW(szClass, WC_EDITW) != 0 || (GetWindowLongPtrW(hControl, GWL_STYLE) & ES_MULTILINE) == 0)
    {
        return SendMessageW(hControl, WM_SETTEXT, 0, lText) != 0;
    }
    SendMessageW(hControl, EM_SETSEL, 0, -1);
    SendMessageW(hControl, EM_REPLACESEL, TRUE, lText);
    return true;
}
} // namespace

bool CScriptRunner::PauseWhileWaiting(DWORD dwMilliseconds)
{
    return m_service.Pause(dwMilliseconds) != WAIT_RESULT::Interrupted;
}

bool CScriptRunner::Menu(WORDS words)
{
    DWORD dwMilliseconds = WINDOW_TIMEOUT_MS;
    if (!ReadMilliseconds(words, dwMilliseconds))
    {
        return false;
    }
    if (!OpenTrayMenu(FindTrayWindow(), dwMilliseconds,
                      [this](DWORD dwPause) { return PauseWhileWaiting(dwPause); }))
    {
        return Fail(L"no menu opened within " + std::to_wstring(dwMilliseconds) + L" ms");
    }
    return Keys(words);
}

bool CScriptRunner::Keys(WORDS words)
{
    for (const SCRIPT_WORD& word : words)
    {
        if (!IsOption(word, WITHIN_OPTION) && !PressKey(word.text))
        {
            return Fail(L"not a key: " + QuotedText(word.text, word.text.size()));
        }
    }
    return true;
}

bool CScriptRunner::Window(WORDS words)
{
    DWORD dwMilliseconds = WINDOW_TIMEOUT_MS;
    if (!ReadMilliseconds(words, dwMilliseconds))
    {
        return false;
    }
    const std::wstring& title = words[0].text;
    const SCRIPT_WORD* const pText = FindOption(words, TEXT_OPTION);
    const std::wstring_view text = pText != nullptr ? pText->Value() : std::wstring_view();
    const bool bThere = !IsWord(words, 1, L"gone");
    if (!WaitForShownWindow(
            title, bThere, dwMilliseconds, [this](DWORD dwPause) { return PauseWhileWaiting(dwPause); }, text,
            &m_hWindow))
    {
        return Fail(L"the window " + QuotedText(title, title.size()) +
                    (text.empty() ? std::wstring() : L" with " + QuotedText(text, text.size())) +
                    (bThere ? L" did not come" : L" stayed") + L" within " + std::to_wstring(dwMilliseconds) +
                    L" ms");
    }
    return true;
}

bool CScriptRunner::Press(WORDS words)
{
    DWORD dwControl = 0;
    if (!ReadNumber(words[0].text, dwControl))
    {
        return false;
    }
    if (!IsWindow(m_hWindow))
    {
        return Fail(L"there is no window to press it in");
    }
    const HWND hControl = GetDlgItem(m_hWindow, static_cast<int>(dwControl));
    const BOOL bPosted = IsCheckBox(hControl) ? PostMessageW(hControl, BM_CLICK, 0, 0)
                                              : PostMessageW(m_hWindow, WM_COMMAND, dwControl, 0);
    return bPosted || Fail(L"there is no window to press it in");
}

bool CScriptRunner::Timer(WORDS words)
{
    DWORD dwTimer = 0;
    std::optional<DWORD> times;
    const WORDS options = words.subspan(1);
    if (!ReadNumber(words[0].text, dwTimer) || !HasOnly(options, {TIMES_OPTION}) ||
        !ReadOption(options, TIMES_OPTION, times))
    {
        return false;
    }
    DWORD dwFired = 0;
    while (dwFired < times.value_or(1) && IsWindow(m_hWindow) &&
           PostMessageW(m_hWindow, WM_TIMER, dwTimer, 0))
    {
        ++dwFired;
    }
    // The window's own timer goes on: a countdown may have ended before it has been given all.
    return dwFired > 0 || Fail(L"there is no window that could have a timer");
}

bool CScriptRunner::Enter(WORDS words)
{
    DWORD dwControl = 0;
    if (!ReadNumber(words[0].text, dwControl))
    {
        return false;
    }
    const HWND hControl = GetDlgItem(m_hWindow, static_cast<int>(dwControl));
    return (hControl != nullptr && TypeInto(hControl, words[1].text)) ||
           Fail(L"there is no field " + words[0].text);
}

#include "devservice/Person.h"

#include "Include/Clipboard.h"
#include "tray/TKDASTWindow.h"

#include <shellapi.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>

namespace
{
constexpr DWORD LOOK_MS = 20;
constexpr DWORD ANSWER_TIMEOUT_MS = 1000;  // of a window that may hang
constexpr size_t MAX_TITLE = 512;          // characters
constexpr size_t MAX_CONTROL_TEXT = 16384; // characters
constexpr std::wstring_view MENU_CLASS = L"#32768";
constexpr std::wstring_view MENU_TITLE = L"menu";

struct WINDOW_SEARCH
{
    std::wstring_view title;
    std::wstring_view text;
    HWND hFound = nullptr;
};

// Looks at one control. A field's text is asked of the field itself, since it is another process's.
BOOL CALLBACK MatchControl(HWND hControl, LPARAM lParam)
{
    WINDOW_SEARCH& search = *reinterpret_cast<WINDOW_SEARCH*>(lParam);
    std::wstring text(MAX_CONTROL_TEXT, L'\0');
    DWORD_PTR dwLength = 0;
    SendMessageTimeoutW(hControl, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()),
                        SMTO_ABORTIFHUNG, ANSWER_TIMEOUT_MS, &dwLength);
    text.resize(std::min<size_t>(dwLength, text.size()));
    if (text.find(search.text) == std::wstring::npos)
    {
        return TRUE;
    }
    search.hFound = hControl;
    return FALSE;
}

bool HasControlWith(HWND hWnd, std::wstring_view text)
{
    WINDOW_SEARCH search = {{}, text};
    EnumChildWindows(hWnd, MatchControl, reinterpret_cast<LPARAM>(&search));
    return search.hFound != nullptr;
}

bool HasTitle(HWND hWnd, std::wstring_view title)
{
    wchar_t szClass[MAX_TITLE] = {};
    GetClassNameW(hWnd, szClass, static_cast<int>(std::size(szClass)));
    if (szClass == MENU_CLASS)
    {
        return title == MENU_TITLE;
    }
    wchar_t szTitle[MAX_TITLE] = {};
    GetWindowTextW(hWnd, szTitle, static_cast<int>(std::size(szTitle)));
    return std::wstring_view(szTitle).find(title) != std::wstring_view::npos;
}

BOOL CALLBACK MatchWindow(HWND hWnd, LPARAM lParam)
{
    WINDOW_SEARCH& search = *reinterpret_cast<WINDOW_SEARCH*>(lParam);
    DWORD dwProcessId = 0;
    GetWindowThreadProcessId(hWnd, &dwProcessId);
    if (dwProcessId != GetCurrentProcessId() && IsWindowVisible(hWnd) && HasTitle(hWnd, search.title) &&
        (search.text.empty() || HasControlWith(hWnd, search.text)))
    {
        search.hFound = hWnd;
    }
    return search.hFound == nullptr;
}

struct NAMED_KEY
{
    std::wstring_view name;
    BYTE bKey;
};
constexpr NAMED_KEY NAMED_KEYS[] = {
    {L"Escape", VK_ESCAPE}, {L"Enter", VK_RETURN}, {L"Tab", VK_TAB}, {L"Up", VK_UP}, {L"Down", VK_DOWN}};

std::optional<BYTE> KeyOf(std::wstring_view key)
{
    if (key.size() == 1 && key[0] >= L'A' && key[0] <= L'Z')
    {
        return static_cast<BYTE>(key[0]);
    }
    const auto named = std::find_if(std::begin(NAMED_KEYS), std::end(NAMED_KEYS),
                                    [key](const NAMED_KEY& row) { return row.name == key; });
    return named == std::end(NAMED_KEYS) ? std::nullopt : std::optional<BYTE>(named->bKey);
}

// To be asked before the clipboard is opened: whoever has it open keeps out the one who is about to copy.
bool HasBeenCopied(UINT uFormat)
{
    return IsClipboardFormatAvailable(uFormat) != FALSE;
}
} // namespace

HWND FindShownWindow(std::wstring_view title, std::wstring_view text)
{
    WINDOW_SEARCH search = {title, text};
    EnumWindows(MatchWindow, reinterpret_cast<LPARAM>(&search));
    return search.hFound;
}

bool WaitForShownWindow(std::wstring_view title, bool bThere, DWORD dwMilliseconds,
                        const PAUSE_FUNCTION& pause, std::wstring_view text, HWND* phFound)
{
    for (DWORD dwWaited = 0;; dwWaited += LOOK_MS)
    {
        const HWND hFound = FindShownWindow(title, text);
        if ((hFound != nullptr) == bThere)
        {
            if (phFound != nullptr)
            {
                *phFound = hFound;
            }
            return true;
        }
        if (dwWaited >= dwMilliseconds || !pause(LOOK_MS))
        {
            return false;
        }
    }
}

bool OpenTrayMenu(HWND hTrayWindow, DWORD dwMilliseconds, const PAUSE_FUNCTION& pause)
{
    return PostMessageW(hTrayWindow, WM_TRAY_NOTIFY, TRAY_ICON_ID, WM_RBUTTONUP) &&
           WaitForShownWindow(MENU_TITLE, true, dwMilliseconds, pause);
}

bool PressKey(std::wstring_view key)
{
    const std::optional<BYTE> pressed = KeyOf(key);
    if (!pressed)
    {
        return false;
    }
    keybd_event(*pressed, 0, 0, 0);
    keybd_event(*pressed, 0, KEYEVENTF_KEYUP, 0);
    return true;
}

std::wstring ClipboardText()
{
    if (!HasBeenCopied(CF_TEXT))
    {
        return std::wstring();
    }
    const CClipboard clipboard(nullptr);
    const HANDLE hText = clipboard ? GetClipboardData(CF_TEXT) : nullptr;
    const char* const pszText = hText != nullptr ? static_cast<const char*>(GlobalLock(hText)) : nullptr;
    if (pszText == nullptr)
    {
        return std::wstring();
    }
    std::wstring text(static_cast<size_t>(MultiByteToWideChar(CP_ACP, 0, pszText, -1, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_ACP, 0, pszText, -1, text.data(), static_cast<int>(text.size()));
    GlobalUnlock(hText);
    text.pop_back(); // the terminator
    return text;
}

std::wstring ClipboardFile()
{
    if (!HasBeenCopied(CF_HDROP))
    {
        return std::wstring();
    }
    const CClipboard clipboard(nullptr);
    const HANDLE hFiles = clipboard ? GetClipboardData(CF_HDROP) : nullptr;
    wchar_t szPath[MAX_PATH] = {};
    if (hFiles != nullptr)
    {
        DragQueryFileW(static_cast<HDROP>(hFiles), 0, szPath, MAX_PATH);
    }
    return szPath;
}

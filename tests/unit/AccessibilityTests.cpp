#include "certificates/CertificateRegistry.h"
#include "modules/chat/ChatResource.h"
#include "modules/settings/SettingsResource.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/gallery/Exhibits.h"
#include "tests/support/ChatModule.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/AccessibleControls.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/DialogMeasures.h"
#include "tests/unit/LateBinding.h"

#include <gtest/gtest.h>
#include <oleacc.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

/*
 * Every window that a person works with, in every language, by the keyboard alone and as screen readers get
 * it.
 */

namespace
{
constexpr UINT LOOK_PERIOD = 30; // milliseconds; longer than what an exhibit fills itself by
constexpr LPARAM ALT_IS_DOWN = 1 << 29;
constexpr int NOTHING = 0;
constexpr wchar_t CHAT[] = L"chat";

enum class Keys
{
    OfDialog, // a loop gives them to the dialog
    OfControl,
};

enum class Focus
{
    Taken,
    Left, // where it is: screen readers must be told of the window
};

enum class Escape
{
    Closes,
    Stays, // nothing is decided by it; Alt+F4 closes
};

struct WINDOW_ROW
{
    const wchar_t* pszExhibit;
    int nFocus; // where it is once the window is active and, in some exhibits, filled in
    int nEnter; // the button that Enter presses from anywhere
    Escape escape;
    Keys keys;
    Focus focus = Focus::Taken;
};

constexpr WINDOW_ROW WINDOWS[] = {
    {L"connected", NOTHING, NOTHING, Escape::Stays, Keys::OfControl, Focus::Left},
    {L"list", IDC_NOTIFY_BODY, NOTHING, Escape::Stays, Keys::OfControl, Focus::Left},
    {L"list-fixed", IDC_NOTIFY_BODY, NOTHING, Escape::Stays, Keys::OfControl, Focus::Left},
    {L"about", IDOK, IDOK, Escape::Closes, Keys::OfDialog},
    {L"permission", IDC_PERMISSION_TEXT, IDOK, Escape::Closes, Keys::OfDialog, Focus::Left},
    {L"permission-deny", IDC_PERMISSION_TEXT, IDCANCEL, Escape::Closes, Keys::OfDialog, Focus::Left},
    {L"connect", IDC_CONNECT_HOST, IDOK, Escape::Closes, Keys::OfDialog},
    {L"connect-proxy", IDC_CONNECT_USE_PROXY_SECRET, IDOK, Escape::Closes, Keys::OfDialog},
    {L"join", IDC_JOIN_INVITATION, IDOK, Escape::Closes, Keys::OfDialog},
    {L"connecting", IDCANCEL, IDCANCEL, Escape::Closes, Keys::OfDialog},
    {L"invitation", IDC_INVITE_NAME, IDC_INVITE_CREATE, Escape::Closes, Keys::OfDialog},
    {L"invitation-made", IDC_INVITE_USE_PROXY, IDC_INVITE_CREATE, Escape::Closes, Keys::OfDialog},
    {L"invitation-forbidden", IDC_INVITE_NAME, IDC_INVITE_CREATE, Escape::Closes, Keys::OfDialog},
    {L"certificate", IDNO, IDNO, Escape::Stays, Keys::OfDialog},
    {CHAT, IDC_CHAT_INPUT, NOTHING, Escape::Closes, Keys::OfControl},
    {L"drop", NOTHING, NOTHING, Escape::Stays, Keys::OfControl, Focus::Left},
    {L"settings", IDC_SETTINGS_PORT, IDOK, Escape::Closes, Keys::OfDialog},
    {L"settings-user-no-rights", IDC_SETTINGS_PORT, IDOK, Escape::Closes, Keys::OfDialog},
};

void PrintTo(const WINDOW_ROW& row, std::ostream* pStream)
{
    const std::wstring_view name = row.pszExhibit;
    *pStream << std::string(name.begin(), name.end());
}

BOOL CALLBACK TakeShownWindow(HWND hWnd, LPARAM lParam)
{
    wchar_t szTitle[2] = {};
    if (!IsWindowVisible(hWnd) || GetWindowTextW(hWnd, szTitle, static_cast<int>(std::size(szTitle))) == 0)
    {
        return TRUE;
    }
    *reinterpret_cast<HWND*>(lParam) = hWnd;
    return FALSE;
}

HWND ShownWindow()
{
    HWND hWnd = nullptr;
    EnumThreadWindows(GetCurrentThreadId(), TakeShownWindow, reinterpret_cast<LPARAM>(&hWnd));
    return hWnd;
}

std::vector<HWND> g_announced;

void WINAPI RecordEvent(DWORD dwEvent, HWND hWnd, LONG, LONG)
{
    if (dwEvent == EVENT_SYSTEM_ALERT)
    {
        g_announced.push_back(hWnd);
    }
}

bool WasAnnounced(HWND hWnd)
{
    return std::find(g_announced.begin(), g_announced.end(), hWnd) != g_announced.end();
}

BOOL WINAPI PlayNothing(LPCWSTR, HMODULE, DWORD)
{
    return TRUE;
}

class EveryWindow : public testing::TestWithParam<std::tuple<WINDOW_ROW, const wchar_t*>>
{
  public:
    ~EveryWindow() override = default;

  protected:
    void SetUp() override
    {
        s_pThis = this;
        g_announced.clear();
        SetEnvironmentVariableW(L"LangUI", std::get<1>(GetParam()));
        m_binding.Set("PlaySoundW", &PlayNothing);
        m_pWindow = std::make_unique<CTaskBarWindow>(0);
        MSG message = {};
        PeekMessageW(&message, m_pWindow->m_hWnd, WM_AGENT_INIT, WM_AGENT_INIT, PM_REMOVE); // no service
    }

    void TearDown() override
    {
        SendMessageW(m_pWindow->m_hWnd, WM_CLOSE, 0, 0);
        m_pWindow.reset();
        PumpMessages(); // and the quit message with them
        CertFreeCertificateContext(std::exchange(g_CertContext, nullptr));
        s_pThis = nullptr;
    }

    static const WINDOW_ROW& Row() { return std::get<0>(GetParam()); }

    /// Opens the window, activates it and looks at it in its own loop.
    void Visit(std::function<void(HWND)> look)
    {
        m_look = std::move(look);
        SetTimer(nullptr, 0, LOOK_PERIOD, LookForWindow);
        if (Row().pszExhibit == std::wstring_view(CHAT))
        {
            m_chat.emplace();
            m_chat->Create(m_pWindow->m_hWnd);
        }
        else
        {
            FindExhibit().pfnShow(*m_pWindow);
        }
        MSG message = {};
        while (!m_bSeen && GetMessageW(&message, nullptr, 0, 0) > 0)
        {
            DispatchMessageW(&message);
        }
    }

    static void PressKey(HWND hWnd, WPARAM wKey)
    {
        MSG key = {GetFocus(), WM_KEYDOWN, wKey, 0, 0, {}};
        if (Row().keys == Keys::OfControl || !IsDialogMessageW(hWnd, &key))
        {
            SendMessageW(GetFocus(), WM_KEYDOWN, wKey, 0);
        }
        PumpMessages();
    }

    static void PressAltWith(HWND hWnd, wchar_t chKey)
    {
        MSG key = {GetFocus(), WM_SYSCHAR, chKey, ALT_IS_DOWN, 0, {}};
        if (Row().keys == Keys::OfControl || !IsDialogMessageW(hWnd, &key))
        {
            SendMessageW(GetFocus(), WM_SYSCHAR, chKey, ALT_IS_DOWN);
        }
        PumpMessages();
    }

    /// Where Tab goes from here, until it comes back.
    static std::vector<HWND> GoRound(HWND hWnd)
    {
        std::vector<HWND> reached;
        const HWND hStart = FocusedControl(hWnd);
        HWND hControl = hStart;
        while (hControl != nullptr && (reached.empty() || hControl != hStart) &&
               reached.size() < MOST_CONTROLS)
        {
            reached.push_back(hControl);
            PressKey(hWnd, VK_TAB);
            hControl = FocusedControl(hWnd);
        }
        return reached;
    }

    // Behind the other on the same line, or below it.
    static bool Follows(HWND hWnd, HWND hControl, HWND hOther)
    {
        const RECT place = PlaceInDialog(hWnd, hControl);
        const RECT other = PlaceInDialog(hWnd, hOther);
        const bool bSameLine = place.top < other.bottom && other.top < place.bottom;
        return bSameLine ? place.left >= other.right : place.top >= other.bottom;
    }

    /// How often a person who goes round jumps back, up or to the left.
    static int CountJumpsBack(HWND hWnd, const std::vector<HWND>& round)
    {
        int nJumps = 0;
        for (size_t nControl = 0; nControl < round.size(); ++nControl)
        {
            nJumps += Follows(hWnd, round[(nControl + 1) % round.size()], round[nControl]) ? 0 : 1;
        }
        return nJumps;
    }

    /// The letter that leads to a control, by its own text or by its label's.
    static wchar_t LetterOf(HWND hControl)
    {
        const wchar_t chOwn = ShortcutKey(hControl);
        return chOwn != L'\0' ? chOwn : ShortcutKey(GetWindow(hControl, GW_HWNDPREV));
    }

    static void ExpectLabelsToLead(HWND hWnd)
    {
        for (const HWND hLabel : ControlsOf(hWnd))
        {
            const wchar_t chKey = RoleOf(hLabel) == ControlRole::Text ? ShortcutKey(hLabel) : L'\0';
            if (chKey == L'\0' || !IsWindowVisible(hLabel))
            {
                continue;
            }
            const HWND hNamed = GetWindow(hLabel, GW_HWNDNEXT);
            EXPECT_EQ(IsWindowEnabled(hLabel), IsWindowEnabled(hNamed)) << GetDlgCtrlID(hNamed);
            const HWND hBefore = FocusedControl(hWnd);
            PressAltWith(hWnd, chKey);
            EXPECT_EQ(FocusedControl(hWnd), IsWindowEnabled(hNamed) ? hNamed : hBefore)
                << GetDlgCtrlID(hNamed) << " is not where the letter leads";
        }
    }

    static void ExpectKeyboardToReachAll(HWND hWnd)
    {
        const std::vector<HWND> round = GoRound(hWnd);
        std::vector<HWND> reached = round;
        std::vector<HWND> toReach = ControlsToReach(hWnd);
        std::sort(reached.begin(), reached.end());
        std::sort(toReach.begin(), toReach.end());
        EXPECT_EQ(reached, toReach);
        EXPECT_LE(CountJumpsBack(hWnd, round), 1) << "it is read from top to bottom";
    }

    // Enter, Escape and where one begins need no letter; the button that trusts has none on purpose.
    static void ExpectLetterForWhatIsFilledInOrPressed(HWND hWnd)
    {
        for (const HWND hControl : ControlsToReach(hWnd))
        {
            const int nControl = GetDlgCtrlID(hControl);
            const bool bOtherwise = nControl == Row().nEnter || nControl == Row().nFocus ||
                                    nControl == IDCANCEL || nControl == IDYES ||
                                    RoleOf(hControl) == ControlRole::Link || IsChatHistory(nControl);
            EXPECT_TRUE(bOtherwise || LetterOf(hControl) != L'\0') << nControl;
        }
    }

  private:
    static constexpr size_t MOST_CONTROLS = 50;
    static EveryWindow* s_pThis;

    // F6 leads there.
    static bool IsChatHistory(int nControl)
    {
        return Row().pszExhibit == std::wstring_view(CHAT) && nControl == IDC_CHAT_HISTORY;
    }

    static const EXHIBIT& FindExhibit()
    {
        const EXHIBIT* pExhibit = g_exhibits;
        while (pExhibit->pszName != std::wstring_view(Row().pszExhibit))
        {
            ++pExhibit;
        }
        return *pExhibit;
    }

    static void CALLBACK LookForWindow(HWND, UINT, UINT_PTR uTimer, DWORD)
    {
        const HWND hWnd = ShownWindow();
        if (hWnd == nullptr || s_pThis->m_bSeen)
        {
            return;
        }
        KillTimer(nullptr, uTimer);
        s_pThis->m_bSeen = true;
        SetForegroundWindow(hWnd);
        PumpMessages();
        s_pThis->m_look(hWnd);
        EndDialog(hWnd, IDCANCEL);
    }

    StagedLanguageModule m_language{std::get<1>(GetParam())};
    LateBinding m_binding;
    ImportHook<decltype(Sleep)> m_sleep{"kernel32.dll", "Sleep", +[](DWORD) {}};
    ImportHook<decltype(RecordEvent)> m_event{"user32.dll", "NotifyWinEvent", &RecordEvent};
    std::optional<LoadedChatModule> m_chat;
    std::unique_ptr<CTaskBarWindow> m_pWindow;
    std::function<void(HWND)> m_look;
    bool m_bSeen = false;
};
EveryWindow* EveryWindow::s_pThis = nullptr;

std::string WindowName(const testing::TestParamInfo<EveryWindow::ParamType>& info)
{
    const std::wstring name =
        std::wstring(std::get<0>(info.param).pszExhibit) + L"_" + std::get<1>(info.param);
    std::string letters(name.begin(), name.end());
    std::replace(letters.begin(), letters.end(), '-', '_');
    return letters;
}

INSTANTIATE_TEST_SUITE_P(InEveryLanguage, EveryWindow,
                         testing::Combine(testing::ValuesIn(WINDOWS), testing::Values(L"en", L"fr", L"de")),
                         WindowName);

void ExpectNamesAndRoles(HWND hWnd)
{
    EXPECT_NE(TextOf(hWnd), L"");
    for (const HWND hControl : ControlsOf(hWnd))
    {
        EXPECT_NE(RoleOf(hControl), ControlRole::Nothing) << GetDlgCtrlID(hControl);
    }
    for (const HWND hControl : ControlsToReach(hWnd))
    {
        const int nControl = GetDlgCtrlID(hControl);
        EXPECT_NE(AccessibleName(hControl), L"") << nControl;
        EXPECT_NE(GetWindowLongPtrW(hControl, GWL_STYLE) & WS_TABSTOP, 0) << nControl;
    }
}

// The test system presents the names of windows, fields and buttons, and of the roles that of fields alone.
void ExpectThatTheSystemPresentsThem(HWND hWnd)
{
    EXPECT_EQ(PresentedControl(hWnd).name, TextOf(hWnd));
    for (const HWND hControl : ControlsToReach(hWnd))
    {
        const ControlRole role = RoleOf(hControl);
        const PRESENTED_CONTROL presented = PresentedControl(hControl);
        if (role != ControlRole::List && role != ControlRole::Link)
        {
            EXPECT_EQ(presented.name, AccessibleName(hControl)) << GetDlgCtrlID(hControl);
        }
        if (role == ControlRole::Field)
        {
            EXPECT_EQ(presented.lRole, ROLE_SYSTEM_TEXT) << GetDlgCtrlID(hControl);
        }
    }
}

TEST_P(EveryWindow, IsUsableByKeyboardAloneAndToldToScreenReaders)
{
    Visit([](HWND hWnd) {
        ExpectNamesAndRoles(hWnd);
        ExpectThatTheSystemPresentsThem(hWnd);
        ExpectLetterForWhatIsFilledInOrPressed(hWnd);
        if (!ControlsToReach(hWnd).empty())
        {
            EXPECT_EQ(GetDlgCtrlID(FocusedControl(hWnd)), Row().nFocus);
            ExpectKeyboardToReachAll(hWnd);
        }
        if (Row().keys == Keys::OfDialog)
        {
            ExpectLabelsToLead(hWnd);
            EXPECT_EQ(SendMessageW(hWnd, DM_GETDEFID, 0, 0), MAKELONG(Row().nEnter, DC_HASDEFID));
        }
        PressKey(hWnd, VK_ESCAPE);
        PumpMessages(); // the answer may be posted, and its end, too
        EXPECT_EQ(IsWindowVisible(hWnd) != FALSE, Row().escape == Escape::Stays);
        EXPECT_EQ(WasAnnounced(hWnd), Row().focus == Focus::Left);
    });
}
} // namespace

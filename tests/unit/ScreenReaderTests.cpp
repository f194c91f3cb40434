#include "dialogs/DialogControls.h"

#include "dialogs/PermissionAnswer.h"
#include "resources/resource.h"
#include "tests/unit/PermissionHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace
{
struct TOLD
{
    DWORD dwEvent;
    HWND hWnd;
    LONG nObject;

    bool operator==(const TOLD&) const = default;
};

// What the system tells whoever listens, as a screen reader does. One at a time.
class Listener
{
  public:
    Listener(DWORD dwFirst, DWORD dwLast)
        : m_hHook(SetWinEventHook(dwFirst, dwLast, nullptr, &Hear, GetCurrentProcessId(), 0,
                                  WINEVENT_OUTOFCONTEXT))
    {
        s_told.clear();
    }
    ~Listener() { UnhookWinEvent(m_hHook); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    static size_t Count(const TOLD& told)
    {
        PumpMessages();
        return static_cast<size_t>(std::count(s_told.begin(), s_told.end(), told));
    }

  private:
    static void CALLBACK Hear(HWINEVENTHOOK, DWORD dwEvent, HWND hWnd, LONG nObject, LONG, DWORD, DWORD)
    {
        s_told.push_back({dwEvent, hWnd, nObject});
    }

    static std::vector<TOLD> s_told;
    const HWINEVENTHOOK m_hHook;
};

std::vector<TOLD> Listener::s_told;

class ScreenReaderTest : public PermissionHarness
{
};
} // namespace

TEST_F(ScreenReaderTest, APopupIsAnnouncedInEachForm)
{
    Window().m_Connection = Alice();
    for (const NOTIFY_MODE mode : {NOTIFY_MODE_CONNECTED, NOTIFY_MODE_DISCONNECTED, NOTIFY_MODE_EVERYONE})
    {
        const Listener listener(EVENT_SYSTEM_ALERT, EVENT_SYSTEM_ALERT);
        const HWND hPopup = ShowPopup(mode);
        EXPECT_EQ(Listener::Count({EVENT_SYSTEM_ALERT, hPopup, OBJID_CLIENT}), 1U) << mode;
    }
}

TEST_F(ScreenReaderTest, ThePromptIsAnnounced)
{
    const Listener listener(EVENT_SYSTEM_ALERT, EVENT_SYSTEM_ALERT);
    RunPrompt(Prompt(), [](HWND hPrompt) {
        EXPECT_EQ(Listener::Count({EVENT_SYSTEM_ALERT, hPrompt, OBJID_CLIENT}), 1U);
        Deny(hPrompt);
    });
}

TEST_F(ScreenReaderTest, EachSecondOfThePromptIsATextThatAnnouncesItsChange)
{
    for (const wchar_t* const pszLanguage : {L"en", L"fr", L"de"})
    {
        const StagedLanguageModule language(pszLanguage);
        const Listener listener(EVENT_OBJECT_NAMECHANGE, EVENT_OBJECT_NAMECHANGE);
        RunPrompt(Prompt(), [](HWND hPrompt) {
            const HWND hCountdown = GetDlgItem(hPrompt, IDC_PERMISSION_COUNTDOWN);
            const TOLD change = {EVENT_OBJECT_NAMECHANGE, hCountdown, OBJID_CLIENT};
            EXPECT_TRUE(IsWindowVisible(hCountdown)) << "what is hidden isn't read";
            const size_t nBefore = Listener::Count(change);
            for (int nSeconds = PERMISSION_SECONDS - 1; nSeconds > PERMISSION_SECONDS - 4; --nSeconds)
            {
                Tick(hPrompt, 1);
                EXPECT_NE(ControlText(hPrompt, IDC_PERMISSION_COUNTDOWN).find(std::to_wstring(nSeconds)),
                          std::wstring::npos);
            }
            EXPECT_EQ(Listener::Count(change), nBefore + 3);
            Deny(hPrompt);
        });
    }
}

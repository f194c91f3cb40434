#include "tests/soak/ViewerVisits.h"

#include "Include/BoundedText.h"
#include "modules/chat/ChatPayload.h"
#include "tests/support/Patience.h"
#include "tray/DesktopOptions.h"
#include "tray/TKDASTWindow.h"
#include "tray/TrayIcon.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace
{
constexpr DWORD LOOK_AGAIN_MS = 2;
constexpr std::string_view NOTICE_TITLE = "Somebody soaks";
constexpr wchar_t DROP_EVENT[] = L"Soak drop event";
constexpr DWORD ALL_EFFECTS = 0x7FF6;
constexpr unsigned int LONGEST_TEXT = 400; // characters of a chat message
constexpr unsigned int MOST_VIEWERS = 3;

// One visit in so many.
constexpr unsigned int AWAITED_VISITS = 250;
constexpr unsigned int LOCK_STATE_VISITS = 15;
constexpr unsigned int UNTOLD_VISITS = 4;
constexpr unsigned int SETTINGS_VISITS = 4;
constexpr unsigned int EFFECTS_VISITS = 20;
constexpr unsigned int CHAT_VISITS = 20;
constexpr unsigned int DROP_VISITS = 10;
constexpr unsigned int MARKED_VISITS = 5;
constexpr unsigned int LIST_VISITS = 4;
// And settings.
constexpr unsigned int UNTOLD_SETTINGS = 8;
constexpr unsigned int END_TOLD_SETTINGS = 4;
constexpr DWORD NOTICE_SECONDS = 60;       // where a notice closes itself
constexpr unsigned int LONGEST_HEAD = 60;  // characters
constexpr unsigned int LONGEST_BODY = 200; // characters

std::wstring ViewerName(size_t nViewer)
{
    return L"Viewer " + std::to_wstring(nViewer);
}

/// The change as an edit of the record's bytes.
template <typename Record>
RECORD_EDIT Editing(const std::function<void(Record& record)>& change)
{
    return [change](std::vector<BYTE>& bytes) {
        Record record = {};
        std::memcpy(&record, bytes.data(), sizeof(record));
        change(record);
        std::memcpy(bytes.data(), &record, sizeof(record));
        return true;
    };
}

std::string TitleOf(HWND hWnd)
{
    char szTitle[MAX_PATH] = {};
    GetWindowTextA(hWnd, szTitle, static_cast<int>(std::size(szTitle)));
    return szTitle;
}

struct SHOWN_SEARCH
{
    std::string_view title; // empty: any
    HWND hWnd;
};

BOOL CALLBACK IsNotWhatIsShown(HWND hWnd, LPARAM lParam)
{
    auto& search = *reinterpret_cast<SHOWN_SEARCH*>(lParam);
    if (!IsWindowVisible(hWnd) || (!search.title.empty() && TitleOf(hWnd) != search.title))
    {
        return TRUE;
    }
    search.hWnd = hWnd;
    return FALSE;
}
} // namespace

bool WaitUntil(const std::function<bool()>& test)
{
    const ULONGLONG qwEnd = GetTickCount64() + PATIENCE_MS;
    while (!test())
    {
        if (GetTickCount64() >= qwEnd)
        {
            return false;
        }
        Sleep(LOOK_AGAIN_MS);
    }
    return true;
}
// All windows of the agent belong to one thread, which spares the system the look at everybody else's.
HWND FindShownBy(HWND hTrayWindow, std::string_view title)
{
    SHOWN_SEARCH search = {title, nullptr};
    EnumThreadWindows(GetWindowThreadProcessId(hTrayWindow, nullptr), IsNotWhatIsShown,
                      reinterpret_cast<LPARAM>(&search));
    return search.hWnd;
}

ViewerVisits::ViewerVisits(CStandInService& service, const VISITED_AGENT& agent, unsigned int uSeed)
    : m_service(service), m_agent(agent), m_random(uSeed)
{
    m_keeper.SetAnswers(true);
}

bool ViewerVisits::PlayNext()
{
    return Play(DrawVisit());
}

bool ViewerVisits::PlayEverything()
{
    VISIT visit;
    visit.notice = NOTICE_WAY::Awaited;
    visit.dwConnectionType = ALWAYS_ANNOUNCED_CONNECTION_TYPE;
    visit.nViewers = MOST_VIEWERS;
    // These two once only. A reconfiguration leaves the earlier language module loaded, which others may
    // still be reading; and the test system's sound module leaves handles behind whenever it is loaded and
    // freed.
    visit.bReconfigure = m_agent.bStaged;
    visit.bLoud = true;
    visit.bMarked = true;
    visit.bEffects = true;
    visit.bChat = true;
    visit.bDrop = true;
    if (!Play(visit))
    {
        return false;
    }
    visit.notice = NOTICE_WAY::Timer;
    visit.bList = true;
    visit.bReconfigure = false;
    visit.bLoud = false;
    visit.bSettings = true;
    return Play(visit);
}

VISIT ViewerVisits::DrawVisit()
{
    VISIT visit;
    visit.notice = OneIn(UNTOLD_VISITS) ? NOTICE_WAY::None : NOTICE_WAY::Timer;
    if (++m_uVisits % AWAITED_VISITS == 0)
    {
        visit.notice = NOTICE_WAY::Awaited;
    }
    else if (m_uVisits % LOCK_STATE_VISITS == 0)
    {
        visit.notice = NOTICE_WAY::LockStateChange;
    }
    if (visit.notice == NOTICE_WAY::LockStateChange && !m_agent.bStaged)
    {
        visit.notice = NOTICE_WAY::Timer; // beside no session module the session counts as locked
    }
    visit.dwConnectionType = Below(SECOND_KIND_CONNECTION_TYPE + 1);
    visit.nViewers = 1 + Below(MOST_VIEWERS);
    visit.bList = OneIn(LIST_VISITS);
    visit.bSettings = OneIn(SETTINGS_VISITS);
    visit.bMarked = OneIn(MARKED_VISITS);
    visit.bEffects = OneIn(EFFECTS_VISITS);
    visit.bChat = OneIn(CHAT_VISITS);
    visit.bDrop = OneIn(DROP_VISITS);
    return visit;
}

void ViewerVisits::DrawSettings(bool bLoud)
{
    m_settings.bNotifyConnect = OneIn(UNTOLD_SETTINGS) ? 0 : 1;
    m_settings.bNotifyKind2 = Below(2);
    m_settings.bNotifyDisconnect = OneIn(END_TOLD_SETTINGS) ? 1 : 0;
    m_settings.dwTrayIcon = Below(TRAY_ICON_WHILE_CONNECTED + 1);
    m_settings.dwNotifySeconds = Below(2) * NOTICE_SECONDS;
    m_settings.bPermissionRequired = Below(2);
    m_settings.bKeepNoticeOpen = Below(2);
    m_settings.bQuietNotify = bLoud ? 0 : 1;
    m_settings.dwDefaultConnectionType = ORDINARY_CONNECTION_TYPE;
    m_settings.dwExitLock2 = 1;
    CopyText(m_settings.szTrayTip, L"Soaked " + std::to_wstring(m_uVisits));
    CopyText(m_settings.szNotifyTitle, std::wstring(NOTICE_TITLE.begin(), NOTICE_TITLE.end()));
    CopyText(m_settings.szNotifyText, std::wstring(1 + Below(LONGEST_HEAD), L'N'));
    CopyText(m_settings.szNotifyConnectText, std::wstring(Below(LONGEST_BODY), L'c'));
}

bool ViewerVisits::Play(const VISIT& visit)
{
    const bool bSettings = visit.bSettings || !m_bSettingsSent;
    m_keeper.SetMarker(true, visit.bMarked);
    const bool bPlayed = (!bSettings || SendSettings(visit.bLoud)) &&
                         (!visit.bReconfigure || Reconfigure()) && Arrive(visit) &&
                         (!visit.bEffects || SwitchEffectsOff()) && (!visit.bChat || Chat()) &&
                         (!visit.bDrop || OpenDropWindow()) && Notice(visit) && Leave(visit) && AwaitIdle();
    m_keeper.SetMarker(true, false);
    m_service.ForgetPending(m_agent.uAgent);
    return bPlayed;
}

bool ViewerVisits::Expect(bool bHolds, const std::string& what)
{
    if (!bHolds)
    {
        m_failure = what + ", in visit " + std::to_string(m_uVisits);
    }
    return bHolds;
}

bool ViewerVisits::SendBytes(const void* pData, size_t nBytes)
{
    return Expect(m_service.Send(m_agent.uAgent, {static_cast<const BYTE*>(pData), nBytes}),
                  "the agent takes nothing");
}

bool ViewerVisits::AwaitEcho()
{
    AGENT_RECORD echo;
    return Send(MSG_TRAYICON_TYPE_ONLY{MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE}) &&
           Expect(m_service.TakeRecord(
                      m_agent.uAgent,
                      [](const AGENT_RECORD& record) {
                          return record.pMessage != nullptr &&
                                 record.pMessage->dwType == MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE;
                      },
                      PATIENCE_MS, echo) == WAIT_RESULT::Met,
                  "the agent's reader doesn't answer");
}

bool ViewerVisits::SendSettings(bool bLoud)
{
    DrawSettings(bLoud);
    // An agent that waits for its first settings is content with nothing else.
    const bool bUpdate = m_bSettingsSent && Below(2) != 0;
    m_bSettingsSent = true;
    std::wstring error;
    return Expect(m_keeper.SendSettings(m_agent.uAgent, bUpdate,
                                        Editing<MSG_TRAYICON_SETTINGS>([this](MSG_TRAYICON_SETTINGS& record) {
                                            const DWORD dwType = record.dwType;
                                            record = m_settings;
                                            record.dwType = dwType;
                                        }),
                                        error),
                  "the settings can't be sent");
}

bool ViewerVisits::Reconfigure()
{
    MSG_TRAYICON_SERVER_RECONFIGURE record = {};
    record.dwType = MSG_TYPE_TRAYICON_SERVER_RECONFIGURE;
    record.bReconfiguring = 1;
    CopyText(record.szMessage, L"The service is reconfigured");
    if (!Send(record))
    {
        return false;
    }
    record.bReconfiguring = 0;
    return Send(record) && AwaitEcho();
}

bool ViewerVisits::Arrive(const VISIT& visit)
{
    bool bArrived = true;
    for (size_t nViewer = 0; nViewer < visit.nViewers && bArrived; ++nViewer)
    {
        std::wstring error;
        const RECORD_EDIT edit =
            Editing<MSG_TRAYICON_CONNECT>([&visit, nViewer](MSG_TRAYICON_CONNECT& record) {
                CopyText(record.szClientName, ViewerName(nViewer));
                CopyText(record.szClientDetail1, L"Kestrel Works");
                CopyText(record.szClientDetail2, L"10.0.0." + std::to_wstring(record.dwClientId % 256));
                record.dwConnectionType = visit.dwConnectionType;
                record.bListClients = visit.bList ? 1 : 0;
            });
        bArrived = Expect(m_keeper.Connect(m_agent.uAgent, edit, error), "a viewer can't come");
    }
    return bArrived && AwaitEcho();
}

bool ViewerVisits::SwitchEffectsOff()
{
    return Send(MSG_TRAYICON_DESKTOP_EFFECTS{MSG_TYPE_TRAYICON_DESKTOP_EFFECTS, ALL_EFFECTS}) && AwaitEcho();
}

bool ViewerVisits::Chat()
{
    MSG_TRAYICON_CHAT_OPEN open = {};
    open.dwType = MSG_TYPE_TRAYICON_CHAT_OPEN;
    CopyText(open.szUsername, ViewerName(0));
    const std::vector<char> record = MakeChatRecord(ViewerName(0), std::wstring(Below(LONGEST_TEXT), L'c'));
    return Send(open) && SendBytes(record.data(), record.size()) && AwaitEcho() &&
           Expect(FindShown() != nullptr, "there is no chat window") &&
           Send(MSG_TRAYICON_TYPE_ONLY{MSG_TYPE_TRAYICON_CHAT_CLOSE}) && AwaitEcho();
}

bool ViewerVisits::OpenDropWindow()
{
    std::wstring error;
    const RECORD_EDIT edit = Editing<MSG_TRAYICON_SFT_DROP_CLIENT>(
        [](MSG_TRAYICON_SFT_DROP_CLIENT& record) { CopyText(record.szDropEventName, DROP_EVENT); });
    return Expect(m_keeper.SendDropClient(m_agent.uAgent, ViewerName(0), edit, error),
                  "the drop window can't be asked for") &&
           AwaitEcho() && Expect(FindShown() != nullptr, "there is no drop window");
}

bool ViewerVisits::Notice(const VISIT& visit)
{
    switch (visit.notice)
    {
    case NOTICE_WAY::Timer:
        PostMessageW(m_agent.hTrayWindow, WM_TIMER, TIMER_CONNECT_NOTICE, 0);
        break;
    case NOTICE_WAY::LockStateChange:
        if (!Send(MSG_TRAYICON_TYPE_ONLY{MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE}))
        {
            return false;
        }
        break;
    case NOTICE_WAY::Awaited:
        break;
    default:
        return true;
    }
    return !IsNoticeWanted(visit) || Expect(AwaitNotice(), "there is no notice of the connection");
}

bool ViewerVisits::IsNoticeWanted(const VISIT& visit) const
{
    const bool bList = visit.bList && visit.notice != NOTICE_WAY::LockStateChange;
    return bList || IsConnectNoticeWanted(m_settings, visit.dwConnectionType);
}

bool ViewerVisits::Leave(const VISIT& visit)
{
    for (size_t nViewer = 0; nViewer < visit.nViewers; ++nViewer)
    {
        std::wstring error;
        // A notice in the list form couldn't be closed any more.
        const RECORD_EDIT edit = Editing<MSG_TRAYICON_CONNECT>([](MSG_TRAYICON_CONNECT& record) {
            record.bListClients = record.dwConnectCount != 0 ? record.bListClients : 0;
        });
        if (!Expect(m_keeper.Disconnect(m_agent.uAgent, ViewerName(nViewer), edit, error),
                    "a viewer can't go"))
        {
            return false;
        }
    }
    const bool bTold = m_settings.bNotifyConnect != 0 && m_settings.bNotifyDisconnect != 0;
    return AwaitEcho() && (!bTold || Expect(AwaitNotice(), "there is no notice of the end"));
}

// What is still told when nobody is there any more is closed as a person would.
bool ViewerVisits::AwaitIdle()
{
    const bool bIdle = WaitUntil([this] {
        const HWND hNotice = FindShown(NOTICE_TITLE);
        if (hNotice != nullptr)
        {
            PostMessageW(hNotice, WM_CLOSE, 0, 0);
        }
        return FindShown() == nullptr;
    });
    return Expect(bIdle, "a window stays behind: " + TitleOf(FindShown())) && AwaitEcho();
}

bool ViewerVisits::AwaitNotice() const
{
    return WaitUntil([this] { return FindShown(NOTICE_TITLE) != nullptr; });
}

#pragma once

#include "channel/TrayMessages.h"
#include "devservice/SessionKeeper.h"
#include "devservice/StandInService.h"

#include <functional>
#include <random>
#include <string>
#include <string_view>

/// True as soon as the test answers true, which it is asked again and again.
bool WaitUntil(const std::function<bool()>& test);

/// A window that the agent shows, of that title if one is given; null when it shows none.
HWND FindShownBy(HWND hTrayWindow, std::string_view title = {});

/// The agent that the viewers come to.
struct VISITED_AGENT
{
    unsigned int uAgent; // its number at the service
    HWND hTrayWindow;
    bool bStaged; // the whole program in its own folder, where it finds its language again
};

/// How the notice of a connection is brought about.
enum class NOTICE_WAY
{
    None,            // the viewers are gone before it is due
    Timer,           // its timer's message is posted, as if the two seconds were over
    LockStateChange, // the service asks for it
    Awaited,         // the two seconds are waited for
};

/// One visit: what happens between the first viewer's coming and the last one's going.
struct VISIT
{
    NOTICE_WAY notice = NOTICE_WAY::Timer;
    DWORD dwConnectionType = 1;
    size_t nViewers = 1;
    bool bList = false;        // the list form of the notice
    bool bSettings = false;    // other settings before
    bool bLoud = false;        // notices are heard, too
    bool bReconfigure = false; // the service is reconfigured before
    bool bMarked = false;      // marked as a session over the internet
    bool bEffects = false;     // wallpaper and effects go off
    bool bChat = false;
    bool bDrop = false; // a drop window
};

/// Plays viewers who come to an agent and go, one visit after the other, each drawn from a seed. Behind a
/// visit the agent is idle again: it shows no window and has handled all records. Not on the agent's thread.
class ViewerVisits
{
  public:
    ViewerVisits(CStandInService& service, const VISITED_AGENT& agent, unsigned int uSeed);

    /// False when the agent didn't do what it has to; Failure says what.
    bool PlayNext();
    /// A visit that has everything, so that whatever is made once has been made.
    bool PlayEverything();
    const std::string& Failure() const { return m_failure; }

  private:
    CStandInService& m_service;
    CSessionKeeper m_keeper{m_service};
    VISITED_AGENT m_agent;
    std::mt19937 m_random;
    MSG_TRAYICON_SETTINGS m_settings = {};
    bool m_bSettingsSent = false;
    unsigned int m_uVisits = 0;
    std::string m_failure;

    unsigned int Below(unsigned int uCount) { return static_cast<unsigned int>(m_random() % uCount); }
    bool OneIn(unsigned int uCount) { return Below(uCount) == 0; }
    VISIT DrawVisit();
    void DrawSettings(bool bLoud);

    bool Play(const VISIT& visit);
    bool Expect(bool bHolds, const std::string& what);
    bool SendBytes(const void* pData, size_t nBytes);
    template <typename Record>
    bool Send(const Record& record)
    {
        return SendBytes(&record, sizeof(record));
    }
    bool AwaitEcho();
    bool SendSettings(bool bLoud);
    bool Reconfigure();
    bool Arrive(const VISIT& visit);
    bool SwitchEffectsOff();
    bool Chat();
    bool OpenDropWindow();
    bool Notice(const VISIT& visit);
    bool IsNoticeWanted(const VISIT& visit) const;
    bool Leave(const VISIT& visit);
    bool AwaitIdle();
    HWND FindShown(std::string_view title = {}) const { return FindShownBy(m_agent.hTrayWindow, title); }
    bool AwaitNotice() const;
};

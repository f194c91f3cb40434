#include "devservice/PlayedSession.h"

#include "devservice/wtsapi32/SessionScript.h"
#include "tray/TKDASTWindow.h"

#include <wtsapi32.h>

#include <iterator>
#include <string_view>

static_assert(SESSION_STATE_ACTIVE == WTSActive);
static_assert(SESSION_STATE_DISCONNECTED == WTSDisconnected);

namespace
{
BOOL CALLBACK NotifyTrayWindow(HWND hWnd, LPARAM lNotice)
{
    wchar_t szClass[MAX_PATH] = {};
    GetClassNameW(hWnd, szClass, static_cast<int>(std::size(szClass)));
    if (std::wstring_view(szClass) == TRAY_WINDOW_CLASS)
    {
        PostMessageW(hWnd, WM_WTSSESSION_CHANGE, static_cast<WPARAM>(lNotice), 0);
    }
    return TRUE;
}

// From one list of all windows: going from window to window, one that is raised meanwhile is passed by.
void NotifyAgents(WPARAM wNotice)
{
    EnumWindows(NotifyTrayWindow, static_cast<LPARAM>(wNotice));
}
} // namespace

CPlayedSession::~CPlayedSession()
{
    if (m_pScript != nullptr)
    {
        UnmapViewOfFile(m_pScript);
    }
}

bool CPlayedSession::IsModuleIn(const std::wstring& folder)
{
    return GetFileAttributesW((folder + L"\\wtsapi32.dll").c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool CPlayedSession::Open()
{
    m_hMapping.reset(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                        sizeof(SESSION_SCRIPT), SESSION_SCRIPT_NAME));
    if (!m_hMapping)
    {
        return false;
    }
    m_pScript = static_cast<SESSION_SCRIPT*>(
        MapViewOfFile(m_hMapping.get(), FILE_MAP_WRITE, 0, 0, sizeof(SESSION_SCRIPT)));
    if (m_pScript == nullptr)
    {
        return false;
    }
    *m_pScript = MakeActiveSession();
    return true;
}

bool CPlayedSession::SetLocked(bool bLocked)
{
    if (m_pScript == nullptr && !Open())
    {
        return false;
    }
    m_pScript->nConnectState = bLocked ? SESSION_STATE_DISCONNECTED : SESSION_STATE_ACTIVE;
    m_pScript->nSessionFlags = bLocked ? SESSION_FLAGS_LOCKED : SESSION_FLAGS_UNLOCKED;
    NotifyAgents(bLocked ? WTS_SESSION_LOCK : WTS_SESSION_UNLOCK);
    return true;
}

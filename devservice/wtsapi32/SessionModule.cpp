#include "devservice/wtsapi32/SessionScript.h"

#include <cstring>

// The system's own header would declare these functions as imports; they are defined here instead, with the
// few values of it that the answers need.
namespace
{
constexpr int QUERY_CONNECT_STATE = 8;
constexpr int QUERY_EXTENDED_INFORMATION = 25;

/// The head of the extended session data and its full size.
struct EXTENDED_INFORMATION
{
    DWORD dwLevel;
    DWORD dwAlignment;
    DWORD dwSessionId;
    LONG nSessionState;
    LONG nSessionFlags;
    BYTE abRest[212];
};
static_assert(sizeof(EXTENDED_INFORMATION) == 232);

struct SESSION_ENTRY
{
    DWORD dwSessionId;
    wchar_t* pszStation;
    LONG nState;
};

SESSION_SCRIPT g_defaultScript = MakeActiveSession();

/// The mapping is opened anew each time: a test may begin or end it while an agent runs.
class ScriptView
{
  public:
    ScriptView() : m_hMapping(OpenFileMappingW(FILE_MAP_WRITE, FALSE, SESSION_SCRIPT_NAME))
    {
        if (m_hMapping != nullptr)
        {
            m_pView = static_cast<SESSION_SCRIPT*>(
                MapViewOfFile(m_hMapping, FILE_MAP_WRITE, 0, 0, sizeof(SESSION_SCRIPT)));
        }
    }
    ~ScriptView()
    {
        if (m_pView != nullptr)
        {
            UnmapViewOfFile(m_pView);
        }
        if (m_hMapping != nullptr)
        {
            CloseHandle(m_hMapping);
        }
    }
    ScriptView(const ScriptView&) = delete;
    ScriptView& operator=(const ScriptView&) = delete;
    SESSION_SCRIPT* operator->() const { return m_pView != nullptr ? m_pView : &g_defaultScript; }

  private:
    HANDLE m_hMapping;
    SESSION_SCRIPT* m_pView = nullptr;
};

void* NewBlock(const ScriptView& script, size_t nBytes)
{
    void* pBlock = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, nBytes);
    if (pBlock != nullptr)
    {
        InterlockedIncrement(&script->nOpenBlocks);
    }
    return pBlock;
}

DWORD ResolveSession(DWORD dwSession)
{
    DWORD dwOwn = 0;
    return dwSession == static_cast<DWORD>(-1) && ProcessIdToSessionId(GetCurrentProcessId(), &dwOwn)
               ? dwOwn
               : dwSession;
}

BOOL AnswerConnectState(const ScriptView& script, wchar_t** ppBuffer, DWORD* pdwBytes)
{
    InterlockedIncrement(&script->nStateQueries);
    auto* pState = static_cast<LONG*>(NewBlock(script, sizeof(LONG)));
    if (pState == nullptr)
    {
        return FALSE;
    }
    *pState = script->nConnectState;
    *ppBuffer = reinterpret_cast<wchar_t*>(pState);
    *pdwBytes = sizeof(LONG);
    return TRUE;
}

BOOL AnswerExtended(const ScriptView& script, DWORD dwSession, wchar_t** ppBuffer, DWORD* pdwBytes)
{
    auto* pExtended = static_cast<EXTENDED_INFORMATION*>(NewBlock(script, sizeof(EXTENDED_INFORMATION)));
    if (pExtended == nullptr)
    {
        return FALSE;
    }
    pExtended->dwLevel = static_cast<DWORD>(script->nLevel);
    pExtended->dwSessionId = ResolveSession(dwSession);
    pExtended->nSessionState = script->nConnectState;
    pExtended->nSessionFlags = script->nSessionFlags;
    *ppBuffer = reinterpret_cast<wchar_t*>(pExtended);
    const LONG nBytes = script->nAnsweredBytes;
    *pdwBytes = nBytes != 0 ? static_cast<DWORD>(nBytes) : sizeof(EXTENDED_INFORMATION);
    return TRUE;
}
} // namespace

extern "C" BOOL WINAPI WTSQuerySessionInformationW(HANDLE, DWORD dwSession, int nClass, wchar_t** ppBuffer,
                                                   DWORD* pdwBytes)
{
    const ScriptView script;
    if (script->bQueriesFail != 0)
    {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    switch (nClass)
    {
    case QUERY_CONNECT_STATE:
        return AnswerConnectState(script, ppBuffer, pdwBytes);
    case QUERY_EXTENDED_INFORMATION:
        return AnswerExtended(script, dwSession, ppBuffer, pdwBytes);
    default:
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
}

extern "C" BOOL WINAPI WTSEnumerateSessionsW(HANDLE, DWORD, DWORD, SESSION_ENTRY** ppSessions,
                                             DWORD* pdwCount)
{
    const ScriptView script;
    static constexpr wchar_t STATION[] = L"Console";
    auto* pEntry = static_cast<SESSION_ENTRY*>(NewBlock(script, sizeof(SESSION_ENTRY) + sizeof(STATION)));
    if (pEntry == nullptr)
    {
        return FALSE;
    }
    pEntry->dwSessionId = ResolveSession(static_cast<DWORD>(-1));
    pEntry->pszStation = reinterpret_cast<wchar_t*>(pEntry + 1);
    std::memcpy(pEntry->pszStation, STATION, sizeof(STATION));
    pEntry->nState = script->nConnectState;
    *ppSessions = pEntry;
    *pdwCount = 1;
    return TRUE;
}

extern "C" void WINAPI WTSFreeMemory(void* pMemory)
{
    if (pMemory != nullptr)
    {
        const ScriptView script;
        InterlockedDecrement(&script->nOpenBlocks);
        HeapFree(GetProcessHeap(), 0, pMemory);
    }
}

extern "C" BOOL WINAPI WTSRegisterSessionNotification(HWND hWnd, DWORD)
{
    return IsWindow(hWnd);
}

extern "C" BOOL WINAPI WTSUnRegisterSessionNotification(HWND hWnd)
{
    return IsWindow(hWnd);
}

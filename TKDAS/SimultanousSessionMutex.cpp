#include "TKDAS/SimultanousSessionMutex.h"

#include "Include/TKLogging.h"

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("SimultanousSessionMutex");

constexpr wchar_t OTI_SESSION_NAME[] = L"Global\\TessaranOtiSessionIsInProgress";
constexpr wchar_t LOCAL_SESSION_NAME[] = L"Global\\TessaranLocalSessionIsInProgress";

void LogFailure(const wchar_t* pszWhat)
{
    const DWORD dwError = GetLastError();
    TK_LOG_WARN(g_pLogger, pszWhat << L" Error = " << dwError);
}

// Present and empty: everyone may do everything, so that a holder under the system account and a query of any
// user both work. Null, and logged, when it can't be made.
CLocalBlock CreateOpenDescriptor()
{
    CLocalBlock pDescriptor(LocalAlloc(LPTR, SECURITY_DESCRIPTOR_MIN_LENGTH));
    if (!pDescriptor)
    {
        LogFailure(L"LocalAlloc failed.");
        return pDescriptor;
    }
    if (!InitializeSecurityDescriptor(pDescriptor.get(), SECURITY_DESCRIPTOR_REVISION))
    {
        LogFailure(L"InitializeSecurityDescriptor failed.");
        pDescriptor.reset();
        return pDescriptor;
    }
    if (!SetSecurityDescriptorDacl(pDescriptor.get(), TRUE, nullptr, FALSE))
    {
        LogFailure(L"SetSecurityDescriptorDacl failed.");
        pDescriptor.reset();
    }
    return pDescriptor;
}
} // namespace

CSimultanousSessionMutex::CSimultanousSessionMutex(bool bOti)
{
    TK_LOG_DEBUG(g_pLogger, L"Session starting...");
    const CLocalBlock pDescriptor = CreateOpenDescriptor();
    if (!pDescriptor)
    {
        return;
    }
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), pDescriptor.get(), FALSE};
    m_hMutex.reset(CreateMutexW(&attributes, FALSE, bOti ? OTI_SESSION_NAME : LOCAL_SESSION_NAME));
    if (!m_hMutex)
    {
        LogFailure(L"Failed to create session mutex.");
    }
}

CSimultanousSessionMutex::~CSimultanousSessionMutex()
{
    if (m_hMutex)
    {
        TK_LOG_DEBUG(g_pLogger, L"Session terminated...");
    }
}

bool CSimultanousSessionMutex::IsSession(const wchar_t* pszName)
{
    CKernelHandle hMutex(OpenMutexW(SYNCHRONIZE, FALSE, pszName));
    // Refused access is an answer too: something of that name is there.
    const bool bExists = hMutex || GetLastError() != ERROR_FILE_NOT_FOUND;
    hMutex.reset(); // nobody shall take the question for a session
    TK_LOG_DEBUG(g_pLogger, L"Session existence checked, exist = " << bExists);
    return bExists;
}

bool CSimultanousSessionMutex::IsLocalSession()
{
    return IsSession(LOCAL_SESSION_NAME);
}

bool CSimultanousSessionMutex::IsOtiSession()
{
    return IsSession(OTI_SESSION_NAME);
}

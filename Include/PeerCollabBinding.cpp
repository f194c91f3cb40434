#include "Include/PeerCollabBinding.h"

#include "Include/LastError.h"
#include "Include/Product.h"
#include "Include/SystemCall.h"
#include "Include/UtilFile.h"
#include "Include/UtilLog.h"

namespace
{
constexpr wchar_t PEER_MODULE[] = L"P2P.dll";
constexpr GUID PEER_APPLICATION_ID = {
    0xD34D1C28, 0x7CF8, 0x4BBB, {0xB3, 0xD2, 0xCD, 0x72, 0xD4, 0xD1, 0x6C, 0x35}};
constexpr int PEER_FACILITY = 99;

bool ReportRegistration(HRESULT hrRegistered)
{
    if (FAILED(hrRegistered))
    {
        LogErrorMsg(L"Failed to register application, likely already registered", hrRegistered);
        SetLastError(hrRegistered);
        return false;
    }
    // With a code of 0 the last error would be told in its stead.
    SetLastError(ERROR_SUCCESS);
    LogErrorMsg(L"Successfully registered application", hrRegistered);
    return true;
}

HRESULT FormatMessageInto(DWORD dwFlags, HMODULE hModule, DWORD dwCode, DWORD cchText, wchar_t* pszText)
{
    const DWORD cchMessage = FormatMessageW(dwFlags | FORMAT_MESSAGE_IGNORE_INSERTS, hModule, dwCode, 0,
                                            pszText, cchText, nullptr);
    return cchMessage != 0 ? S_OK : E_FAIL;
}

HRESULT FormatPeerMessage(DWORD dwCode, DWORD cchText, wchar_t* pszText)
{
    // With a reference of its own: the binding that loaded the module goes on with it.
    CModule hModule;
    if (!GetModuleHandleExW(0, PEER_MODULE, hModule.put()))
    {
        return E_FAIL;
    }
    return FormatMessageInto(FORMAT_MESSAGE_FROM_HMODULE, hModule.get(), dwCode, cchText, pszText);
}
} // namespace

CPeerCollabBinding::CPeerCollabBinding()
{
    Load();
}

CPeerCollabBinding::~CPeerCollabBinding()
{
    Unload();
}

bool CPeerCollabBinding::Load()
{
    if (m_hModule)
    {
        return true;
    }
    m_hModule.reset(TKLoadSystemLibrary(PEER_MODULE, nullptr, 0));
    if (!m_hModule)
    {
        return false;
    }
    m_pfnStartup = FindModuleEntry<STARTUP_FUNCTION>(m_hModule.get(), "PeerCollabStartup");
    m_pfnShutdown = FindModuleEntry<SHUTDOWN_FUNCTION>(m_hModule.get(), "PeerCollabShutdown");
    m_pfnRegister = FindModuleEntry<REGISTER_FUNCTION>(m_hModule.get(), "PeerCollabRegisterApplication");
    m_pfnUnregister =
        FindModuleEntry<UNREGISTER_FUNCTION>(m_hModule.get(), "PeerCollabUnregisterApplication");
    if (!HasAllEntries())
    {
        const CKeepLastError keepLastError;
        Unload();
        return false;
    }
    return true;
}

void CPeerCollabBinding::Unload()
{
    if (m_pfnShutdown != nullptr)
    {
        m_pfnShutdown();
    }
    m_hModule.reset();
    m_pfnStartup = nullptr;
    m_pfnShutdown = nullptr;
    m_pfnRegister = nullptr;
    m_pfnUnregister = nullptr;
}

bool CPeerCollabBinding::Register(bool bAllUsers)
{
    if (!HasAllEntries())
    {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return false;
    }
    const HRESULT hrStarted = m_pfnStartup(PEER_COLLAB_VERSION);
    if (FAILED(hrStarted))
    {
        SetLastError(hrStarted);
        return false;
    }
    wchar_t szService[MAX_PATH] = {};
    if (!GetPathBesideProgram(szService, SERVICE_EXECUTABLE))
    {
        return false;
    }
    wchar_t szDescription[] = L"Tessaran KDAS"; // the structure takes no constant
    PEER_APPLICATION_REGISTRATION_INFO info = {};
    info.application.id = PEER_APPLICATION_ID;
    info.application.pwzDescription = szDescription;
    info.pwzApplicationToLaunch = szService;
    info.dwPublicationScope = PEER_PUBLICATION_SCOPE_INTERNET;
    return ReportRegistration(
        ReplaceRegistration(info, bAllUsers ? PEER_APPLICATION_ALL_USERS : PEER_APPLICATION_CURRENT_USER));
}

bool CPeerCollabBinding::HasAllEntries() const
{
    return m_pfnStartup != nullptr && m_pfnShutdown != nullptr && m_pfnRegister != nullptr &&
           m_pfnUnregister != nullptr;
}

HRESULT CPeerCollabBinding::ReplaceRegistration(const PEER_APPLICATION_REGISTRATION_INFO& info,
                                                PEER_APPLICATION_REGISTRATION_TYPE type) const
{
    HRESULT hrRegistered = m_pfnRegister(&info, type);
    if (hrRegistered == HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS))
    {
        // An earlier one may name another folder.
        m_pfnUnregister(&info.application.id, type);
        hrRegistered = m_pfnRegister(&info, type);
    }
    return hrRegistered;
}

HRESULT GetPeerErrorText(HRESULT hrError, DWORD cchText, wchar_t* pszText)
{
    if (cchText == 0)
    {
        return E_FAIL;
    }
    if (HRESULT_FACILITY(hrError) == PEER_FACILITY)
    {
        return FormatPeerMessage(hrError, cchText, pszText);
    }
    const DWORD dwCode = HRESULT_FACILITY(hrError) == FACILITY_WIN32 ? HRESULT_CODE(hrError) : hrError;
    return FormatMessageInto(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, dwCode, cchText, pszText);
}

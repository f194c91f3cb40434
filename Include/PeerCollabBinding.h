#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <p2p.h>

#include "Include/Handles.h"

/// The system's Peer Collaboration, bound at run time, as not every Windows has it. It registers the
/// service's executable as a peer application, so that the system can start it on a contact's invitation.
///
/// One thread at a time.
class CPeerCollabBinding
{
  public:
    /// Loads at once; Load tells whether that worked.
    CPeerCollabBinding();
    ~CPeerCollabBinding();
    CPeerCollabBinding(const CPeerCollabBinding&) = delete;
    CPeerCollabBinding& operator=(const CPeerCollabBinding&) = delete;

    /// Binds the module, unless it is bound already. Result: whether it is bound now; if not, the last error
    /// is that of the module or of the entry that is missing.
    bool Load();

    /// Ends the collaboration and frees the module. Load may follow.
    void Unload();

    /// Registers the service's executable beside this program for all users of the machine or for this one,
    /// in the place of an earlier registration. What came of it goes to the event log. Result: whether it is
    /// registered; if not, the last error is the HRESULT, ERROR_MOD_NOT_FOUND when nothing is bound, or why
    /// the program's folder isn't known.
    bool Register(bool bAllUsers);

  private:
    using STARTUP_FUNCTION = decltype(&PeerCollabStartup);
    using SHUTDOWN_FUNCTION = decltype(&PeerCollabShutdown);
    using REGISTER_FUNCTION = decltype(&PeerCollabRegisterApplication);
    using UNREGISTER_FUNCTION = decltype(&PeerCollabUnregisterApplication);

    bool HasAllEntries() const;
    HRESULT ReplaceRegistration(const PEER_APPLICATION_REGISTRATION_INFO& info,
                                PEER_APPLICATION_REGISTRATION_TYPE type) const;

    CModule m_hModule;
    STARTUP_FUNCTION m_pfnStartup = nullptr;
    SHUTDOWN_FUNCTION m_pfnShutdown = nullptr;
    REGISTER_FUNCTION m_pfnRegister = nullptr;
    UNREGISTER_FUNCTION m_pfnUnregister = nullptr;
};

/// The words for an HRESULT, those of the peer module (as far as it is loaded) or of the system, in a buffer
/// of cchText characters. Result: S_OK, or E_FAIL when there are none or they don't fit. Any thread.
HRESULT GetPeerErrorText(HRESULT hrError, DWORD cchText, wchar_t* pszText);

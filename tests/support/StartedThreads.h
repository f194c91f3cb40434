#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"
#include "tests/support/ImportHook.h"

#include <cstdint>
#include <vector>

/// Keeps a handle to every thread that is started while the object lives, as the agent itself joins none. One
/// object at a time, on the thread that starts them.
class StartedThreads
{
  public:
    StartedThreads();
    ~StartedThreads();
    StartedThreads(const StartedThreads&) = delete;
    StartedThreads& operator=(const StartedThreads&) = delete;

    /// The threads since the last JoinAll.
    size_t Count() const { return m_threads.size(); }

    /// True when all of them end in time; then forgets them.
    bool JoinAll(DWORD dwTimeoutMs);

    unsigned(__stdcall* m_pfnOnly)(void*) = nullptr; // if set, other threads are none of this object's
    bool m_bRefuse = false;                          // the system doesn't start them any more

  private:
    static StartedThreads* s_pThis;
    static uintptr_t __cdecl Begin(void* pSecurity, unsigned uStack, unsigned(__stdcall* pfnThread)(void*),
                                   void* pParameter, unsigned uFlags, unsigned* puId);

    std::vector<CKernelHandle> m_threads;
    ImportHook<decltype(Begin)> m_begin{"msvcrt.dll", "_beginthreadex", &Begin};
};

#include "tests/support/StartedThreads.h"

#include <algorithm>
#include <utility>

StartedThreads* StartedThreads::s_pThis = nullptr;

StartedThreads::StartedThreads()
{
    s_pThis = this;
}

StartedThreads::~StartedThreads()
{
    s_pThis = nullptr;
}

bool StartedThreads::JoinAll(DWORD dwTimeoutMs)
{
    const bool bAll = std::all_of(m_threads.begin(), m_threads.end(), [=](const CKernelHandle& hThread) {
        return WaitForSingleObject(hThread.get(), dwTimeoutMs) == WAIT_OBJECT_0;
    });
    m_threads.clear();
    return bAll;
}

uintptr_t __cdecl StartedThreads::Begin(void* pSecurity, unsigned uStack,
                                        unsigned(__stdcall* pfnThread)(void*), void* pParameter,
                                        unsigned uFlags, unsigned* puId)
{
    const bool bMine = s_pThis->m_pfnOnly == nullptr || s_pThis->m_pfnOnly == pfnThread;
    if (bMine && s_pThis->m_bRefuse)
    {
        return 0;
    }
    const uintptr_t uThread =
        s_pThis->m_begin.Original()(pSecurity, uStack, pfnThread, pParameter, uFlags, puId);
    if (!bMine)
    {
        return uThread;
    }
    CKernelHandle hThread;
    DuplicateHandle(GetCurrentProcess(), reinterpret_cast<HANDLE>(uThread), GetCurrentProcess(),
                    hThread.put(), 0, FALSE, DUPLICATE_SAME_ACCESS);
    s_pThis->m_threads.push_back(std::move(hThread));
    return uThread;
}

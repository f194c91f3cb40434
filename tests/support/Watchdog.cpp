#include "tests/support/Watchdog.h"

#include "Include/Handles.h"
#include "tests/support/StackPrinter.h"

#include <atomic>
#include <csignal>
#include <cstdio>

namespace
{
constexpr ULONGLONG NEVER = ~0ULL;
constexpr DWORD STACK_PRINTING_LIMIT_MS = 15000;

std::atomic<Watchdog*> g_pWatchdog = nullptr;

DWORD WINAPI EndUnprinted(void*)
{
    Sleep(STACK_PRINTING_LIMIT_MS);
    TerminateProcess(GetCurrentProcess(), EXIT_TEST_STUCK);
    return 0;
}

LONG WINAPI OnUnhandledException(EXCEPTION_POINTERS* pException)
{
    std::fflush(stdout);
    std::fprintf(stderr, "Unhandled exception 0x%08lx at %p in thread %lu:\n",
                 pException->ExceptionRecord->ExceptionCode, pException->ExceptionRecord->ExceptionAddress,
                 GetCurrentThreadId());
    PrintStack(*pException->ContextRecord);
    TerminateProcess(GetCurrentProcess(), EXIT_TEST_CRASHED);
    return EXCEPTION_EXECUTE_HANDLER;
}

void OnAbort(int)
{
    std::fflush(stdout);
    std::fprintf(stderr, "abort() in thread %lu:\n", GetCurrentThreadId());
    CONTEXT context = {};
    RtlCaptureContext(&context);
    PrintStack(context);
    TerminateProcess(GetCurrentProcess(), EXIT_TEST_CRASHED);
}
} // namespace

Watchdog::Watchdog()
    : m_qwDeadline(NEVER), m_hChanged(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      m_hThread(CreateThread(nullptr, 0, Run, this, 0, nullptr))
{
    g_pWatchdog = this;
}

Watchdog::~Watchdog()
{
    g_pWatchdog = nullptr;
    {
        const std::lock_guard guard(m_lock);
        m_bStop = true;
    }
    SetEvent(m_hChanged);
    WaitForSingleObject(m_hThread, INFINITE);
    CloseHandle(m_hThread);
    CloseHandle(m_hChanged);
}

void Watchdog::Arm(const std::string& name, DWORD dwLimitMs)
{
    const std::lock_guard guard(m_lock);
    m_name = name;
    m_qwDeadline = GetTickCount64() + dwLimitMs;
    SetEvent(m_hChanged);
}

void Watchdog::Disarm()
{
    const std::lock_guard guard(m_lock);
    m_qwDeadline = NEVER;
    SetEvent(m_hChanged);
}

void Watchdog::Allow(DWORD dwLimitMs)
{
    Watchdog* pWatchdog = g_pWatchdog;
    if (pWatchdog != nullptr)
    {
        const std::lock_guard guard(pWatchdog->m_lock);
        pWatchdog->m_qwDeadline = GetTickCount64() + dwLimitMs;
        SetEvent(pWatchdog->m_hChanged);
    }
}

DWORD WINAPI Watchdog::Run(void* pThis)
{
    static_cast<Watchdog*>(pThis)->Loop();
    return 0;
}

void Watchdog::Loop()
{
    for (;;)
    {
        DWORD dwWait = INFINITE;
        {
            const std::lock_guard guard(m_lock);
            if (m_bStop)
            {
                return;
            }
            const ULONGLONG qwNow = GetTickCount64();
            if (m_qwDeadline != NEVER)
            {
                dwWait = m_qwDeadline > qwNow ? static_cast<DWORD>(m_qwDeadline - qwNow) : 0;
            }
        }
        if (dwWait == 0)
        {
            EndProcess();
        }
        WaitForSingleObject(m_hChanged, dwWait);
    }
}

void Watchdog::EndProcess()
{
    const CKernelHandle hLastResort(CreateThread(nullptr, 0, EndUnprinted, nullptr, 0, nullptr));
    std::fflush(stdout);
    std::fprintf(stderr, "Stuck: %s\n", m_name.c_str());
    PrintOtherThreads();
    TerminateProcess(GetCurrentProcess(), EXIT_TEST_STUCK);
    for (;;)
    {
        Sleep(INFINITE);
    }
}

void InstallCrashFilter()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    SetUnhandledExceptionFilter(OnUnhandledException);
    std::signal(SIGABRT, OnAbort);
}

#pragma once

#include <mutex>
#include <string>

#include <winsock2.h>
#include <windows.h>

/// Exit codes by which a runner tells a crash and a hang from failed expectations. Below 256, as a shell
/// outside of the test system sees only the low eight bits.
constexpr UINT EXIT_TEST_CRASHED = 70;
constexpr UINT EXIT_TEST_STUCK = 71;

/// How long one test may take unless it asks for more.
constexpr DWORD DEFAULT_TEST_LIMIT_MS = 120000;

/// Ends the process with EXIT_TEST_STUCK when a test outlives its limit, after the stacks of all threads were
/// printed. One object per process, made by the test programs' main; its operations may run on any thread.
class Watchdog
{
  public:
    Watchdog();
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    /// Starts to count for the named test, dropping an earlier count.
    void Arm(const std::string& name, DWORD dwLimitMs = DEFAULT_TEST_LIMIT_MS);
    void Disarm();

    /// Gives the running test that long from now on. Does nothing in a program without a watchdog.
    static void Allow(DWORD dwLimitMs);

  private:
    static DWORD WINAPI Run(void* pThis);
    void Loop();
    [[noreturn]] void EndProcess();

    std::mutex m_lock;
    std::string m_name;
    ULONGLONG m_qwDeadline;
    HANDLE m_hChanged;
    HANDLE m_hThread;
    bool m_bStop = false;
};

/// Makes an unhandled exception and abort() print the stack and end the process with EXIT_TEST_CRASHED, in
/// place of a dialog that nobody would see.
void InstallCrashFilter();

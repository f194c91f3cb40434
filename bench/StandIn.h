#pragma once

#include "Include/Handles.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

/// The staged stand-in service in a process of its own, which is told what to do line by line. Main thread.
class StandIn
{
  public:
    /// Starts it; Play tells whether it could be started.
    StandIn();
    /// Ends it.
    ~StandIn();
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

    /// Has it run the lines, and waits until it has. False when something went otherwise than they expect,
    /// which ends it. What it has said meanwhile, the reason too, is in Said.
    bool Play(const std::string& lines, DWORD dwTimeoutMs);
    std::string Said() const;

  private:
    CKernelHandle m_hProcess;
    CKernelHandle m_hInput;
    CKernelHandle m_hOutput;
    unsigned int m_uPlayed = 0;

    // Guarded by m_lock.
    mutable std::mutex m_lock;
    std::condition_variable m_arrived;
    std::string m_said;
    bool m_bSilent = false; // no more will come

    std::thread m_reader;

    void Start(HANDLE hInput, HANDLE hOutput);
    void Listen();
};

#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

/// How long an attempt takes that nobody cancels.
constexpr std::chrono::milliseconds REVERSE_ATTEMPT_TIME{3000};

/// Ends each agent's attempt to reach a viewer when its time has come. All operations may be called from any
/// thread but inside an end.
class CReverseAttempts
{
  public:
    /// Called on a thread of this object's, one call at a time.
    explicit CReverseAttempts(std::function<void(unsigned int uAgent)> end);
    ~CReverseAttempts();
    CReverseAttempts(const CReverseAttempts&) = delete;
    CReverseAttempts& operator=(const CReverseAttempts&) = delete;

    /// Starts an agent's attempt, instead of its earlier one if there is any.
    void Begin(unsigned int uAgent);
    /// Its time has come at once; nothing when there is none.
    void Cancel(unsigned int uAgent);
    /// There is no attempt any more, and no end of it.
    void Forget(unsigned int uAgent);

  private:
    using CLOCK = std::chrono::steady_clock;

    void Run();
    std::map<unsigned int, CLOCK::time_point>::iterator FindNext();

    const std::function<void(unsigned int uAgent)> m_end;
    std::mutex m_mutex; // guards all below it; not held while an end runs
    std::condition_variable m_changed;
    std::map<unsigned int, CLOCK::time_point> m_due;
    bool m_bStopping = false;
    std::thread m_thread;
};

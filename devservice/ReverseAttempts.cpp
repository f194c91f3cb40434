#include "devservice/ReverseAttempts.h"

#include <algorithm>
#include <utility>

CReverseAttempts::CReverseAttempts(std::function<void(unsigned int uAgent)> end) : m_end(std::move(end))
{
    m_thread = std::thread([this] { Run(); });
}

CReverseAttempts::~CReverseAttempts()
{
    {
        const std::lock_guard lock(m_mutex);
        m_bStopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void CReverseAttempts::Begin(unsigned int uAgent)
{
    {
        const std::lock_guard lock(m_mutex);
        m_due[uAgent] = CLOCK::now() + REVERSE_ATTEMPT_TIME;
    }
    m_changed.notify_all();
}

void CReverseAttempts::Cancel(unsigned int uAgent)
{
    {
        const std::lock_guard lock(m_mutex);
        if (const auto found = m_due.find(uAgent); found != m_due.end())
        {
            found->second = CLOCK::now();
        }
    }
    m_changed.notify_all();
}

void CReverseAttempts::Forget(unsigned int uAgent)
{
    const std::lock_guard lock(m_mutex);
    m_due.erase(uAgent);
}

std::map<unsigned int, CReverseAttempts::CLOCK::time_point>::iterator CReverseAttempts::FindNext()
{
    return std::min_element(m_due.begin(), m_due.end(), [](const auto& first, const auto& second) {
        return first.second < second.second;
    });
}

void CReverseAttempts::Run()
{
    std::unique_lock lock(m_mutex);
    while (!m_bStopping)
    {
        const auto next = FindNext();
        if (next == m_due.end())
        {
            m_changed.wait(lock);
            continue;
        }
        const CLOCK::time_point due = next->second;
        if (CLOCK::now() < due)
        {
            m_changed.wait_until(lock, due);
            continue;
        }
        const unsigned int uAgent = next->first;
        m_due.erase(next);
        lock.unlock();
        m_end(uAgent);
        lock.lock();
    }
}

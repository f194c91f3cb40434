#pragma once

#include <chrono>

/// Seconds since it was made.
class Stopwatch
{
  public:
    double Seconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    }

  private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

#pragma once

#include "bench/Report.h"

#include <functional>
#include <string>
#include <vector>

/// Something that was counted again and again while something else was repeated, and that must not grow.
class FlatSeries
{
  public:
    FlatSeries(std::string name, std::string unit, Bound bound, double dLimit)
        : m_figure{std::move(name), std::move(unit), 0, 0, 0, bound, dLimit}
    {
    }

    template <typename Number>
    void Add(Number count)
    {
        m_samples.push_back(static_cast<double>(count));
    }

    /// The median of the last quarter beside that of the second one: the first may still be settling.
    void Tell(Report& report);

  private:
    Figure m_figure;
    std::vector<double> m_samples;
};

/// Repeats the work a tenth of so many rounds. False when it was stopped.
bool WarmUp(unsigned int uRounds, const std::function<bool()>& work);

/// Repeats the work, which answers false to stop, and samples behind every so many rounds. Says now and then
/// how far it is. False when it was stopped.
bool RepeatAndSample(const char* pszWhat, unsigned int uRounds, const std::function<bool()>& work,
                     const std::function<void()>& sample);

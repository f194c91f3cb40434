#include "tests/soak/FlatSeries.h"

#include "bench/Stopwatch.h"

#include <algorithm>
#include <cstdio>

namespace
{
constexpr size_t QUARTERS = 4;
constexpr unsigned int MOST_SAMPLES = 40;
constexpr unsigned int ROUNDS_A_SAMPLE = 5; // where there are few rounds
constexpr unsigned int PROGRESS_LINES = 10;
constexpr unsigned int WARMING_SHARE = 10;

double QuarterMedian(const std::vector<double>& samples, size_t nQuarter)
{
    const size_t nFirst = samples.size() * nQuarter / QUARTERS;
    const size_t nEnd = samples.size() * (nQuarter + 1) / QUARTERS;
    return Median(std::vector<double>(samples.begin() + static_cast<std::ptrdiff_t>(nFirst),
                                      samples.begin() + static_cast<std::ptrdiff_t>(nEnd)));
}

/// How many rounds lie between two samples.
unsigned int RoundsBetween(unsigned int uRounds)
{
    const unsigned int uSamples =
        std::clamp(uRounds / ROUNDS_A_SAMPLE, static_cast<unsigned int>(QUARTERS), MOST_SAMPLES);
    return std::max(uRounds / uSamples, 1U);
}
} // namespace

void FlatSeries::Tell(Report& report)
{
    if (m_samples.size() < QUARTERS)
    {
        report.Fail(m_figure.name + ": counted too seldom");
        return;
    }
    m_figure.dReference = QuarterMedian(m_samples, 1);
    m_figure.dMeasured = QuarterMedian(m_samples, QUARTERS - 1);
    m_figure.dRatio = m_figure.dReference > 0 ? m_figure.dMeasured / m_figure.dReference : 0;
    report.Add(m_figure);
}

bool WarmUp(unsigned int uRounds, const std::function<bool()>& work)
{
    bool bGoesOn = true;
    for (unsigned int uRound = 0; uRound < uRounds / WARMING_SHARE && bGoesOn; ++uRound)
    {
        bGoesOn = work();
    }
    return bGoesOn;
}

bool RepeatAndSample(const char* pszWhat, unsigned int uRounds, const std::function<bool()>& work,
                     const std::function<void()>& sample)
{
    const Stopwatch stopwatch;
    const unsigned int uSampled = RoundsBetween(uRounds);
    const unsigned int uTold = std::max(uRounds / PROGRESS_LINES, 1U);
    for (unsigned int uRound = 1; uRound <= uRounds; ++uRound)
    {
        if (!work())
        {
            return false;
        }
        if (uRound % uSampled == 0)
        {
            sample();
        }
        if (uRound % uTold == 0)
        {
            std::fprintf(stderr, "%s: %u of %u, %.0f s\n", pszWhat, uRound, uRounds, stopwatch.Seconds());
        }
    }
    return true;
}

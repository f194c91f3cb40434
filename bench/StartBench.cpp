#include "bench/AgentStarts.h"
#include "bench/Benchmarks.h"
#include "bench/Report.h"

namespace
{
constexpr char WITH_WINDOW[] = "start to handshake / minimal, window";
constexpr char WITHOUT_WINDOW[] = "start to handshake / minimal, no window";
constexpr double MOST_OF_MINIMAL = 1.5;
constexpr int WARM_UPS = 2;
constexpr int STARTS = 25;

/// One of the programs whose starts are compared, and the times of its starts.
struct Contestant
{
    const AgentKind& kind;
    const wchar_t* pszParameters;
    std::vector<double> times;

    bool StartOnce()
    {
        constexpr double MILLISECONDS = 1000; // in a second
        const AgentSession session(kind, pszParameters);
        times.push_back(session.Seconds() * MILLISECONDS);
        return session.HasAnswered();
    }
};

bool StartInTurns(std::vector<Contestant>& contestants, int nTurns)
{
    for (int nTurn = 0; nTurn < nTurns; ++nTurn)
    {
        for (Contestant& contestant : contestants)
        {
            if (!contestant.StartOnce())
            {
                return false;
            }
        }
    }
    return true;
}

void AddFigure(Report& report, const char* pszName, const Contestant& measured, const Contestant& reference,
               Bound bound)
{
    const Comparison comparison = Compare(measured.times, reference.times);
    report.Add({pszName, "ms", comparison.dMeasured, comparison.dReference, comparison.dRatio, bound,
                MOST_OF_MINIMAL});
}
} // namespace

std::vector<std::string> StartFigureNames()
{
    return {WITH_WINDOW, WITHOUT_WINDOW};
}

void MeasureStart(Report& report)
{
    const AgentKinds kinds;
    if (!kinds.AreReady())
    {
        report.Fail("start: the agents' folders can't be made");
        return;
    }
    std::vector<Contestant> contestants = {
        {*kinds.pMinimal, L"", {}}, {*kinds.pMinimal, WITH_HIDDEN_WINDOW, {}}, {*kinds.pProduct, L"", {}}};
    bool bAnswered = StartInTurns(contestants, WARM_UPS);
    for (Contestant& contestant : contestants)
    {
        contestant.times.clear();
    }
    bAnswered = bAnswered && StartInTurns(contestants, STARTS);
    if (!bAnswered)
    {
        report.Fail("start: an agent didn't answer");
        return;
    }
    const Contestant& product = contestants[2];
    AddFigure(report, WITH_WINDOW, product, contestants[1], Bound::RatioAtMost);
    AddFigure(report, WITHOUT_WINDOW, product, contestants[0], Bound::None);
}

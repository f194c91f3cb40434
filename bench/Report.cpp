#include "bench/Report.h"

#include "tests/support/AgentFolder.h"

#include <algorithm>
#include <cstdio>

namespace
{
constexpr size_t MAX_LINE = 256; // characters

template <typename... Values>
std::string Format(const char* pszFormat, Values... values)
{
    char szLine[MAX_LINE] = {};
    std::snprintf(szLine, sizeof(szLine), pszFormat, values...);
    return szLine;
}

const char* Verdict(const Figure& figure)
{
    if (figure.bound == Bound::None)
    {
        return "no limit";
    }
    return figure.Holds() ? "holds" : "DOES NOT HOLD";
}

std::string LimitText(const Figure& figure)
{
    switch (figure.bound)
    {
    case Bound::RatioAtLeast:
        return Format(">= %.2f", figure.dLimit);
    case Bound::RatioAtMost:
        return Format("<= %.2f", figure.dLimit);
    case Bound::NoMoreThanReference:
        return "<= ref";
    default:
        return "-";
    }
}

std::string Line(const Figure& figure)
{
    return Format("%-54s %12.3f %12.3f %-9s %6.3f  %-8s %s", figure.name.c_str(), figure.dMeasured,
                  figure.dReference, figure.unit.c_str(), figure.dRatio, LimitText(figure).c_str(),
                  Verdict(figure));
}
} // namespace

bool Figure::Holds() const
{
    switch (bound)
    {
    case Bound::RatioAtLeast:
        return dRatio >= dLimit;
    case Bound::RatioAtMost:
        return dRatio <= dLimit;
    case Bound::NoMoreThanReference:
        return dMeasured <= dReference;
    default:
        return true;
    }
}

double Median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

Comparison Compare(const std::vector<double>& measured, const std::vector<double>& reference)
{
    std::vector<double> ratios;
    std::transform(measured.begin(), measured.end(), reference.begin(), std::back_inserter(ratios),
                   [](double dMeasured, double dReference) { return dMeasured / dReference; });
    return {Median(measured), Median(reference), Median(ratios)};
}

void Report::Add(Figure figure)
{
    if (m_figures.empty())
    {
        std::puts(Heading().c_str());
    }
    std::puts(Line(figure).c_str());
    std::fflush(stdout);
    m_figures.push_back(std::move(figure));
}

void Report::Fail(const std::string& what)
{
    std::printf("FAILED: %s\n", what.c_str());
    std::fflush(stdout);
    m_failures.push_back(what);
}

void Report::ExpectAdded(std::string_view part, const std::vector<std::string>& names)
{
    const bool bAsNamed = std::equal(
        m_figures.begin() + static_cast<std::ptrdiff_t>(m_nExpected), m_figures.end(), names.begin(),
        names.end(), [](const Figure& figure, const std::string& name) { return figure.name == name; });
    // What has failed has said so already.
    const bool bFailed = m_failures.size() > m_nKnownFailures;
    m_nExpected = m_figures.size();
    m_nKnownFailures = m_failures.size();
    if (!bAsNamed && !bFailed)
    {
        Fail(std::string(part) + ": the figures aren't those that the program names");
    }
}

bool Report::AllHold() const
{
    return m_failures.empty() && std::all_of(m_figures.begin(), m_figures.end(),
                                             [](const Figure& figure) { return figure.Holds(); });
}

bool Report::Write(const std::filesystem::path& folder) const
{
    return WriteFileText(folder / L"results.txt", Text()) && WriteFileText(folder / L"results.json", Json());
}

std::string Report::Heading() const
{
    return Format("%-54s %12s %12s %-9s %6s  %-8s %s", "figure", m_headings.pszMeasured,
                  m_headings.pszReference, "unit", "ratio", "limit", "verdict");
}

std::string Report::Text() const
{
    std::string text = Heading() + "\n";
    for (const Figure& figure : m_figures)
    {
        text += Line(figure) + "\n";
    }
    for (const std::string& failure : m_failures)
    {
        text += "FAILED: " + failure + "\n";
    }
    return text;
}

// Names and units are this program's own and hold nothing that would need escaping.
std::string Report::Json() const
{
    std::string text = "[";
    for (const Figure& figure : m_figures)
    {
        text += text.size() > 1 ? ",\n " : "\n ";
        text += R"({"name": ")" + figure.name + R"(", "unit": ")" + figure.unit + R"(", )";
        text += Format(R"("measured": %.6g, "reference": %.6g, "ratio": %.4g, )", figure.dMeasured,
                       figure.dReference, figure.dRatio);
        text += R"("limit": ")" + LimitText(figure) + R"(", "verdict": ")" + Verdict(figure) + R"("})";
    }
    return text + "\n]\n";
}

#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

enum class Bound
{
    RatioAtLeast,
    RatioAtMost,
    NoMoreThanReference, // for counts that may both be zero
    None,                // shown beside its reference, with no verdict
};

/// A measured value beside what was measured in the same run to hold it against.
struct Figure
{
    std::string name;
    std::string unit;
    double dMeasured;
    double dReference;
    double dRatio;
    Bound bound;
    double dLimit; // of the ratio

    /// Whether the ratio keeps the bound.
    bool Holds() const;
};

/// The medians of two series that were measured in turns, and the median of the ratios of their pairs: a
/// load that comes and goes meets both halves of a pair.
struct Comparison
{
    double dMeasured;
    double dReference;
    double dRatio;
};

/// The median; there must be a value.
double Median(std::vector<double> values);
/// Of two series of one length, which isn't zero.
Comparison Compare(const std::vector<double>& measured, const std::vector<double>& reference);

/// What stands above the two values of a figure.
struct ReportHeadings
{
    const char* pszMeasured = "measured";
    const char* pszReference = "reference";
};

/// Collects the figures of one run and prints each as it comes. Main thread.
class Report
{
  public:
    explicit Report(const ReportHeadings& headings = {}) : m_headings(headings) {}

    /// Prints the figure, too.
    void Add(Figure figure);
    /// Something couldn't be measured, which is as bad as a limit that doesn't hold.
    void Fail(const std::string& what);

    /// The figures that have been added since the last call must be those, in their order.
    void ExpectAdded(std::string_view part, const std::vector<std::string>& names);

    /// Whether no figure is beyond its limit and nothing has failed.
    bool AllHold() const;
    /// Writes results.txt and results.json; false when one of them couldn't be written.
    bool Write(const std::filesystem::path& folder) const;

  private:
    ReportHeadings m_headings;
    std::vector<Figure> m_figures;
    std::vector<std::string> m_failures;
    // As they were at the last ExpectAdded.
    size_t m_nExpected = 0; // figures
    size_t m_nKnownFailures = 0;

    std::string Heading() const;
    std::string Text() const;
    std::string Json() const;
};

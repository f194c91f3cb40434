#include "bench/Benchmarks.h"
#include "bench/Report.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <vector>

namespace
{
struct BENCHMARK_ROW
{
    std::string_view name;
    std::vector<std::string> (*pfnFigureNames)();
    void (*pfnMeasure)(Report& report);
};

// The rest and the crowd come last: they want a machine that the others have left alone for a while.
constexpr BENCHMARK_ROW s_aBenchmarks[] = {
    {"sizes", SizeFigureNames, MeasureSizes},     {"logblock", LogBlockFigureNames, MeasureLogBlock},
    {"reader", ReaderFigureNames, MeasureReader}, {"chat", ChatFigureNames, MeasureChat},
    {"icon", IconFigureNames, MeasureIcon},       {"popup", PopupFigureNames, MeasurePopup},
    {"start", StartFigureNames, MeasureStart},    {"rest", RestFigureNames, MeasureRest},
    {"crowd", CrowdFigureNames, MeasureCrowd},
};

constexpr std::string_view LIST_FIGURES = "--figures";

/// Each figure on a line of its own, behind the name of its part.
int ListFigures()
{
    for (const BENCHMARK_ROW& row : s_aBenchmarks)
    {
        for (const std::string& name : row.pfnFigureNames())
        {
            std::printf("%s\t%s\n", row.name.data(), name.c_str());
        }
    }
    return 0;
}

int Usage()
{
    std::fputs("usage: benchmarks --figures | FOLDER [NAME...]\nNames:", stderr);
    for (const BENCHMARK_ROW& row : s_aBenchmarks)
    {
        std::fprintf(stderr, " %s", row.name.data());
    }
    std::fputs("\n", stderr);
    return 2;
}

bool IsKnown(std::string_view name)
{
    return std::any_of(std::begin(s_aBenchmarks), std::end(s_aBenchmarks),
                       [name](const BENCHMARK_ROW& row) { return row.name == name; });
}
} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        return Usage();
    }
    if (argv[1] == LIST_FIGURES)
    {
        return ListFigures();
    }
    const std::vector<std::string_view> wanted(argv + 2, argv + argc);
    if (!std::all_of(wanted.begin(), wanted.end(), IsKnown))
    {
        return Usage();
    }
    Report report;
    for (const BENCHMARK_ROW& row : s_aBenchmarks)
    {
        if (wanted.empty() || std::find(wanted.begin(), wanted.end(), row.name) != wanted.end())
        {
            row.pfnMeasure(report);
            report.ExpectAdded(row.name, row.pfnFigureNames());
        }
    }
    if (!report.Write(argv[1]))
    {
        std::fprintf(stderr, "can't write into %s\n", argv[1]);
        return 1;
    }
    return report.AllHold() ? 0 : 1;
}

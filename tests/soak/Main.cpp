#include "Include/TKLogging.h"
#include "bench/Report.h"
#include "tests/soak/Soaks.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <vector>

namespace
{
struct SOAK_ROW
{
    std::string_view name;
    void (*pfnSoak)(Report& report, const SOAK_RUN& run);
};

// Those in this process come last, as they write into the log that the staged agents keep.
constexpr SOAK_ROW s_aSoaks[] = {
    {"sessions", SoakSessions}, {"starts", SoakStarts}, {"window", SoakWindow}, {"lives", SoakLives}};

constexpr int FIXED_ARGUMENTS = 5;

int Usage()
{
    std::fputs("usage: soak FOLDER CYCLES STARTS SEED [NAME...]\nNames:", stderr);
    for (const SOAK_ROW& row : s_aSoaks)
    {
        std::fprintf(stderr, " %s", row.name.data());
    }
    std::fputs("\n", stderr);
    return 2;
}

bool IsKnown(std::string_view name)
{
    return std::any_of(std::begin(s_aSoaks), std::end(s_aSoaks),
                       [name](const SOAK_ROW& row) { return row.name == name; });
}

unsigned int NumberOf(const char* pszText)
{
    return static_cast<unsigned int>(std::strtoul(pszText, nullptr, 10));
}
} // namespace

int main(int argc, char** argv)
{
    if (argc < FIXED_ARGUMENTS)
    {
        return Usage();
    }
    const std::vector<std::string_view> wanted(argv + FIXED_ARGUMENTS, argv + argc);
    if (!std::all_of(wanted.begin(), wanted.end(), IsKnown))
    {
        return Usage();
    }
    log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
    const SOAK_RUN run = {NumberOf(argv[2]), NumberOf(argv[3]), NumberOf(argv[4])};
    Report report({"at the end", "at the start"});
    for (const SOAK_ROW& row : s_aSoaks)
    {
        if (wanted.empty() || std::find(wanted.begin(), wanted.end(), row.name) != wanted.end())
        {
            row.pfnSoak(report, run);
        }
    }
    if (!report.Write(argv[1]))
    {
        std::fprintf(stderr, "can't write into %s\n", argv[1]);
        return 1;
    }
    return report.AllHold() ? 0 : 1;
}

#include "bench/Benchmarks.h"
#include "bench/Report.h"

#include "tests/support/AgentFolder.h"

#include <algorithm>
#include <filesystem>
#include <map>

namespace
{
constexpr double BYTES_OF_A_KIB = 1024;
constexpr double MOST_OF_LOGGER = 1.3;
constexpr double MOST_OF_ENGLISH = 1.1;
constexpr double MOST_OF_STAGE = 0.5;
constexpr wchar_t PACKAGE_FOLDER_VARIABLE[] = L"TKDAST_PACKAGE";

constexpr char AGENT[] = "TKDAST.exe";
constexpr char WORDS[] = "TKDASTRES.dll";
constexpr char AGENT_OF_LOGGER[] = "size of TKDAST.exe / minimal program that logs";
constexpr char AGENT_OF_MINIMAL[] = "size of TKDAST.exe / minimal program";
constexpr char STAGE[] = "size of all that is staged / TKDAST.exe";
constexpr char INSTALLER[] = "size of the installer / staged";
constexpr char ARCHIVE[] = "size of the archive / staged";

bool IsBinary(const std::filesystem::path& file)
{
    std::wstring suffix = file.extension().wstring();
    std::transform(suffix.begin(), suffix.end(), suffix.begin(), towlower);
    return suffix == L".exe" || suffix == L".dll";
}

/// KiB of every staged file by its name below the stage.
std::map<std::string, double> StagedSizes()
{
    std::map<std::string, double> sizes;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(StageFolder()))
    {
        if (entry.is_regular_file())
        {
            const std::string name = entry.path().lexically_relative(StageFolder()).generic_string();
            sizes[name] = static_cast<double>(entry.file_size()) / BYTES_OF_A_KIB;
        }
    }
    return sizes;
}

/// The staged programs and modules but the agent, which has figures of its own.
std::vector<std::string> OtherBinaries(const std::map<std::string, double>& staged)
{
    std::vector<std::string> names;
    for (const auto& [name, dSize] : staged)
    {
        if (name != AGENT && IsBinary(name))
        {
            names.push_back(name);
        }
    }
    return names;
}

/// The words of another language stand beside the English ones, all others beside the agent.
const char* ReferenceOf(const std::string& name)
{
    return name != WORDS && name.ends_with(WORDS) ? WORDS : AGENT;
}

std::string NameOf(const std::string& name)
{
    return "size of " + name + " / " + ReferenceOf(name);
}

/// KiB; zero when there is no such file.
double SizeOf(const std::filesystem::path& file)
{
    std::error_code error;
    const auto uBytes = std::filesystem::file_size(file, error);
    return error ? 0 : static_cast<double>(uBytes) / BYTES_OF_A_KIB;
}

double SizeOfPackage(const char* pszSuffix)
{
    const wchar_t* const pszFolder = _wgetenv(PACKAGE_FOLDER_VARIABLE);
    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator(pszFolder != nullptr ? pszFolder : L"", error))
    {
        if (entry.path().filename().string().ends_with(pszSuffix))
        {
            return SizeOf(entry.path());
        }
    }
    return 0;
}

void AddSize(Report& report, const std::string& name, double dSize, double dReference,
             Bound bound = Bound::None, double dLimit = 0)
{
    if (dSize <= 0 || dReference <= 0)
    {
        report.Fail(name + ": there is no such file");
        return;
    }
    report.Add({name, "KiB", dSize, dReference, dSize / dReference, bound, dLimit});
}
} // namespace

std::vector<std::string> SizeFigureNames()
{
    std::vector<std::string> names = {AGENT_OF_LOGGER, AGENT_OF_MINIMAL};
    for (const std::string& name : OtherBinaries(StagedSizes()))
    {
        names.push_back(NameOf(name));
    }
    names.insert(names.end(), {STAGE, INSTALLER, ARCHIVE});
    return names;
}

void MeasureSizes(Report& report)
{
    const std::map<std::string, double> staged = StagedSizes();
    const auto sizeOf = [&staged](const std::string& name) {
        const auto found = staged.find(name);
        return found == staged.end() ? 0 : found->second;
    };
    const std::filesystem::path minimal = TestProgramFolder() / L"bench";
    AddSize(report, AGENT_OF_LOGGER, sizeOf(AGENT), SizeOf(minimal / L"minimal_logger.exe"),
            Bound::RatioAtMost, MOST_OF_LOGGER);
    AddSize(report, AGENT_OF_MINIMAL, sizeOf(AGENT), SizeOf(minimal / L"minimal_agent.exe"));
    for (const std::string& name : OtherBinaries(staged))
    {
        const std::string reference = ReferenceOf(name);
        AddSize(report, NameOf(name), sizeOf(name), sizeOf(reference),
                reference == WORDS ? Bound::RatioAtMost : Bound::None, MOST_OF_ENGLISH);
    }
    double dStage = 0;
    for (const auto& [name, dSize] : staged)
    {
        dStage += dSize;
    }
    AddSize(report, STAGE, dStage, sizeOf(AGENT));
    AddSize(report, INSTALLER, SizeOfPackage("-x64.msi"), dStage, Bound::RatioAtMost, MOST_OF_STAGE);
    AddSize(report, ARCHIVE, SizeOfPackage("-x64.zip"), dStage, Bound::RatioAtMost, MOST_OF_STAGE);
}

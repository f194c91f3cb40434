#include "bench/UnixProcess.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>
#include <string>

namespace
{
constexpr wchar_t PROCESS_FOLDER[] = L"Z:\\proc";
constexpr int FIELDS_BEFORE_USER_TIME = 11; // of a stat line, behind the name in parentheses

std::string ReadText(const std::filesystem::path& file)
{
    // Of a process that ends meanwhile nothing can be read any more, which must not be more than a short
    // text.
    const std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

/// The number behind a label at the start of a line; 0 when there is no such line.
unsigned long long NumberBehind(const std::string& text, const std::string& label)
{
    const size_t nLabel = ("\n" + text).find("\n" + label);
    return nLabel == std::string::npos ? 0 : std::strtoull(text.c_str() + nLabel + label.size(), nullptr, 10);
}

unsigned long long CpuTicks(const std::string& stat)
{
    std::istringstream fields(stat.substr(std::min(stat.rfind(')') + 1, stat.size())));
    std::string skipped;
    for (int nField = 0; nField < FIELDS_BEFORE_USER_TIME; ++nField)
    {
        fields >> skipped;
    }
    unsigned long long nUser = 0;
    unsigned long long nSystem = 0;
    fields >> nUser >> nSystem;
    return nUser + nSystem;
}

bool IsNumber(const std::string& text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](unsigned char ch) { return std::isdigit(ch); });
}

std::optional<UnixProcess> FirstOf(std::vector<UnixProcess> processes)
{
    return processes.empty() ? std::nullopt : std::optional(std::move(processes.front()));
}
} // namespace

std::optional<UnixProcess> UnixProcess::Find(const std::filesystem::path& program)
{
    return FirstOf(FindAll(program));
}

std::vector<UnixProcess> UnixProcess::FindAll(const std::filesystem::path& program)
{
    const std::string programText = program.string();
    return FindBy([&](const std::filesystem::path& folder) {
        return ReadText(folder / L"cmdline").find(programText) != std::string::npos;
    });
}

std::optional<UnixProcess> UnixProcess::FindByName(const std::string& name)
{
    return FirstOf(FindBy(
        [&](const std::filesystem::path& folder) { return ReadText(folder / L"comm") == name + "\n"; }));
}

std::vector<UnixProcess> UnixProcess::FindBy(
    const std::function<bool(const std::filesystem::path& folder)>& test)
{
    std::vector<UnixProcess> processes;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(PROCESS_FOLDER, error))
    {
        if (IsNumber(entry.path().filename().string()) && test(entry.path()))
        {
            processes.push_back(UnixProcess(entry.path()));
        }
    }
    return processes;
}

ProcessActivity UnixProcess::Activity() const
{
    ProcessActivity activity;
    std::error_code error;
    for (const auto& thread : std::filesystem::directory_iterator(m_folder / L"task", error))
    {
        const std::string status = ReadText(thread.path() / L"status");
        ++activity.nThreads;
        activity.nSwitches += NumberBehind(status, "voluntary_ctxt_switches:") +
                              NumberBehind(status, "nonvoluntary_ctxt_switches:");
        activity.nCpuTicks += CpuTicks(ReadText(thread.path() / L"stat"));
    }
    return activity;
}

unsigned long long UnixProcess::PrivateKiB() const
{
    return NumberBehind(ReadText(m_folder / L"smaps_rollup"), "Private_Dirty:");
}

#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// What all threads of a process have done so far.
struct ProcessActivity
{
    size_t nThreads = 0;
    unsigned long long nSwitches = 0; // times that a thread went to sleep or was put aside
    unsigned long long nCpuTicks = 0;
};

/// The kernel's view of a Windows program that runs under Wine. Wine answers the questions for private memory
/// and for the threads' switches with what it can guess or not at all; the kernel below knows.
class UnixProcess
{
  public:
    /// The process whose program that is; empty when there is none or the system isn't Wine on Linux.
    static std::optional<UnixProcess> Find(const std::filesystem::path& program);

    /// All processes whose program that is.
    static std::vector<UnixProcess> FindAll(const std::filesystem::path& program);

    /// The process that runs a program of that name and was started in whatever way; empty as above.
    static std::optional<UnixProcess> FindByName(const std::string& name);

    /// Zeros when the process has gone.
    ProcessActivity Activity() const;
    /// Memory that only this process has: KiB it has written and shares with nobody.
    unsigned long long PrivateKiB() const;

  private:
    std::filesystem::path m_folder;

    static std::vector<UnixProcess> FindBy(
        const std::function<bool(const std::filesystem::path& folder)>& test);

    explicit UnixProcess(std::filesystem::path folder) : m_folder(std::move(folder)) {}
};

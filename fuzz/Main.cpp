#include "fuzz/FuzzTarget.h"

#include "Include/TKLogging.h"
#include "fuzz/SilentLog.h"
#include "tests/support/StackPrinter.h"
#include "tests/support/Watchdog.h"

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

/*
 * fuzz run TARGET INPUTS SEED FOLDER   plays at least so many inputs; what fails is left in the folder
 * fuzz print TARGET SEED ROUND         plays that round and prints its choices
 * fuzz replay FILE                     plays what was left or kept in a file
 *
 * The exit code is 0, 2 for wrong arguments, or one of those of the tests.
 */

namespace
{
using Clock = std::chrono::steady_clock;

constexpr int EXIT_USAGE = 2;
constexpr std::chrono::seconds LONGEST_ROUND{60};
constexpr std::uint64_t ROUNDS_PER_LOGGED_ROUND = 8;
constexpr std::uint64_t ROUNDS_PER_HEAP_CHECK = 64;
constexpr int DECIMAL = 10;

// What is being played.
struct ROUND
{
    const FUZZ_TARGET* pTarget = nullptr;
    CChoices* pChoices = nullptr;
    std::uint64_t ullSeed = 0;
    std::uint64_t ullRound = 0;
    std::string folder;
};
ROUND g_round;
std::atomic<std::uint64_t> g_ullRoundsBegun = 0;
LPTOP_LEVEL_EXCEPTION_FILTER g_pfnCrashFilter = nullptr;
void (*g_pfnOnAbort)(int) = nullptr;

std::string RoundText()
{
    return "# seed " + std::to_string(g_round.ullSeed) + ", round " + std::to_string(g_round.ullRound) +
           '\n' + g_round.pChoices->Text();
}

// Called once, as the program ends.
void LeaveRound()
{
    if (g_round.pChoices == nullptr || g_round.folder.empty())
    {
        return;
    }
    const std::string name = std::string(g_round.pTarget->pszName) + "-" + std::to_string(g_round.ullSeed) +
                             "-" + std::to_string(g_round.ullRound) + ".txt";
    std::ofstream(g_round.folder + "/" + name, std::ios::binary) << g_round.pTarget->pszName << '\n'
                                                                 << RoundText();
    std::fprintf(stderr, "Left the input in %s\n", name.c_str());
}

LONG WINAPI OnUnhandledException(EXCEPTION_POINTERS* pException)
{
    LeaveRound();
    return g_pfnCrashFilter(pException);
}

void OnAbort(int nSignal)
{
    LeaveRound();
    g_pfnOnAbort(nSignal);
}

/// Ends the program when a round doesn't come to its end.
class CRoundWatch
{
  public:
    CRoundWatch() : m_thread([this] { Watch(); }) {}
    ~CRoundWatch()
    {
        SetEvent(m_hEnd);
        m_thread.join();
        CloseHandle(m_hEnd);
    }
    CRoundWatch(const CRoundWatch&) = delete;
    CRoundWatch& operator=(const CRoundWatch&) = delete;

  private:
    void Watch() const
    {
        constexpr DWORD LIMIT_MS =
            static_cast<DWORD>(std::chrono::duration_cast<std::chrono::milliseconds>(LONGEST_ROUND).count());
        std::uint64_t ullLast = g_ullRoundsBegun;
        while (WaitForSingleObject(m_hEnd, LIMIT_MS) == WAIT_TIMEOUT)
        {
            const std::uint64_t ullNow = g_ullRoundsBegun;
            if (ullNow == ullLast)
            {
                std::fputs("Stuck\n", stderr);
                LeaveRound();
                PrintOtherThreads();
                TerminateProcess(GetCurrentProcess(), EXIT_TEST_STUCK);
            }
            ullLast = ullNow;
        }
    }

    HANDLE m_hEnd = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread m_thread;
};

void SetLogging(bool bOn)
{
    log4cxx::Logger::getRootLogger()->setLevel(bOn ? log4cxx::Level::getTrace() : log4cxx::Level::getOff());
}

size_t PlayRound(const FUZZ_TARGET& target, CChoices& choices)
{
    g_round.pTarget = &target;
    g_round.pChoices = &choices;
    ++g_ullRoundsBegun;
    const size_t nInputs = target.pfnRun(choices);
    g_round.pChoices = nullptr;
    return nInputs;
}

// Far apart for rounds that follow each other.
CChoices ChoicesOf(std::uint64_t ullSeed, std::uint64_t ullRound)
{
    g_round.ullSeed = ullSeed;
    g_round.ullRound = ullRound;
    return CChoices(CRandom(CRandom(ullSeed).Next() + ullRound).Next());
}

int Run(const FUZZ_TARGET& target, std::uint64_t ullInputs, std::uint64_t ullSeed, const char* pszFolder)
{
    g_round.folder = pszFolder;
    const CRoundWatch watch;
    const Clock::time_point start = Clock::now();
    std::uint64_t ullPlayed = 0;
    for (std::uint64_t ullRound = 0; ullPlayed < ullInputs; ++ullRound)
    {
        SetLogging(ullRound % ROUNDS_PER_LOGGED_ROUND == 0);
        CChoices choices = ChoicesOf(ullSeed, ullRound);
        ullPlayed += PlayRound(target, choices);
        if (ullRound % ROUNDS_PER_HEAP_CHECK == 0)
        {
            Expect(HeapValidate(GetProcessHeap(), 0, nullptr) != FALSE, "the heap is whole");
        }
    }
    const double dSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::printf("%-12s %10llu inputs %9.0f inputs/s  seed %llu\n", target.pszName,
                static_cast<unsigned long long>(ullPlayed),
                dSeconds > 0 ? static_cast<double>(ullPlayed) / dSeconds : 0.0,
                static_cast<unsigned long long>(ullSeed));
    return EXIT_SUCCESS;
}

int Print(const FUZZ_TARGET& target, std::uint64_t ullSeed, std::uint64_t ullRound)
{
    SetLogging(true);
    CChoices choices = ChoicesOf(ullSeed, ullRound);
    PlayRound(target, choices);
    std::printf("%s\n%s", target.pszName, choices.Text().c_str());
    return EXIT_SUCCESS;
}

int Replay(const char* pszFile)
{
    std::ifstream stream(pszFile, std::ios::binary);
    std::string name;
    std::getline(stream, name);
    const std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    const FUZZ_TARGET* const pTarget = FindFuzzTarget(name);
    std::vector<std::uint32_t> numbers;
    if (pTarget == nullptr || !ReadChoices(text, numbers))
    {
        std::fprintf(stderr, "%s doesn't hold choices of a target\n", pszFile);
        return EXIT_USAGE;
    }
    const CRoundWatch watch;
    SetLogging(true);
    CChoices choices(std::move(numbers));
    const size_t nInputs = PlayRound(*pTarget, choices);
    std::printf("%s: %zu inputs, nothing failed\n", name.c_str(), nInputs);
    return EXIT_SUCCESS;
}

int Usage()
{
    std::fputs("usage: fuzz run TARGET INPUTS SEED FOLDER | fuzz print TARGET SEED ROUND | fuzz replay FILE\n"
               "Targets:",
               stderr);
    for (const FUZZ_TARGET& target : GetFuzzTargets())
    {
        std::fprintf(stderr, " %s", target.pszName);
    }
    std::fputs("\n", stderr);
    return EXIT_USAGE;
}

std::uint64_t NumberOf(const char* psz)
{
    return std::strtoull(psz, nullptr, DECIMAL);
}
} // namespace

int main(int argc, char** argv)
{
    InstallCrashFilter();
    g_pfnCrashFilter = SetUnhandledExceptionFilter(OnUnhandledException);
    g_pfnOnAbort = std::signal(SIGABRT, OnAbort);
    SilenceLog();
    const std::string command = argc > 1 ? argv[1] : "";
    const FUZZ_TARGET* const pTarget = argc > 2 ? FindFuzzTarget(argv[2]) : nullptr;
    if (command == "run" && argc == 6 && pTarget != nullptr)
    {
        return Run(*pTarget, NumberOf(argv[3]), NumberOf(argv[4]), argv[5]);
    }
    if (command == "print" && argc == 5 && pTarget != nullptr)
    {
        return Print(*pTarget, NumberOf(argv[3]), NumberOf(argv[4]));
    }
    return command == "replay" && argc == 3 ? Replay(argv[2]) : Usage();
}

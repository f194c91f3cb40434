#include "bench/StandIn.h"

#include "tests/support/AgentFolder.h"

#include <chrono>

namespace
{
constexpr DWORD END_WAIT_MS = 20000;
constexpr size_t READ_BYTES = 4096;

/// A pipe of which a child may inherit one end.
struct Pipe
{
    CKernelHandle hRead;
    CKernelHandle hWrite;

    Pipe()
    {
        SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
        CreatePipe(hRead.put(), hWrite.put(), &inheritable, 0);
    }
};

CKernelHandle KeepToMyself(CKernelHandle hEnd)
{
    SetHandleInformation(hEnd.get(), HANDLE_FLAG_INHERIT, 0);
    return hEnd;
}
} // namespace

StandIn::StandIn()
{
    Pipe input;
    Pipe output;
    m_hInput = KeepToMyself(std::move(input.hWrite));
    m_hOutput = KeepToMyself(std::move(output.hRead));
    Start(input.hRead.get(), output.hWrite.get());
    m_reader = std::thread([this] { Listen(); });
}

StandIn::~StandIn()
{
    m_hInput.reset(); // the end of its commands is its end
    if (WaitForSingleObject(m_hProcess.get(), END_WAIT_MS) != WAIT_OBJECT_0)
    {
        TerminateProcess(m_hProcess.get(), 1);
    }
    m_reader.join();
}

void StandIn::Start(HANDLE hInput, HANDLE hOutput)
{
    const std::filesystem::path program = StageFolder() / L"TKDAS.exe";
    std::wstring commandLine = L"\"" + program.wstring() + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = hInput;
    startup.hStdOutput = hOutput;
    startup.hStdError = hOutput;
    PROCESS_INFORMATION process = {};
    if (CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                       &startup, &process))
    {
        m_hProcess.reset(process.hProcess);
        CloseHandle(process.hThread);
    }
}

// A thread of its own reads along, as a stand-in that can't say what it does would wait for its listener.
void StandIn::Listen()
{
    char achPart[READ_BYTES];
    DWORD dwRead = 0;
    while (ReadFile(m_hOutput.get(), achPart, sizeof(achPart), &dwRead, nullptr) && dwRead > 0)
    {
        const std::lock_guard guard(m_lock);
        m_said.append(achPart, dwRead);
        m_arrived.notify_all();
    }
    const std::lock_guard guard(m_lock);
    m_bSilent = true;
    m_arrived.notify_all();
}

bool StandIn::Play(const std::string& lines, DWORD dwTimeoutMs)
{
    const std::string end = "played " + std::to_string(++m_uPlayed) + ".";
    const std::string text = lines + "say " + end + "\n";
    {
        const std::lock_guard guard(m_lock);
        m_said.clear();
    }
    DWORD dwWritten = 0;
    if (!WriteFile(m_hInput.get(), text.data(), static_cast<DWORD>(text.size()), &dwWritten, nullptr))
    {
        return false;
    }
    std::unique_lock guard(m_lock);
    const auto bPlayed = [this, &end] { return m_said.find(end) != std::string::npos; };
    m_arrived.wait_for(guard, std::chrono::milliseconds(dwTimeoutMs), [&] { return m_bSilent || bPlayed(); });
    return bPlayed();
}

std::string StandIn::Said() const
{
    const std::lock_guard guard(m_lock);
    return m_said;
}

#include "bench/AgentWindow.h"
#include "bench/Benchmarks.h"
#include "bench/Report.h"
#include "bench/Stopwatch.h"

#include "Include/Handles.h"
#include "Include/TKLogging.h"
#include "modules/chat/ChatPayload.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ChatTrace.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace
{
constexpr char NAME[] = "chat, socket to module / bare SendMessage";
constexpr size_t TEXT_CHARACTERS = 50; // a payload of 100 bytes
constexpr int ROUNDS = 9;
constexpr int MESSAGES = 5000;

/// Runs the work while this thread handles messages, and answers what it has answered.
std::optional<double> BesideMessages(const std::function<std::optional<double>()>& work)
{
    std::optional<double> result;
    AgentWindow::HandleMessagesWhile([&] { result = work(); });
    return result;
}

/// Messages a second from the first byte to the echo behind the last message.
std::optional<double> SendToAgent(LoopbackConnection& connection, const std::vector<char>& stream)
{
    const Stopwatch stopwatch;
    DWORD dwEcho = MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE;
    if (!connection.SendAll(stream.data(), stream.size()) || !connection.SendAll(&dwEcho, sizeof(dwEcho)) ||
        !connection.ReceiveExactly(&dwEcho, sizeof(dwEcho), BENCH_WAIT_MS))
    {
        return std::nullopt;
    }
    return MESSAGES / stopwatch.Seconds();
}

/// Messages a second to a window that does nothing with them.
std::optional<double> SendBare(HWND hWnd, const std::vector<char>& record)
{
    const Stopwatch stopwatch;
    for (int nMessage = 0; nMessage < MESSAGES; ++nMessage)
    {
        SendMessageW(hWnd, WM_CHAT_MESSAGE, reinterpret_cast<WPARAM>(record.data()), 0);
    }
    return MESSAGES / stopwatch.Seconds();
}

/// Offers the test's chat module to the agent of this process, and takes it away again.
class OfferedModule
{
  public:
    OfferedModule() : m_pFolder(AddDllDirectory((TestProgramFolder() / ChatModuleFolder(L"nothing")).c_str()))
    {
    }
    ~OfferedModule()
    {
        RemoveDllDirectory(m_pFolder);
        FreeLibrary(GetModuleHandleW(CHAT_MODULE));
    }
    OfferedModule(const OfferedModule&) = delete;
    OfferedModule& operator=(const OfferedModule&) = delete;

  private:
    DLL_DIRECTORY_COOKIE m_pFolder;
};
} // namespace

std::vector<std::string> ChatFigureNames()
{
    return {NAME};
}

void MeasureChat(Report& report)
{
    if (!ConfigureLogging((StageFolder() / L"TKDAST.Logging.xml").c_str()))
    {
        report.Fail("chat: the staged log configuration can't be read");
        return;
    }
    const ChatTrace chat;
    const OfferedModule module;
    LoopbackListener listener;
    AgentWindow agent(listener, GetModuleHandleW(nullptr));
    agent.HideIcon();
    if (!agent.IsConnected() || !agent.ShakeHands())
    {
        report.Fail("chat: no connection");
        return;
    }
    const std::vector<char> record = MakeChatRecord(L"Alice", std::wstring(TEXT_CHARACTERS, L'x'));
    std::vector<char> stream;
    for (int nMessage = 0; nMessage < MESSAGES; ++nMessage)
    {
        stream.insert(stream.end(), record.begin(), record.end());
    }
    const CWindow bareWindow(
        CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
    std::vector<double> agentRates;
    std::vector<double> bareRates;
    for (int nRound = 0; nRound < ROUNDS; ++nRound)
    {
        const std::optional<double> bareRate =
            BesideMessages([&] { return SendBare(bareWindow.get(), record); });
        const std::optional<double> agentRate =
            BesideMessages([&] { return SendToAgent(agent.Connection(), stream); });
        if (!agentRate)
        {
            break;
        }
        bareRates.push_back(*bareRate);
        agentRates.push_back(*agentRate);
    }
    if (agentRates.size() != ROUNDS || chat->nAppended != ROUNDS * MESSAGES)
    {
        report.Fail("chat: not every message has arrived");
        return;
    }
    const Comparison comparison = Compare(agentRates, bareRates);
    report.Add(
        {NAME, "messages/s", comparison.dMeasured, comparison.dReference, comparison.dRatio, Bound::None, 0});
}

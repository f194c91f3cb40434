#include "devservice/Recording.h"

#include "devservice/RecordText.h"
#include "devservice/StandInService.h"
#include "devservice/TextFile.h"
#include "devservice/ValueText.h"

#include <algorithm>
#include <iomanip>
#include <iterator>
#include <sstream>

namespace
{
constexpr DWORD ARRIVAL_TIMEOUT_MS = 60000;
constexpr DWORD ANSWER_TIMEOUT_MS = 10000;
constexpr double LONGEST_PAUSE_SECONDS = 10.0;
constexpr double MILLISECONDS_PER_SECOND = 1000.0;

struct STEP_NAME
{
    RECORDED_STEP_KIND kind;
    const wchar_t* pszName;
    bool bBytes;
};

constexpr STEP_NAME s_aStepNames[] = {
    {RECORDED_STEP_KIND::Open, L"open", false},
    {RECORDED_STEP_KIND::FromService, L">", true},
    {RECORDED_STEP_KIND::FromAgent, L"<", true},
    {RECORDED_STEP_KIND::ClosedByService, L"closed", false},
    {RECORDED_STEP_KIND::ClosedByAgent, L"left", false},
};

std::optional<RECORDED_STEP_KIND> StepOf(const SERVICE_EVENT& event)
{
    switch (event.kind)
    {
    case SERVICE_EVENT_KIND::AgentConnected:
        return RECORDED_STEP_KIND::Open;
    case SERVICE_EVENT_KIND::RecordSent:
    case SERVICE_EVENT_KIND::RawSent:
        return RECORDED_STEP_KIND::FromService;
    case SERVICE_EVENT_KIND::RecordReceived:
    case SERVICE_EVENT_KIND::RawReceived:
        return RECORDED_STEP_KIND::FromAgent;
    case SERVICE_EVENT_KIND::AgentGone:
        return event.bByService ? RECORDED_STEP_KIND::ClosedByService : RECORDED_STEP_KIND::ClosedByAgent;
    default:
        return std::nullopt;
    }
}

const STEP_NAME& NameOf(RECORDED_STEP_KIND kind)
{
    return *std::find_if(std::begin(s_aStepNames), std::end(s_aStepNames),
                         [kind](const STEP_NAME& name) { return name.kind == kind; });
}

std::optional<RECORDED_STEP> ParseStep(const std::wstring& line, unsigned int uLine)
{
    std::wistringstream words(line);
    std::wstring seconds, what, agent, digits, surplus;
    words >> seconds >> what >> agent >> digits;
    const std::optional<double> dblSeconds = ParseDouble(seconds);
    const std::optional<DWORD> dwAgent = ParseDword(agent);
    const std::optional<std::vector<BYTE>> bytes = ParseHexBytes(digits);
    const auto name = std::find_if(std::begin(s_aStepNames), std::end(s_aStepNames),
                                   [&what](const STEP_NAME& known) { return what == known.pszName; });
    const bool bGood = dblSeconds && dwAgent && *dwAgent > 0 && bytes && name != std::end(s_aStepNames) &&
                       bytes->empty() != name->bBytes && !(words >> surplus);
    if (!bGood)
    {
        return std::nullopt;
    }
    return RECORDED_STEP{uLine, *dblSeconds, name->kind, *dwAgent, *bytes};
}

DWORD PauseBefore(const RECORDED_STEP& step, double dblPrevious)
{
    const double dblPause = std::clamp(step.dblSeconds - dblPrevious, 0.0, LONGEST_PAUSE_SECONDS);
    return static_cast<DWORD>(dblPause * MILLISECONDS_PER_SECOND);
}

bool TakeSameType(CStandInService& service, const RECORDED_STEP& step)
{
    const DWORD dwType = ReadDword(step.bytes, 0);
    AGENT_RECORD record = {};
    const auto sameType = [dwType](const AGENT_RECORD& candidate) {
        return ReadDword(candidate.bytes, 0) == dwType;
    };
    return service.TakeRecord(step.uAgent, sameType, ANSWER_TIMEOUT_MS, record) == WAIT_RESULT::Met;
}

bool PlayStep(CStandInService& service, const RECORDED_STEP& step, double dblPrevious)
{
    switch (step.kind)
    {
    case RECORDED_STEP_KIND::Open:
        return service.WaitForReadyAgents(step.uAgent, ARRIVAL_TIMEOUT_MS) == WAIT_RESULT::Met;
    case RECORDED_STEP_KIND::FromService:
        return service.Pause(PauseBefore(step, dblPrevious)) != WAIT_RESULT::Interrupted &&
               service.Send(step.uAgent, step.bytes);
    case RECORDED_STEP_KIND::FromAgent:
        return TakeSameType(service, step);
    case RECORDED_STEP_KIND::ClosedByService:
        service.CloseAgent(step.uAgent);
        break;
    case RECORDED_STEP_KIND::ClosedByAgent:
        break;
    }
    return service.WaitForClose(step.uAgent, ARRIVAL_TIMEOUT_MS) == WAIT_RESULT::Met;
}

std::wstring StepFailure(const RECORDED_STEP& step)
{
    const std::wstring agent = L"agent " + std::to_wstring(step.uAgent);
    switch (step.kind)
    {
    case RECORDED_STEP_KIND::Open:
        return agent + L" has not come";
    case RECORDED_STEP_KIND::FromService:
        return L"nothing could be sent to " + agent;
    case RECORDED_STEP_KIND::FromAgent: {
        const MESSAGE_DESCRIPTION* const pMessage =
            FindMessageDescription(ReadDword(step.bytes, 0), MESSAGE_FROM_AGENT);
        return agent + L" has not sent " +
               (pMessage != nullptr ? pMessage->pszName : L"the recorded raw bytes");
    }
    default:
        return agent + L" has not left";
    }
}
} // namespace

bool CRecorder::Open(const std::wstring& path)
{
    m_hFile = CreateOutputFile(path);
    return static_cast<bool>(m_hFile);
}

void CRecorder::OnEvent(const SERVICE_EVENT& event)
{
    const std::wstring line = FormatRecordedStep(event);
    if (!line.empty())
    {
        WriteUtf8(m_hFile.get(), line);
    }
}

std::wstring FormatRecordedStep(const SERVICE_EVENT& event)
{
    const std::optional<RECORDED_STEP_KIND> kind = StepOf(event);
    if (!kind)
    {
        return {};
    }
    std::wostringstream line;
    line.imbue(std::locale::classic());
    line << std::fixed << std::setprecision(3) << event.dblSeconds << L' ' << NameOf(*kind).pszName << L' '
         << event.uAgent;
    if (!event.bytes.empty())
    {
        line << L' ' << HexText(event.bytes, L"");
    }
    line << L'\n';
    if (event.pMessage != nullptr)
    {
        line << L"# " << FormatMessage(*event.pMessage, event.bytes) << L'\n';
    }
    return line.str();
}

std::optional<std::vector<RECORDED_STEP>> ParseRecording(std::wstring_view text, std::wstring& error)
{
    std::vector<RECORDED_STEP> steps;
    std::wistringstream lines{std::wstring(text)};
    std::wstring line;
    for (unsigned int uLine = 1; std::getline(lines, line); ++uLine)
    {
        if (line.empty() || line == L"\r" || line.starts_with(L'#'))
        {
            continue;
        }
        std::optional<RECORDED_STEP> step = ParseStep(line, uLine);
        if (!step)
        {
            error = L"line " + std::to_wstring(uLine) + L": not a step of a recording";
            return std::nullopt;
        }
        steps.push_back(std::move(*step));
    }
    return steps;
}

bool PlayRecording(CStandInService& service, const std::vector<RECORDED_STEP>& steps, std::wstring& error)
{
    service.SetHandshake(std::nullopt);
    double dblPrevious = steps.empty() ? 0.0 : steps.front().dblSeconds;
    for (const RECORDED_STEP& step : steps)
    {
        if (!PlayStep(service, step, dblPrevious))
        {
            error = L"line " + std::to_wstring(step.uLine) + L": " +
                    (service.IsInterrupted() ? L"interrupted" : StepFailure(step));
            return false;
        }
        dblPrevious = step.dblSeconds;
    }
    return true;
}

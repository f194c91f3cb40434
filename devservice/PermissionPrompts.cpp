#include "devservice/PermissionPrompts.h"

#include "Include/BoundedText.h"
#include "devservice/RecordText.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iterator>

namespace
{
std::span<const BYTE> ImageOf(const MSG_PERMISSION_PROMPT& record)
{
    return {reinterpret_cast<const BYTE*>(&record), sizeof(record)};
}

bool AreEqual(const MSG_PERMISSION_PROMPT& first, const MSG_PERMISSION_PROMPT& second)
{
    return memcmp(&first, &second, sizeof(first)) == 0;
}

MSG_PERMISSION_PROMPT OpeningRecord()
{
    MSG_PERMISSION_PROMPT record = {};
    record.dwType = MSG_TYPE_PERMISSION_PROMPT;
    return record;
}

bool IsSameAddress(const END_POINT& first, const END_POINT& second)
{
    return first.cbAddress == second.cbAddress &&
           memcmp(&first.address, &second.address, static_cast<size_t>(first.cbAddress)) == 0;
}

bool IsAnswer(DWORD dwAnswer)
{
    constexpr DWORD ANSWERS[] = {PERMISSION_ANSWER_ALLOWED, PERMISSION_ANSWER_DENIED,
                                 PERMISSION_ANSWER_EXPIRED, PERMISSION_ANSWER_WITHDRAWN,
                                 PERMISSION_ANSWER_UNUSABLE};
    return std::find(std::begin(ANSWERS), std::end(ANSWERS), dwAnswer) != std::end(ANSWERS);
}

// The answer as it must be but for its three own fields.
MSG_PERMISSION_PROMPT WithAnswerFields(MSG_PERMISSION_PROMPT question, const MSG_PERMISSION_PROMPT& answer)
{
    question.bAnswered = answer.bAnswered;
    question.dwAnswer = answer.dwAnswer;
    std::copy(std::begin(answer.szUsername), std::end(answer.szUsername), question.szUsername);
    return question;
}
} // namespace

std::wstring FindAnswerFault(const MSG_PERMISSION_PROMPT& question, const MSG_PERMISSION_PROMPT& answer)
{
    if (!IsAnswer(answer.dwAnswer))
    {
        return L"its answer " + std::to_wstring(answer.dwAnswer) + L" has no meaning";
    }
    if (answer.bAnswered != (answer.dwAnswer == PERMISSION_ANSWER_WITHDRAWN ? 0U : 1U))
    {
        return L"bAnswered=" + std::to_wstring(answer.bAnswered) + L" doesn't go with dwAnswer=" +
               FormatDword(L"dwAnswer", answer.dwAnswer);
    }
    if (FixedText(answer.szUsername).size() == std::size(answer.szUsername))
    {
        return L"szUsername of its answer has no end";
    }
    if (!AreEqual(answer, WithAnswerFields(question, answer)))
    {
        return L"its answer doesn't bring the prompt back as it was sent";
    }
    return {};
}

CPermissionPrompt::CPermissionPrompt(unsigned int uPrompt, const MSG_PERMISSION_PROMPT& question,
                                     EVENT_FUNCTION emit)
    : m_uPrompt(uPrompt), m_question(question), m_emit(std::move(emit))
{
}

bool CPermissionPrompt::Open(int nAfType)
{
    m_hSocket = OpenLoopbackSocket(SOCK_DGRAM, 0, nAfType);
    return static_cast<bool>(m_hSocket);
}

void CPermissionPrompt::OnReadable()
{
    TakeDatagrams(m_hSocket.get(),
                  [this](const END_POINT& from, std::span<const BYTE> bytes) { OnDatagram(from, bytes); });
}

void CPermissionPrompt::OnDatagram(const END_POINT& from, std::span<const BYTE> bytes)
{
    EmitDatagram(SERVICE_EVENT_KIND::PromptReceived, from, bytes);
    MSG_PERMISSION_PROMPT record = {};
    if (bytes.size() != sizeof(record))
    {
        AddFault(L"a datagram of " + std::to_wstring(bytes.size()) + L" bytes came");
        return;
    }
    memcpy(&record, bytes.data(), sizeof(record));
    if (m_state.stage == PROMPT_STAGE::Named)
    {
        OnOpened(from, record);
    }
    else
    {
        OnAnswered(from, record);
    }
}

void CPermissionPrompt::OnOpened(const END_POINT& from, const MSG_PERMISSION_PROMPT& record)
{
    if (!AreEqual(record, OpeningRecord()))
    {
        AddFault(L"its first datagram isn't zero but for its type");
    }
    m_asker = from;
    m_state.stage = PROMPT_STAGE::Asked;
    SendQuestion();
}

void CPermissionPrompt::OnAnswered(const END_POINT& from, const MSG_PERMISSION_PROMPT& record)
{
    if (!IsSameAddress(from, m_asker))
    {
        AddFault(L"somebody else came, from " + EndPointName(from));
        return;
    }
    if (m_state.stage == PROMPT_STAGE::Answered)
    {
        AddFault(L"it was answered a second time");
        return;
    }
    m_state.answer = record;
    m_state.stage = PROMPT_STAGE::Answered;
    AddFault(FindAnswerFault(m_question, record));
}

bool CPermissionPrompt::Withdraw()
{
    if (m_state.stage != PROMPT_STAGE::Asked)
    {
        return false;
    }
    SendQuestion(); // any whole record ends the prompt
    return true;
}

void CPermissionPrompt::SendQuestion()
{
    EmitDatagram(SERVICE_EVENT_KIND::PromptSent, m_asker, ImageOf(m_question));
    SendDatagram(m_hSocket.get(), m_asker, ImageOf(m_question));
}

void CPermissionPrompt::AddFault(std::wstring_view fault)
{
    if (fault.empty())
    {
        return;
    }
    SERVICE_EVENT event;
    event.uPrompt = m_uPrompt;
    event.text = L"fault: " + std::wstring(fault);
    m_emit(event);
    if (m_state.fault.empty())
    {
        m_state.fault = fault;
    }
}

void CPermissionPrompt::EmitDatagram(SERVICE_EVENT_KIND kind, const END_POINT& other,
                                     std::span<const BYTE> bytes)
{
    SERVICE_EVENT event;
    event.kind = kind;
    event.uPrompt = m_uPrompt;
    event.bytes = bytes;
    event.text = EndPointName(other);
    if (bytes.size() == sizeof(MSG_PERMISSION_PROMPT))
    {
        event.pRecord = FindRecordDescription(L"MSG_PERMISSION_PROMPT");
    }
    m_emit(event);
}

unsigned int CPermissionPrompts::Open(const MSG_PERMISSION_PROMPT& question, int nAfType)
{
    unsigned int uPrompt = 0;
    {
        const std::lock_guard lock(m_mutex);
        uPrompt = static_cast<unsigned int>(m_prompts.size()) + 1;
        auto pPrompt = std::make_unique<CPermissionPrompt>(uPrompt, question, m_emit);
        if (!pPrompt->Open(nAfType))
        {
            return 0;
        }
        m_prompts.push_back({std::move(pPrompt)});
    }
    m_opened();
    return uPrompt;
}

CPermissionPrompt* CPermissionPrompts::Find(unsigned int uPrompt) const
{
    return uPrompt != 0 && uPrompt <= m_prompts.size() ? m_prompts[uPrompt - 1].pPrompt.get() : nullptr;
}

unsigned int CPermissionPrompts::Count() const
{
    const std::lock_guard lock(m_mutex);
    return static_cast<unsigned int>(m_prompts.size());
}

unsigned short CPermissionPrompts::GetPort(unsigned int uPrompt) const
{
    const std::lock_guard lock(m_mutex);
    const CPermissionPrompt* const pPrompt = Find(uPrompt);
    return pPrompt != nullptr ? pPrompt->GetPort() : 0;
}

std::optional<PROMPT_STATE> CPermissionPrompts::Get(unsigned int uPrompt) const
{
    const std::lock_guard lock(m_mutex);
    const CPermissionPrompt* const pPrompt = Find(uPrompt);
    return pPrompt != nullptr ? std::optional(pPrompt->GetState()) : std::nullopt;
}

bool CPermissionPrompts::Withdraw(unsigned int uPrompt)
{
    const std::lock_guard lock(m_mutex);
    CPermissionPrompt* const pPrompt = Find(uPrompt);
    return pPrompt != nullptr && pPrompt->Withdraw();
}

bool CPermissionPrompts::WaitFor(unsigned int uPrompt, const std::function<bool(const PROMPT_STATE&)>& test,
                                 DWORD dwMilliseconds)
{
    std::unique_lock lock(m_mutex);
    const CPermissionPrompt* const pPrompt = Find(uPrompt);
    if (pPrompt == nullptr)
    {
        return false;
    }
    m_changed.wait_for(lock, std::chrono::milliseconds(dwMilliseconds),
                       [&] { return m_bInterrupted || test(pPrompt->GetState()); });
    return !m_bInterrupted && test(pPrompt->GetState());
}

void CPermissionPrompts::Interrupt()
{
    {
        const std::lock_guard lock(m_mutex);
        m_bInterrupted = true;
    }
    m_changed.notify_all();
}

std::wstring CPermissionPrompts::TakeFault()
{
    const std::lock_guard lock(m_mutex);
    for (size_t n = 0; n < m_prompts.size(); ++n)
    {
        const std::wstring& fault = m_prompts[n].pPrompt->GetState().fault;
        if (!fault.empty() && !std::exchange(m_prompts[n].bFaultTaken, true))
        {
            return L"prompt " + std::to_wstring(n + 1) + L": " + fault;
        }
    }
    return {};
}

std::vector<SOCKET> CPermissionPrompts::GetSockets() const
{
    const std::lock_guard lock(m_mutex);
    std::vector<SOCKET> sockets;
    std::transform(m_prompts.begin(), m_prompts.end(), std::back_inserter(sockets),
                   [](const NUMBERED_PROMPT& prompt) { return prompt.pPrompt->GetSocket(); });
    return sockets;
}

void CPermissionPrompts::OnReadable()
{
    {
        const std::lock_guard lock(m_mutex);
        for (const NUMBERED_PROMPT& prompt : m_prompts)
        {
            prompt.pPrompt->OnReadable();
        }
    }
    m_changed.notify_all();
}

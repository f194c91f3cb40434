#include "tests/unit/PermissionHarness.h"

#include "Include/BoundedText.h"
#include "dialogs/ClientPermissionDialog.h"
#include "dialogs/GradientFill.h"
#include "tests/unit/ModalScenario.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace
{
constexpr DWORD SILENCE_MS = 20;
}

PermissionHarness* PermissionHarness::s_pThis = nullptr;

void PermissionHarness::SetUp()
{
    DialogHarness::SetUp();
    s_pThis = this;
    UnloadGradientFill();
    m_threads.m_pfnOnly = PermissionThread;
}

void PermissionHarness::TearDown()
{
    UnloadGradientFill();
    DialogHarness::TearDown();
    s_pThis = nullptr;
}

MSG_PERMISSION_PROMPT PermissionHarness::Prompt()
{
    MSG_PERMISSION_PROMPT prompt = {};
    prompt.dwType = MSG_TYPE_PERMISSION_PROMPT;
    std::fill(std::begin(prompt.szPrompt), std::end(prompt.szPrompt), L'#');
    CopyText(prompt.szPrompt, L"Alice wants to connect.");
    std::fill(std::begin(prompt.abGap8208), std::end(prompt.abGap8208), BYTE(0xA5));
    prompt.bAnswered = 1; // a service's leftovers, of all things a yes
    prompt.dwAnswer = PERMISSION_ANSWER_ALLOWED;
    std::fill(std::begin(prompt.szUsername), std::end(prompt.szUsername), L'#');
    return prompt;
}

int PermissionHarness::RunPrompt(const MSG_PERMISSION_PROMPT& prompt,
                                 const std::function<void(HWND)>& scenario)
{
    return RunReply(&prompt, sizeof(prompt), scenario);
}

int PermissionHarness::RunReply(const void* pReply, size_t cbReply, const std::function<void(HWND)>& scenario)
{
    m_service.emplace();
    m_request.clear();
    std::thread asking([&] {
        if (std::optional<std::vector<BYTE>> request = m_service->Receive(PATIENCE_MS))
        {
            m_request = *std::move(request);
            m_service->Reply(pReply, cbReply);
        }
    });
    const ModalScenario modal([&](HWND hDlg) {
        asking.join();
        if (scenario)
        {
            scenario(hDlg);
        }
    });
    const int nResult = CreatePermissionDialog(m_service->Port(), AF_INET);
    if (asking.joinable())
    {
        asking.join();
    }
    EXPECT_EQ(modal.HasRun(), scenario != nullptr);
    PumpMessages();
    EXPECT_TRUE(m_threads.JoinAll(PATIENCE_MS));
    return nResult;
}

bool PermissionHarness::Withdraw()
{
    return SendBytes(sizeof(MSG_PERMISSION_PROMPT));
}

bool PermissionHarness::SendBytes(size_t cb)
{
    const std::vector<BYTE> bytes(cb);
    return m_service->Reply(bytes.data(), bytes.size());
}

std::vector<std::vector<BYTE>> PermissionHarness::Datagrams()
{
    std::vector<std::vector<BYTE>> datagrams;
    while (std::optional<std::vector<BYTE>> datagram = m_service->Receive(SILENCE_MS))
    {
        datagrams.push_back(*std::move(datagram));
    }
    return datagrams;
}

MSG_PERMISSION_PROMPT PermissionHarness::OnlyAnswer()
{
    MSG_PERMISSION_PROMPT answer = {};
    const std::vector<std::vector<BYTE>> datagrams = Datagrams();
    EXPECT_EQ(datagrams.size(), 1U);
    if (datagrams.size() == 1 && datagrams.front().size() == sizeof(answer))
    {
        std::memcpy(&answer, datagrams.front().data(), sizeof(answer));
    }
    return answer;
}

void PermissionHarness::Tick(HWND hDlg, int nSeconds)
{
    for (int nSecond = 0; nSecond < nSeconds; ++nSecond)
    {
        SendMessageW(hDlg, WM_TIMER, TIMER_PERMISSION_COUNTDOWN, 0);
    }
}

BOOL WINAPI PermissionHarness::NameDesktop(HANDLE, int, PVOID pvName, DWORD cbName, LPDWORD)
{
    CopyText(static_cast<wchar_t*>(pvName), cbName / sizeof(wchar_t), s_pThis->m_desktop);
    return TRUE;
}

BOOL WINAPI PermissionHarness::RecordEnd(HWND hDlg, INT_PTR nResult)
{
    s_pThis->m_trace.Add("end " + std::to_string(nResult));
    return s_pThis->m_end.Original()(hDlg, nResult);
}

BOOL WINAPI PermissionHarness::RecordFlash(HWND hWnd, BOOL bInvert)
{
    s_pThis->m_trace.Add("flash " + std::to_string(bInvert));
    return s_pThis->m_flash.Original()(hWnd, bInvert);
}

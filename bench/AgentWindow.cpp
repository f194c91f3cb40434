#include "bench/AgentWindow.h"

#include "startup/TKDAST.h"

#include <thread>

AgentWindow::AgentWindow(LoopbackListener& listener, HMODULE hResources)
    : AgentWindow(listener.Port(), hResources)
{
    m_connection = listener.Accept(BENCH_WAIT_MS);
}

AgentWindow::AgentWindow(unsigned short nPort, HMODULE hResources)
{
    g_hInstance = GetModuleHandleW(nullptr);
    g_hResourceModule = hResources;
    g_hQuitEvent.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_pWindow = std::make_unique<CTaskBarWindow>(nPort);
    m_pWindow->m_Settings.dwDefaultConnectionType = ORDINARY_CONNECTION_TYPE;
    while (!m_pWindow->m_hReaderThread && DispatchNext())
    {
    }
}

AgentWindow::~AgentWindow()
{
    End();
    m_pWindow.reset();
    g_hQuitEvent.reset();
}

void AgentWindow::End()
{
    if (m_bEnded)
    {
        return;
    }
    m_bEnded = true;
    m_connection.reset();
    while (DispatchNext())
    {
    }
    WaitForSingleObject(m_pWindow->m_hReaderThread.get(), BENCH_WAIT_MS);
}

bool AgentWindow::ShakeHands()
{
    MSG_VERSION version = {};
    version.dwType = MSG_TYPE_VERSION;
    MSG_TRAYICON_DESKTOP_STATE report = {};
    return m_connection->SendAll(&version, sizeof(version)) &&
           m_connection->ReceiveExactly(&version, sizeof(version), BENCH_WAIT_MS) &&
           m_connection->ReceiveExactly(&report, sizeof(report), BENCH_WAIT_MS);
}

bool AgentWindow::DispatchNext()
{
    MSG message = {};
    if (GetMessageW(&message, nullptr, 0, 0) <= 0)
    {
        return false;
    }
    DispatchMessageW(&message);
    return true;
}

void AgentWindow::HandleMessagesWhile(const std::function<void()>& work)
{
    const DWORD dwThread = GetCurrentThreadId();
    bool bDone = false; // read behind the message that follows it
    std::thread worker([&] {
        work();
        bDone = true;
        PostThreadMessageW(dwThread, WM_NULL, 0, 0);
    });
    MSG message = {};
    do
    {
        GetMessageW(&message, nullptr, 0, 0);
        DispatchMessageW(&message);
    } while (message.hwnd != nullptr || message.message != WM_NULL || !bDone);
    worker.join();
}

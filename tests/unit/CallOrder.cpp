#include "tests/unit/CallOrder.h"

#include <algorithm>
#include <cstring>

CallOrder* CallOrder::s_pThis = nullptr;

CallOrder::CallOrder(SystemTrace& trace) : m_trace(trace)
{
    s_pThis = this;
}

CallOrder::~CallOrder()
{
    s_pThis = nullptr;
}

std::vector<std::string> CallOrder::Calls() const
{
    const std::string echo = "send " + std::to_string(MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE);
    std::vector<std::string> calls = m_trace.Calls();
    std::erase_if(calls, [&echo](const std::string& call) {
        return call.starts_with("get ") || call.starts_with("message ") || call == echo;
    });
    return calls;
}

int WSAAPI CallOrder::Send(SOCKET hSocket, const char* pData, int nBytes, int nFlags)
{
    DWORD dwType = 0;
    std::memcpy(&dwType, pData, std::min(sizeof(dwType), static_cast<size_t>(nBytes)));
    s_pThis->m_trace.Add("send " + std::to_string(dwType));
    return --s_pThis->m_nWritable >= 0 ? s_pThis->m_send.Original()(hSocket, pData, nBytes, nFlags)
                                       : SOCKET_ERROR;
}

int WSAAPI CallOrder::Shutdown(SOCKET hSocket, int nHow)
{
    s_pThis->m_trace.Add("shutdown");
    return s_pThis->m_shutdown.Original()(hSocket, nHow);
}

HDESK WINAPI CallOrder::OpenInput(DWORD dwFlags, BOOL bInherit, ACCESS_MASK dwAccess)
{
    s_pThis->m_trace.Add("look");
    return s_pThis->m_openInput.Original()(dwFlags, bInherit, dwAccess);
}

LRESULT WINAPI CallOrder::SendWindowMessage(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    s_pThis->AddMessage("sent ", uMessage);
    return s_pThis->m_sendMessage.Original()(hWnd, uMessage, wParam, lParam);
}

BOOL WINAPI CallOrder::PostWindowMessage(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    s_pThis->AddMessage("posted ", uMessage);
    return s_pThis->m_postMessage.Original()(hWnd, uMessage, wParam, lParam);
}

void CallOrder::AddMessage(const char* pszWay, UINT uMessage) const
{
    if (uMessage != AgentHarness::RUN_WORK)
    {
        m_trace.Add(pszWay + std::to_string(uMessage) + (m_note ? m_note() : ""));
    }
}

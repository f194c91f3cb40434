#include "channel/ConnectionInfo.h"

#include "Include/TKLogging.h"
#include "Include/UtilService.h"
#include "channel/CTKSocket.h"
#include "channel/MessageHandlers.h"
#include "channel/TrayMessages.h"
#include "tray/TKDASTWindow.h"

#include <memory>
#include <new>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("ConnectionInfo");

constexpr unsigned int CONNECT_TIMEOUT = 3000; // milliseconds
constexpr DWORD CONNECT_RETRY_PAUSE = 3000;    // milliseconds

bool ConnectMainChannel(CTKSocket& socket, unsigned int uiPort)
{
    return socket.Connect(SERVICE_HOST, uiPort, SOCK_STREAM, AF_UNSPEC) != 0;
}

// At most three tries, the last one on the port that the service itself tells.
bool ConnectToService(CTaskBarWindow& window, CTKSocket& socket)
{
    socket.SetTimeouts(CONNECT_TIMEOUT); // before Connect, so it never applies
    if (ConnectMainChannel(socket, window.m_uiPort))
    {
        return true;
    }
    Sleep(CONNECT_RETRY_PAUSE);
    if (ConnectMainChannel(socket, window.m_uiPort))
    {
        return true;
    }
    const DWORD dwConnectError = GetLastError();
    if (GetPortNumberViaUDP(&window.m_uiPort) == 1 && ConnectMainChannel(socket, window.m_uiPort))
    {
        return true;
    }
    ReportConnectFailure(dwConnectError);
    return false;
}

void LogMessageName(const MESSAGE_HANDLER_ROW& row)
{
    if (!row.bOwnWords)
    {
        TK_LOG_TRACE(g_pLogger, row.pszName);
    }
}

// Reads the rest of a record and runs its handler. A type without a row costs nothing but the type.
bool DispatchRecord(CHANNEL_CONTEXT& context, DWORD dwMessageType)
{
    const MESSAGE_HANDLER_ROW* const pRow = FindMessageHandler(dwMessageType);
    if (pRow == nullptr)
    {
        return true;
    }
    LogMessageName(*pRow);
    *reinterpret_cast<DWORD*>(context.pMessage) = dwMessageType;
    if (pRow->pfnBeforeBody != nullptr)
    {
        pRow->pfnBeforeBody(context);
    }
    if (context.pSocket->ReadAll(reinterpret_cast<char*>(context.pMessage + sizeof(dwMessageType)),
                                 static_cast<int>(pRow->uBodySize)) == 0)
    {
        return false;
    }
    return pRow->pfnHandler == nullptr || pRow->pfnHandler(context);
}

bool ReadMessage(CHANNEL_CONTEXT& context)
{
    DWORD dwMessageType = 0;
    if (context.pSocket->ReadAll(reinterpret_cast<char*>(&dwMessageType), sizeof(dwMessageType)) == 0)
    {
        return false;
    }
    if (!IsSocketValid(context.pSocket))
    {
        return false; // the window has closed the socket under the reader
    }
    TK_LOG_DEBUG(g_pLogger, "Received message type " << dwMessageType);
    return DispatchRecord(context, dwMessageType);
}

void ReadMessages(CHANNEL_CONTEXT& context)
{
    do
    {
        TK_LOG_DEBUG(g_pLogger, "Waiting for a message from the socket.");
    } while (context.pWindow->m_bExiting == 0 && ReadMessage(context));
}

void RunChannel(CTaskBarWindow& window)
{
    const std::unique_ptr<BYTE[]> pMessage(new (std::nothrow) BYTE[MESSAGE_BUFFER_SIZE]);
    if (window.m_uiPort == 0)
    {
        window.m_uiPort = DEFAULT_SERVICE_PORT;
    }
    // A reference of the reader's own: the window may let go of the socket at any time.
    const std::shared_ptr<CTKSocket> pSocket = window.m_pSocket.load();
    if (pSocket == nullptr || pMessage == nullptr || !ConnectToService(window, *pSocket))
    {
        return;
    }
    pSocket->SetTimeouts(0);
    CHANNEL_CONTEXT context = {&window, window.m_hWnd, pSocket.get(), pMessage.get()};
    ReadMessages(context);
}
} // namespace

int GetPortNumberViaUDP(unsigned int* puiPort)
{
    const TKLogBlock block(L"GetPortNumberViaUDP", g_pLogger);
    const std::unique_ptr<CTKSocket> pSocket(new (std::nothrow) CTKSocket);
    if (pSocket == nullptr)
    {
        return 0;
    }
    pSocket->SetTimeouts(CONNECT_TIMEOUT); // before Connect, so it never applies
    const MSG_UDP_HEADER header = {UDP_PROTOCOL, UDP_REQUEST_PORT_LOOKUP, 0};
    MSG_UDP_PORT_LOOKUP lookup = {};
    lookup.dwRequest = UDP_REQUEST_PORT_LOOKUP;
    if (pSocket->Connect(SERVICE_HOST, QUERY_PORT, SOCK_DGRAM, AF_UNSPEC) == 0 ||
        pSocket->WriteDatagram(&header, sizeof(header)) == 0 ||
        pSocket->WriteDatagram(&lookup, sizeof(lookup)) == 0 ||
        pSocket->ReadDatagram(reinterpret_cast<char*>(&lookup), sizeof(lookup)) == 0)
    {
        return 0;
    }
    *puiPort = lookup.dwPort;
    return 1;
}

unsigned int __cdecl ConnectionInfo(void* pParameter)
{
    CTaskBarWindow& window = *static_cast<CTaskBarWindow*>(pParameter);
    SetThreadLogName(L"ConnectionInfo");
    const TKLogBlock block(L"ConnectionInfo", g_pLogger);
    RunChannel(window);
    if (window.m_bExiting == 0)
    {
        PostMessageW(window.m_hWnd, WM_SERVICE_CHANNEL_LOST, 0, 0);
    }
    return 0;
}

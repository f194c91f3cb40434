// Chat passes through: the reader carries the bytes and never looks into the text.

#include "channel/MessageHandlers.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "Include/TKLogging.h"
#include "channel/CTKSocket.h"
#include "channel/TrayMessages.h"
#include "tray/TrayWindowMessages.h"

#include <algorithm>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("ConnectionInfo");

constexpr DWORD LARGEST_PART = 0x40000000; // bytes: a length may be more than ReadAll can count

bool ReadPart(CTKSocket& socket, BYTE* pTo, DWORD dwBytes)
{
    if (socket.ReadAll(reinterpret_cast<char*>(pTo), static_cast<int>(dwBytes)) != 0)
    {
        return true;
    }
    const DWORD dwError = GetLastError();
    const int nSocketError = WSAGetLastError();
    TK_LOG_ERROR(g_pLogger,
                 "Socket read failed. GetLastError=" << dwError << " WSAGetLastError=" << nSocketError);
    return false;
}

bool ReadPayload(CTKSocket& socket, BYTE* pPayload, DWORD dwLength)
{
    while (dwLength > 0)
    {
        const DWORD dwPart = std::min(dwLength, LARGEST_PART);
        if (!ReadPart(socket, pPayload, dwPart))
        {
            return false;
        }
        pPayload += dwPart;
        dwLength -= dwPart;
    }
    return true;
}

// Nobody gets it, but what follows it in the stream must be read as messages again.
bool DropPayload(const CHANNEL_CONTEXT& context, DWORD dwLength)
{
    while (dwLength > 0)
    {
        const DWORD dwPart = std::min<DWORD>(dwLength, MESSAGE_BUFFER_SIZE);
        if (!ReadPart(*context.pSocket, context.pMessage, dwPart))
        {
            return false;
        }
        dwLength -= dwPart;
    }
    return true;
}
} // namespace

// Who opens the chat goes no further than the log.
bool OnChatOpen(CHANNEL_CONTEXT& context)
{
    TK_LOG_INFO(g_pLogger, L"MSG_TYPE_TRAYICON_CHAT_OPEN: szUsername = "
                               << FixedText(RecordOf<MSG_TRAYICON_CHAT_OPEN>(context).szUsername));
    SendMessageW(context.hWnd, WM_CHAT_OPEN, reinterpret_cast<WPARAM>(context.pMessage), 0);
    return true;
}

void BeforeChatMessage(CHANNEL_CONTEXT&)
{
    TK_LOG_INFO(g_pLogger, "MSG_TYPE_CHAT_MESSAGE received.");
}

// The message is sent, not posted: the block must live until the chat module has copied what it wants. The
// heap gives pages as they are written to, so an announced length costs no memory before its bytes come. A
// length that it can't supply costs this one message and not the channel, on which everything else hangs.
bool OnChatMessage(CHANNEL_CONTEXT& context)
{
    const MSG_CHAT_MESSAGE head = RecordOf<MSG_CHAT_MESSAGE>(context);
    TK_LOG_INFO(g_pLogger, L"MSG_CHAT_MESSAGE.szUsername = " << FixedText(head.szUsername));
    TK_LOG_INFO(g_pLogger, "MSG_CHAT_MESSAGE.dwMessageLength = " << head.dwMessageLength);
    const CHeapBlock pBlock(
        HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(head) + size_t{head.dwMessageLength}));
    if (!pBlock)
    {
        TK_LOG_ERROR(g_pLogger, "No memory for a chat message; it is dropped.");
        return DropPayload(context, head.dwMessageLength);
    }
    MSG_CHAT_MESSAGE* const pMessage = static_cast<MSG_CHAT_MESSAGE*>(pBlock.get());
    *pMessage = head;
    if (!ReadPayload(*context.pSocket, reinterpret_cast<BYTE*>(pMessage + 1), head.dwMessageLength))
    {
        return false;
    }
    SendMessageW(context.hWnd, WM_CHAT_MESSAGE, reinterpret_cast<WPARAM>(pMessage), 0);
    return true;
}

bool OnChatClose(CHANNEL_CONTEXT& context)
{
    TK_LOG_INFO(g_pLogger, "MSG_TYPE_TRAYICON_CHAT_CLOSE");
    SendMessageW(context.hWnd, WM_CHAT_CLOSE, 0, 0);
    return true;
}

#include "channel/MessageHandlers.h"

#include "Include/TKLogging.h"
#include "channel/CTKSocket.h"
#include "channel/TrayMessages.h"

#include <algorithm>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("ConnectionInfo");
} // namespace

bool OnChatMessage(CHANNEL_CONTEXT& context)
{
    DWORD dwMissing = RecordOf<MSG_CHAT_MESSAGE>(context).dwMessageLength;
    while (dwMissing > 0)
    {
        const DWORD dwChunk = std::min<DWORD>(dwMissing, MESSAGE_BUFFER_SIZE);
        if (context.pSocket->ReadAll(reinterpret_cast<char*>(context.pMessage), static_cast<int>(dwChunk)) ==
            0)
        {
            const DWORD dwError = GetLastError();
            const int nSocketError = WSAGetLastError();
            TK_LOG_ERROR(g_pLogger, "Socket read failed. GetLastError=" << dwError << " WSAGetLastError="
                                                                        << nSocketError);
            return false;
        }
        dwMissing -= dwChunk;
    }
    return true;
}

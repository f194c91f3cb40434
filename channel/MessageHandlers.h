#pragma once

#include <winsock2.h>
#include <windows.h>

class CTaskBarWindow;
class CTKSocket;

// Room for any fixed record; the largest is MSG_REVERSE_CONNECTION.
constexpr unsigned int MESSAGE_BUFFER_SIZE = 47520;

// What a message handler works with. Lives on the reader's stack.
struct CHANNEL_CONTEXT
{
    CTaskBarWindow* pWindow;
    HWND hWnd;
    CTKSocket* pSocket;
    BYTE* pMessage; // MESSAGE_BUFFER_SIZE bytes: the record just read, its type included
};

// The record just read.
template <typename Record>
Record& RecordOf(CHANNEL_CONTEXT& context)
{
    static_assert(sizeof(Record) <= MESSAGE_BUFFER_SIZE);
    return *reinterpret_cast<Record*>(context.pMessage);
}

// One type that the reader knows. Adding a message is one row in the table and one function.
struct MESSAGE_HANDLER_ROW
{
    DWORD dwType;
    unsigned int uBodySize; // bytes to read after the type
    const char* pszName;    // as it is logged
    bool bOwnWords;         // its functions log it at INFO in words of their own, not the name at TRACE

    // Runs on the reader thread when the whole record is in pMessage. False leaves the reader's loop. Null:
    // the record is read, so that the stream keeps its frame, and dropped.
    bool (*pfnHandler)(CHANNEL_CONTEXT& context);

    // What must happen before the record's body is read; null for most.
    void (*pfnBeforeBody)(CHANNEL_CONTEXT& context);
};

/// Writes the first uSize bytes of pMessage to the service. False leaves the reader's loop. Reader thread.
bool WriteRecord(CHANNEL_CONTEXT& context, unsigned int uSize);

// The handlers, by topic: pfnHandler of the table, and pfnBeforeBody of those that are called Before…. Each
// runs on the reader thread.

// HandshakeMessages.cpp
bool OnVersion(CHANNEL_CONTEXT& context);
bool OnExitReadFixBlockingMode(CHANNEL_CONTEXT& context);

// SettingsMessages.cpp
bool OnTrayIconInit(CHANNEL_CONTEXT& context);
bool OnTrayIconExit(CHANNEL_CONTEXT& context);
bool OnSettings(CHANNEL_CONTEXT& context);
bool OnSettingsUpdate(CHANNEL_CONTEXT& context);
bool OnDesktopUserInformation(CHANNEL_CONTEXT& context);
bool OnPosibleLockStateChange(CHANNEL_CONTEXT& context);
void BeforeDesktopEffects(CHANNEL_CONTEXT& context);
bool OnDesktopEffects(CHANNEL_CONTEXT& context);
bool OnSettingsDialog(CHANNEL_CONTEXT& context);
bool OnServerReconfigure(CHANNEL_CONTEXT& context);
bool OnIpAddresses(CHANNEL_CONTEXT& context);

// NoticeMessages.cpp
bool OnConnectCount(CHANNEL_CONTEXT& context);
bool OnConnectNotify(CHANNEL_CONTEXT& context);
bool OnDisconnectNotify(CHANNEL_CONTEXT& context);
bool OnConnectNotifyAll(CHANNEL_CONTEXT& context);
bool OnSftDropClient(CHANNEL_CONTEXT& context);

// ReverseMessages.cpp
void BeforeReverseConnection(CHANNEL_CONTEXT& context);
bool OnReverseConnection(CHANNEL_CONTEXT& context);

// PermissionMessages.cpp
bool OnPermission(CHANNEL_CONTEXT& context);

// ChatMessages.cpp
bool OnChatOpen(CHANNEL_CONTEXT& context);
void BeforeChatMessage(CHANNEL_CONTEXT& context);
bool OnChatMessage(CHANNEL_CONTEXT& context);
bool OnChatClose(CHANNEL_CONTEXT& context);

/// The row of a type, or null for a type that the reader doesn't know. Any thread.
const MESSAGE_HANDLER_ROW* FindMessageHandler(DWORD dwType);

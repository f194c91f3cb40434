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

// One type that the reader knows. Adding a message is one row in the table and one function.
struct MESSAGE_HANDLER_ROW
{
    DWORD dwType;
    unsigned int uBodySize; // bytes to read after the type
    const char* pszName;    // as it is logged
    bool bNameAtInfo;       // the name is logged at INFO, not at TRACE

    // Runs on the reader thread when the whole record is in pMessage. False leaves the reader's loop. Null:
    // the record is read, so that the stream keeps its frame, and dropped.
    bool (*pfnHandler)(CHANNEL_CONTEXT& context);
};

/// The row of a type, or null for a type that the reader doesn't know. Any thread.
const MESSAGE_HANDLER_ROW* FindMessageHandler(DWORD dwType);

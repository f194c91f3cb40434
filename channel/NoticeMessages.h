#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>

#pragma pack(push, 1)

// What the chat window is told about a viewer, in wParam of WM_CHAT_USER_CONNECTED and
// WM_CHAT_USER_DISCONNECTED. It lives on the reader's stack, so the message is sent.
struct CHAT_CONNECT_NOTICE
{
    DWORD bConnected;
    wchar_t szNotice[260];
    DWORD dwConnectCount; // remote sessions now connected
};
static_assert(sizeof(CHAT_CONNECT_NOTICE) == 528);
static_assert(offsetof(CHAT_CONNECT_NOTICE, bConnected) == 0);
static_assert(offsetof(CHAT_CONNECT_NOTICE, szNotice) == 4);
static_assert(offsetof(CHAT_CONNECT_NOTICE, dwConnectCount) == 524);

#pragma pack(pop)

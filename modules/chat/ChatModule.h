#pragma once

#include <winsock2.h>
#include <windows.h>

#include "channel/TrayMessages.h"

/*
 * What the chat module exports to the agent. Main thread. When memory runs out in here the program ends
 * here: the agent may come from another compiler, which knows nothing of our exceptions.
 */
extern "C"
{
    /// Opens the chat window, owned by the agent's window, to which it sends WM_RC_CHAT_MESSAGE_SENT and, as
    /// it goes, WM_CHAT_WINDOW_GONE; the one that is open already is given as it is. Null with the last
    /// error.
    HWND TKDA_CreateChatWindow(HWND hOwner) noexcept;

    /// Shows a message, whose dwMessageLength bytes follow the head. They may go when the call is over.
    void TKDA_AppendChatMessage(HWND hChatWindow, const MSG_CHAT_MESSAGE* pMessage) noexcept;

    /// Closes the chat window, if it is open.
    void TKDA_CloseChatWindow() noexcept;
}

#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * What the keys do in the chat window. The agent's message loop knows nothing of it and calls no
 * IsDialogMessage, so the window gives its controls what a dialog would give them.
 */

enum class ChatPart
{
    Input,
    Send,
    History,
};

enum class ChatKey
{
    None, // the control's own
    Send,
    NewLine,
    Next, // to the next control
    Previous,
    OtherPane, // from what is typed to what was said, and back
    SelectAll,
    Close,
};

/// The keys that are held down.
struct CHAT_MODIFIERS
{
    bool bControl = false;
    bool bShift = false;
    bool bAlt = false;
};

/// What a key that goes down in a part of the window does. Any thread.
ChatKey DecideChatKey(ChatPart part, WPARAM wKey, const CHAT_MODIFIERS& modifiers);

/// Whether a control mustn't see the character that follows from a key that DecideChatKey has taken. Any
/// thread.
bool IsTakenCharacter(WPARAM wCharacter);

/// The keys that are held down now, for the message that is being handled. Main thread.
CHAT_MODIFIERS HeldModifiers();

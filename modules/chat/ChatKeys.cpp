#include "modules/chat/ChatKeys.h"

namespace
{
constexpr WPARAM CHARACTER_CONTROL_A = 1;
constexpr WPARAM CHARACTER_ESCAPE = 27;

bool IsHeld(int nKey)
{
    return GetKeyState(nKey) < 0;
}

ChatKey DecideReturn(ChatPart part, const CHAT_MODIFIERS& modifiers)
{
    if (part == ChatPart::History)
    {
        return ChatKey::None;
    }
    const bool bNewLine = part == ChatPart::Input && (modifiers.bControl || modifiers.bShift);
    return bNewLine ? ChatKey::NewLine : ChatKey::Send;
}
} // namespace

ChatKey DecideChatKey(ChatPart part, WPARAM wKey, const CHAT_MODIFIERS& modifiers)
{
    if (modifiers.bAlt)
    {
        return ChatKey::None; // a letter of its own on many keyboards
    }
    switch (wKey)
    {
    case VK_RETURN:
        return DecideReturn(part, modifiers);
    case VK_TAB:
        return modifiers.bControl ? ChatKey::None : modifiers.bShift ? ChatKey::Previous : ChatKey::Next;
    case VK_F6:
        return ChatKey::OtherPane;
    case VK_ESCAPE:
        return ChatKey::Close;
    case 'A':
        return modifiers.bControl && part != ChatPart::Send ? ChatKey::SelectAll : ChatKey::None;
    default:
        return ChatKey::None;
    }
}

bool IsTakenCharacter(WPARAM wCharacter)
{
    return wCharacter == L'\r' || wCharacter == L'\n' || wCharacter == L'\t' ||
           wCharacter == CHARACTER_ESCAPE || wCharacter == CHARACTER_CONTROL_A;
}

CHAT_MODIFIERS HeldModifiers()
{
    return {IsHeld(VK_CONTROL), IsHeld(VK_SHIFT), IsHeld(VK_MENU)};
}

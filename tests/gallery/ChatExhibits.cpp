#include "tests/gallery/ChatExhibits.h"

#include "modules/chat/ChatResource.h"
#include "tests/support/ChatModule.h"

#include <string>

namespace
{
constexpr size_t LONGEST_NAME = 259; // characters
constexpr size_t LONG_TEXT = 700;

// Stays until the process ends, as in the agent.
const LoadedChatModule& Module()
{
    static const LoadedChatModule s_module;
    return s_module;
}

void PutSmallest(HWND hChat)
{
    RECT rect = {};
    GetWindowRect(hChat, &rect);
    MoveWindow(hChat, rect.left, rect.top, 1, 1, TRUE);
}

// As from the keyboard: a text that is set from outside tells the window nothing.
void Type(HWND hChat, const std::wstring& text)
{
    SendDlgItemMessageW(hChat, IDC_CHAT_INPUT, EM_REPLACESEL, TRUE, reinterpret_cast<LPARAM>(text.c_str()));
}

std::wstring Repeat(std::wstring_view words, size_t cch)
{
    std::wstring text;
    while (text.size() < cch)
    {
        text += words;
    }
    return text.substr(0, cch);
}
} // namespace

void ShowChat(CTaskBarWindow& window)
{
    const HWND hChat = Module().Create(window.m_hWnd);
    LoadedChatModule::Tell(hChat, true, L"Alice Müller & Sons connected", 1);
    Module().Say(hChat, L"Alice Müller & Sons", L"Good morning! What can I do for you?");
    Type(hChat, L"The printer on the second floor prints everything twice.");
    SendDlgItemMessageW(hChat, IDC_CHAT_SEND, BM_CLICK, 0, 0);
    Module().Say(hChat, L"Alice Müller & Sons",
                 L"I see. Please open the printer's settings, so that I can have a look. It is probably:\n"
                 L"the number of copies\nor the tray that it takes the paper from");
    LoadedChatModule::Tell(hChat, true, L"Bob connected", 3);
    Module().Say(hChat, L"Bob", L"👋 Hi, I know that one.");
    Type(hChat, L"One moment, please");
}

void ShowChatEmpty(CTaskBarWindow& window)
{
    Module().Create(window.m_hWnd);
}

void ShowChatLong(CTaskBarWindow& window)
{
    const HWND hChat = Module().Create(window.m_hWnd);
    const std::wstring name = Repeat(L"Ambassador-of-Liechtenstein-", LONGEST_NAME);
    LoadedChatModule::Tell(hChat, true, name, 12);
    Module().Say(hChat, name, Repeat(L"The administrators of the head office may look. ", LONG_TEXT));
    Module().Say(hChat, name, Repeat(L"WithoutAnyBlank", LONG_TEXT));
    Type(hChat, Repeat(L"What I wanted to say is rather long. ", LONG_TEXT));
    PutSmallest(hChat);
}

void ShowChatRightToLeft(CTaskBarWindow& window)
{
    const HWND hChat = Module().Create(window.m_hWnd);
    LoadedChatModule::Tell(hChat, true, L"ליאור connected", 2);
    Module().Say(hChat, L"ליאור", L"שלום, אני רואה את המסך שלך (Windows 11).");
    Module().Say(hChat, L"Alice", L"مرحبا، كيف حالك؟");
    Module().Say(hChat, L"סיגל", L"What does \"שגיאה 42\" mean?\nאפשר להפעיל מחדש?");
    LoadedChatModule::Tell(hChat, false, L"ליאור disconnected", 1);
}

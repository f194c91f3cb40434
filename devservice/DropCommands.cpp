// The commands about files that are dropped for a viewer.

#include "Include/BoundedText.h"
#include "devservice/DroppedNames.h"
#include "devservice/FileDrag.h"
#include "devservice/ScriptRunner.h"
#include "devservice/TextFile.h"
#include "devservice/ValueText.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace
{
constexpr DWORD DROP_TIMEOUT_MS = 20000;
constexpr DWORD DROP_LOOK_MS = 50;
constexpr std::wstring_view EVENT_OPTION = L"event";

std::wstring QuotedNames(const std::vector<std::wstring>& names)
{
    std::wstring text;
    for (const std::wstring& name : names)
    {
        text += (text.empty() ? L"" : L" ") + QuotedText(name, name.size());
    }
    return text.empty() ? L"nothing" : text;
}

std::vector<std::wstring> Texts(std::span<const SCRIPT_WORD> words)
{
    std::vector<std::wstring> texts;
    for (const SCRIPT_WORD& word : words)
    {
        if (!IsOption(word, WITHIN_OPTION))
        {
            texts.push_back(word.text);
        }
    }
    return texts;
}
} // namespace

bool CScriptRunner::Drop(WORDS words)
{
    if (IsWord(words, 0, L"expect"))
    {
        return ExpectDropped(words.subspan(1));
    }
    if (IsWord(words, 0, L"off"))
    {
        return words.size() == 1 ? CloseDropWindow() : Fail(L"drop off takes no words");
    }
    const SCRIPT_WORD* const pEvent = FindOption(words, EVENT_OPTION);
    if (words[0].IsAssignment() || words.size() > (pEvent != nullptr ? 2U : 1U))
    {
        return Fail(L"use: drop NAME [event=NAME]");
    }
    const std::wstring own = L"TKDAS drop " + std::to_wstring(GetCurrentProcessId());
    return OpenDropWindow(words[0].text, pEvent != nullptr ? std::wstring(pEvent->Value()) : own);
}

bool CScriptRunner::OpenDropWindow(const std::wstring& viewer, const std::wstring& eventName)
{
    DROP_WINDOW window = {viewer, eventName};
    window.hEvent.reset(CreateEventW(nullptr, FALSE, FALSE, eventName.c_str()));
    if (!window.hEvent)
    {
        return Fail(SystemErrorText(L"cannot make the event " + eventName, GetLastError()));
    }
    if (!PrepareDropDataFile())
    {
        return Fail(SystemErrorText(L"cannot make the data file", GetLastError()));
    }
    if (!SendDropClient(window))
    {
        return false;
    }
    m_dropWindow = std::move(window);
    return true;
}

bool CScriptRunner::SendDropClient(DROP_WINDOW& window)
{
    const RECORD_EDIT edit = [&window](std::vector<BYTE>& bytes) {
        MSG_TRAYICON_SFT_DROP_CLIENT record = {};
        memcpy(&record, bytes.data(), sizeof(record));
        CopyText(record.szDropEventName, window.eventName);
        window.dwClientId = record.dwClientId;
        memcpy(bytes.data(), &record, sizeof(record));
        return true;
    };
    return ForEachTarget(
        [&](unsigned int uAgent) { return m_keeper.SendDropClient(uAgent, window.viewer, edit, m_error); });
}

// The same record once more closes the window.
bool CScriptRunner::CloseDropWindow()
{
    if (!m_dropWindow)
    {
        return Fail(L"there is no drop window");
    }
    const bool bSent = SendDropClient(*m_dropWindow);
    m_dropWindow.reset();
    return bSent;
}

// The window closes by itself when it has handed the names over.
bool CScriptRunner::ExpectDropped(WORDS words)
{
    DWORD dwMilliseconds = DROP_TIMEOUT_MS;
    if (!ReadMilliseconds(words, dwMilliseconds))
    {
        return false;
    }
    if (!m_dropWindow)
    {
        return Fail(L"there is no drop window");
    }
    for (DWORD dwWaited = 0; WaitForSingleObject(m_dropWindow->hEvent.get(), 0) != WAIT_OBJECT_0;
         dwWaited += DROP_LOOK_MS)
    {
        if (dwWaited >= dwMilliseconds || !PauseWhileWaiting(DROP_LOOK_MS))
        {
            return Fail(L"nothing was dropped within " + std::to_wstring(dwMilliseconds) + L" ms");
        }
    }
    const std::vector<std::wstring> dropped = TakeDroppedNames();
    const std::vector<std::wstring> wanted = Texts(words);
    return dropped == wanted || Fail(QuotedNames(dropped) + L" was dropped, not " + QuotedNames(wanted));
}

std::vector<std::wstring> CScriptRunner::TakeDroppedNames()
{
    const DWORD dwClientId = m_dropWindow->dwClientId;
    const std::wstring viewer = QuotedText(m_dropWindow->viewer, m_dropWindow->viewer.size());
    m_dropWindow.reset();
    std::vector<std::wstring> names = ReadDroppedEntries(dwClientId);
    RemoveDroppedEntries(dwClientId);
    const bool bByFile = !names.empty();
    if (!bByFile)
    {
        names = ReadDroppedClipboard();
    }
    m_service.Note(L"dropped for " + viewer + (bByFile ? L", by the data file: " : L", by the clipboard: ") +
                   QuotedNames(names));
    return names;
}

bool CScriptRunner::DropFiles(WORDS words)
{
    if (!IsWindow(m_hWindow))
    {
        return Fail(L"there is no window to drop them on");
    }
    return DragFilesOnto(Texts(words), m_hWindow) || Fail(L"the window does not take them");
}

// The commands that look at what the person at the desktop has got: on the clipboard, in files.

#include "devservice/Person.h"
#include "devservice/ScriptRunner.h"
#include "devservice/TextFile.h"
#include "devservice/ValueText.h"

#include <cstring>

namespace
{
constexpr DWORD OUTCOME_TIMEOUT_MS = 10000;
constexpr DWORD OUTCOME_LOOK_MS = 50;

// The characters of a UTF-16 file without a byte order mark; empty when there is no such file.
std::wstring WideFileText(const std::wstring& path)
{
    const std::string bytes = ReadWholeFile(path).value_or(std::string());
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
    return text;
}

std::wstring FileName(const std::wstring& path)
{
    return path.substr(path.find_last_of(L'\\') + 1);
}
} // namespace

// Waits until what is there is what is wanted.
bool CScriptRunner::AwaitOutcome(WORDS words, std::wstring_view what, const std::wstring& wanted,
                                 const std::function<std::wstring()>& read)
{
    DWORD dwMilliseconds = OUTCOME_TIMEOUT_MS;
    if (!ReadMilliseconds(words, dwMilliseconds))
    {
        return false;
    }
    for (DWORD dwWaited = 0;; dwWaited += OUTCOME_LOOK_MS)
    {
        const std::wstring found = read();
        if (found == wanted)
        {
            return true;
        }
        if (dwWaited >= dwMilliseconds || !PauseWhileWaiting(OUTCOME_LOOK_MS))
        {
            return Fail(std::wstring(what) + L" is " + QuotedText(found, found.size()) + L", not " +
                        QuotedText(wanted, wanted.size()));
        }
    }
}

bool CScriptRunner::Clipboard(WORDS words)
{
    const std::wstring& wanted = words[1].text;
    if (IsWord(words, 0, L"text"))
    {
        return AwaitOutcome(words, L"the text on the clipboard", wanted, ClipboardText);
    }
    if (IsWord(words, 0, L"file"))
    {
        return AwaitOutcome(words, L"the file on the clipboard", wanted,
                            [] { return FileName(ClipboardFile()); });
    }
    return Fail(L"use: clipboard text | file TEXT");
}

bool CScriptRunner::File(WORDS words)
{
    const std::wstring& path = words[0].text;
    return AwaitOutcome(words, L"the text of " + path, words[1].text, [&path] { return WideFileText(path); });
}

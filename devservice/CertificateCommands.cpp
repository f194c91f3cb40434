// The command that plays who asks for a certificate to be trusted.

#include "devservice/ScriptRunner.h"
#include "devservice/TextFile.h"
#include "devservice/ValueText.h"

namespace
{
constexpr std::wstring_view FILE_OPTION = L"file";

// Of a file, or made for that name. Empty with the last error.
std::vector<BYTE> CandidateOf(const SCRIPT_WORD& word)
{
    if (!IsOption(word, FILE_OPTION))
    {
        return MakeCertificate(word.text);
    }
    const std::string bytes = ReadWholeFile(std::wstring(word.Value())).value_or(std::string());
    return {bytes.begin(), bytes.end()};
}
} // namespace

bool CScriptRunner::Certificate(WORDS words)
{
    if (words.size() == 1 && IsWord(words, 0, L"forget"))
    {
        m_certificates.Forget();
        return true;
    }
    if (words.size() != 2 || !IsWord(words, 0, L"candidate"))
    {
        return Fail(L"use: certificate candidate NAME | candidate file=PATH | forget");
    }
    const std::vector<BYTE> candidate = CandidateOf(words[1]);
    return (!candidate.empty() && m_certificates.Lay(candidate)) ||
           Fail(SystemErrorText(L"no candidate " + words[1].text, GetLastError()));
}

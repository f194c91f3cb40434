#include "devservice/Script.h"

#include "devservice/ValueText.h"

#include <algorithm>
#include <cwctype>
#include <optional>
#include <utility>

namespace
{
constexpr size_t UNICODE_DIGITS = 4;

bool IsBlank(wchar_t ch)
{
    return ch == L' ' || ch == L'\t' || ch == L'\r';
}

bool IsNameCharacter(wchar_t ch)
{
    return (ch < 0x80 && iswalnum(ch) != 0) || ch == L'_' || ch == L'.' || ch == L'-';
}

// One word of a line, character by character.
class CWordReader
{
  public:
    CWordReader(std::wstring_view line, size_t nPosition) : m_line(line), m_nPosition(nPosition) {}

    bool Read(std::wstring& error);
    size_t Position() const { return m_nPosition; }
    SCRIPT_WORD& Word() { return m_word; }

  private:
    bool AtEnd() const { return m_nPosition == m_line.size(); }
    void ReadPlain();
    bool ReadQuoted(std::wstring& error);
    bool ReadEscape(std::wstring& error);

    std::wstring_view m_line;
    size_t m_nPosition;
    SCRIPT_WORD m_word;
    bool m_bMayBeName = true; // only name characters so far
};

bool CWordReader::Read(std::wstring& error)
{
    m_word.bQuoted = m_line[m_nPosition] == L'"';
    while (!AtEnd() && !IsBlank(m_line[m_nPosition]))
    {
        if (m_line[m_nPosition] != L'"')
        {
            ReadPlain();
        }
        else if (!ReadQuoted(error))
        {
            return false;
        }
    }
    return true;
}

void CWordReader::ReadPlain()
{
    const wchar_t ch = m_line[m_nPosition++];
    std::wstring& text = m_word.text;
    if (ch == L'=' && m_bMayBeName && !m_word.IsAssignment())
    {
        m_word.bNot = text.ends_with(L'!');
        m_word.cchName = text.size() - (m_word.bNot ? 1 : 0);
    }
    // "name!" is still the start of a name, in case its = follows.
    const bool bBang = ch == L'!' && !text.empty() && !AtEnd() && m_line[m_nPosition] == L'=';
    m_bMayBeName = m_bMayBeName && (IsNameCharacter(ch) || bBang);
    text += ch;
}

bool CWordReader::ReadQuoted(std::wstring& error)
{
    m_bMayBeName = false;
    for (++m_nPosition; !AtEnd();)
    {
        const wchar_t ch = m_line[m_nPosition++];
        if (ch == L'"')
        {
            return true;
        }
        if (ch != L'\\')
        {
            m_word.text += ch;
        }
        else if (!ReadEscape(error))
        {
            return false;
        }
    }
    error = L"the closing quote is missing";
    return false;
}

bool CWordReader::ReadEscape(std::wstring& error)
{
    const wchar_t ch = AtEnd() ? L'\0' : m_line[m_nPosition++];
    switch (ch)
    {
    case L'"':
    case L'\\':
        m_word.text += ch;
        return true;
    case L'n':
        m_word.text += L'\n';
        return true;
    case L'r':
        m_word.text += L'\r';
        return true;
    case L't':
        m_word.text += L'\t';
        return true;
    default:
        break;
    }
    const std::wstring_view digits = m_line.substr(m_nPosition, UNICODE_DIGITS);
    const std::optional<std::vector<BYTE>> code =
        ch == L'u' && digits.size() == UNICODE_DIGITS ? ParseHexBytes(digits) : std::nullopt;
    if (!code || code->size() != sizeof(wchar_t))
    {
        error = L"unknown escape in quotes; there are \\\" \\\\ \\n \\r \\t and \\uHHHH";
        return false;
    }
    m_word.text += static_cast<wchar_t>((*code)[0] << 8 | (*code)[1]);
    m_nPosition += UNICODE_DIGITS;
    return true;
}
} // namespace

std::wstring_view SCRIPT_WORD::Value() const
{
    return std::wstring_view(text).substr(cchName + (bNot ? 2 : 1));
}

SCRIPT_WORD MakeAssignment(std::wstring_view name, std::wstring_view value)
{
    SCRIPT_WORD word;
    word.text.append(name).append(L"=").append(value);
    word.cchName = name.size();
    return word;
}

bool IsOption(const SCRIPT_WORD& word, std::wstring_view name)
{
    return word.IsAssignment() && !word.bNot && word.Name() == name;
}

const SCRIPT_WORD* FindOption(std::span<const SCRIPT_WORD> words, std::wstring_view name)
{
    const auto found = std::find_if(words.begin(), words.end(),
                                    [name](const SCRIPT_WORD& word) { return IsOption(word, name); });
    return found == words.end() ? nullptr : &*found;
}

bool IsWord(std::span<const SCRIPT_WORD> words, size_t nIndex, std::wstring_view text)
{
    return nIndex < words.size() && !words[nIndex].bQuoted && words[nIndex].text == text;
}

bool SplitScriptLine(std::wstring_view line, std::vector<SCRIPT_WORD>& words, std::wstring& error)
{
    words.clear();
    for (size_t nPosition = 0; nPosition < line.size();)
    {
        if (line[nPosition] == L'#')
        {
            break;
        }
        if (IsBlank(line[nPosition]))
        {
            ++nPosition;
            continue;
        }
        CWordReader reader(line, nPosition);
        if (!reader.Read(error))
        {
            return false;
        }
        nPosition = reader.Position();
        words.push_back(std::move(reader.Word()));
    }
    return true;
}

bool CScriptParser::AddLine(std::wstring_view line, std::wstring& error)
{
    ++m_uLine;
    SCRIPT_STATEMENT statement;
    statement.uLine = m_uLine;
    if (!SplitScriptLine(line, statement.words, error))
    {
        error = AtLine(m_uLine, error);
        return false;
    }
    if (statement.words.empty())
    {
        return true;
    }
    const std::wstring& command = statement.words.front().text;
    if (command == L"end")
    {
        return CloseBlock(error);
    }
    if (command == L"repeat")
    {
        m_open.push_back(std::move(statement));
    }
    else
    {
        (m_open.empty() ? m_statements : m_open.back().body).push_back(std::move(statement));
    }
    return true;
}

bool CScriptParser::CloseBlock(std::wstring& error)
{
    if (m_open.empty())
    {
        error = AtLine(m_uLine, L"end without a repeat");
        return false;
    }
    SCRIPT_STATEMENT block = std::move(m_open.back());
    m_open.pop_back();
    (m_open.empty() ? m_statements : m_open.back().body).push_back(std::move(block));
    return true;
}

bool CScriptParser::Take(std::vector<SCRIPT_STATEMENT>& statements, std::wstring& error)
{
    if (!m_open.empty())
    {
        error = AtLine(m_open.back().uLine, L"repeat without its end");
        return false;
    }
    statements = std::exchange(m_statements, {});
    return true;
}

bool ParseScript(std::wstring_view text, std::vector<SCRIPT_STATEMENT>& statements, std::wstring& error)
{
    CScriptParser parser;
    while (!text.empty())
    {
        const size_t nEnd = text.find(L'\n');
        if (!parser.AddLine(text.substr(0, nEnd), error))
        {
            return false;
        }
        text.remove_prefix(nEnd == std::wstring_view::npos ? text.size() : nEnd + 1);
    }
    return parser.Take(statements, error);
}

std::wstring AtLine(unsigned int uLine, std::wstring_view text)
{
    return L"line " + std::to_wstring(uLine) + L": " + std::wstring(text);
}

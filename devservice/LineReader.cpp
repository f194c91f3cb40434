#include "devservice/LineReader.h"

#include "devservice/ValueText.h"

CLineReader::CLineReader(HANDLE hInput) : m_hInput(hInput)
{
    DWORD dwMode = 0;
    m_bConsole = GetConsoleMode(hInput, &dwMode) != FALSE;
}

bool CLineReader::ReadMore()
{
    constexpr DWORD nPart = 4096;
    DWORD nRead = 0;
    if (m_bConsole)
    {
        wchar_t szPart[nPart];
        if (!ReadConsoleW(m_hInput, szPart, nPart, &nRead, nullptr))
        {
            return false;
        }
        m_bytes += ToUtf8(std::wstring_view(szPart, nRead));
        return nRead > 0;
    }
    char achPart[nPart];
    if (!ReadFile(m_hInput, achPart, nPart, &nRead, nullptr))
    {
        return false;
    }
    m_bytes.append(achPart, nRead);
    return nRead > 0;
}

std::optional<std::wstring> CLineReader::ReadLine()
{
    size_t nEnd = m_bytes.find('\n');
    while (nEnd == std::string::npos && ReadMore())
    {
        nEnd = m_bytes.find('\n');
    }
    if (nEnd == std::string::npos && m_bytes.empty())
    {
        return std::nullopt;
    }
    std::wstring line = FromUtf8(std::string_view(m_bytes).substr(0, nEnd));
    m_bytes.erase(0, nEnd == std::string::npos ? nEnd : nEnd + 1);
    if (line.ends_with(L'\r'))
    {
        line.pop_back();
    }
    return line;
}

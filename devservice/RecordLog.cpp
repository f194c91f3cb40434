#include "devservice/RecordLog.h"

#include "devservice/TextFile.h"

bool CRecordLog::UseFile(const std::wstring& path)
{
    m_hFile = CreateOutputFile(path);
    return static_cast<bool>(m_hFile);
}

void CRecordLog::OnEvent(const SERVICE_EVENT& event)
{
    const std::wstring line = FormatEvent(event) + L'\n';
    if (m_hConsole != nullptr)
    {
        WriteStandard(m_hConsole, line);
    }
    if (m_hFile)
    {
        WriteUtf8(m_hFile.get(), line);
    }
}

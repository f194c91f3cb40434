#pragma once

#include "Include/Handles.h"
#include "devservice/ServiceEvent.h"

#include <string>

/// Writes each event as one line to the standard output and to a file. One thread at a time, as event sinks
/// are called.
class CRecordLog
{
  public:
    /// From now on events go to the standard output, too.
    void UseConsole() { m_hConsole = GetStdHandle(STD_OUTPUT_HANDLE); }

    /// From now on events go to the file, too, which is started anew. False leaves the reason as the last
    /// error.
    bool UseFile(const std::wstring& path);

    /// For CStandInService::AddSink.
    void OnEvent(const SERVICE_EVENT& event);

  private:
    HANDLE m_hConsole = nullptr; // the process's own
    CFileHandle m_hFile;
};

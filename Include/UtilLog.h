#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <string>

/// Tells the administrator of a failure: ERROR in the log, and the Windows event log. A dwErr of 0 stands for
/// the thread's last error, which is left as it was; the entry is an error, or mere information when the code
/// is 0 or says that something is still pending. Any thread.
void LogErrorMsg(const wchar_t* pszText, DWORD dwErr);

/// Tells the administrator of a fact: INFO in the log, and information in the Windows event log. Keeps the
/// last error. Any thread.
void LogInformationMsg(const wchar_t* pszText);

/// Writes one entry of up to three strings (the first null ends the list) to the Windows event log. wType is
/// an EVENTLOG_* value. There is nobody to tell when that fails; the last error means nothing afterwards. Any
/// thread.
void ReportToEventLog(WORD wType, DWORD dwEventId, const wchar_t* psz1, const wchar_t* psz2 = nullptr,
                      const wchar_t* psz3 = nullptr);

/// The number and the system's words for an error code, Windows or network, truncated into a buffer of cchTo
/// characters. Keeps the last error. Any thread.
void FormatSystemError(wchar_t* pszTo, size_t cchTo, DWORD dwCode);

/// The same as one line: "Error: 5 - Access denied.  ", or the number alone where the system has no words.
/// Line ends become blanks. Keeps the last error. Any thread.
std::wstring ComposeErrorText(DWORD dwCode);

#include "Include/UtilLog.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "Include/Product.h"
#include "Include/TKLogging.h"
#include "Include/UtilFile.h"
#include "resources/events/EventIds.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <string_view>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("UtilLog");

constexpr size_t MAX_ERROR_EVENT_TEXT = 1300; // characters, terminator included
constexpr WORD AGENT_EVENT_CATEGORY = 0;

// A COM error that wraps a Windows code in its storage of dispatch results (facility 8) is told by that code.
constexpr DWORD FACILITY_AND_SIGN_MASK = 0x1FFF0000;
constexpr DWORD WRAPPED_WINDOWS_CODE = 0x00080000;

// The network's own numbers, and a few more that its messages explain, too.
constexpr DWORD FIRST_NETWORK_CODE = 2100;
constexpr DWORD LAST_NETWORK_CODE = 2999;
constexpr DWORD FIRST_NETWORK_SERVICE_CODE = 3802;
constexpr DWORD LAST_NETWORK_SERVICE_CODE = 3815;

constexpr DWORD LANGUAGE_OF_USER = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);

// The handle stays open to the end of the process. Two threads that report first at the same moment may open
// one each, which does no harm.
HANDLE GetEventSource()
{
    static std::atomic<HANDLE> s_hEventSource{nullptr};
    if (s_hEventSource == nullptr)
    {
        s_hEventSource = RegisterEventSourceW(nullptr, SERVICE_NAME);
    }
    return s_hEventSource;
}

bool IsNetworkCode(DWORD dwCode)
{
    return dwCode >= FIRST_NETWORK_CODE && dwCode <= LAST_NETWORK_CODE;
}

bool IsNetworkServiceCode(DWORD dwCode)
{
    return dwCode >= FIRST_NETWORK_SERVICE_CODE && dwCode <= LAST_NETWORK_SERVICE_CODE;
}

HMODULE LoadNetworkMessages()
{
    return TKLoadSystemLibrary(L"netmsg.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
}

// Stays loaded to the end of the process. Two threads that come first at the same moment may load it twice,
// which does no harm.
HMODULE GetNetworkMessages()
{
    static std::atomic<HMODULE> s_hNetworkMessages{nullptr};
    if (s_hNetworkMessages == nullptr)
    {
        s_hNetworkMessages = LoadNetworkMessages();
    }
    return s_hNetworkMessages;
}

DWORD UnwrapWindowsCode(DWORD dwCode)
{
    return (dwCode & FACILITY_AND_SIGN_MASK) == WRAPPED_WINDOWS_CODE ? LOWORD(dwCode) : dwCode;
}

// Looks into the module, too, when there is one.
CLocalText LookUpSystemMessage(DWORD dwCode, HMODULE hNetworkMessages)
{
    DWORD dwFlags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
    if (hNetworkMessages != nullptr)
    {
        dwFlags |= FORMAT_MESSAGE_FROM_HMODULE;
    }
    CLocalText pszMessage;
    // With ALLOCATE_BUFFER the function takes the address of a pointer in the place of the buffer.
    FormatMessageW(dwFlags, hNetworkMessages, dwCode, LANGUAGE_OF_USER,
                   reinterpret_cast<wchar_t*>(pszMessage.put()), 0, nullptr);
    return pszMessage;
}

std::wstring_view TextOrNothing(const wchar_t* pszText)
{
    return pszText != nullptr ? pszText : std::wstring_view();
}

std::wstring EventHead()
{
    return std::wstring(L"\r\n") + PRODUCT_NAME + L"\r\n";
}

std::wstring SystemErrorLine(DWORD dwCode)
{
    return L"System Error: " + std::to_wstring(static_cast<int>(dwCode)) + L"\r\n";
}
} // namespace

void LogErrorMsg(const wchar_t* pszText, DWORD dwErr)
{
    const CKeepLastError keepLastError;
    const std::wstring_view text = TextOrNothing(pszText);
    TK_LOG_ERROR(g_pLogger, L"LogErrorMsg dwErr=" << dwErr << L": " << text);
    DWORD dwCode = dwErr != 0 ? dwErr : GetLastError();
    if (dwCode == ERROR_IO_PENDING)
    {
        dwCode = ERROR_SUCCESS;
    }
    wchar_t szEvent[MAX_ERROR_EVENT_TEXT] = {};
    CopyText(szEvent, (EventHead() + SystemErrorLine(dwCode)).append(text));
    ReportToEventLog(dwCode != ERROR_SUCCESS ? EVENTLOG_ERROR_TYPE : EVENTLOG_INFORMATION_TYPE,
                     EVENT_PLAIN_TEXT, szEvent);
}

void LogInformationMsg(const wchar_t* pszText)
{
    const CKeepLastError keepLastError;
    const std::wstring_view text = TextOrNothing(pszText);
    TK_LOG_INFO(g_pLogger, L"LogInformationMsg" << text);
    ReportToEventLog(EVENTLOG_INFORMATION_TYPE, EVENT_PLAIN_TEXT, EventHead().append(text).c_str());
}

void ReportToEventLog(WORD wType, DWORD dwEventId, const wchar_t* psz1, const wchar_t* psz2,
                      const wchar_t* psz3)
{
    const HANDLE hEventSource = GetEventSource();
    if (hEventSource == nullptr)
    {
        return;
    }
    const wchar_t* apszStrings[] = {psz1, psz2, psz3};
    WORD nStrings = 0;
    while (nStrings < std::size(apszStrings) && apszStrings[nStrings] != nullptr)
    {
        ++nStrings;
    }
    ReportEventW(hEventSource, wType, AGENT_EVENT_CATEGORY, dwEventId, nullptr, nStrings, 0, apszStrings,
                 nullptr);
}

void FormatSystemError(wchar_t* pszTo, size_t cchTo, DWORD dwCode)
{
    const CKeepLastError keepLastError;
    dwCode = UnwrapWindowsCode(dwCode);
    const CModule hNetworkMessages(
        IsNetworkCode(dwCode) || IsNetworkServiceCode(dwCode) ? LoadNetworkMessages() : nullptr);
    const CLocalText pszMessage = LookUpSystemMessage(dwCode, hNetworkMessages.get());
    CopyText(pszTo, cchTo,
             SystemErrorLine(dwCode) + L"System Message: " + (pszMessage ? pszMessage.get() : L"Unknow"));
}

std::wstring ComposeErrorText(DWORD dwCode)
{
    const CKeepLastError keepLastError;
    dwCode = UnwrapWindowsCode(dwCode);
    const CLocalText pszMessage =
        LookUpSystemMessage(dwCode, IsNetworkCode(dwCode) ? GetNetworkMessages() : nullptr);
    std::wstring text = L"Error: " + std::to_wstring(static_cast<int>(dwCode));
    if (!pszMessage)
    {
        return text;
    }
    text.append(L" - ").append(pszMessage.get());
    std::replace_if(
        text.begin(), text.end(), [](wchar_t ch) { return ch == L'\r' || ch == L'\n'; }, L' ');
    return text;
}

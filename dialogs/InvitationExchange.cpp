#include "dialogs/InvitationExchange.h"

#include "Include/BoundedText.h"
#include "Include/Product.h"
#include "Include/TKLogging.h"
#include "Include/UtilLog.h"
#include "Include/WipeAtEnd.h"
#include "channel/CTKSocket.h"
#include "resources/resource.h"

#include <memory>
#include <new>
#include <string>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("CreateInvitationDialog");

constexpr unsigned int ANSWER_TIMEOUT = 5000; // milliseconds
constexpr size_t MAX_REFUSAL = 1024;          // characters, terminator included
constexpr DWORD LARGEST_INVITATION = 65507;   // bytes: no datagram holds more
constexpr DWORD SPARE_BYTES = 64;             // behind the texts, zero: their terminator
constexpr DWORD SPARE_UNITS = SPARE_BYTES / sizeof(wchar_t);

// A socket on the query port that has sent the header of a request; null when that failed.
std::unique_ptr<CTKSocket> OpenExchange(DWORD dwRequest)
{
    std::unique_ptr<CTKSocket> pSocket(new (std::nothrow) CTKSocket);
    if (pSocket == nullptr || pSocket->Connect(SERVICE_HOST, QUERY_PORT, SOCK_DGRAM, AF_UNSPEC) == 0)
    {
        return nullptr;
    }
    pSocket->SetTimeouts(ANSWER_TIMEOUT);
    const MSG_UDP_HEADER header = {UDP_PROTOCOL, dwRequest, 0};
    return pSocket->WriteDatagram(&header, sizeof(header)) != 0 ? std::move(pSocket) : nullptr;
}

template <typename Record>
bool ReadAnswer(CTKSocket& socket, Record& record)
{
    return socket.ReadDatagram(reinterpret_cast<char*>(&record), sizeof(record)) != 0;
}

void ShowRefusal(HWND hDlg, const MSG_UDP_CREATE_INVITATION& answer)
{
    wchar_t szReason[MAX_REFUSAL] = {};
    FormatSystemError(szReason, std::size(szReason), answer.dwError);
    wchar_t szText[MAX_REFUSAL] = {};
    CopyText(szText, std::wstring(FixedText(answer.szError)) + L"\r\n" + szReason);
    MessageBoxW(hDlg, szText, PRODUCT_NAME, MB_ICONHAND);
}

// The text is shown exactly as it came; with a length that it doesn't have it isn't shown at all.
bool ReceiveInvitation(HWND hDlg, CTKSocket& socket, DWORD cbText)
{
    if (cbText > LARGEST_INVITATION)
    {
        return false;
    }
    const std::unique_ptr<char[]> pAnsi(new (std::nothrow) char[cbText + SPARE_BYTES]());
    if (pAnsi == nullptr || socket.ReadDatagram(pAnsi.get(), cbText) == 0)
    {
        return false;
    }
    const size_t cchWide = cbText + SPARE_UNITS;
    const std::unique_ptr<wchar_t[]> pWide(new (std::nothrow) wchar_t[cchWide]());
    if (pWide == nullptr)
    {
        return false;
    }
    MultiByteToWideChar(CP_ACP, 0, pAnsi.get(), static_cast<int>(cbText), pWide.get(),
                        static_cast<int>(cchWide));
    SetDlgItemTextW(hDlg, IDC_INVITE_TEXT, pWide.get());
    return true;
}
} // namespace

int CreateInvitationViaUDP(HWND hDlg, MSG_UDP_CREATE_INVITATION& record)
{
    const TKLogBlock block(L"CreateInvitationViaUDP", g_pLogger);
    const std::unique_ptr<CTKSocket> pSocket = OpenExchange(UDP_REQUEST_CREATE_INVITATION);
    record.dwRequest = UDP_REQUEST_CREATE_INVITATION;
    MSG_UDP_CREATE_INVITATION answer = {};
    const CWipeAtEnd wipe(&answer, sizeof(answer)); // a service may send the secrets back
    if (pSocket == nullptr || pSocket->WriteDatagram(&record, sizeof(record)) == 0 ||
        !ReadAnswer(*pSocket, answer))
    {
        return 0;
    }
    if (answer.dwError != 0)
    {
        ShowRefusal(hDlg, answer);
        return 0;
    }
    return ReceiveInvitation(hDlg, *pSocket, answer.dwInvitationLength) ? 1 : 0;
}

int DeleteInvitationsViaUDP(MSG_UDP_DELETE_INVITATIONS& answer)
{
    const TKLogBlock block(L"DeleteInvitationsViaUDP", g_pLogger);
    const std::unique_ptr<CTKSocket> pSocket = OpenExchange(UDP_REQUEST_DELETE_INVITATIONS);
    return pSocket != nullptr && ReadAnswer(*pSocket, answer) &&
                   answer.dwRequest == UDP_REQUEST_DELETE_INVITATIONS
               ? 1
               : 0;
}

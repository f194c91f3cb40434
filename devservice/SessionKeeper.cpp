#include "devservice/SessionKeeper.h"

#include "Include/BoundedText.h"
#include "Include/LangUI.h"
#include "channel/ReverseText.h"
#include "devservice/RecordText.h"
#include "devservice/ValueText.h"
#include "tray/TrayIcon.h"
#include "tray/TrayMenu.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace
{
template <typename Record>
std::span<const BYTE> BytesOf(const Record& record)
{
    return {reinterpret_cast<const BYTE*>(&record), sizeof(record)};
}

// The edit works on a copy, so that a refused one leaves the record as it was.
template <typename Record>
bool EditRecord(Record& record, const RECORD_EDIT& edit)
{
    const std::span<const BYTE> image = BytesOf(record);
    std::vector<BYTE> bytes(image.begin(), image.end());
    if (!edit(bytes))
    {
        return false;
    }
    memcpy(&record, bytes.data(), sizeof(record));
    return true;
}

bool LeaveAsItIs(std::vector<BYTE>&)
{
    return true;
}

std::wstring NameOf(const MSG_TRAYICON_CONNECT& viewer)
{
    return std::wstring(FixedText(viewer.szClientName));
}

auto FindViewer(const std::vector<MSG_TRAYICON_CONNECT>& viewers, std::wstring_view name)
{
    return std::find_if(viewers.begin(), viewers.end(),
                        [name](const MSG_TRAYICON_CONNECT& viewer) { return NameOf(viewer) == name; });
}

std::wstring JoinNames(const std::vector<MSG_TRAYICON_CONNECT>& viewers, std::wstring_view separator)
{
    std::wstring names;
    for (const MSG_TRAYICON_CONNECT& viewer : viewers)
    {
        if (&viewer != viewers.data())
        {
            names += separator;
        }
        names += NameOf(viewer);
    }
    return names;
}

std::wstring Quoted(std::wstring_view text)
{
    return QuotedText(text, text.size());
}

std::wstring AgentName(unsigned int uAgent)
{
    return L"agent " + std::to_wstring(uAgent);
}

std::wstring NoSuchViewer(unsigned int uAgent, const std::vector<MSG_TRAYICON_CONNECT>& viewers,
                          std::wstring_view name)
{
    return AgentName(uAgent) + L" has no viewer " + Quoted(name) +
           (viewers.empty() ? L"" : L"; it has " + JoinNames(viewers, L", "));
}

// The agent takes the language from the user's part of the registry unless its settings are locked.
bool StoreLanguage(const MSG_TRAYICON_SETTINGS& settings, const std::wstring& language)
{
    CProfileReg profile(SETTINGS_COMPANY, SETTINGS_APPLICATION);
    profile.SetRootKey(settings.dwExitLock2 == 0 ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE);
    return profile.WriteProfileString(SETTINGS_SECTION, LANGUAGE_VALUE, language.c_str());
}
} // namespace

CSessionKeeper::CSessionKeeper(CStandInService& service) : m_service(service)
{
    m_service.SetResponder(
        {[this](unsigned int uAgent, const AGENT_RECORD& record) { OnRecord(uAgent, record); },
         [this](unsigned int uAgent) { ForgetAgent(uAgent); }});
}

CSessionKeeper::~CSessionKeeper()
{
    m_service.SetResponder({});
}

bool CSessionKeeper::Send(unsigned int uAgent, std::span<const BYTE> record, std::wstring& error)
{
    if (m_service.Send(uAgent, record))
    {
        return true;
    }
    error = AgentName(uAgent) + L" is gone or takes nothing";
    return false;
}

bool CSessionKeeper::Connect(unsigned int uAgent, const RECORD_EDIT& edit, std::wstring& error)
{
    const std::lock_guard lock(m_mutex);
    std::vector<MSG_TRAYICON_CONNECT>& viewers = m_sessions[uAgent].viewers;
    MSG_TRAYICON_CONNECT viewer = {};
    viewer.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY;
    viewer.dwConnectionType = ORDINARY_CONNECTION_TYPE;
    viewer.dwConnectCount = static_cast<DWORD>(viewers.size()) + 1;
    viewer.dwClientId = ++m_dwLastClientId;
    if (!EditRecord(viewer, edit))
    {
        return false;
    }
    if (FindViewer(viewers, NameOf(viewer)) != viewers.end())
    {
        error = AgentName(uAgent) + L" has a viewer " + Quoted(NameOf(viewer)) + L" already";
        return false;
    }
    if (!Send(uAgent, BytesOf(viewer), error))
    {
        return false;
    }
    viewers.push_back(viewer);
    MarkViewers();
    return true;
}

bool CSessionKeeper::Disconnect(unsigned int uAgent, std::wstring_view name, const RECORD_EDIT& edit,
                                std::wstring& error)
{
    const std::lock_guard lock(m_mutex);
    const std::vector<MSG_TRAYICON_CONNECT>& viewers = m_sessions[uAgent].viewers;
    const auto found = FindViewer(viewers, name);
    if (found != viewers.end())
    {
        return RemoveViewer(uAgent, static_cast<size_t>(std::distance(viewers.begin(), found)), edit, error);
    }
    error = NoSuchViewer(uAgent, viewers, name);
    return false;
}

bool CSessionKeeper::DisconnectAll(unsigned int uAgent, const RECORD_EDIT& edit, std::wstring& error)
{
    const std::lock_guard lock(m_mutex);
    while (!m_sessions[uAgent].viewers.empty())
    {
        if (!RemoveViewer(uAgent, 0, edit, error))
        {
            return false;
        }
    }
    return true;
}

bool CSessionKeeper::RemoveViewer(unsigned int uAgent, size_t nViewer, const RECORD_EDIT& edit,
                                  std::wstring& error)
{
    std::vector<MSG_TRAYICON_CONNECT>& viewers = m_sessions[uAgent].viewers;
    MSG_TRAYICON_CONNECT record = viewers[nViewer];
    record.dwType = MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY;
    record.dwConnectCount = static_cast<DWORD>(viewers.size()) - 1;
    if (!EditRecord(record, edit) || !Send(uAgent, BytesOf(record), error))
    {
        return false;
    }
    viewers.erase(viewers.begin() + static_cast<ptrdiff_t>(nViewer));
    MarkViewers();
    return true;
}

bool CSessionKeeper::SendCount(unsigned int uAgent, const RECORD_EDIT& edit, std::wstring& error)
{
    const std::lock_guard lock(m_mutex);
    const std::vector<MSG_TRAYICON_CONNECT>& viewers = m_sessions[uAgent].viewers;
    MSG_TRAYICON_CONNECT record = viewers.empty() ? MSG_TRAYICON_CONNECT() : viewers.back();
    record.dwType = MSG_TYPE_TRAYICON_CONNECT_COUNT;
    record.dwConnectCount = static_cast<DWORD>(viewers.size());
    return EditRecord(record, edit) && Send(uAgent, BytesOf(record), error);
}

bool CSessionKeeper::SendList(unsigned int uAgent, const RECORD_EDIT& edit, std::wstring& error)
{
    const std::lock_guard lock(m_mutex);
    const std::vector<MSG_TRAYICON_CONNECT>& viewers = m_sessions[uAgent].viewers;
    MSG_TRAYICON_CONNECT_NOTIFY_ALL record = {};
    record.dwType = MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL;
    record.dwClientCount = static_cast<DWORD>(viewers.size());
    CopyText(record.szClientList, JoinNames(viewers, L"\r\n"));
    return EditRecord(record, edit) && Send(uAgent, BytesOf(record), error);
}

bool CSessionKeeper::SendSettings(unsigned int uAgent, bool bUpdate, const RECORD_EDIT& edit,
                                  std::wstring& error)
{
    const std::lock_guard lock(m_mutex);
    AGENT_SESSION& session = m_sessions[uAgent];
    MSG_TRAYICON_SETTINGS settings = session.settings;
    settings.dwType = bUpdate ? MSG_TYPE_TRAYICON_SETTINGS_UPDATE : MSG_TYPE_TRAYICON_SETTINGS;
    if (!EditRecord(settings, edit) || !Send(uAgent, BytesOf(settings), error))
    {
        return false;
    }
    session.settings = settings;
    session.bSettingsSent = session.bSettingsSent || !bUpdate;
    return true;
}

bool CSessionKeeper::SendAddresses(unsigned int uAgent, const RECORD_EDIT& edit, std::wstring& error)
{
    const std::lock_guard lock(m_mutex);
    AGENT_SESSION& session = m_sessions[uAgent];
    MSG_TRAYICON_IP_ADDRESSES addresses = session.addresses;
    addresses.dwType = MSG_TYPE_TRAYICON_IP_ADDRESSES;
    if (!EditRecord(addresses, edit) || !Send(uAgent, BytesOf(addresses), error))
    {
        return false;
    }
    session.addresses = addresses;
    return true;
}

bool CSessionKeeper::SendReverse(unsigned int uAgent, REVERSE_CODE code, const RECORD_EDIT& edit,
                                 std::wstring& error)
{
    if (code == REVERSE_CODE_FINISHED)
    {
        m_attempts.Forget(uAgent); // it isn't to end twice
    }
    const std::lock_guard lock(m_mutex);
    MSG_REVERSE_CONNECTION record = m_sessions[uAgent].reverse;
    record.dwType = MSG_TYPE_REVERSE_CONNECTION;
    record.dwReverseCode = code;
    return EditRecord(record, edit) && Send(uAgent, BytesOf(record), error);
}

bool CSessionKeeper::SendDropClient(unsigned int uAgent, std::wstring_view name, const RECORD_EDIT& edit,
                                    std::wstring& error)
{
    const std::lock_guard lock(m_mutex);
    const std::vector<MSG_TRAYICON_CONNECT>& viewers = m_sessions[uAgent].viewers;
    const auto found = FindViewer(viewers, name);
    if (found == viewers.end())
    {
        error = NoSuchViewer(uAgent, viewers, name);
        return false;
    }
    MSG_TRAYICON_SFT_DROP_CLIENT record = {};
    record.dwType = MSG_TYPE_TRAYICON_SFT_DROP_CLIENT;
    record.dwClientId = found->dwClientId;
    CopyText(record.szClientName, NameOf(*found));
    return EditRecord(record, edit) && Send(uAgent, BytesOf(record), error);
}

void CSessionKeeper::SetAnswers(bool bAnswers)
{
    m_bAnswers = bAnswers;
}

void CSessionKeeper::SetMarker(bool bOti, bool bSet)
{
    const std::lock_guard lock(m_mutex);
    std::unique_ptr<CSimultanousSessionMutex>& pMarker = bOti ? m_pOtiMarker : m_pLocalMarker;
    if (!bSet)
    {
        pMarker.reset();
    }
    else if (pMarker == nullptr)
    {
        pMarker = std::make_unique<CSimultanousSessionMutex>(bOti);
    }
}

void CSessionKeeper::OnRecord(unsigned int uAgent, const AGENT_RECORD& record)
{
    std::wstring error;
    KeepReverse(uAgent, record);
    if (m_bAnswers && !Answer(uAgent, record, error))
    {
        m_service.NoteAgent(uAgent, L"not answered: " + error);
    }
}

bool CSessionKeeper::Answer(unsigned int uAgent, const AGENT_RECORD& record, std::wstring& error)
{
    switch (record.pMessage->dwType)
    {
    case MSG_TYPE_TRAYICON_SETTINGS_REQUEST:
        return SendSettings(uAgent, WereSettingsSent(uAgent), LeaveAsItIs, error);
    case MSG_TYPE_TRAYICON_IP_ADDRESSES:
        return SendAddresses(uAgent, LeaveAsItIs, error);
    case MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL:
        return SendList(uAgent, LeaveAsItIs, error);
    case MSG_TYPE_TRAYICON_DISCONNECT_ALL:
        return DisconnectAll(uAgent, LeaveAsItIs, error);
    case MSG_TYPE_TRAYICON_LANGUAGE:
        return AnswerLanguage(uAgent, record.bytes, error);
    case MSG_TYPE_REVERSE_CONNECTION:
        return AnswerReverse(uAgent, record.bytes, error);
    default:
        return true;
    }
}

// Whoever asks may also ask why it failed.
void CSessionKeeper::KeepReverse(unsigned int uAgent, const AGENT_RECORD& record)
{
    if (record.pMessage->dwType != MSG_TYPE_REVERSE_CONNECTION)
    {
        return;
    }
    MSG_REVERSE_CONNECTION request = {};
    memcpy(&request, record.bytes.data(), sizeof(request));
    if (request.dwReverseCode != REVERSE_CODE_CONNECT)
    {
        return;
    }
    SecureZeroMemory(request.szProxySecret, sizeof(request.szProxySecret));
    const std::lock_guard lock(m_mutex);
    m_sessions[uAgent].reverse = request;
}

// There is nobody to reach: every attempt takes its time, or is cancelled, and ends well.
bool CSessionKeeper::AnswerReverse(unsigned int uAgent, std::span<const BYTE> record, std::wstring& error)
{
    const DWORD dwCode = ReadDword(record, offsetof(MSG_REVERSE_CONNECTION, dwReverseCode));
    if (dwCode == REVERSE_CODE_CANCEL)
    {
        m_attempts.Cancel(uAgent);
    }
    if (dwCode != REVERSE_CODE_CONNECT)
    {
        return true;
    }
    m_attempts.Begin(uAgent); // before anybody can know of it, and end it
    return SendReverse(uAgent, REVERSE_CODE_SHOW_WAIT, LeaveAsItIs, error);
}

void CSessionKeeper::EndReverse(unsigned int uAgent)
{
    const RECORD_EDIT succeed = [](std::vector<BYTE>& bytes) {
        MSG_REVERSE_CONNECTION record = {};
        memcpy(&record, bytes.data(), sizeof(record));
        record.bSilent = 1;
        CopyText(record.szError, record.bOneTime != 0 ? REVERSE_JOINED : std::wstring_view());
        memcpy(bytes.data(), &record, sizeof(record));
        return true;
    };
    std::wstring error;
    if (!SendReverse(uAgent, REVERSE_CODE_CLOSE_WAIT, LeaveAsItIs, error) ||
        !SendReverse(uAgent, REVERSE_CODE_FINISHED, succeed, error))
    {
        m_service.NoteAgent(uAgent, L"not answered: " + error);
    }
}

// An agent that waits for its first settings is content with nothing else; later ones are not to announce
// anybody again, as the first do.
bool CSessionKeeper::WereSettingsSent(unsigned int uAgent)
{
    const std::lock_guard lock(m_mutex);
    return m_sessions[uAgent].bSettingsSent;
}

// The end of a reconfiguration makes the agent choose its language anew.
bool CSessionKeeper::AnswerLanguage(unsigned int uAgent, std::span<const BYTE> record, std::wstring& error)
{
    MSG_TRAYICON_LANGUAGE chosen = {};
    memcpy(&chosen, record.data(), sizeof(chosen));
    const std::wstring language(FixedText(chosen.szLanguage));
    if (std::none_of(TRAY_LANGUAGES.begin(), TRAY_LANGUAGES.end(),
                     [&language](const TRAY_LANGUAGE& row) { return row.code == language; }))
    {
        error = L"there is no language " + Quoted(language);
        return false;
    }
    const std::lock_guard lock(m_mutex);
    MSG_TRAYICON_SETTINGS& settings = m_sessions[uAgent].settings;
    if (!StoreLanguage(settings, language))
    {
        error = L"cannot store language " + language;
        return false;
    }
    CopyText(settings.szLanguage, language);
    MSG_TRAYICON_SERVER_RECONFIGURE reconfigured = {};
    reconfigured.dwType = MSG_TYPE_TRAYICON_SERVER_RECONFIGURE;
    return Send(uAgent, BytesOf(reconfigured), error);
}

void CSessionKeeper::ForgetAgent(unsigned int uAgent)
{
    m_attempts.Forget(uAgent);
    const std::lock_guard lock(m_mutex);
    m_sessions.erase(uAgent);
    MarkViewers();
}

void CSessionKeeper::MarkViewers()
{
    const bool bAnybody = std::any_of(m_sessions.begin(), m_sessions.end(),
                                      [](const auto& session) { return !session.second.viewers.empty(); });
    if (!bAnybody)
    {
        m_pViewersMarker.reset();
    }
    else if (m_pViewersMarker == nullptr)
    {
        m_pViewersMarker = std::make_unique<CSimultanousSessionMutex>(false);
    }
}

#include "fuzz/FuzzTarget.h"

#include "Include/BoundedText.h"
#include "channel/ConnectionInfo.h"
#include "channel/MessageHandlers.h"
#include "channel/ReverseText.h"
#include "channel/TrayMessages.h"
#include "dialogs/AboutText.h"
#include "dialogs/NotifyText.h"
#include "fuzz/PlayedNetwork.h"
#include "fuzz/PlayedSystem.h"
#include "fuzz/RecordMutator.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tray/TKDASTWindow.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

namespace
{
constexpr std::uint32_t MOST_RECORDS = 1000; // of one stream
constexpr std::uint32_t PIECE_RATE = 16;
constexpr DWORD MOST_PAYLOAD = 4096; // bytes that really come

constexpr WPARAM COMMANDS[] = {ID_TRAY_SHOW_CONNECTED,    ID_TRAY_DISCONNECT_ALL, ID_TRAY_CONNECT_TO_CLIENT,
                               ID_TRAY_JOIN_SESSION,      ID_TRAY_SETTINGS,       ID_TRAY_ABOUT,
                               ID_TRAY_CREATE_INVITATION, ID_TRAY_LANGUAGE_DE,    ID_TRAY_EXIT};

const CGuardedMemory& GuardedMemory()
{
    static const CGuardedMemory s_memory(MESSAGE_BUFFER_SIZE);
    return s_memory;
}

template <typename Record>
const Record& AtTheEnd(const std::vector<BYTE>& record)
{
    return *reinterpret_cast<const Record*>(GuardedMemory().Put(record));
}

// What windows say of a record, on memory that ends with it.
void PlayTexts(DWORD dwType, const std::vector<BYTE>& record, const CTaskBarWindow& window)
{
    switch (dwType)
    {
    case MSG_TYPE_TRAYICON_SETTINGS:
    case MSG_TYPE_TRAYICON_SETTINGS_UPDATE: {
        const auto& settings = AtTheEnd<MSG_TRAYICON_SETTINGS>(record);
        Expect(ComposeConnectedText(settings, window.m_Connection).size() < MAX_NOTIFY_TEXT,
               "a body has an end");
        GetNotifyPeriod(settings.dwNotifySeconds);
        break;
    }
    case MSG_TYPE_TRAYICON_CONNECT_NOTIFY:
    case MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY: {
        const auto& connection = AtTheEnd<MSG_TRAYICON_CONNECT>(record);
        Expect(ComposeConnectedText(window.m_Settings, connection).size() < MAX_NOTIFY_TEXT,
               "a body has an end");
        Expect(ComposeDisconnectedText(connection).size() < MAX_NOTIFY_TEXT, "a body has an end");
        break;
    }
    case MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL:
        ComposeConnectedCount(AtTheEnd<MSG_TRAYICON_CONNECT_NOTIFY_ALL>(record).dwClientCount);
        break;
    case MSG_TYPE_TRAYICON_IP_ADDRESSES:
        ComposeAboutText(AtTheEnd<MSG_TRAYICON_IP_ADDRESSES>(record), false);
        break;
    case MSG_TYPE_REVERSE_CONNECTION:
        ComposeReverseResult(AtTheEnd<MSG_REVERSE_CONNECTION>(record), L"%s %d %s");
        break;
    default:
        break;
    }
}

const char* NameOf(DWORD dwType)
{
    const MESSAGE_HANDLER_ROW* const pRow = FindMessageHandler(dwType);
    return pRow != nullptr ? pRow->pszName : "a type of the agent";
}

// The service's side of one stream: records that are made as the reader asks for them.
class CBadService
{
  public:
    CBadService(CChoices& choices, CPlayedSystem& system, const CTaskBarWindow& window)
        : m_choices(choices), m_system(system), m_window(window), m_nLeft(1 + choices.Below(MOST_RECORDS)),
          m_bPieces(choices.OneIn(PIECE_RATE))
    {
    }

    size_t Records() const { return m_nRecords; }

    /// As recv.
    int Give(char* pTo, int nMost)
    {
        if (m_nTaken == m_bytes.size() && !NextRecord())
        {
            return End();
        }
        size_t nPart = std::min(m_bytes.size() - m_nTaken, static_cast<size_t>(nMost));
        if (m_bPieces)
        {
            nPart = 1 + m_choices.Below(static_cast<std::uint32_t>(std::min<size_t>(nPart, 64)));
            nPart = std::min(nPart, m_bytes.size() - m_nTaken);
        }
        std::memcpy(pTo, m_bytes.data() + m_nTaken, nPart);
        m_nTaken += nPart;
        return static_cast<int>(nPart);
    }

  private:
    // The peer closes, or the connection breaks.
    int End()
    {
        if (m_choices.Below(2) == 0)
        {
            return 0;
        }
        WSASetLastError(WSAECONNRESET);
        return SOCKET_ERROR;
    }

    bool NextRecord()
    {
        if (m_nLeft == 0 || m_bCut)
        {
            return false;
        }
        --m_nLeft;
        ++m_nRecords;
        PlayPerson();
        MakeRecord();
        m_nTaken = 0;
        return !m_bytes.empty();
    }

    // What happens on the main thread meanwhile.
    void PlayPerson()
    {
        if (m_choices.OneIn(4))
        {
            m_system.DeliverPosted();
        }
        if (m_choices.OneIn(16))
        {
            m_system.FireTimer();
        }
        if (m_choices.OneIn(32))
        {
            // The last one ends the agent, which would leave little of most streams.
            const auto nCommands = static_cast<std::uint32_t>(std::size(COMMANDS));
            const std::uint32_t nCommand = m_choices.Below(m_choices.OneIn(64) ? nCommands : nCommands - 1);
            CTaskBarWindow::WndProc(CPlayedSystem::TrayWindow(), WM_COMMAND, COMMANDS[nCommand], 0);
        }
    }

    void MakeRecord()
    {
        if (m_choices.OneIn(10) && !m_bytes.empty())
        {
            return; // the same once more
        }
        if (m_choices.OneIn(40))
        {
            MakeUnknown();
            return;
        }
        const std::span<const MESSAGE_DESCRIPTION> messages = GetMessageDescriptions();
        const MESSAGE_DESCRIPTION& message =
            messages[m_choices.Below(static_cast<std::uint32_t>(messages.size()))];
        // An exit is the end of the stream, so most of them come as something else.
        if (message.dwType == MSG_TYPE_TRAYICON_EXIT && !m_choices.OneIn(64))
        {
            MakeUnknown();
            return;
        }
        m_choices.Step(NameOf(message.dwType));
        m_bytes = MakeBadRecord(m_choices, *message.pRecord);
        std::memcpy(m_bytes.data(), &message.dwType, sizeof(message.dwType));
        const MESSAGE_HANDLER_ROW* const pRow = FindMessageHandler(message.dwType);
        FitToReader(pRow);
        if (message.dwType == MSG_TYPE_CHAT_MESSAGE)
        {
            AppendPayload();
        }
        else if (pRow != nullptr && m_bytes.size() == sizeof(DWORD) + pRow->uBodySize)
        {
            PlayTexts(message.dwType, m_bytes, m_window);
        }
        CutSometimes();
    }

    void MakeUnknown()
    {
        m_choices.Step("unknown type");
        const std::uint32_t nType = m_choices.Number();
        m_bytes.resize(sizeof(nType));
        std::memcpy(m_bytes.data(), &nType, sizeof(nType));
        m_nTaken = 0;
    }

    // A type that only the agent sends has no body in this direction: what is sent behind it are types again.
    void FitToReader(const MESSAGE_HANDLER_ROW* pRow)
    {
        if (pRow == nullptr || !m_choices.OneIn(200))
        {
            m_bytes.resize(sizeof(DWORD) + (pRow != nullptr ? pRow->uBodySize : 0));
        }
    }

    void AppendPayload()
    {
        DWORD dwLength = m_choices.OneIn(8) ? m_choices.Number() : m_choices.Below(MOST_PAYLOAD);
        std::memcpy(m_bytes.data() + offsetof(MSG_CHAT_MESSAGE, dwMessageLength), &dwLength,
                    sizeof(dwLength));
        std::vector<BYTE> payload = MakeBadBytes(m_choices, std::min(dwLength, MOST_PAYLOAD));
        payload.resize(std::min(dwLength, MOST_PAYLOAD));
        m_bytes.insert(m_bytes.end(), payload.begin(), payload.end());
        if (dwLength > MOST_PAYLOAD)
        {
            m_bCut = !m_choices.OneIn(2); // or else the next records are payload
        }
    }

    void CutSometimes()
    {
        if (m_choices.OneIn(500))
        {
            m_bytes.resize(m_choices.Below(static_cast<std::uint32_t>(m_bytes.size())));
            m_bCut = m_choices.Below(2) == 0;
        }
    }

    CChoices& m_choices;
    CPlayedSystem& m_system;
    const CTaskBarWindow& m_window;
    std::uint32_t m_nLeft;
    bool m_bPieces;
    bool m_bCut = false;
    size_t m_nRecords = 0;
    size_t m_nTaken = 0;
    std::vector<BYTE> m_bytes;
};

// What the agent may say: one whole record, of a type that goes this way.
void CheckSent(const char* pBytes, int nBytes)
{
    DWORD dwType = 0;
    Expect(nBytes >= static_cast<int>(sizeof(dwType)), "a record is sent whole");
    std::memcpy(&dwType, pBytes, sizeof(dwType));
    const MESSAGE_DESCRIPTION* const pMessage = FindMessageDescription(dwType, MESSAGE_FROM_AGENT);
    Expect(pMessage != nullptr, "the agent only says what goes from it");
    Expect(pMessage == nullptr || dwType == MSG_TYPE_CHAT_MESSAGE ||
               pMessage->pRecord->uSize == static_cast<unsigned int>(nBytes),
           "a record has its size");
}

bool ReadExactly(CTKSocket& socket, BYTE* pTo, unsigned int uBytes)
{
    return socket.ReadAll(reinterpret_cast<char*>(pTo), static_cast<int>(uBytes)) != 0;
}

// As the reader does it, but with each record at the end of its memory.
bool HandleOnGuardedMemory(CTaskBarWindow& window, CTKSocket& socket)
{
    DWORD dwType = 0;
    if (!ReadExactly(socket, reinterpret_cast<BYTE*>(&dwType), sizeof(dwType)))
    {
        return false;
    }
    const MESSAGE_HANDLER_ROW* const pRow = FindMessageHandler(dwType);
    if (pRow == nullptr || pRow->pfnHandler == nullptr)
    {
        return pRow == nullptr || pRow->uBodySize == 0;
    }
    // Handlers that read more from the socket use the whole buffer, which is larger than any record.
    const bool bWholeBuffer = dwType == MSG_TYPE_CHAT_MESSAGE;
    static const CGuardedMemory s_memory(MESSAGE_BUFFER_SIZE);
    BYTE* const pMessage =
        s_memory.Tail(bWholeBuffer ? MESSAGE_BUFFER_SIZE : sizeof(dwType) + pRow->uBodySize);
    CHANNEL_CONTEXT context = {&window, window.m_hWnd, &socket, pMessage};
    std::memcpy(pMessage, &dwType, sizeof(dwType));
    if (pRow->pfnBeforeBody != nullptr)
    {
        pRow->pfnBeforeBody(context);
    }
    return ReadExactly(socket, pMessage + sizeof(dwType), pRow->uBodySize) && pRow->pfnHandler(context);
}

void ReadOnGuardedMemory(CTaskBarWindow& window)
{
    const std::shared_ptr<CTKSocket> pSocket = window.m_pSocket.load();
    if (pSocket->Connect(SERVICE_HOST, DEFAULT_SERVICE_PORT, SOCK_STREAM, AF_UNSPEC) == 0)
    {
        return;
    }
    while (window.m_bExiting == 0 && HandleOnGuardedMemory(window, *pSocket))
    {
    }
}
} // namespace

size_t FuzzStream(CChoices& choices)
{
    CPlayedSystem system(choices);
    g_bOneTimeSession = choices.OneIn(8) ? 1 : 0;
    g_bOtiInvitation = 0;
    CTaskBarWindow window(DEFAULT_SERVICE_PORT);
    window.m_bShellV5 = choices.OneIn(8) ? 0 : 1;
    CBadService service(choices, system, window);
    const CPlayedNetwork network([&](char* pTo, int nMost) { return service.Give(pTo, nMost); }, CheckSent);
    window.m_pSocket = std::make_shared<CTKSocket>();
    if (choices.Below(2) == 0)
    {
        ConnectionInfo(&window);
    }
    else
    {
        ReadOnGuardedMemory(window);
    }
    system.DeliverPosted();
    window.m_pSocket = std::shared_ptr<CTKSocket>();
    g_bOneTimeSession = 0;
    return std::max<size_t>(service.Records(), 1);
}

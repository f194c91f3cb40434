#pragma once

#include <winsock2.h>
#include <windows.h>
#include <shellapi.h>

#include "Include/Handles.h"
#include "channel/CTKSocket.h"
#include "channel/TrayMessages.h"
#include "tray/TrayIcon.h"
#include "tray/TrayWindowMessages.h"

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string_view>

constexpr wchar_t TRAY_WINDOW_CLASS[] = L"Tessaran KDA Tray Icon Class";
constexpr wchar_t TRAY_WINDOW_TITLE[] = L"Tessaran KDA Tray Icon";

// What the next popup shows.
enum NOTIFY_MODE : int
{
    NOTIFY_MODE_CONNECTED = 1,
    NOTIFY_MODE_DISCONNECTED = 2,
    NOTIFY_MODE_EVERYONE = 3,
};

constexpr UINT TRAY_ICON_ID = 44444;

// Stands for every client where an id is asked for.
constexpr DWORD ALL_DROP_WINDOWS = 0xFFFFFFFF;
constexpr size_t SERVICE_MESSAGE_LENGTH = 4096; // characters

using TKDA_CREATE_CHAT_WINDOW = HWND(__cdecl*)(HWND hWndOwner);
using TKDA_APPEND_CHAT_MESSAGE = void(__cdecl*)(HWND hChatWindow, const MSG_CHAT_MESSAGE* pMessage);
using TKDA_CLOSE_CHAT_WINDOW = void(__cdecl*)();

/*
 * The one object of the normal run: the hidden window, the notification-area icon, the socket to the service,
 * popups, drop windows and the chat module.
 *
 * Only the drop list has a lock. The main thread owns the window. The reader thread writes the service's
 * records, the message texts and the members marked "reader" below, whole, while the main thread reads them:
 * a half-new record is accepted, it only shows an old text until the next update. Shared flags are atomic.
 */
class CTaskBarWindow
{
  public:
    // The service's last records, verbatim, type word included (reader).
    MSG_TRAYICON_SETTINGS m_Settings{};
    MSG_TRAYICON_CONNECT m_Connection{};
    MSG_TRAYICON_CONNECT_NOTIFY_ALL m_ConnectedList{};
    MSG_TRAYICON_IP_ADDRESSES m_IpAddresses{};

    std::atomic<UINT_PTR> m_uTrayRetryTimer{0};    // the icon's retry timer, until it fires; killed, it stays
    std::atomic<UINT_PTR> m_uDesktopReadyTimer{0}; // non-zero while desktop options wait for the shell
    HWND m_hNotifyDlg = nullptr;                   // the notification popup; ends with its window
    HWND m_hJoinWaitDlg = nullptr;                 // the Connect in progress dialog; ends with its window
    std::atomic<DWORD> m_bIconAdded{0};            // the shell holds the agent's icon
    std::atomic<DWORD> m_dwConnectionType{0};      // type of the current connection (reader)
    DWORD m_bDialogReserved = 0;                   // cleared as the About dialog ends, otherwise unused
    std::atomic<DWORD> m_bServiceReplied{0};       // cleared before a request, set by its answer (reader)
    std::atomic<DWORD> m_bReverseInProgress{0};    // a reverse connection was asked for and has no result yet
    HWND m_hWnd = nullptr;                         // the hidden window
    std::atomic<int> m_nNotifyMode{0};             // NOTIFY_MODE_*
    // The main channel; a thread that uses it holds its own reference.
    std::atomic<std::shared_ptr<CTKSocket>> m_pSocket;
    std::atomic<DWORD> m_bExiting{0};   // the window is going: the end of the channel is expected
    unsigned int m_uiPort = 0;          // the service's port; after OnInit the reader thread's own
    CKernelHandle m_hReaderThread;      // signalled when the reader thread has ended
    CKernelHandle m_hDesktopEvent;      // manual-reset: look at the desktop again
    DWORD m_bServiceMessageIsError = 0; // icon of the next service message box (reader)
    wchar_t m_szServiceMessage[SERVICE_MESSAGE_LENGTH]{};      // its body (reader)
    wchar_t m_szServiceMessageTitle[SERVICE_MESSAGE_LENGTH]{}; // its title (reader)
    std::atomic<DWORD> m_dwAppliedOptions{0};                  // desktop options really changed
    std::atomic<DWORD> m_dwRequestedOptions{0};                // desktop options last asked for
    std::atomic<DWORD> m_bNotifyPending{0}; // a notice is due and has no popup yet; nothing decides on it
    std::atomic<DWORD> m_bAwaitingFirstSettings{0}; // no MSG_TYPE_TRAYICON_SETTINGS has arrived yet (reader)
    // A drop window holds its record too: it may go on when the list has forgotten it.
    using DROP_RECORD = std::shared_ptr<MSG_TRAYICON_SFT_DROP_CLIENT>;
    std::list<DROP_RECORD> m_DropWindows; // guarded by m_dropWindowsLock
    std::mutex m_dropWindowsLock;         // never held across a message that is sent
    HMODULE m_hChatModule = nullptr;      // stays loaded to the end of the process
    TKDA_CREATE_CHAT_WINDOW m_pfnCreateChatWindow = nullptr;
    TKDA_APPEND_CHAT_MESSAGE m_pfnAppendChatMessage = nullptr;
    TKDA_CLOSE_CHAT_WINDOW m_pfnCloseChatWindow = nullptr;
    std::atomic<HWND> m_hChatWindow{nullptr}; // the chat module's; ends with its window
    std::atomic<DWORD> m_bDesktopReady{0};    // the shell has been seen once
    std::atomic<int> m_nTrayRetries{0};       // failed attempts in a row; without a shell each counts twice
    CMenu m_hTrayMenu;                        // only while it is open
    bool m_bBoxOpen = false;                  // a box of ShowBox is up
    bool m_bServiceMessageDue = false;        // a service message came while another box was up
    NOTIFYICONDATAW m_NotifyIconData{};       // the one structure given to the shell, kept between calls
    DWORD m_bShellV5 = 0;                     // the shell knows balloons and long tips
    HICON m_hIconActive = nullptr;            // shared icons of the language module, never destroyed
    HICON m_hIconIdle = nullptr;
    HICON m_hIconPermission = nullptr;
    HICON m_hIconReconfiguring = nullptr;
    UINT m_uTrayIconId = 0; // TRAY_ICON_ID

    /// Creates the hidden window; the rest starts with WM_AGENT_INIT. Main thread. When there can be no
    /// window, or the process runs as the system account, a quit message is posted instead.
    explicit CTaskBarWindow(unsigned int uiPort);

    /// Main thread, when all threads that use the object have been told to end.
    ~CTaskBarWindow();
    CTaskBarWindow(const CTaskBarWindow&) = delete;
    CTaskBarWindow& operator=(const CTaskBarWindow&) = delete;

    /// Fills the block that several records embed; its dwType is left zero. Any thread.
    static void GetDesktopUserInformation(MSG_TRAYICON_DESKTOP_USER_INFORMATION* pInfo);

    /// Writes one record of nBytes to the service in one send. 1 when all bytes were taken, else 0. Any
    /// thread.
    int SendToService(char* pRecord, unsigned int nBytes);

    /// Brings the icon in line with the state: the one entry that the rest of the system uses. Returns the
    /// shell's result where the icon is there and stays, else 1. Main and reader thread; so are all
    /// operations on the icon.
    int SetTrayIcon();

    /// Adds the icon, or arms the timer of the next attempt. Returns m_bIconAdded.
    int AddTrayIcon();

    /// Nothing in the agent calls it; kept for callers that know that the icon is there. Returns the shell's
    /// result.
    int ChangeTrayIcon(int bActive);

    /// Returns whether the shell took the icon away.
    int DelTrayIcon();

    /// One call of the shell with a freshly built structure. Returns its result, or 0 without a window or a
    /// shell.
    int SendTrayMsg(DWORD dwMessage, int bActive);

    /// Tells that the service is reconfiguring, or is no more. pszText may be null. Returns 1 when nothing
    /// needed doing, 0 without a window, else the shell's result.
    int SendTrayMsgServerReconfiguring(int bReconfiguring, const wchar_t* pszText);

    /// Shows a balloon at the icon. Returns the shell's result, 1 when the icon mode allows none, or 0
    /// without a text, a window, or a shell that knows balloons.
    int ShowTrayBalloonMsg(const wchar_t* pszText);

    /// Brings options and icon up to date and decides whether a connection is told. Main and reader thread.
    void NotifyConnect();

    /// Follows the disconnection in m_Connection: popup, desktop options, icon. Reader thread; waits for the
    /// main thread.
    void NotifyDisconnect();

    /// Shows everyone connected. Reader thread.
    void NotifyAll();

    /// Opens a drop window for the record's client, or closes the one it has. Reader thread; waits for the
    /// main thread.
    void SFT_AddDropWindow(const MSG_TRAYICON_SFT_DROP_CLIENT& record);

    /// Closes a client's drop window, or all with ALL_DROP_WINDOWS. An id that isn't there empties the list
    /// and leaves the windows alone. Reader thread on a disconnect, main thread at the end of the session.
    void SFT_RemoveDropWindow(DWORD dwClientId);

    /// Forgets a drop window that has closed by itself, or all; an id that isn't there as above. Main thread.
    void SFT_EraseDropWindow(DWORD dwClientId);

    /// Switches off what the mask names, once the shell is up. Values of 0 and 1 change nothing. Reader and
    /// main thread.
    void SetDesktopOptions(DWORD dwOptions);

    /// Applies the options last asked for again. Reader and main thread.
    void SetDesktopOptionsDelayed();

    /// Puts back what was switched off, and forgets what was asked for. What was applied is the caller's to
    /// clear: a second restore does no harm. Reader and main thread.
    void RetoreDesktopOptions();

    /// Loads the chat module, which then stays, and finds its entries. 1 when all are there; else 0, an ERROR
    /// line says what is missing, and what was found can be used all the same. Once it can make a window the
    /// module isn't looked at again: 1. Main thread; so are all operations on the chat.
    int InitChatWindow();

    /// Opens the chat window, or brings the open one to the top.
    void OpenChatWindow();

    /// Shows a message in the chat window, which it opens if need be. The record, head and payload, stays the
    /// caller's.
    void ShowChatMessage(const MSG_CHAT_MESSAGE* pMessage);

    /// Destroys the chat window; without one nothing happens.
    void CloseChatWindow();

    /// Shows a message box that goes away after a time-out, in milliseconds. Such boxes can't be nested:
    /// while one is up, a second one has no time-out. hOwner may be null. Returns what MessageBoxW returned,
    /// never IDYES after a time-out. Main thread.
    int ShowBox(HWND hOwner, const std::wstring& text, const std::wstring& title, UINT uType,
                DWORD dwTimeoutMs);

    /// Of TRAY_WINDOW_CLASS: one call a message. Main thread.
    static LRESULT CALLBACK WndProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);

  private:
    void InitMembers();
    bool CreateTrayWindow();
    void LoadTrayIcons();
    bool OnInit();
    void StartReaderThread();
    void StartDesktopThread(unsigned int(__stdcall* pfnThread)(void*));

    void FillNotifyIconData();
    void SetNotifyIconTip(bool bOneTimeSession);
    HICON ChooseTrayIcon(bool bConnected) const;
    bool IsShellReady();
    void ClearBalloon();
    void SetBalloon(std::wstring_view text, UINT uTimeout);
    DROP_RECORD AppendDropRecord(const MSG_TRAYICON_SFT_DROP_CLIENT& record);
    std::list<DROP_RECORD>::iterator FindDropRecord(DWORD dwClientId);
    DROP_RECORD ListedDropRecord(LPARAM lRecord);
    void OpenDropWindow(const DROP_RECORD& pRecord) const;
    void TakeDropRecords(DWORD dwClientId, bool bCloseWindows);

    static LRESULT OnCreate(HWND hWnd);
    LRESULT OnAgentInit();
    LRESULT OnTaskbarCreated();
    LRESULT OnDestroy();
    void OnEndSession(bool bEnding);
    void OnTimer(UINT_PTR uTimer);
    void OnConnectNoticeTimer();
    void OnDesktopReadyTimer();
    void OnSessionChange(WPARAM wSessionChange);
    bool OnShowNotifyDlg(WPARAM wNoticeKind);
    bool ReplaceNotifyDlg();
    void OnSftDropWindow(WPARAM wAction, LPARAM lParam);
    void OnShowOneTimeAgentBalloon();
    void OnChatMessageSent(char* pRecord, unsigned int nBytes);
    void OnChatOpen();
    void OnChatMessage(const MSG_CHAT_MESSAGE* pMessage);
    void OnChatClose();
    void OnJoinSessionState(WPARAM wState);
    void ShowJoinWaitDlg();
    void CancelReverseConnection();

    LRESULT OnTrayNotify(UINT uIconId, LPARAM lMouseMessage);
    void ShowTrayMenu();
    void OnCommand(UINT uCommand);
    void OnChooseLanguage(std::wstring_view code);
    void OnShowConnected();
    void OnDisconnectAll();
    void OnExit();
    void OnAbout();
    void OnConnectToClient();
    void OnSettings() const;
    void OnCreateInvitation();
    void OnJoinSession();
    INT_PTR RunDialog(UINT uTemplate, DLGPROC pfnDialog, void* pParameter) const;
    bool TakeInvitation(MSG_REVERSE_CONNECTION& record) const;
    bool IsJoinWanted() const;
    void RequestReverseConnection(MSG_REVERSE_CONNECTION& record);
    void OnShowServiceMessage();
    bool ConfirmByBox(UINT uQuestion);
    void AwaitServiceReply() const;
    template <typename Record>
    void SendRecord(Record& record)
    {
        SendToService(reinterpret_cast<char*>(&record), sizeof(record));
    }
    void CloseChannel();
};

/// Whether the settings want a popup for a connection of that type. Any thread.
bool IsConnectNoticeWanted(const MSG_TRAYICON_SETTINGS& settings, DWORD dwConnectionType);

// Broadcast by a shell that has (re)started; registered by WM_CREATE.
extern UINT g_uTaskbarCreatedMessage;

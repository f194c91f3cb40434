#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>

/*
 * Every byte that passes between the agent and the local service: main channel, query port and permission
 * exchange, all on the loopback interface.
 *
 * A record is a packed little-endian image. On the main channel it begins with its type, and the type alone
 * tells its size: there is no length field, so a type that the other side doesn't know must never be sent
 * with a body. Text is UTF-16LE in a fixed field; read it with FixedText and write it with CopyText
 * (Include/BoundedText.h), since nothing guarantees a terminator. Flags are DWORDs that are zero or not. A
 * gap is zero when the agent sends it.
 */

enum TRAY_MESSAGE_TYPE : DWORD
{
    MSG_TYPE_VERSION = 4400,
    MSG_TYPE_TRAYICON_INIT = 40000,
    MSG_TYPE_TRAYICON_EXIT = 40001,
    MSG_TYPE_TRAYICON_CONNECT_COUNT = 40002,
    MSG_TYPE_TRAYICON_SETTINGS = 40003,
    MSG_TYPE_TRAYICON_DISCONNECT_ALL = 40004,
    MSG_TYPE_RESERVED_40005 = 40005,
    MSG_TYPE_RESERVED_40006 = 40006,
    MSG_TYPE_TRAYICON_SETTINGS_UPDATE = 40007,
    MSG_TYPE_TRAYICON_CONNECT_NOTIFY = 40008,
    MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY = 40009,
    MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION = 50000,
    MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL = 50001,
    MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK = 50005,
    MSG_TYPE_TRAYICON_SETTINGS_REQUEST = 50006,
    MSG_TYPE_TRAYICON_DESKTOP_STATE = 50007,
    MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE = 50008,
    MSG_TYPE_TRAYICON_DESKTOP_EFFECTS = 50009,
    MSG_TYPE_TRAYICON_SESSION_ENDING = 50010,
    MSG_TYPE_TRAYICON_SFT_DROP_CLIENT = 67001,
    MSG_TYPE_TRAYICON_SETTINGS_DIALOG = 70020,
    MSG_TYPE_TRAYICON_SERVER_RECONFIGURE = 70030,
    MSG_TYPE_TRAYICON_IP_ADDRESSES = 70040,
    MSG_TYPE_TRAYICON_PERMISSION = 70050,
    MSG_TYPE_TRAYICON_LANGUAGE = 70060,
    MSG_TYPE_REVERSE_CONNECTION = 70070,
    MSG_TYPE_TRAYICON_CHAT_OPEN = 75000,
    MSG_TYPE_CHAT_MESSAGE = 75001,
    MSG_TYPE_TRAYICON_CHAT_CLOSE = 75002,
    MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE = 100000,

    // Opens the permission exchange; never seen on the main channel.
    MSG_TYPE_PERMISSION_PROMPT = 70006,
};

// What the agent writes into both version fields of its handshake answer.
constexpr double TRAY_AGENT_VERSION = 444.0;

// Port of the main channel unless the registry or the command line says otherwise.
constexpr unsigned int DEFAULT_SERVICE_PORT = 6129;

// The query port is fixed: it is how the service is found when the main channel's port has gone stale.
constexpr unsigned int QUERY_PORT = 6129;

enum DESKTOP_STATE : DWORD
{
    DESKTOP_STATE_LOCKED = 7,   // no person can be reached
    DESKTOP_STATE_UNLOCKED = 8, // a person can be reached
};

// MSG_TRAYICON_DESKTOP_USER_INFORMATION::dwDesktopFlags
enum DESKTOP_FLAG : DWORD
{
    DESKTOP_FLAG_NO_INPUT_DESKTOP = 0x02, // the input desktop could not be opened
    DESKTOP_FLAG_INPUT_DESKTOP = 0x04,    // it could
    DESKTOP_FLAG_SCREEN_SAVER = 0x10,     // a screen saver runs, or the input desktop is its own
};

// MSG_REVERSE_CONNECTION::dwReverseCode
enum REVERSE_CODE : DWORD
{
    REVERSE_CODE_CONNECT = 0,      // agent: connect as filled in
    REVERSE_CODE_FINISHED = 100,   // service: the attempt has ended
    REVERSE_CODE_SHOW_WAIT = 101,  // service: show the waiting window
    REVERSE_CODE_CLOSE_WAIT = 102, // service: close the waiting window
    REVERSE_CODE_CANCEL = 103,     // agent: cancel the attempt in progress
};

enum UDP_QUERY : DWORD
{
    UDP_PROTOCOL = 701,
    UDP_REQUEST_PORT_LOOKUP = 703,
    UDP_REQUEST_CREATE_INVITATION = 720,
    UDP_REQUEST_DELETE_INVITATIONS = 721,
};

// MSG_UDP_DELETE_INVITATIONS::dwStatus that has a result text of its own.
constexpr DWORD UDP_DELETE_STATUS_BUSY = 170;

// MSG_PERMISSION_PROMPT::dwAnswer
enum PERMISSION_ANSWER : DWORD
{
    PERMISSION_ANSWER_ALLOWED = 1111,
    PERMISSION_ANSWER_DENIED = 2222,
    PERMISSION_ANSWER_EXPIRED = 3333,   // the countdown ran out
    PERMISSION_ANSWER_WITHDRAWN = 4444, // the service ended the prompt
    PERMISSION_ANSWER_UNUSABLE = 6666,  // refused without asking: the desktop isn't usable
};

#pragma pack(push, 1)

/*
 * A message that is nothing but its type: MSG_TYPE_TRAYICON_SETTINGS_REQUEST, the request of
 * MSG_TYPE_TRAYICON_IP_ADDRESSES, MSG_TYPE_TRAYICON_POSIBLE_LOCK_STATE_CHANGE, MSG_TYPE_TRAYICON_CHAT_CLOSE
 * and MSG_TYPE_EXIT_READ_FIX_BLOCKINGMODE.
 */
struct MSG_TRAYICON_TYPE_ONLY
{
    DWORD dwType;
};
static_assert(sizeof(MSG_TRAYICON_TYPE_ONLY) == 4);
static_assert(offsetof(MSG_TRAYICON_TYPE_ONLY, dwType) == 0);

/*
 * Both ways. The service opens the conversation with it; the agent answers at once with its own versions and
 * session id and compares nothing, so that a handshake cannot fail on a version.
 */
struct MSG_VERSION
{
    DWORD dwType;            // MSG_TYPE_VERSION
    DWORD dwVersionWord;     // the service's, echoed unchanged
    double dblAgentVersion;  // TRAY_AGENT_VERSION in the answer
    double dblAgentVersion2; // TRAY_AGENT_VERSION in the answer
    BYTE abVersionTail[12];  // the service's, echoed unchanged
    DWORD dwSessionId;       // the agent's session, in the answer
};
static_assert(sizeof(MSG_VERSION) == 40);
static_assert(offsetof(MSG_VERSION, dwType) == 0);
static_assert(offsetof(MSG_VERSION, dwVersionWord) == 4);
static_assert(offsetof(MSG_VERSION, dblAgentVersion) == 8);
static_assert(offsetof(MSG_VERSION, dblAgentVersion2) == 16);
static_assert(offsetof(MSG_VERSION, abVersionTail) == 24);
static_assert(offsetof(MSG_VERSION, dwSessionId) == 36);

/*
 * Both ways. The agent acknowledges with MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK and sends the record back with
 * its session and desktop state filled in.
 */
struct MSG_TRAYICON_INIT
{
    DWORD dwType;             // MSG_TYPE_TRAYICON_INIT
    DWORD dwSessionId;        // ignored when received
    DWORD dwDesktopState;     // ignored when received; DESKTOP_STATE_* in the answer
    DWORD dwDesktopEffects;   // desktop options to apply now if above 1
    DWORD bOneTimeInvitation; // the agent joins by szInvitation instead of asking for a text
    wchar_t szInvitation[8096];
};
static_assert(sizeof(MSG_TRAYICON_INIT) == 16212);
static_assert(offsetof(MSG_TRAYICON_INIT, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_INIT, dwSessionId) == 4);
static_assert(offsetof(MSG_TRAYICON_INIT, dwDesktopState) == 8);
static_assert(offsetof(MSG_TRAYICON_INIT, dwDesktopEffects) == 12);
static_assert(offsetof(MSG_TRAYICON_INIT, bOneTimeInvitation) == 16);
static_assert(offsetof(MSG_TRAYICON_INIT, szInvitation) == 20);

/*
 * Service to agent, for MSG_TYPE_TRAYICON_SETTINGS (answered by MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION)
 * and MSG_TYPE_TRAYICON_SETTINGS_UPDATE (not answered). Kept whole: it is the agent's configuration.
 */
struct MSG_TRAYICON_SETTINGS
{
    DWORD dwType;                  // MSG_TYPE_TRAYICON_SETTINGS or MSG_TYPE_TRAYICON_SETTINGS_UPDATE
    DWORD bNotifyConnect;          // notice on connect
    DWORD bNotifyKind2;            // notice on connect for connection type 2
    DWORD bNotifyDisconnect;       // notice on disconnect, needs bNotifyConnect too
    DWORD bSettingsMenu;           // enables the Settings command
    DWORD bDisconnectMenu;         // enables Disconnect in connection type 1
    DWORD dwTrayIcon;              // icon mode 0, 1 or 2
    DWORD dwFeatureFlags;          // bit 0x10 keeps Create Invitation enabled
    DWORD bQuietNotify;            // with dwDefaultConnectionType 1: no sound with a notice
    DWORD dwNotifySeconds;         // a notice closes itself after so many seconds, 0: never
    DWORD bPermissionRequired;     // idle icon and tip say that consent is asked for
    DWORD dwExitLock1;             // disables Exit in connection type 1
    DWORD dwDefaultConnectionType; // connection type while nobody is connected
    DWORD dwExitLock2;             // as dwExitLock1, stronger; zero: the language follows the current user
    DWORD bKeepNoticeOpen;         // a notice of connection type 1 stays while sessions run
    DWORD bInviteOption1015;       // enables that check box of the invitation dialog
    DWORD bInviteOption1016;
    DWORD bInviteOption1017;
    DWORD bInviteOption1010;
    wchar_t szTrayTip[1024];
    wchar_t szNotifyTitle[260];       // caption of the notice, when not empty
    wchar_t szNotifyText[260];        // head text of the notice
    wchar_t szNotifyConnectText[780]; // first line of the connected notice's body
    DWORD bInvitationMenu;            // enables Create Invitation
    DWORD bReverseConnectMenu;        // enables Connect to Client
    DWORD bProxyAllowed;              // copied into every MSG_REVERSE_CONNECTION
    BYTE abGap4736[8];                // not read by the agent
    wchar_t szLanguage[4];            // "en", "fr" or "de"
};
static_assert(sizeof(MSG_TRAYICON_SETTINGS) == 4752);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bNotifyConnect) == 4);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bNotifyKind2) == 8);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bNotifyDisconnect) == 12);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bSettingsMenu) == 16);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bDisconnectMenu) == 20);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, dwTrayIcon) == 24);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, dwFeatureFlags) == 28);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bQuietNotify) == 32);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, dwNotifySeconds) == 36);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bPermissionRequired) == 40);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, dwExitLock1) == 44);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, dwDefaultConnectionType) == 48);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, dwExitLock2) == 52);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bKeepNoticeOpen) == 56);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bInviteOption1015) == 60);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bInviteOption1016) == 64);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bInviteOption1017) == 68);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bInviteOption1010) == 72);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, szTrayTip) == 76);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, szNotifyTitle) == 2124);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, szNotifyText) == 2644);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, szNotifyConnectText) == 3164);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bInvitationMenu) == 4724);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bReverseConnectMenu) == 4728);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, bProxyAllowed) == 4732);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, abGap4736) == 4736);
static_assert(offsetof(MSG_TRAYICON_SETTINGS, szLanguage) == 4744);

/*
 * Service to agent, for MSG_TYPE_TRAYICON_CONNECT_COUNT, MSG_TYPE_TRAYICON_CONNECT_NOTIFY and
 * MSG_TYPE_TRAYICON_DISCONNECT_NOTIFY. Kept whole.
 */
struct MSG_TRAYICON_CONNECT
{
    DWORD dwType;
    wchar_t szClientName[260];    // who connected or left
    wchar_t szClientDetail1[260]; // second line of the notice, optional
    wchar_t szClientDetail2[262]; // third line of the notice
    DWORD dwConnectionType;       // 0, 1 or 2
    DWORD dwConnectCount;         // remote sessions now connected
    BYTE abGap1576[4];            // not read by the agent
    DWORD bListClients;           // the list form of the notice applies
    BYTE abGap1584[4];            // not read by the agent
    DWORD dwClientId;             // on disconnect: whose drop window goes away
};
static_assert(sizeof(MSG_TRAYICON_CONNECT) == 1592);
static_assert(offsetof(MSG_TRAYICON_CONNECT, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_CONNECT, szClientName) == 4);
static_assert(offsetof(MSG_TRAYICON_CONNECT, szClientDetail1) == 524);
static_assert(offsetof(MSG_TRAYICON_CONNECT, szClientDetail2) == 1044);
static_assert(offsetof(MSG_TRAYICON_CONNECT, dwConnectionType) == 1568);
static_assert(offsetof(MSG_TRAYICON_CONNECT, dwConnectCount) == 1572);
static_assert(offsetof(MSG_TRAYICON_CONNECT, abGap1576) == 1576);
static_assert(offsetof(MSG_TRAYICON_CONNECT, bListClients) == 1580);
static_assert(offsetof(MSG_TRAYICON_CONNECT, abGap1584) == 1584);
static_assert(offsetof(MSG_TRAYICON_CONNECT, dwClientId) == 1588);

/*
 * Both ways: the agent's request is zero but for its type, the service's answer is filled.
 */
struct MSG_TRAYICON_CONNECT_NOTIFY_ALL
{
    DWORD dwType;               // MSG_TYPE_TRAYICON_CONNECT_NOTIFY_ALL
    wchar_t szClientList[4098]; // one client a line
    DWORD dwClientCount;
};
static_assert(sizeof(MSG_TRAYICON_CONNECT_NOTIFY_ALL) == 8204);
static_assert(offsetof(MSG_TRAYICON_CONNECT_NOTIFY_ALL, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_CONNECT_NOTIFY_ALL, szClientList) == 4);
static_assert(offsetof(MSG_TRAYICON_CONNECT_NOTIFY_ALL, dwClientCount) == 8200);

/*
 * Both ways, and embedded in three other records, where dwType stays zero. The contents of the service's
 * request are not looked at; the agent answers with its own.
 */
struct MSG_TRAYICON_DESKTOP_USER_INFORMATION
{
    DWORD dwType;            // MSG_TYPE_TRAYICON_DESKTOP_USER_INFORMATION when it stands alone
    wchar_t szUsername[260]; // domain, backslash and account of the agent's process token
    wchar_t szDesktop[260];  // name of the input desktop
    DWORD dwDesktopFlags;    // DESKTOP_FLAG_*
    BYTE abGap1048[20];      // zero
};
static_assert(sizeof(MSG_TRAYICON_DESKTOP_USER_INFORMATION) == 1068);
static_assert(offsetof(MSG_TRAYICON_DESKTOP_USER_INFORMATION, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_DESKTOP_USER_INFORMATION, szUsername) == 4);
static_assert(offsetof(MSG_TRAYICON_DESKTOP_USER_INFORMATION, szDesktop) == 524);
static_assert(offsetof(MSG_TRAYICON_DESKTOP_USER_INFORMATION, dwDesktopFlags) == 1044);
static_assert(offsetof(MSG_TRAYICON_DESKTOP_USER_INFORMATION, abGap1048) == 1048);

/*
 * Both ways. Of the service's only the type counts.
 */
struct MSG_TRAYICON_EXIT
{
    DWORD dwType; // MSG_TYPE_TRAYICON_EXIT
    MSG_TRAYICON_DESKTOP_USER_INFORMATION DesktopUser;
};
static_assert(sizeof(MSG_TRAYICON_EXIT) == 1072);
static_assert(offsetof(MSG_TRAYICON_EXIT, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_EXIT, DesktopUser) == 4);

/*
 * Agent to service.
 */
struct MSG_TRAYICON_DISCONNECT_ALL
{
    DWORD dwType; // MSG_TYPE_TRAYICON_DISCONNECT_ALL
    DWORD dwZero; // zero
    MSG_TRAYICON_DESKTOP_USER_INFORMATION DesktopUser;
};
static_assert(sizeof(MSG_TRAYICON_DISCONNECT_ALL) == 1076);
static_assert(offsetof(MSG_TRAYICON_DISCONNECT_ALL, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_DISCONNECT_ALL, dwZero) == 4);
static_assert(offsetof(MSG_TRAYICON_DISCONNECT_ALL, DesktopUser) == 8);

/*
 * Agent to service: the language that the user chose.
 */
struct MSG_TRAYICON_LANGUAGE
{
    DWORD dwType;          // MSG_TYPE_TRAYICON_LANGUAGE
    wchar_t szLanguage[4]; // "en", "fr" or "de"
    MSG_TRAYICON_DESKTOP_USER_INFORMATION DesktopUser;
};
static_assert(sizeof(MSG_TRAYICON_LANGUAGE) == 1080);
static_assert(offsetof(MSG_TRAYICON_LANGUAGE, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_LANGUAGE, szLanguage) == 4);
static_assert(offsetof(MSG_TRAYICON_LANGUAGE, DesktopUser) == 12);

/*
 * Agent to service, as the logon session ends.
 */
struct MSG_TRAYICON_SESSION_ENDING
{
    DWORD dwType; // MSG_TYPE_TRAYICON_SESSION_ENDING
    DWORD dwSessionId;
    DWORD dwUnset;    // whatever it holds, a reader ignores it
    DWORD dwExitCode; // the agent's exit code
};
static_assert(sizeof(MSG_TRAYICON_SESSION_ENDING) == 16);
static_assert(offsetof(MSG_TRAYICON_SESSION_ENDING, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_SESSION_ENDING, dwSessionId) == 4);
static_assert(offsetof(MSG_TRAYICON_SESSION_ENDING, dwUnset) == 8);
static_assert(offsetof(MSG_TRAYICON_SESSION_ENDING, dwExitCode) == 12);

/*
 * MSG_TYPE_TRAYICON_DESKTOP_EFFECTS from the service, MSG_TYPE_TRAYICON_DESKTOP_EFFECTS_ACK from the agent.
 */
struct MSG_TRAYICON_DESKTOP_EFFECTS
{
    DWORD dwType;
    DWORD dwDesktopEffects; // desktop options; 0 and 1 change nothing
};
static_assert(sizeof(MSG_TRAYICON_DESKTOP_EFFECTS) == 8);
static_assert(offsetof(MSG_TRAYICON_DESKTOP_EFFECTS, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_DESKTOP_EFFECTS, dwDesktopEffects) == 4);

/*
 * Agent to service, after the handshake and at every change of the desktop.
 */
struct MSG_TRAYICON_DESKTOP_STATE
{
    DWORD dwType;         // MSG_TYPE_TRAYICON_DESKTOP_STATE
    DWORD dwDesktopState; // DESKTOP_STATE_*
};
static_assert(sizeof(MSG_TRAYICON_DESKTOP_STATE) == 8);
static_assert(offsetof(MSG_TRAYICON_DESKTOP_STATE, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_DESKTOP_STATE, dwDesktopState) == 4);

/*
 * Service to agent. A second record with the same dwClientId closes the drop window. The slots are the
 * agent's own use of its copy; what the service puts there is overwritten.
 */
struct MSG_TRAYICON_SFT_DROP_CLIENT
{
    DWORD dwType; // MSG_TYPE_TRAYICON_SFT_DROP_CLIENT
    DWORD dwClientId;
    BYTE abGap8[4];               // not read by the agent
    DWORD dwListSlot;             // length of the agent's list of drop windows
    ULONGLONG ullWindowSlot;      // the drop window's handle
    ULONGLONG ullOwnerSlot;       // the tray window's handle
    wchar_t szClientName[261];    // appended to the drop window's caption
    wchar_t szDropEventName[261]; // event of the service, set when dropped names are ready
    BYTE abGap1076[4];            // not read by the agent
};
static_assert(sizeof(MSG_TRAYICON_SFT_DROP_CLIENT) == 1080);
static_assert(offsetof(MSG_TRAYICON_SFT_DROP_CLIENT, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_SFT_DROP_CLIENT, dwClientId) == 4);
static_assert(offsetof(MSG_TRAYICON_SFT_DROP_CLIENT, abGap8) == 8);
static_assert(offsetof(MSG_TRAYICON_SFT_DROP_CLIENT, dwListSlot) == 12);
static_assert(offsetof(MSG_TRAYICON_SFT_DROP_CLIENT, ullWindowSlot) == 16);
static_assert(offsetof(MSG_TRAYICON_SFT_DROP_CLIENT, ullOwnerSlot) == 24);
static_assert(offsetof(MSG_TRAYICON_SFT_DROP_CLIENT, szClientName) == 32);
static_assert(offsetof(MSG_TRAYICON_SFT_DROP_CLIENT, szDropEventName) == 554);
static_assert(offsetof(MSG_TRAYICON_SFT_DROP_CLIENT, abGap1076) == 1076);

/*
 * Service to agent: open the settings. The body is read and ignored.
 */
struct MSG_TRAYICON_SETTINGS_DIALOG
{
    DWORD dwType; // MSG_TYPE_TRAYICON_SETTINGS_DIALOG
    BYTE abIgnored[8];
};
static_assert(sizeof(MSG_TRAYICON_SETTINGS_DIALOG) == 12);
static_assert(offsetof(MSG_TRAYICON_SETTINGS_DIALOG, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_SETTINGS_DIALOG, abIgnored) == 4);

/*
 * Service to agent; the language is chosen anew after it.
 */
struct MSG_TRAYICON_SERVER_RECONFIGURE
{
    DWORD dwType; // MSG_TYPE_TRAYICON_SERVER_RECONFIGURE
    DWORD bReconfiguring;
    wchar_t szMessage[260];
};
static_assert(sizeof(MSG_TRAYICON_SERVER_RECONFIGURE) == 528);
static_assert(offsetof(MSG_TRAYICON_SERVER_RECONFIGURE, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_SERVER_RECONFIGURE, bReconfiguring) == 4);
static_assert(offsetof(MSG_TRAYICON_SERVER_RECONFIGURE, szMessage) == 8);

/*
 * Service to agent, the answer to the type alone. Texts for the About window, each named by the number of the
 * string that labels it.
 */
struct MSG_TRAYICON_IP_ADDRESSES
{
    DWORD dwType; // MSG_TYPE_TRAYICON_IP_ADDRESSES
    wchar_t szInfo56[64];
    wchar_t szInfo55[1025];
    wchar_t szInfo57[1024];
    wchar_t szInfo58[1024];
    wchar_t szInfo60[64]; // when empty, string 62 stands in its place
    wchar_t szInfo53[191];
    wchar_t szInfo54[191];
    wchar_t szInfo59[260];
    wchar_t szInfo61[129];
    DWORD bInfoFlag89;  // appends string 89 behind szInfo56
    DWORD bInfoFlag117; // string 117, else string 118
    DWORD bInfoFlag119; // string 119, else string 120
};
static_assert(sizeof(MSG_TRAYICON_IP_ADDRESSES) == 7960);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, szInfo56) == 4);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, szInfo55) == 132);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, szInfo57) == 2182);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, szInfo58) == 4230);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, szInfo60) == 6278);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, szInfo53) == 6406);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, szInfo54) == 6788);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, szInfo59) == 7170);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, szInfo61) == 7690);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, bInfoFlag89) == 7948);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, bInfoFlag117) == 7952);
static_assert(offsetof(MSG_TRAYICON_IP_ADDRESSES, bInfoFlag119) == 7956);

/*
 * Service to agent: ask the person at the desktop. The agent starts a prompt that speaks
 * MSG_PERMISSION_PROMPT on that port; nothing is answered on this channel.
 */
struct MSG_TRAYICON_PERMISSION
{
    DWORD dwType;  // MSG_TYPE_TRAYICON_PERMISSION
    DWORD nPort;   // UDP port of the exchange
    DWORD nAfType; // 2 for IPv4, 23 for IPv6
};
static_assert(sizeof(MSG_TRAYICON_PERMISSION) == 12);
static_assert(offsetof(MSG_TRAYICON_PERMISSION, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_PERMISSION, nPort) == 4);
static_assert(offsetof(MSG_TRAYICON_PERMISSION, nAfType) == 8);

/*
 * Both ways. One image for three uses, told apart by dwReverseCode and bOneTime.
 */
struct MSG_REVERSE_CONNECTION
{
    DWORD dwType;          // MSG_TYPE_REVERSE_CONNECTION
    DWORD dwReverseCode;   // REVERSE_CODE_*
    DWORD dwError;         // system error to explain when szError is empty
    DWORD bProxyAllowed;   // copied from the settings
    wchar_t szError[2048]; // the failure in words
    BYTE abGap4112[4];     // zero
    DWORD bOneTime;        // join by szInvitation, the host fields are empty
    DWORD bSilent;         // with REVERSE_CODE_FINISHED: no result box
    wchar_t szInvitation[8096];
    BYTE abGap20316[16192]; // zero
    wchar_t szHost[1025];
    BYTE abGap38558[2];
    DWORD dwPort;
    DWORD bUseProxy;
    wchar_t szProxyHost[1025];
    BYTE abGap40618[2];
    DWORD dwProxyPort;
    DWORD bUseProxySecret; // always zero from this agent: the service goes by szProxySecret not being empty
    wchar_t szProxySecret[260]; // in the clear
    BYTE abGap41148[16];        // zero
};
static_assert(sizeof(MSG_REVERSE_CONNECTION) == 41164);
static_assert(offsetof(MSG_REVERSE_CONNECTION, dwType) == 0);
static_assert(offsetof(MSG_REVERSE_CONNECTION, dwReverseCode) == 4);
static_assert(offsetof(MSG_REVERSE_CONNECTION, dwError) == 8);
static_assert(offsetof(MSG_REVERSE_CONNECTION, bProxyAllowed) == 12);
static_assert(offsetof(MSG_REVERSE_CONNECTION, szError) == 16);
static_assert(offsetof(MSG_REVERSE_CONNECTION, abGap4112) == 4112);
static_assert(offsetof(MSG_REVERSE_CONNECTION, bOneTime) == 4116);
static_assert(offsetof(MSG_REVERSE_CONNECTION, bSilent) == 4120);
static_assert(offsetof(MSG_REVERSE_CONNECTION, szInvitation) == 4124);
static_assert(offsetof(MSG_REVERSE_CONNECTION, abGap20316) == 20316);
static_assert(offsetof(MSG_REVERSE_CONNECTION, szHost) == 36508);
static_assert(offsetof(MSG_REVERSE_CONNECTION, abGap38558) == 38558);
static_assert(offsetof(MSG_REVERSE_CONNECTION, dwPort) == 38560);
static_assert(offsetof(MSG_REVERSE_CONNECTION, bUseProxy) == 38564);
static_assert(offsetof(MSG_REVERSE_CONNECTION, szProxyHost) == 38568);
static_assert(offsetof(MSG_REVERSE_CONNECTION, abGap40618) == 40618);
static_assert(offsetof(MSG_REVERSE_CONNECTION, dwProxyPort) == 40620);
static_assert(offsetof(MSG_REVERSE_CONNECTION, bUseProxySecret) == 40624);
static_assert(offsetof(MSG_REVERSE_CONNECTION, szProxySecret) == 40628);
static_assert(offsetof(MSG_REVERSE_CONNECTION, abGap41148) == 41148);

/*
 * Service to agent.
 */
struct MSG_TRAYICON_CHAT_OPEN
{
    DWORD dwType; // MSG_TYPE_TRAYICON_CHAT_OPEN
    wchar_t szUsername[260];
};
static_assert(sizeof(MSG_TRAYICON_CHAT_OPEN) == 524);
static_assert(offsetof(MSG_TRAYICON_CHAT_OPEN, dwType) == 0);
static_assert(offsetof(MSG_TRAYICON_CHAT_OPEN, szUsername) == 4);

/*
 * Service to agent: this head, then dwMessageLength bytes that only the chat module understands. The one
 * record of variable length. In the other direction the chat module hands in finished bytes.
 */
struct MSG_CHAT_MESSAGE
{
    DWORD dwType; // MSG_TYPE_CHAT_MESSAGE
    wchar_t szUsername[260];
    DWORD dwMessageLength; // bytes that follow
};
static_assert(sizeof(MSG_CHAT_MESSAGE) == 528);
static_assert(offsetof(MSG_CHAT_MESSAGE, dwType) == 0);
static_assert(offsetof(MSG_CHAT_MESSAGE, szUsername) == 4);
static_assert(offsetof(MSG_CHAT_MESSAGE, dwMessageLength) == 524);

/*
 * First datagram of every request on the query port.
 */
struct MSG_UDP_HEADER
{
    DWORD dwProtocol;    // UDP_PROTOCOL
    DWORD dwRequest;     // UDP_REQUEST_*
    DWORD dwHeaderSpare; // not set by the agent: a reader ignores it
};
static_assert(sizeof(MSG_UDP_HEADER) == 12);
static_assert(offsetof(MSG_UDP_HEADER, dwProtocol) == 0);
static_assert(offsetof(MSG_UDP_HEADER, dwRequest) == 4);
static_assert(offsetof(MSG_UDP_HEADER, dwHeaderSpare) == 8);

/*
 * Second datagram of a port lookup, and its answer.
 */
struct MSG_UDP_PORT_LOOKUP
{
    DWORD dwRequest;  // UDP_REQUEST_PORT_LOOKUP
    BYTE abGap4[4];   // not set
    DWORD dwPort;     // zero in the request; in the answer the TCP port of the main channel
    BYTE abGap12[68]; // not set
};
static_assert(sizeof(MSG_UDP_PORT_LOOKUP) == 80);
static_assert(offsetof(MSG_UDP_PORT_LOOKUP, dwRequest) == 0);
static_assert(offsetof(MSG_UDP_PORT_LOOKUP, abGap4) == 4);
static_assert(offsetof(MSG_UDP_PORT_LOOKUP, dwPort) == 8);
static_assert(offsetof(MSG_UDP_PORT_LOOKUP, abGap12) == 12);

/*
 * Second datagram of a create-invitation request, and its answer. In the answer only dwError, szError and
 * dwInvitationLength count; with dwError zero a third datagram of dwInvitationLength bytes follows: the
 * invitation in the system's ANSI code page, not terminated.
 */
struct MSG_UDP_CREATE_INVITATION
{
    DWORD dwRequest;               // UDP_REQUEST_CREATE_INVITATION
    DWORD dwError;                 // zero in the request
    wchar_t szError[1024];         // zero in the request
    wchar_t szInvitationName[260]; // never empty
    DWORD bOption1010;
    DWORD bOption1006;
    DWORD dwExpirySelection;         // index of the chosen row of twelve
    DWORD bUseInvitationSecret;      // then szInvitationSecret is not empty
    wchar_t szInvitationSecret[260]; // in the clear
    BYTE abGap3112[4];               // zero
    DWORD bOption1015;
    DWORD bOption1016;
    DWORD bOption1017;
    DWORD bUseProxy;
    wchar_t szProxyHost[1025];
    BYTE abGap5182[2];
    DWORD dwProxyPort;
    DWORD bUseProxySecret;
    wchar_t szProxySecret[260]; // in the clear
    DWORD dwInvitationLength;   // zero in the request
};
static_assert(sizeof(MSG_UDP_CREATE_INVITATION) == 5716);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, dwRequest) == 0);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, dwError) == 4);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, szError) == 8);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, szInvitationName) == 2056);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, bOption1010) == 2576);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, bOption1006) == 2580);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, dwExpirySelection) == 2584);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, bUseInvitationSecret) == 2588);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, szInvitationSecret) == 2592);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, abGap3112) == 3112);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, bOption1015) == 3116);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, bOption1016) == 3120);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, bOption1017) == 3124);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, bUseProxy) == 3128);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, szProxyHost) == 3132);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, abGap5182) == 5182);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, dwProxyPort) == 5184);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, bUseProxySecret) == 5188);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, szProxySecret) == 5192);
static_assert(offsetof(MSG_UDP_CREATE_INVITATION, dwInvitationLength) == 5712);

/*
 * Answer to UDP_REQUEST_DELETE_INVITATIONS, whose request is the header alone.
 */
struct MSG_UDP_DELETE_INVITATIONS
{
    DWORD dwRequest; // UDP_REQUEST_DELETE_INVITATIONS, anything else counts as no answer
    DWORD dwStatus;  // UDP_DELETE_STATUS_BUSY or another
    DWORD dwCount;
};
static_assert(sizeof(MSG_UDP_DELETE_INVITATIONS) == 12);
static_assert(offsetof(MSG_UDP_DELETE_INVITATIONS, dwRequest) == 0);
static_assert(offsetof(MSG_UDP_DELETE_INVITATIONS, dwStatus) == 4);
static_assert(offsetof(MSG_UDP_DELETE_INVITATIONS, dwCount) == 8);

/*
 * Both ways on the permission exchange's own UDP port: opened by the agent with the type and zeros, filled by
 * the service, sent back by the agent with the answer. One more from the service before that withdraws the
 * prompt.
 */
struct MSG_PERMISSION_PROMPT
{
    DWORD dwType; // MSG_TYPE_PERMISSION_PROMPT
    wchar_t szPrompt[4096];
    DWORD bKeepPlace;        // zero: the prompt goes to the corner of the work area
    DWORD bDefaultDeny;      // the deny button is the default one
    DWORD bVariantText;      // zero: string 72, else string 74
    BYTE abGap8208[4];       // not read by the agent
    DWORD bAnswered;         // set in the answer
    DWORD dwAnswer;          // PERMISSION_ANSWER_*
    wchar_t szUsername[260]; // domain, backslash and account of the agent, set in the answer
};
static_assert(sizeof(MSG_PERMISSION_PROMPT) == 8740);
static_assert(offsetof(MSG_PERMISSION_PROMPT, dwType) == 0);
static_assert(offsetof(MSG_PERMISSION_PROMPT, szPrompt) == 4);
static_assert(offsetof(MSG_PERMISSION_PROMPT, bKeepPlace) == 8196);
static_assert(offsetof(MSG_PERMISSION_PROMPT, bDefaultDeny) == 8200);
static_assert(offsetof(MSG_PERMISSION_PROMPT, bVariantText) == 8204);
static_assert(offsetof(MSG_PERMISSION_PROMPT, abGap8208) == 8208);
static_assert(offsetof(MSG_PERMISSION_PROMPT, bAnswered) == 8212);
static_assert(offsetof(MSG_PERMISSION_PROMPT, dwAnswer) == 8216);
static_assert(offsetof(MSG_PERMISSION_PROMPT, szUsername) == 8220);

#pragma pack(pop)

// Numbers of everything a language module holds. The resource scripts, the agent and the tests include this
// file, so it has nothing in it but definitions. A number is part of the agreement between the agent and each
// translation: once published it keeps its meaning.
#pragma once

// Icons. Each is there in 16, 20, 24, 32, 40, 48, 64, 128 and 256 pixels.
#define IDI_TRAY_IDLE 7            // nobody is connected; also the icon of the agent's window
#define IDI_TRAY_PERMISSION 107    // nobody is connected, and the person at the desktop has to consent first
#define IDI_TRAY_ACTIVE 130        // somebody is connected
#define IDI_TRAY_RECONFIGURING 131 // the service is changing its configuration

// Menus; the first sub-menu is shown at the icon.
#define IDM_TRAY 104
#define IDM_TRAY_ONE_TIME 105 // of a one-time agent

// Commands of the menus; ID_TRAY_DISCONNECT_ALL is also what the notice's button sends.
#define ID_TRAY_LANGUAGE_EN 1044
#define ID_TRAY_LANGUAGE_FR 1045
#define ID_TRAY_LANGUAGE_DE 1046
#define ID_TRAY_CREATE_INVITATION 40002
#define ID_TRAY_SHOW_CONNECTED 40003 // ask the service for the list of everyone connected
#define ID_TRAY_DISCONNECT_ALL 40005
#define ID_TRAY_CONNECT_TO_CLIENT 40006
#define ID_TRAY_EXIT 40007
#define ID_TRAY_SETTINGS 40008
#define ID_TRAY_ABOUT 40009
#define ID_TRAY_JOIN_SESSION 40011

// Dialogs.
#define IDD_NOTIFY 102 // the notification popup
#define IDD_ABOUT 106
#define IDD_PERMISSION 107 // may somebody connect?
#define IDD_DROP 110       // files dropped here are sent
#define IDD_CONNECT_TO_CLIENT 132
#define IDD_JOIN_ATTENDED_SESSION 134
#define IDD_CONNECT_IN_PROGRESS 136  // the waiting window
#define IDD_VALIDATE_CERTIFICATE 137 // may a certificate be trusted?
#define IDD_CREATE_INVITATION 115

// Of every text in a dialog that nobody addresses.
#define IDC_LABEL 65535

// Controls of IDD_NOTIFY.
#define IDC_NOTIFY_BODY 1001 // the list of everyone connected; otherwise hidden, and its text is painted
#define IDC_NOTIFY_HEAD 1002 // the line above it
#define IDC_NOTIFY_DISCONNECT 1036 // ends all connections; shown where the popup can't be closed

// Controls of IDD_ABOUT, beside IDOK.
#define IDC_ABOUT_ICON 1000    // where the product's icon is drawn
#define IDC_ABOUT_TEXT 1005    // the lines about service, network and user
#define IDC_ABOUT_VERSION 1011 // version and copyright
#define IDC_ABOUT_COPY 1013    // puts the lines on the clipboard

// Controls of IDD_PERMISSION, beside IDOK, which allows, and IDCANCEL, which denies.
#define IDC_PERMISSION_TEXT 1001      // what the service says about the request
#define IDC_PERMISSION_REQUEST 1002   // format, one of IDS_PERMISSION_*: what is asked for
#define IDC_PERMISSION_ICON 1003      // where the product's icon is drawn
#define IDC_PERMISSION_COUNTDOWN 1014 // owner-drawn, so that the dialog paints its text

// Controls of IDD_DROP.
#define IDC_DROP_TEXT 1001 // IDS_DROP_HINT and the client's name

// Controls of IDD_CONNECT_TO_CLIENT, beside IDOK and IDCANCEL. What is typed for a proxy is disabled until
// its box is ticked.
#define IDC_CONNECT_USE_PROXY 1018
#define IDC_CONNECT_USE_PROXY_SECRET 1019
#define IDC_CONNECT_PROXY_SECRET 1022
#define IDC_CONNECT_HOST 1025
#define IDC_CONNECT_PORT 1026
#define IDC_CONNECT_DEFAULT_PORTS 1027 // back to the default ports, and to no proxy
#define IDC_CONNECT_PROXY_HOST 1029
#define IDC_CONNECT_PROXY_PORT 1030

// Controls of IDD_JOIN_ATTENDED_SESSION, beside IDOK and IDCANCEL.
#define IDC_JOIN_INVITATION 1033 // the text
#define IDC_JOIN_HELP 1035       // a link, opens IDS_JOIN_HELP_ADDRESS
#define IDC_JOIN_HINT 1037       // greyed text
#define IDC_JOIN_BANNER 1039     // shows IDB_JOIN_BANNER until the agent finds it too small

// Controls of IDD_CONNECT_IN_PROGRESS, beside IDCANCEL.
#define IDC_PROGRESS_BAR 1038

// Controls of IDD_VALIDATE_CERTIFICATE, beside IDYES, which accepts, and IDNO, which declines.
#define IDC_VALIDATE_SHOW 3        // shows the certificate
#define IDC_VALIDATE_HELP 1035     // a link, opens IDS_VALIDATE_HELP_ADDRESS
#define IDC_VALIDATE_BANNER 1039   // as IDC_JOIN_BANNER
#define IDC_VALIDATE_REMEMBER 1041 // an accepted certificate is not asked about again
#define IDC_VALIDATE_NAME 1042     // the certificate's; until then the words for none

// Bitmaps: the banner of IDD_JOIN_ATTENDED_SESSION and IDD_VALIDATE_CERTIFICATE for 96 dots per inch, and for
// all finer screens.
#define IDB_JOIN_BANNER 133
#define IDB_BITMAP_INTERNET_SESSION_BANNER 137

// Controls of IDD_CREATE_INVITATION, beside IDCANCEL.
#define IDC_INVITE_CREATE 4              // ask the service for the invitation
#define IDC_INVITE_SAVE 5                // save the text as a file
#define IDC_INVITE_COPY_TEXT 8           // put the text on the clipboard
#define IDC_INVITE_COPY_FILE 10          // put a new file on the clipboard
#define IDC_INVITE_DELETE_ALL 12         // ask the service to delete all invitations
#define IDC_INVITE_ONCE 1006             // good for one session only
#define IDC_INVITE_EXPIRY 1007           // the list of IDS_EXPIRES_*
#define IDC_INVITE_TEXT 1008             // the finished invitation
#define IDC_INVITE_USE_SECRET 1009       // governs IDC_INVITE_SECRET
#define IDC_INVITE_CHAT 1010             // allows to chat
#define IDC_INVITE_SECRET 1011           // the invitation's own secret
#define IDC_INVITE_NAME 1012             // of the invitation and of its file
#define IDC_INVITE_VIEW 1015             // allows to see the screen
#define IDC_INVITE_CONTROL 1016          // allows to use mouse and keyboard
#define IDC_INVITE_FILES 1017            // allows to transfer files
#define IDC_INVITE_USE_PROXY 1018        // governs IDC_INVITE_PROXY_HOST and IDC_INVITE_PROXY_PORT
#define IDC_INVITE_USE_PROXY_SECRET 1019 // governs IDC_INVITE_PROXY_SECRET
#define IDC_INVITE_PROXY_SECRET 1022
#define IDC_INVITE_PROXY_HOST 1023
#define IDC_INVITE_PROXY_PORT 1024

// Strings.
#define IDS_ABOUT_VERSION 6           // About: the version, and ", 64 bit"; the copyright follows
#define IDS_ASK_SETTINGS_NOT_STORED 7 // question before settings open that this user may not store
#define IDS_JOIN_TEXT_EMPTY 8         // Join: there is no invitation
#define IDS_NOTIFY_ALWAYS_ANNOUNCED 9 // popup, last line: every connection of this kind is announced
#define IDS_JOIN_HELP_ADDRESS 10      // where the link of Join leads to
#define IDS_NOTIFY_NAME 11            // popup: who has connected
#define IDS_JOIN_FAILED 12            // format, the invitation: a one-time join didn't lead to its session
#define IDS_NOTIFY_ORGANISATION 13    // popup: whom he or she belongs to
#define IDS_NOTIFY_COMPUTER 14        // popup: from where
#define IDS_NOTIFY_COUNT 15           // popup, head of the list: how many are connected, 0 as well
#define IDS_ASK_DISCONNECT_ALL 16     // format, the count of connections: question before disconnecting all
#define IDS_ASK_TITLE 17              // title of the questions
#define IDS_ASK_EXIT 18               // format, the count of connections: question before the agent ends
#define IDS_ASK_JOIN_IN_SESSION 19    // warning before joining while a session is in progress
#define IDS_NOTIFY_DISCONNECTED 20    // popup, first line: who follows has left
#define IDS_PERMISSION_COUNTDOWN 21   // format, a number: the seconds left to answer
#define IDS_NOTIFY_NOBODY 22          // popup: in place of the list
#define IDS_REVERSE_FAILED 23         // format, the reason: a host couldn't be reached; host and port follow
#define IDS_DROP_HINT 24              // what to do with files; the name of who gets them follows
#define IDS_CONNECT_FAILED 25        // the service runs but is out of reach; the reason follows on a new line
#define IDS_SERVICE_STOPPED 26       // the service is installed but doesn't run
#define IDS_SERVICE_NOT_INSTALLED 27 // there is no service on this machine
#define IDS_NOTIFY_SECOND_KIND 33    // popup, last line: the settings want this kind of connection announced
#define IDS_EXPIRES_15_MINUTES 34    // when an invitation ends; the service goes by the place in the list
#define IDS_EXPIRES_1_HOUR 35        // chosen at first
#define IDS_EXPIRES_2_HOURS 36
#define IDS_EXPIRES_4_HOURS 37
#define IDS_EXPIRES_8_HOURS 38
#define IDS_EXPIRES_1_DAY 39
#define IDS_EXPIRES_2_DAYS 40
#define IDS_EXPIRES_3_DAYS 41
#define IDS_EXPIRES_1_WEEK 42
#define IDS_EXPIRES_2_WEEKS 43
#define IDS_EXPIRES_30_DAYS 44
#define IDS_EXPIRES_NEVER 45
#define IDS_INVITE_SECRET_EMPTY 47 // the invitation's secret is wanted and not there
#define IDS_INVITE_NAME_EMPTY 48
#define IDS_INVITE_ASK_DELETE 49 // question before all invitations are deleted
#define IDS_INVITE_DELETED 50    // format, a count: invitations were deleted
#define IDS_ABOUT_WINDOWS_VERSION 53
#define IDS_ABOUT_WINDOWS_USER 54
#define IDS_ABOUT_COMPUTER 55         // name of this computer
#define IDS_ABOUT_PORT 56             // where the service listens
#define IDS_ABOUT_IPV4 57             // the addresses follow on lines of their own
#define IDS_ABOUT_IPV6 58             // the addresses follow on lines of their own
#define IDS_ABOUT_PROGRAM 59          // the service's program
#define IDS_ABOUT_INTERNET_ADDRESS 60 // as above; IDS_ABOUT_NOT_KNOWN follows on this line instead
#define IDS_ABOUT_ENCRYPTION 61       // how connections are encrypted
#define IDS_ABOUT_NOT_KNOWN 62        // behind IDS_ABOUT_INTERNET_ADDRESS
#define IDS_INVITE_DELETED_BUSY 63    // format, a count: the same, but something was in use
#define IDS_PROXY_PORT_EMPTY 65       // Connect to client and Create invitation
#define IDS_PROXY_SECRET_EMPTY 66     // Connect to client and Create invitation
#define IDS_PROXY_HOST_EMPTY 67
#define IDS_INVITE_NOTHING_ALLOWED 68 // none of the four things that can be allowed is checked
#define IDS_ONE_TIME_BALLOON 69       // balloon of a one-time agent whose icon has just appeared
#define IDS_CONNECT_PORT_EMPTY 70     // Connect to client: there is no port
#define IDS_CONNECT_HOST_EMPTY 71     // Connect to client: there is no host
#define IDS_PERMISSION_CONTROL 72     // in IDC_PERMISSION_REQUEST: to see and to control
#define IDS_PERMISSION_VIEW 74        // in IDC_PERMISSION_REQUEST: to see only
#define IDS_TIP_ONE_TIME 75           // in front of the tip of a one-time agent
#define IDS_VALIDATE_HELP_ADDRESS 76  // where the link of the question about a certificate leads to
#define IDS_TIP_PERMISSION 89         // a line in front of the tip while consent is asked for; also in About

#define IDS_ABOUT_SERVICE 116       // one of the next two stands behind it
#define IDS_ABOUT_READY 117         // somebody can connect
#define IDS_ABOUT_NOT_READY 118     // nobody can connect
#define IDS_ABOUT_AVAILABLE 119     // behind IDS_ABOUT_NETWORK
#define IDS_ABOUT_NOT_AVAILABLE 120 // behind IDS_ABOUT_NETWORK
#define IDS_ABOUT_NETWORK 121       // one of the previous two stands behind it

// Of the programs themselves, not of the language modules: what the shell shows for the file.
#define IDI_PROGRAM 1

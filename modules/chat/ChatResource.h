// The numbers of the chat module's resources and controls.
#pragma once

#define IDI_CHAT 1

#define IDS_CHAT_TITLE 100
#define IDS_CHAT_CONVERSATION 101
#define IDS_CHAT_CONVERSATION_WITH 102 // %s: the names of those who take part
#define IDS_CHAT_NOBODY 103
#define IDS_CHAT_MESSAGE 104
#define IDS_CHAT_SEND 105
#define IDS_CHAT_CONNECTED 106    // %s: a name
#define IDS_CHAT_DISCONNECTED 107 // %s: a name
#define IDS_CHAT_SOMEBODY 108     // who has no name

#define IDC_CHAT_PEOPLE 1001
#define IDC_CHAT_HISTORY 1002
#define IDC_CHAT_LABEL 1003
#define IDC_CHAT_INPUT 1004
#define IDC_CHAT_SEND 1005

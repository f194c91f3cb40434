#pragma once

#include "tests/support/SharedRecord.h"
#include "tests/support/chatmodule/ChatTrace.h"

#include <string>

/// Steers the test's chat module and watches it, in whichever process loads it while this object lives. One
/// object at a time in one logon session.
class ChatTrace : public SharedRecord<CHAT_TRACE>
{
  public:
    ChatTrace() : SharedRecord(CHAT_TRACE_NAME, MakeChatTrace()) {}
};

/// The file name by which the agent knows its chat module.
constexpr wchar_t CHAT_MODULE[] = L"TKDAChat.dll";

/// The folder, under the test programs, of the test's chat module that lacks "nothing", "create", "append" or
/// "close".
inline std::wstring ChatModuleFolder(const std::wstring& missing)
{
    return L"testmodules\\chat-" + missing;
}

#include "Include/BoundedText.h"
#include "Include/UtilResource.h"
#include "channel/MessageHandlers.h"
#include "channel/ReverseText.h"
#include "channel/TrayMessages.h"
#include "resources/resource.h"
#include "tray/TKDASTWindow.h"

namespace
{
void PostJoinState(const CHANNEL_CONTEXT& context, JOIN_SESSION_STATE state)
{
    PostMessageW(context.hWnd, WM_JOIN_SESSION_STATE, state, 0);
}

void WriteReverseResult(CTaskBarWindow& window, const MSG_REVERSE_CONNECTION& record)
{
    CopyText(window.m_szServiceMessageTitle, LoadResourceText(IDS_ASK_TITLE, SERVICE_MESSAGE_LENGTH));
    const std::wstring format =
        LoadResourceText(record.bOneTime != 0 ? IDS_JOIN_FAILED : IDS_REVERSE_FAILED, MAX_REVERSE_FORMAT);
    CopyText(window.m_szServiceMessage, ComposeReverseResult(record, format));
}

void OnReverseFinished(CHANNEL_CONTEXT& context, const MSG_REVERSE_CONNECTION& record)
{
    PostJoinState(context, JOIN_SESSION_CLOSE_WAIT);
    context.pWindow->m_bServiceMessageIsError = 1;
    if (record.bSilent != 0)
    {
        return;
    }
    WriteReverseResult(*context.pWindow, record);
    if (!HasJoined(record))
    {
        PostMessageW(context.hWnd, WM_SHOW_SERVICE_MESSAGE, 0, 0); // hands the texts over to the main thread
    }
}
} // namespace

// Any word of the service opens the commands again, even while the attempt goes on.
void BeforeReverseConnection(CHANNEL_CONTEXT& context)
{
    context.pWindow->m_bReverseInProgress = 0;
}

bool OnReverseConnection(CHANNEL_CONTEXT& context)
{
    const MSG_REVERSE_CONNECTION& record = RecordOf<MSG_REVERSE_CONNECTION>(context);
    switch (record.dwReverseCode)
    {
    case REVERSE_CODE_SHOW_WAIT:
        PostJoinState(context, JOIN_SESSION_SHOW_WAIT);
        break;
    case REVERSE_CODE_CLOSE_WAIT:
        PostJoinState(context, JOIN_SESSION_CLOSE_WAIT);
        break;
    case REVERSE_CODE_FINISHED:
        OnReverseFinished(context, record);
        break;
    default:
        context.pWindow->m_bReverseInProgress = 0;
        break;
    }
    return true;
}

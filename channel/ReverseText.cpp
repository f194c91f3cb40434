#include "channel/ReverseText.h"

#include "Include/BoundedText.h"
#include "Include/UtilLog.h"
#include "Include/UtilResource.h"

#include <iterator>

bool HasJoined(const MSG_REVERSE_CONNECTION& record)
{
    return record.bOneTime != 0 && FixedText(record.szError) == REVERSE_JOINED;
}

std::wstring ComposeReverseReason(const MSG_REVERSE_CONNECTION& record)
{
    wchar_t szReason[MAX_REVERSE_REASON] = {};
    if (const std::wstring_view error = FixedText(record.szError); !error.empty())
    {
        CopyText(szReason, error);
    }
    else
    {
        FormatSystemError(szReason, std::size(szReason), record.dwError);
    }
    return szReason;
}

std::wstring ComposeReverseResult(const MSG_REVERSE_CONNECTION& record, std::wstring_view format)
{
    if (record.bOneTime != 0)
    {
        return FillPlaceholders(format, {FixedText(record.szInvitation)});
    }
    std::wstring text = FillPlaceholders(format, {ComposeReverseReason(record)});
    text.append(L"\r\nHost: ").append(FixedText(record.szHost));
    return text.append(L"\r\nPort: ").append(std::to_wstring(record.dwPort));
}

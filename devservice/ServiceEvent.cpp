#include "devservice/ServiceEvent.h"

#include "devservice/RecordText.h"
#include "devservice/ValueText.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace
{
constexpr int TIME_WIDTH = 9;
constexpr int NAME_WIDTH = 9;
constexpr size_t SHOWN_RAW_BYTES = 32;

const wchar_t* DirectionArrow(SERVICE_EVENT_KIND kind)
{
    switch (kind)
    {
    case SERVICE_EVENT_KIND::RecordSent:
    case SERVICE_EVENT_KIND::RawSent:
    case SERVICE_EVENT_KIND::QueryAnswered:
    case SERVICE_EVENT_KIND::PromptSent:
        return L"==>";
    case SERVICE_EVENT_KIND::RecordReceived:
    case SERVICE_EVENT_KIND::RawReceived:
    case SERVICE_EVENT_KIND::QueryReceived:
    case SERVICE_EVENT_KIND::PromptReceived:
        return L"<==";
    default:
        return L"   ";
    }
}

bool IsQuery(SERVICE_EVENT_KIND kind)
{
    return kind == SERVICE_EVENT_KIND::QueryReceived || kind == SERVICE_EVENT_KIND::QueryAnswered;
}

bool IsPrompt(SERVICE_EVENT_KIND kind)
{
    return kind == SERVICE_EVENT_KIND::PromptReceived || kind == SERVICE_EVENT_KIND::PromptSent;
}

std::wstring Speaker(const SERVICE_EVENT& event)
{
    if (IsQuery(event.kind))
    {
        return L"query";
    }
    if (event.uPrompt != 0)
    {
        return L"prompt " + std::to_wstring(event.uPrompt);
    }
    if (event.uAgent == 0)
    {
        return L"service";
    }
    return L"agent " + std::to_wstring(event.uAgent);
}

std::wstring RawText(std::span<const BYTE> bytes)
{
    std::wstring text = std::to_wstring(bytes.size()) + L" raw bytes: ";
    text += HexText(bytes.subspan(0, std::min(bytes.size(), SHOWN_RAW_BYTES)), L" ");
    if (bytes.size() > SHOWN_RAW_BYTES)
    {
        text += L" ...";
    }
    return text;
}

std::wstring DatagramText(const SERVICE_EVENT& event)
{
    std::wstring text = event.text + L' ';
    if (event.pRecord == nullptr)
    {
        return text + RawText(event.bytes);
    }
    text.append(event.pRecord->pszName).append(L" (");
    text += std::to_wstring(event.bytes.size()) + L" bytes) ";
    return text + FormatRecord(*event.pRecord, event.bytes);
}

std::wstring What(const SERVICE_EVENT& event)
{
    if (event.pMessage != nullptr)
    {
        return FormatMessage(*event.pMessage, event.bytes);
    }
    if (IsQuery(event.kind) || IsPrompt(event.kind))
    {
        return DatagramText(event);
    }
    if (event.kind == SERVICE_EVENT_KIND::RawSent || event.kind == SERVICE_EVENT_KIND::RawReceived)
    {
        return RawText(event.bytes);
    }
    return event.text;
}
} // namespace

std::wstring FormatEvent(const SERVICE_EVENT& event)
{
    std::wostringstream line;
    line.imbue(std::locale::classic());
    line << std::fixed << std::setprecision(3) << std::setw(TIME_WIDTH) << event.dblSeconds << L"  "
         << std::left << std::setw(NAME_WIDTH) << Speaker(event) << DirectionArrow(event.kind) << L"  "
         << What(event);
    return line.str();
}

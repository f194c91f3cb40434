#include "channel/TrayMessageTable.h"
#include "channel/TrayMessages.h"
#include "devservice/TextFile.h"
#include "devservice/ValueText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace
{
using ROW = std::vector<std::string>;

std::string Trimmed(std::string text)
{
    const auto isOrnament = [](char ch) { return ch == ' ' || ch == '`' || ch == '\r'; };
    while (!text.empty() && isOrnament(text.back()))
    {
        text.pop_back();
    }
    while (!text.empty() && isOrnament(text.front()))
    {
        text.erase(0, 1);
    }
    return text;
}

std::vector<std::string> PageLines()
{
    const std::optional<std::string> page = ReadWholeFile(FromUtf8(TKDAS_PROTOCOL_PAGE));
    EXPECT_TRUE(page) << TKDAS_PROTOCOL_PAGE;
    std::istringstream stream(page.value_or(""));
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

// The rows of the table below that heading, without the table's own head.
std::vector<ROW> TableBelow(const std::string& heading)
{
    std::vector<ROW> rows;
    bool bBelow = false;
    for (const std::string& line : PageLines())
    {
        if (line.starts_with("#"))
        {
            bBelow = Trimmed(line) == heading;
        }
        if (!bBelow || !line.starts_with("|"))
        {
            continue;
        }
        std::istringstream cells(line.substr(1));
        ROW row;
        for (std::string cell; std::getline(cells, cell, '|');)
        {
            row.push_back(Trimmed(cell));
        }
        rows.push_back(row);
    }
    constexpr size_t nHeadRows = 2;
    EXPECT_GT(rows.size(), nHeadRows) << "docs/protocol.md has no table below " << heading;
    rows.erase(rows.begin(), rows.begin() + std::min(nHeadRows, rows.size()));
    return rows;
}

std::string Joined(const ROW& row)
{
    std::string text;
    for (const std::string& cell : row)
    {
        text += (text.empty() ? "" : " | ") + cell;
    }
    return text;
}

std::string KindName(const RECORD_FIELD& field)
{
    switch (field.kind)
    {
    case FIELD_KIND::Dword:
        return "dword";
    case FIELD_KIND::Qword:
        return "qword";
    case FIELD_KIND::Double:
        return "double";
    case FIELD_KIND::Text:
    case FIELD_KIND::Secret:
        return "wchar[" + std::to_string(field.uSize / sizeof(wchar_t)) + "]";
    case FIELD_KIND::Bytes:
        return "byte[" + std::to_string(field.uSize) + "]";
    case FIELD_KIND::Record:
        break;
    }
    return "record";
}

std::string DirectionName(MESSAGE_DIRECTION direction)
{
    switch (direction)
    {
    case MESSAGE_FROM_SERVICE:
        return "service to agent";
    case MESSAGE_FROM_AGENT:
        return "agent to service";
    default:
        return "both ways";
    }
}

template <typename Record>
std::vector<BYTE> Image(const Record& record)
{
    const BYTE* const pBytes = reinterpret_cast<const BYTE*>(&record);
    return {pBytes, pBytes + sizeof(record)};
}

// The bytes of the code blocks below that heading, one after the other.
std::vector<std::vector<BYTE>> BlocksBelow(const std::string& heading)
{
    std::vector<std::vector<BYTE>> blocks;
    bool bBelow = false;
    bool bInside = false;
    for (const std::string& line : PageLines())
    {
        if (!bInside && line.starts_with("#"))
        {
            bBelow = Trimmed(line) == heading;
        }
        if (!bBelow)
        {
            continue;
        }
        if (line.starts_with("```"))
        {
            bInside = !bInside;
            if (bInside)
            {
                blocks.emplace_back();
            }
            continue;
        }
        const auto bytes = bInside ? ParseHexBytes(FromUtf8(line)) : std::nullopt;
        EXPECT_TRUE(!bInside || bytes) << line;
        if (bytes)
        {
            blocks.back().insert(blocks.back().end(), bytes->begin(), bytes->end());
        }
    }
    return blocks;
}
} // namespace

TEST(ProtocolPage, EveryRecordStandsThereFieldByField)
{
    for (const RECORD_DESCRIPTION& record : GetRecordDescriptions())
    {
        const std::string name = ToUtf8(record.pszName);
        const std::vector<ROW> rows =
            TableBelow("### " + name + " (" + std::to_string(record.uSize) + " bytes)");
        ASSERT_EQ(rows.size(), record.fields.size()) << name;
        for (size_t n = 0; n < rows.size(); ++n)
        {
            const RECORD_FIELD& field = record.fields[n];
            ASSERT_EQ(rows[n].size(), 5u) << name << " row " << n;
            EXPECT_EQ(rows[n][0], std::to_string(field.uOffset)) << name << '.' << ToUtf8(field.pszName);
            EXPECT_EQ(rows[n][1], std::to_string(field.uSize)) << name << '.' << ToUtf8(field.pszName);
            EXPECT_EQ(rows[n][2], ToUtf8(field.pszName)) << name;
            EXPECT_EQ(rows[n][3], KindName(field)) << name << '.' << ToUtf8(field.pszName);
            EXPECT_FALSE(rows[n][4].empty()) << name << '.' << ToUtf8(field.pszName);
        }
    }
}

TEST(ProtocolPage, EveryMessageStandsThereOnceWithItsSizeAndDirection)
{
    std::vector<ROW> rows = TableBelow("## Messages");
    EXPECT_EQ(rows.size(), GetMessageDescriptions().size());
    for (const MESSAGE_DESCRIPTION& message : GetMessageDescriptions())
    {
        std::string size = std::to_string(message.pRecord->uSize);
        if (message.dwType == MSG_TYPE_CHAT_MESSAGE)
        {
            size += " + payload";
        }
        const ROW expected = {std::to_string(message.dwType), ToUtf8(message.pszName),
                              DirectionName(message.direction), size, ToUtf8(message.pRecord->pszName)};
        EXPECT_EQ(std::count(rows.begin(), rows.end(), expected), 1)
            << "docs/protocol.md, below Messages: | " << Joined(expected) << " |";
    }
}

TEST(ProtocolPage, ExampleBytesAreWhatTheyAreSaidToBe)
{
    const std::vector<std::vector<BYTE>> blocks = BlocksBelow("## Example bytes");
    ASSERT_EQ(blocks.size(), 4u);
    MSG_VERSION version = {};
    version.dwType = MSG_TYPE_VERSION;
    version.dwVersionWord = 1;
    memcpy(version.abVersionTail, "stand-in 1.0", sizeof(version.abVersionTail));
    EXPECT_EQ(blocks[0], Image(version));
    version.dblAgentVersion = TRAY_AGENT_VERSION;
    version.dblAgentVersion2 = TRAY_AGENT_VERSION;
    version.dwSessionId = 1;
    EXPECT_EQ(blocks[1], Image(version));
    const MSG_TRAYICON_DESKTOP_STATE state = {MSG_TYPE_TRAYICON_DESKTOP_STATE, DESKTOP_STATE_UNLOCKED};
    EXPECT_EQ(blocks[2], Image(state));
    const MSG_UDP_HEADER header = {UDP_PROTOCOL, UDP_REQUEST_PORT_LOOKUP, 0};
    EXPECT_EQ(blocks[3], Image(header));
}

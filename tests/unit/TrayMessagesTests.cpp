#include "channel/MessageHandlers.h"
#include "channel/TrayMessageTable.h"
#include "channel/TrayMessages.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace
{
// Every type that the service may send, with the bytes that follow it: the protocol as the other side knows
// it.
const std::vector<std::pair<DWORD, unsigned int>> SERVICE_TYPES = {
    {4400, 36},   {40000, 16208}, {40001, 1068}, {40002, 1588}, {40003, 4748}, {40004, 0},    {40005, 0},
    {40006, 0},   {40007, 4748},  {40008, 1588}, {40009, 1588}, {50000, 1064}, {50001, 8200}, {50008, 0},
    {50009, 4},   {67001, 1076},  {70020, 8},    {70030, 524},  {70040, 7956}, {70050, 8},    {70070, 41160},
    {75000, 520}, {75001, 524},   {75002, 0},    {100000, 0},
};
} // namespace

TEST(MessageHandlers, EveryTypeOfTheServiceIsReadToItsSize)
{
    for (const auto& [dwType, uBodySize] : SERVICE_TYPES)
    {
        const MESSAGE_HANDLER_ROW* const pRow = FindMessageHandler(dwType);
        ASSERT_NE(pRow, nullptr) << dwType;
        EXPECT_EQ(pRow->dwType, dwType);
        EXPECT_EQ(pRow->uBodySize, uBodySize) << pRow->pszName;
    }
}

TEST(MessageHandlers, TypesThatOnlyTheAgentSendsAreUnknown)
{
    for (const DWORD dwType : {0UL, 1UL, 4399UL, 4401UL, 39999UL, 50005UL, 50006UL, 50007UL, 50010UL, 70006UL,
                               70060UL, 100001UL, 0xFFFFFFFFUL})
    {
        EXPECT_EQ(FindMessageHandler(dwType), nullptr) << dwType;
    }
}

TEST(MessageHandlers, OnlyChatIsAnnouncedInWordsOfItsOwn)
{
    for (const auto& [dwType, uBodySize] : SERVICE_TYPES)
    {
        const bool bChat = dwType >= MSG_TYPE_TRAYICON_CHAT_OPEN && dwType <= MSG_TYPE_TRAYICON_CHAT_CLOSE;
        EXPECT_EQ(FindMessageHandler(dwType)->bOwnWords, bChat) << dwType;
    }
}

TEST(TrayMessageTable, AgreesWithTheReaderAboutNamesAndSizes)
{
    const std::set<DWORD> NOT_SENT = {40004, 40005, 40006}; // the reader's rows for what no service sends
    std::set<DWORD> described;
    for (const MESSAGE_DESCRIPTION& message : GetMessageDescriptions())
    {
        if ((message.direction & MESSAGE_FROM_SERVICE) == 0)
        {
            continue;
        }
        described.insert(message.dwType);
        const MESSAGE_HANDLER_ROW* const pRow = FindMessageHandler(message.dwType);
        ASSERT_NE(pRow, nullptr) << message.dwType << " has no row in channel/MessageHandlers.cpp";
        EXPECT_EQ(pRow->uBodySize + sizeof(DWORD), message.pRecord->uSize) << pRow->pszName;
        const std::string narrow(pRow->pszName);
        EXPECT_EQ(std::wstring(narrow.begin(), narrow.end()), message.pszName);
    }
    for (const auto& [dwType, uBodySize] : SERVICE_TYPES)
    {
        EXPECT_EQ(described.erase(dwType), NOT_SENT.contains(dwType) ? 0U : 1U) << dwType;
    }
    EXPECT_TRUE(described.empty()) << *described.begin() << " is missing in SERVICE_TYPES";
}

TEST(TrayMessageTable, FieldsOfEachRecordFollowOneAnotherToItsEnd)
{
    for (const RECORD_DESCRIPTION& record : GetRecordDescriptions())
    {
        unsigned int uEnd = 0;
        for (const RECORD_FIELD& field : record.fields)
        {
            EXPECT_EQ(field.uOffset, uEnd) << field.uOffset;
            uEnd = field.uOffset + field.uSize;
        }
        EXPECT_EQ(uEnd, record.uSize);
    }
}

TEST(TrayMessageTable, TheAddressMessageHasARecordForEachDirection)
{
    const MESSAGE_DESCRIPTION* const pRequest =
        FindMessageDescription(MSG_TYPE_TRAYICON_IP_ADDRESSES, MESSAGE_FROM_AGENT);
    const MESSAGE_DESCRIPTION* const pAnswer =
        FindMessageDescription(MSG_TYPE_TRAYICON_IP_ADDRESSES, MESSAGE_FROM_SERVICE);
    ASSERT_NE(pRequest, nullptr);
    ASSERT_NE(pAnswer, nullptr);
    EXPECT_EQ(pRequest->pRecord->uSize, 4U);
    EXPECT_EQ(pAnswer->pRecord->uSize, 7960U);
}

TEST(TrayMessageTable, SecretsAreMarkedAsSuch)
{
    int nSecrets = 0;
    for (const RECORD_DESCRIPTION& record : GetRecordDescriptions())
    {
        for (const RECORD_FIELD& field : record.fields)
        {
            const std::wstring name(field.pszName);
            const bool bSecretText = name.starts_with(L"sz") && name.ends_with(L"Secret");
            EXPECT_EQ(field.kind == FIELD_KIND::Secret, bSecretText) << field.uOffset;
            nSecrets += bSecretText ? 1 : 0;
        }
    }
    EXPECT_EQ(nSecrets, 3);
}

TEST(TrayMessageTable, AMessageThatTravelsTheOtherWayOnlyIsNotFound)
{
    EXPECT_EQ(FindMessageDescription(MSG_TYPE_TRAYICON_DESKTOP_STATE, MESSAGE_FROM_SERVICE), nullptr);
    EXPECT_EQ(FindMessageDescription(MSG_TYPE_TRAYICON_SETTINGS, MESSAGE_FROM_AGENT), nullptr);
    EXPECT_EQ(FindRecordDescription(L"MSG_NO_SUCH_RECORD"), nullptr);
    EXPECT_NE(FindRecordDescription(L"MSG_PERMISSION_PROMPT"), nullptr);
}

#include "dialogs/NotifyText.h"

#include "Include/BoundedText.h"
#include "resources/resource.h"
#include "tests/unit/DialogHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

namespace
{
const std::wstring LINE_END = L"\r\n";

class NotifyTextTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        CopyText(m_settings.szNotifyConnectText, L"First");
        CopyText(m_connection.szClientName, L"Alice");
        CopyText(m_connection.szClientDetail1, L"Example Ltd");
        CopyText(m_connection.szClientDetail2, L"HELPDESK");
        m_connection.dwConnectionType = ORDINARY_CONNECTION_TYPE;
    }

    std::wstring Client() const
    {
        return Text(IDS_NOTIFY_NAME) + L"Alice" + LINE_END + Text(IDS_NOTIFY_ORGANISATION) + L"Example Ltd" +
               LINE_END + Text(IDS_NOTIFY_COMPUTER) + L"HELPDESK";
    }

    std::wstring Text(UINT uString) const { return m_language.Text(uString); }

    StagedLanguageModule m_language;
    MSG_TRAYICON_SETTINGS m_settings = {};
    MSG_TRAYICON_CONNECT m_connection = {};
};
} // namespace

TEST_F(NotifyTextTest, AnOrdinaryConnectionTellsWhoWhoseAndFromWhere)
{
    EXPECT_EQ(ComposeConnectedText(m_settings, m_connection), L"First" + LINE_END + Client());
}

TEST_F(NotifyTextTest, AnotherKindOfConnectionAddsItsRemark)
{
    m_connection.dwConnectionType = 0;
    EXPECT_EQ(ComposeConnectedText(m_settings, m_connection),
              L"First" + LINE_END + Client() + LINE_END + Text(IDS_NOTIFY_ALWAYS_ANNOUNCED) + LINE_END);
    m_connection.dwConnectionType = 2;
    EXPECT_EQ(ComposeConnectedText(m_settings, m_connection),
              L"First" + LINE_END + Client() + LINE_END + Text(IDS_NOTIFY_SECOND_KIND) + LINE_END);
    m_connection.dwConnectionType = 3;
    EXPECT_EQ(ComposeConnectedText(m_settings, m_connection), L"First" + LINE_END + Client());
}

TEST_F(NotifyTextTest, WithoutAnOrganisationItsLineIsLeftOut)
{
    m_connection.szClientDetail1[0] = L'\0';
    EXPECT_EQ(ComposeConnectedText(m_settings, m_connection), L"First" + LINE_END + Text(IDS_NOTIFY_NAME) +
                                                                  L"Alice" + LINE_END +
                                                                  Text(IDS_NOTIFY_COMPUTER) + L"HELPDESK");
}

TEST_F(NotifyTextTest, EmptyTextsKeepTheirLines)
{
    m_settings = {};
    m_connection = {};
    m_connection.dwConnectionType = ORDINARY_CONNECTION_TYPE;
    EXPECT_EQ(ComposeConnectedText(m_settings, m_connection),
              LINE_END + Text(IDS_NOTIFY_NAME) + LINE_END + Text(IDS_NOTIFY_COMPUTER));
}

TEST_F(NotifyTextTest, ADisconnectionBeginsWithWordsOfItsOwn)
{
    EXPECT_EQ(ComposeDisconnectedText(m_connection), Text(IDS_NOTIFY_DISCONNECTED) + LINE_END + Client());
}

TEST_F(NotifyTextTest, FieldsWithoutATerminatorEndAtTheirBounds)
{
    std::fill(std::begin(m_settings.szNotifyConnectText), std::end(m_settings.szNotifyConnectText), L'f');
    std::fill(std::begin(m_connection.szClientName), std::end(m_connection.szClientName), L'n');
    std::fill(std::begin(m_connection.szClientDetail1), std::end(m_connection.szClientDetail1), L'o');
    std::fill(std::begin(m_connection.szClientDetail2), std::end(m_connection.szClientDetail2), L'c');
    EXPECT_EQ(ComposeConnectedText(m_settings, m_connection),
              std::wstring(780, L'f') + LINE_END + Text(IDS_NOTIFY_NAME) + std::wstring(260, L'n') +
                  LINE_END + Text(IDS_NOTIFY_ORGANISATION) + std::wstring(260, L'o') + LINE_END +
                  Text(IDS_NOTIFY_COMPUTER) + std::wstring(262, L'c'));
}

TEST_F(NotifyTextTest, PercentSignsOfTheServiceAreShownAsTheyAre)
{
    CopyText(m_connection.szClientName, L"%s %d %n 100%");
    EXPECT_NE(ComposeConnectedText(m_settings, m_connection).find(L"%s %d %n 100%\r\n"), std::wstring::npos);
}

TEST_F(NotifyTextTest, TheHeadOfTheListHoldsTheCount)
{
    for (const DWORD dwCount : {0UL, 1UL, 12UL, 0xFFFFFFFFUL})
    {
        const std::wstring text = ComposeConnectedCount(dwCount);
        EXPECT_NE(text.find(L" " + std::to_wstring(dwCount)), std::wstring::npos);
        EXPECT_EQ(text.find(L'%'), std::wstring::npos);
    }
}

TEST_F(NotifyTextTest, WhatMayCloseFollowsFormCountTypeAndSetting)
{
    struct CASE
    {
        DWORD bListClients;
        DWORD dwConnectCount;
        DWORD dwConnectionType;
        DWORD bKeepNoticeOpen;
        bool bMayClose;
    };
    const CASE aCases[] = {
        {0, 0, 0, 0, true},  {0, 0, 0, 1, true},  {0, 0, 1, 0, true},  {0, 0, 1, 1, true},
        {0, 0, 2, 1, true},  {0, 1, 1, 0, true},  {0, 9, 1, 0, true},  {0, 1, 1, 1, false},
        {0, 1, 1, 7, false}, {0, 1, 0, 0, false}, {0, 1, 0, 1, false}, {0, 1, 2, 0, false},
        {0, 1, 2, 1, false}, {0, 1, 9, 0, false}, {1, 0, 1, 0, false}, {1, 1, 1, 0, false},
        {5, 0, 0, 0, false},
    };
    for (const CASE& row : aCases)
    {
        m_connection.bListClients = row.bListClients;
        m_connection.dwConnectCount = row.dwConnectCount;
        m_connection.dwConnectionType = row.dwConnectionType;
        m_settings.bKeepNoticeOpen = row.bKeepNoticeOpen;
        EXPECT_EQ(MayNotifyClose(m_settings, m_connection), row.bMayClose)
            << row.bListClients << " " << row.dwConnectCount << " " << row.dwConnectionType << " "
            << row.bKeepNoticeOpen;
    }
}

TEST_F(NotifyTextTest, TheSoundIsHeardUnlessTheAccountOrTheSettingsForbidIt)
{
    struct CASE
    {
        bool bSystem;
        DWORD bQuiet;
        DWORD dwDefaultType;
        bool bWanted;
    };
    const CASE aCases[] = {{false, 0, 1, true}, {false, 0, 0, true},  {false, 1, 0, true},
                           {false, 1, 2, true}, {false, 1, 1, false}, {false, 9, 1, false},
                           {true, 0, 1, false}, {true, 1, 0, false},  {true, 0, 2, false}};
    for (const CASE& row : aCases)
    {
        m_settings.bQuietNotify = row.bQuiet;
        m_settings.dwDefaultConnectionType = row.dwDefaultType;
        EXPECT_EQ(IsNotifySoundWanted(m_settings, row.bSystem), row.bWanted)
            << row.bSystem << " " << row.bQuiet << " " << row.dwDefaultType;
    }
}

TEST_F(NotifyTextTest, ThePeriodIsInSecondsAndNeverWrapsRound)
{
    EXPECT_EQ(GetNotifyPeriod(0), 0U);
    EXPECT_EQ(GetNotifyPeriod(1), 1000U);
    EXPECT_EQ(GetNotifyPeriod(30), 30000U);
    EXPECT_EQ(GetNotifyPeriod(2147483), 2147483000U);
    EXPECT_EQ(GetNotifyPeriod(4294968), 2147483000U) << "not 704 milliseconds";
    EXPECT_EQ(GetNotifyPeriod(0xFFFFFFFF), 2147483000U);
}

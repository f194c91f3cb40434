#include "dialogs/CreateInvitationDialog.h"

#include "Include/BoundedText.h"
#include "resources/resource.h"
#include "tests/unit/InvitationHarness.h"
#include "tests/unit/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>

namespace
{
constexpr wchar_t LIST_KEY[] = L"Software\\Tessaran Development\\Kestrel Desk Assist\\Invitations";
constexpr wchar_t BOX_TITLE[] = L"Tessaran Kestrel Desk Assist";
constexpr int ALLOWANCES[] = {IDC_INVITE_CHAT, IDC_INVITE_VIEW, IDC_INVITE_CONTROL, IDC_INVITE_FILES};

std::optional<DWORD> StoredNumber(const wchar_t* pszName)
{
    DWORD dwValue = 0;
    DWORD cbValue = sizeof(dwValue);
    return RegGetValueW(HKEY_CURRENT_USER, LIST_KEY, pszName, RRF_RT_REG_DWORD, nullptr, &dwValue,
                        &cbValue) == ERROR_SUCCESS
               ? std::optional(dwValue)
               : std::nullopt;
}

std::wstring StoredText(const wchar_t* pszName)
{
    wchar_t szValue[520] = {};
    DWORD cbValue = sizeof(szValue);
    RegGetValueW(HKEY_CURRENT_USER, LIST_KEY, pszName, RRF_RT_REG_SZ, nullptr, szValue, &cbValue);
    return szValue;
}

LRESULT Choice(HWND hDlg, int nCombo)
{
    return SendDlgItemMessageW(hDlg, nCombo, CB_GETCURSEL, 0, 0);
}

std::wstring ListedText(HWND hDlg, int nCombo, WPARAM wItem)
{
    wchar_t szText[260] = {};
    SendDlgItemMessageW(hDlg, nCombo, CB_GETLBTEXT, wItem, reinterpret_cast<LPARAM>(szText));
    return szText;
}

void StoreProxy(const wchar_t* pszName, const std::wstring& text)
{
    HKEY hKey = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, LIST_KEY, &hKey), ERROR_SUCCESS);
    RegSetValueExW(hKey, pszName, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.data()),
                   static_cast<DWORD>(text.size() * sizeof(wchar_t)));
    RegCloseKey(hKey);
}

// What was done to controls, by their numbers.
std::vector<std::string> g_controlCalls;

BOOL WINAPI RecordCheck(HWND hDlg, int nBox, UINT uState)
{
    g_controlCalls.push_back((uState == BST_CHECKED ? "check " : "uncheck ") + std::to_string(nBox));
    SendDlgItemMessageW(hDlg, nBox, BM_SETCHECK, uState, 0);
    return TRUE;
}

decltype(&EnableWindow) g_pfnEnableWindow = nullptr;

BOOL WINAPI RecordEnable(HWND hControl, BOOL bEnable)
{
    g_controlCalls.push_back((bEnable ? "enable " : "disable ") + std::to_string(GetDlgCtrlID(hControl)));
    return g_pfnEnableWindow(hControl, bEnable);
}

class CreateInvitationDialogTest : public InvitationHarness
{
  protected:
    void Initialize(HWND hDlg) { SendMessageW(hDlg, WM_INITDIALOG, 0, reinterpret_cast<LPARAM>(&Window())); }

    // Create asks for what the text says, and the request stays here.
    void ExpectAskedFor(HWND hDlg, UINT uString, int nFocus)
    {
        m_boxes.clear();
        Click(hDlg, IDC_INVITE_CREATE);
        ASSERT_EQ(m_boxes.size(), 1U) << uString;
        EXPECT_EQ(m_boxes[0].text, m_language.Text(uString));
        EXPECT_EQ(m_boxes[0].title, BOX_TITLE);
        EXPECT_EQ(m_boxes[0].uType, 64U);
        EXPECT_EQ(m_boxes[0].hWndOwner, hDlg);
        EXPECT_EQ(GetDlgCtrlID(GetFocus()), nFocus) << uString;
        EXPECT_FALSE(AreOutputsEnabled(hDlg));
    }

    void ExpectCreated(HWND hDlg, const wchar_t* pszText)
    {
        m_boxes.clear();
        Click(hDlg, IDC_INVITE_CREATE);
        EXPECT_TRUE(m_boxes.empty());
        EXPECT_EQ(ControlText(hDlg, IDC_INVITE_TEXT), pszText);
        EXPECT_TRUE(AreOutputsEnabled(hDlg));
    }
};
} // namespace

TEST_F(CreateInvitationDialogTest, OpensWithItsDefaults)
{
    RunDialog([](HWND hDlg) {
        EXPECT_EQ(ControlText(hDlg, IDC_INVITE_PROXY_PORT), L"6127");
        EXPECT_TRUE(IsChecked(hDlg, IDC_INVITE_ONCE));
        for (const int nBox : {IDC_INVITE_CHAT, IDC_INVITE_VIEW, IDC_INVITE_CONTROL, IDC_INVITE_FILES,
                               IDC_INVITE_USE_SECRET, IDC_INVITE_USE_PROXY, IDC_INVITE_USE_PROXY_SECRET})
        {
            EXPECT_FALSE(IsChecked(hDlg, nBox)) << nBox;
            EXPECT_TRUE(IsEnabled(hDlg, nBox)) << nBox;
        }
        for (const int nGoverned :
             {IDC_INVITE_SECRET, IDC_INVITE_PROXY_HOST, IDC_INVITE_PROXY_PORT, IDC_INVITE_PROXY_SECRET})
        {
            EXPECT_FALSE(IsEnabled(hDlg, nGoverned)) << nGoverned;
        }
        EXPECT_FALSE(AreOutputsEnabled(hDlg));
        EXPECT_EQ(GetFocus(), GetDlgItem(hDlg, IDC_INVITE_NAME));
        EXPECT_EQ(LOWORD(SendMessageW(hDlg, DM_GETDEFID, 0, 0)), IDC_INVITE_CREATE);
    });
}

TEST_F(CreateInvitationDialogTest, BeginsTheSameWhateverTheTemplateHas)
{
    RunDialog([this](HWND hDlg) {
        Type(hDlg, IDC_INVITE_PROXY_PORT, L"1");
        CheckDlgButton(hDlg, IDC_INVITE_ONCE, BST_UNCHECKED);
        CheckDlgButton(hDlg, IDC_INVITE_USE_SECRET, BST_CHECKED);
        CheckDlgButton(hDlg, IDC_INVITE_CHAT, BST_CHECKED);
        EnableWindow(GetDlgItem(hDlg, IDC_INVITE_SECRET), TRUE);
        Initialize(hDlg);
        EXPECT_EQ(ControlText(hDlg, IDC_INVITE_PROXY_PORT), L"6127");
        EXPECT_TRUE(IsChecked(hDlg, IDC_INVITE_ONCE));
        EXPECT_FALSE(IsChecked(hDlg, IDC_INVITE_USE_SECRET));
        EXPECT_FALSE(IsChecked(hDlg, IDC_INVITE_CHAT));
        EXPECT_FALSE(IsEnabled(hDlg, IDC_INVITE_SECRET));
    });
}

TEST_F(CreateInvitationDialogTest, WithoutAListOfTimesNothingBehindItIsSetUp)
{
    StoreProxy(L"Proxy Last", L"proxy");
    Window().m_Settings = {};
    RunDialog([this](HWND hDlg) {
        DestroyWindow(GetDlgItem(hDlg, IDC_INVITE_EXPIRY));
        EnableWindow(GetDlgItem(hDlg, IDC_INVITE_VIEW), TRUE);
        CheckDlgButton(hDlg, IDC_INVITE_VIEW, BST_CHECKED);
        SendDlgItemMessageW(hDlg, IDC_INVITE_PROXY_HOST, CB_RESETCONTENT, 0, 0);
        Initialize(hDlg);
        EXPECT_TRUE(IsEnabled(hDlg, IDC_INVITE_VIEW) && IsChecked(hDlg, IDC_INVITE_VIEW));
        EXPECT_EQ(SendDlgItemMessageW(hDlg, IDC_INVITE_PROXY_HOST, CB_GETCOUNT, 0, 0), 0);
    });
}

TEST_F(CreateInvitationDialogTest, WithoutABoxForTheProxyNothingIsRecalled)
{
    StoreProxy(L"Proxy Last", L"proxy");
    RunDialog([this](HWND hDlg) {
        DestroyWindow(GetDlgItem(hDlg, IDC_INVITE_PROXY_HOST));
        const LogCapture capture("CreateInvitationDialog");
        Initialize(hDlg);
        EXPECT_THAT(capture.Texts(),
                    testing::Not(testing::Contains("TRACE LoadInvitationProxyList entering.")));
        EXPECT_EQ(ControlText(hDlg, IDC_INVITE_PROXY_PORT), L"6127");
    });
}

TEST_F(CreateInvitationDialogTest, OffersTwelveTimesInOrderWithTheSecondOneChosen)
{
    RunDialog([this](HWND hDlg) {
        ASSERT_EQ(SendDlgItemMessageW(hDlg, IDC_INVITE_EXPIRY, CB_GETCOUNT, 0, 0), 12);
        for (UINT uItem = 0; uItem < 12; ++uItem)
        {
            EXPECT_EQ(ListedText(hDlg, IDC_INVITE_EXPIRY, uItem), m_language.Text(34 + uItem));
        }
        EXPECT_EQ(Choice(hDlg, IDC_INVITE_EXPIRY), 1);
    });
}

TEST_F(CreateInvitationDialogTest, SecretsAreMaskedAndInTheirOwnFont)
{
    RunDialog([](HWND hDlg) {
        for (const int nSecret : {IDC_INVITE_SECRET, IDC_INVITE_PROXY_SECRET})
        {
            const HWND hSecret = GetDlgItem(hDlg, nSecret);
            EXPECT_NE(GetWindowLongPtrW(hSecret, GWL_STYLE) & ES_PASSWORD, 0) << nSecret;
            LOGFONTW font = {};
            GetObjectW(reinterpret_cast<HGDIOBJ>(SendMessageW(hSecret, WM_GETFONT, 0, 0)), sizeof(font),
                       &font);
            EXPECT_EQ(font.lfHeight, 14);
            EXPECT_EQ(font.lfWeight, 700);
            EXPECT_EQ(font.lfPitchAndFamily, 49);
            EXPECT_STREQ(font.lfFaceName, L"Microsoft Sans Serif");
        }
    });
}

TEST_F(CreateInvitationDialogTest, WhatTheSettingsForbidCannotBeChecked)
{
    for (const int nForbidden : ALLOWANCES)
    {
        MSG_TRAYICON_SETTINGS& settings = Window().m_Settings;
        settings.bInviteOption1010 = nForbidden != 1010 ? 1 : 0;
        settings.bInviteOption1015 = nForbidden != 1015 ? 7 : 0;
        settings.bInviteOption1016 = nForbidden != 1016 ? 1 : 0;
        settings.bInviteOption1017 = nForbidden != 1017 ? 1 : 0;
        RunDialog([&](HWND hDlg) {
            for (const int nBox : ALLOWANCES)
            {
                EXPECT_EQ(IsEnabled(hDlg, nBox), nBox != nForbidden);
                EXPECT_FALSE(IsChecked(hDlg, nBox));
            }
        });
    }
}

TEST_F(CreateInvitationDialogTest, WhatIsForbiddenIsUncheckedAndDisabledInTurn)
{
    RunDialog([this](HWND hDlg) {
        for (const int nBox : ALLOWANCES)
        {
            CheckDlgButton(hDlg, nBox, BST_CHECKED);
        }
        Window().m_Settings = {};
        const ImportHook check("user32.dll", "CheckDlgButton", &RecordCheck);
        const ImportHook enable("user32.dll", "EnableWindow", &RecordEnable);
        g_pfnEnableWindow = enable.Original();
        g_controlCalls.clear();
        Initialize(hDlg);
        EXPECT_THAT(g_controlCalls,
                    testing::ElementsAre("check 1006", "uncheck 1009", "uncheck 1010", "disable 1011",
                                         "uncheck 1010", "disable 1010", "uncheck 1015", "disable 1015",
                                         "uncheck 1017", "disable 1017", "uncheck 1016", "disable 1016"));
        for (const int nBox : ALLOWANCES)
        {
            EXPECT_FALSE(IsChecked(hDlg, nBox)) << nBox;
        }
    });
}

TEST_F(CreateInvitationDialogTest, WithEverythingForbiddenEachAttemptIsRefused)
{
    Window().m_Settings = {};
    RunDialog([this](HWND hDlg) {
        Type(hDlg, IDC_INVITE_NAME, L"Ann");
        SetFocus(GetDlgItem(hDlg, IDC_INVITE_CREATE));
        for (int nAttempt = 0; nAttempt < 2; ++nAttempt)
        {
            m_boxes.clear();
            Click(hDlg, IDC_INVITE_CREATE);
            ASSERT_EQ(m_boxes.size(), 1U);
            EXPECT_EQ(m_boxes[0].text, m_language.Text(68));
        }
    });
    EXPECT_TRUE(Requests(sizeof(MSG_UDP_HEADER)).empty());
}

TEST_F(CreateInvitationDialogTest, WhatIsMissingIsAskedForOneByOneAndNothingIsSentBefore)
{
    MakeInvitations("invitation");
    RunDialog([this](HWND hDlg) {
        for (const int nBox : {IDC_INVITE_USE_SECRET, IDC_INVITE_USE_PROXY, IDC_INVITE_USE_PROXY_SECRET})
        {
            Click(hDlg, nBox);
        }
        Type(hDlg, IDC_INVITE_PROXY_PORT, L"");
        ExpectAskedFor(hDlg, 48, IDC_INVITE_NAME);
        Type(hDlg, IDC_INVITE_NAME, L"Ann");
        SetFocus(GetDlgItem(hDlg, IDC_INVITE_CREATE));
        ExpectAskedFor(hDlg, 47, IDC_INVITE_CREATE); // no control gets the focus
        Type(hDlg, IDC_INVITE_SECRET, L"hunter2");
        ExpectAskedFor(hDlg, 68, IDC_INVITE_VIEW);
        Click(hDlg, IDC_INVITE_CHAT);
        m_boxes.clear();
        Click(hDlg, IDC_INVITE_CREATE);
        ASSERT_EQ(m_boxes.size(), 1U);
        EXPECT_EQ(m_boxes[0].text, m_language.Text(67));
        EXPECT_TRUE(IsChild(GetDlgItem(hDlg, IDC_INVITE_PROXY_HOST), GetFocus())) << "the box's edit control";
        Type(hDlg, IDC_INVITE_PROXY_HOST, L"proxy");
        ExpectAskedFor(hDlg, 65, IDC_INVITE_PROXY_PORT);
        Type(hDlg, IDC_INVITE_PROXY_PORT, L"8080");
        ExpectAskedFor(hDlg, 66, IDC_INVITE_PROXY_SECRET);
        EXPECT_FALSE(StoredNumber(L"Proxy Port").has_value()) << "nothing is remembered before";
        Type(hDlg, IDC_INVITE_PROXY_SECRET, L"secret");
        ExpectCreated(hDlg, L"invitation");
    });
    EXPECT_EQ(Requests(sizeof(MSG_UDP_HEADER)).size(), 1U);
}

TEST_F(CreateInvitationDialogTest, TheRequestSaysAllThatWasFilledIn)
{
    MakeInvitations("invitation");
    RunDialog([this](HWND hDlg) {
        Type(hDlg, IDC_INVITE_NAME, L"Ann & Bob");
        for (const int nBox :
             {IDC_INVITE_ONCE, IDC_INVITE_CHAT, IDC_INVITE_VIEW, IDC_INVITE_CONTROL, IDC_INVITE_FILES,
              IDC_INVITE_USE_SECRET, IDC_INVITE_USE_PROXY, IDC_INVITE_USE_PROXY_SECRET})
        {
            Click(hDlg, nBox);
        }
        SendDlgItemMessageW(hDlg, IDC_INVITE_EXPIRY, CB_SETCURSEL, 11, 0);
        Type(hDlg, IDC_INVITE_SECRET, L"hunter2");
        Type(hDlg, IDC_INVITE_PROXY_HOST, L"proxy.example");
        Type(hDlg, IDC_INVITE_PROXY_PORT, L"8080");
        Type(hDlg, IDC_INVITE_PROXY_SECRET, L"proxy \u00e4\u00df");
        ExpectCreated(hDlg, L"invitation");
    });
    MSG_UDP_CREATE_INVITATION expected = {};
    expected.dwRequest = UDP_REQUEST_CREATE_INVITATION;
    CopyText(expected.szInvitationName, L"Ann & Bob");
    expected.bOption1010 = expected.bOption1015 = expected.bOption1016 = expected.bOption1017 = 1;
    expected.dwExpirySelection = 11;
    expected.bUseInvitationSecret = 1;
    CopyText(expected.szInvitationSecret, L"hunter2");
    expected.bUseProxy = 1;
    CopyText(expected.szProxyHost, L"proxy.example");
    expected.dwProxyPort = 8080;
    expected.bUseProxySecret = 1;
    CopyText(expected.szProxySecret, L"proxy \u00e4\u00df");
    const auto requests = Requests(sizeof(expected));
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(memcmp(requests[0].data(), &expected, sizeof(expected)), 0);
}

TEST_F(CreateInvitationDialogTest, EachBoxHasAFieldOfItsOwn)
{
    MakeInvitations("invitation");
    for (const int nBox : ALLOWANCES)
    {
        RunDialog([&](HWND hDlg) {
            Type(hDlg, IDC_INVITE_NAME, L"Ann");
            Click(hDlg, nBox);
            ExpectCreated(hDlg, L"invitation");
        });
        MSG_UDP_CREATE_INVITATION request = {};
        memcpy(&request, Requests(sizeof(request)).back().data(), sizeof(request));
        EXPECT_EQ(request.bOption1010, nBox == 1010 ? 1U : 0U);
        EXPECT_EQ(request.bOption1015, nBox == 1015 ? 1U : 0U);
        EXPECT_EQ(request.bOption1016, nBox == 1016 ? 1U : 0U);
        EXPECT_EQ(request.bOption1017, nBox == 1017 ? 1U : 0U);
        EXPECT_EQ(request.bOption1006, 1U);
        EXPECT_EQ(request.dwExpirySelection, 1U);
    }
}

TEST_F(CreateInvitationDialogTest, WithoutAChosenTimeTheRequestHasNone)
{
    MakeInvitations("invitation");
    RunDialog([this](HWND hDlg) {
        FillIn(hDlg);
        SendDlgItemMessageW(hDlg, IDC_INVITE_EXPIRY, CB_SETCURSEL, static_cast<WPARAM>(-1), 0);
        ExpectCreated(hDlg, L"invitation");
    });
    MSG_UDP_CREATE_INVITATION request = {};
    const auto requests = Requests(sizeof(request));
    ASSERT_EQ(requests.size(), 1U);
    memcpy(&request, requests[0].data(), sizeof(request));
    EXPECT_EQ(request.dwExpirySelection, 0U);
}

TEST_F(CreateInvitationDialogTest, AProxysSecretIsAskedForWithoutAProxyToo)
{
    RunDialog([this](HWND hDlg) {
        FillIn(hDlg);
        Click(hDlg, IDC_INVITE_USE_PROXY_SECRET);
        ExpectAskedFor(hDlg, 66, IDC_INVITE_PROXY_SECRET);
    });
}

TEST_F(CreateInvitationDialogTest, WhatAnUncheckedBoxGovernsIsLeftOut)
{
    MakeInvitations("invitation");
    RunDialog([this](HWND hDlg) {
        FillIn(hDlg);
        Type(hDlg, IDC_INVITE_SECRET, L"hunter2");
        Type(hDlg, IDC_INVITE_PROXY_HOST, L"proxy");
        Type(hDlg, IDC_INVITE_PROXY_SECRET, L"hunter2");
        ExpectCreated(hDlg, L"invitation");
    });
    MSG_UDP_CREATE_INVITATION request = {};
    memcpy(&request, Requests(sizeof(request)).back().data(), sizeof(request));
    EXPECT_STREQ(request.szInvitationSecret, L"");
    EXPECT_STREQ(request.szProxyHost, L"");
    EXPECT_STREQ(request.szProxySecret, L"");
    EXPECT_EQ(request.dwProxyPort, 0U);
}

TEST_F(CreateInvitationDialogTest, AProxyComesBackTheNextTimeAndItsSecretDoesNot)
{
    MakeInvitations("invitation");
    RunDialog([this](HWND hDlg) {
        FillIn(hDlg);
        Click(hDlg, IDC_INVITE_USE_PROXY);
        Click(hDlg, IDC_INVITE_USE_PROXY_SECRET);
        Type(hDlg, IDC_INVITE_PROXY_HOST, L"proxy.example");
        Type(hDlg, IDC_INVITE_PROXY_PORT, L"8080");
        Type(hDlg, IDC_INVITE_PROXY_SECRET, L"hunter2");
        ExpectCreated(hDlg, L"invitation");
    });
    EXPECT_EQ(StoredText(L"Proxy Host 0"), L"proxy.example");
    EXPECT_EQ(StoredText(L"Proxy 0"), L"") << "read under another name than written";
    RunDialog([](HWND hDlg) {
        EXPECT_EQ(Choice(hDlg, IDC_INVITE_PROXY_HOST), 0);
        EXPECT_EQ(SendDlgItemMessageW(hDlg, IDC_INVITE_PROXY_HOST, CB_GETCOUNT, 0, 0), 1);
        EXPECT_EQ(ListedText(hDlg, IDC_INVITE_PROXY_HOST, 0), L"proxy.example");
        EXPECT_EQ(ControlText(hDlg, IDC_INVITE_PROXY_PORT), L"8080");
        EXPECT_EQ(ControlText(hDlg, IDC_INVITE_PROXY_SECRET), L"");
        for (const int nControl : {IDC_INVITE_PROXY_HOST, IDC_INVITE_PROXY_PORT, IDC_INVITE_PROXY_SECRET})
        {
            EXPECT_TRUE(IsEnabled(hDlg, nControl)) << nControl;
        }
        EXPECT_TRUE(IsChecked(hDlg, IDC_INVITE_USE_PROXY) && IsChecked(hDlg, IDC_INVITE_USE_PROXY_SECRET));
    });
}

TEST_F(CreateInvitationDialogTest, AnInvitationWithoutAProxyStoresPortZero)
{
    MakeInvitations("invitation");
    RunDialog([this](HWND hDlg) {
        FillIn(hDlg);
        ExpectCreated(hDlg, L"invitation");
    });
    EXPECT_EQ(StoredNumber(L"Proxy Port"), 0U);
    EXPECT_EQ(StoredNumber(L"Use Proxy"), 0U);
    EXPECT_EQ(StoredNumber(L"Use Proxy Secret"), 0U);
    EXPECT_EQ(StoredText(L"Proxy Last"), L"");
    RunDialog([](HWND hDlg) { EXPECT_EQ(ControlText(hDlg, IDC_INVITE_PROXY_PORT), L"0"); });
}

TEST_F(CreateInvitationDialogTest, AListedProxyLongerThanItsRoomEndsTheList)
{
    StoreProxy(L"Proxy 0", std::wstring(259, L'p'));
    StoreProxy(L"Proxy 1", std::wstring(261, L'q'));
    StoreProxy(L"Proxy 2", L"never read");
    RunDialog([&](HWND hDlg) {
        ASSERT_EQ(SendDlgItemMessageW(hDlg, IDC_INVITE_PROXY_HOST, CB_GETCOUNT, 0, 0), 1);
        EXPECT_EQ(SendDlgItemMessageW(hDlg, IDC_INVITE_PROXY_HOST, CB_GETLBTEXTLEN, 0, 0), 259);
        EXPECT_EQ(ControlText(hDlg, IDC_INVITE_PROXY_PORT), L"6127");
    });
}

TEST_F(CreateInvitationDialogTest, BoxesEnableWhatTheyGovern)
{
    const std::pair<int, std::vector<int>> governed[] = {
        {IDC_INVITE_USE_SECRET, {IDC_INVITE_SECRET}},
        {IDC_INVITE_USE_PROXY, {IDC_INVITE_PROXY_HOST, IDC_INVITE_PROXY_PORT}},
        {IDC_INVITE_USE_PROXY_SECRET, {IDC_INVITE_PROXY_SECRET}}};
    RunDialog([&](HWND hDlg) {
        for (const auto& [nClicked, own] : governed)
        {
            for (const bool bChecked : {true, false})
            {
                Click(hDlg, nClicked);
                for (const auto& [nBox, others] : governed)
                {
                    for (const int nControl : others)
                    {
                        EXPECT_EQ(IsEnabled(hDlg, nControl), bChecked && nBox == nClicked) << nControl;
                    }
                }
            }
        }
    });
}

TEST_F(CreateInvitationDialogTest, EachSuccessReplacesTheText)
{
    RunDialog([this](HWND hDlg) {
        FillIn(hDlg);
        MakeInvitations("the first");
        ExpectCreated(hDlg, L"the first");
        MakeInvitations("the second");
        ExpectCreated(hDlg, L"the second");
    });
}

TEST_F(CreateInvitationDialogTest, WhatIsAskedForDisablesTheWaysOutOfTheInvitationBefore)
{
    MakeInvitations("invitation");
    RunDialog([this](HWND hDlg) {
        FillIn(hDlg);
        ExpectCreated(hDlg, L"invitation");
        Type(hDlg, IDC_INVITE_NAME, L"");
        ExpectAskedFor(hDlg, 48, IDC_INVITE_NAME);
        EXPECT_EQ(ControlText(hDlg, IDC_INVITE_TEXT), L"invitation");
    });
    EXPECT_EQ(Requests(sizeof(MSG_UDP_HEADER)).size(), 1U);
}

TEST_F(CreateInvitationDialogTest, AProxyIsRememberedBeforeTheServiceIsAsked)
{
    INVITATION_ANSWER refusal;
    refusal.mode = ANSWER_MODE::Answer;
    refusal.dwError = ERROR_ACCESS_DENIED;
    AnswerInvitations(refusal);
    RunDialog([this](HWND hDlg) {
        FillIn(hDlg);
        Click(hDlg, IDC_INVITE_USE_PROXY);
        Type(hDlg, IDC_INVITE_PROXY_HOST, L"proxy.example");
        Type(hDlg, IDC_INVITE_PROXY_PORT, L"8080");
        m_whileBoxIsOpen = [] { // the refusal's
            EXPECT_EQ(StoredText(L"Proxy Last"), L"proxy.example");
            EXPECT_EQ(StoredNumber(L"Proxy Port"), 8080U);
        };
        Click(hDlg, IDC_INVITE_CREATE);
        EXPECT_EQ(m_boxes.size(), 1U);
    });
}

TEST_F(CreateInvitationDialogTest, AFailedCreationKeepsTheOldTextAndDisablesTheWaysOut)
{
    RunDialog([this](HWND hDlg) {
        FillIn(hDlg);
        MakeInvitations("the first");
        ExpectCreated(hDlg, L"the first");
        INVITATION_ANSWER refusal;
        refusal.mode = ANSWER_MODE::Answer;
        refusal.dwError = ERROR_ACCESS_DENIED;
        AnswerInvitations(refusal);
        SetFocus(GetDlgItem(hDlg, IDC_INVITE_TEXT));
        Click(hDlg, IDC_INVITE_CREATE);
        EXPECT_FALSE(AreOutputsEnabled(hDlg));
        EXPECT_EQ(ControlText(hDlg, IDC_INVITE_TEXT), L"the first");
        EXPECT_EQ(GetFocus(), GetDlgItem(hDlg, IDC_INVITE_CREATE)) << "the keyboard still works";
        Type(hDlg, IDC_INVITE_NAME, L"");
        ExpectAskedFor(hDlg, 48, IDC_INVITE_NAME);
    });
}

TEST_F(CreateInvitationDialogTest, NoMoreCanBeTypedThanTheRequestHolds)
{
    RunDialog([](HWND hDlg) {
        for (const int nControl : {IDC_INVITE_NAME, IDC_INVITE_SECRET, IDC_INVITE_PROXY_SECRET})
        {
            EXPECT_EQ(SendDlgItemMessageW(hDlg, nControl, EM_GETLIMITTEXT, 0, 0), 259) << nControl;
        }
        EXPECT_EQ(SendDlgItemMessageW(hDlg, IDC_INVITE_PROXY_PORT, EM_GETLIMITTEXT, 0, 0), 63);
    });
}

TEST_F(CreateInvitationDialogTest, EndsWithZeroHoweverItIsClosed)
{
    for (const auto& way : {std::pair<UINT, WPARAM>{WM_COMMAND, IDOK}, {WM_COMMAND, IDCANCEL}, {WM_CLOSE, 0}})
    {
        EXPECT_EQ(RunDialog([&](HWND hDlg) {
                      EXPECT_EQ(g_hCreateInvitationDlg, hDlg);
                      PostMessageW(hDlg, way.first, way.second, 0);
                  }),
                  0)
            << way.first;
        EXPECT_EQ(g_hCreateInvitationDlg, nullptr);
    }
}

TEST_F(CreateInvitationDialogTest, DeletionIsAskedForFirstAndNoChangesNothing)
{
    DELETION_ANSWER answer;
    answer.mode = ANSWER_MODE::Answer;
    m_service.SetDeletionAnswer(answer);
    RunDialog([this](HWND hDlg) {
        m_nBoxAnswer = IDNO;
        Click(hDlg, IDC_INVITE_DELETE_ALL);
        ASSERT_EQ(m_boxes.size(), 1U);
        EXPECT_EQ(m_boxes[0].text, m_language.Text(49));
        EXPECT_EQ(m_boxes[0].title, BOX_TITLE);
        EXPECT_EQ(m_boxes[0].uType, 292U);
        m_nBoxAnswer = IDYES;
        Click(hDlg, IDC_INVITE_DELETE_ALL);
        EXPECT_EQ(m_boxes.size(), 3U);
    });
    EXPECT_EQ(Requests(sizeof(MSG_UDP_HEADER)).size(), 1U);
}

TEST_F(CreateInvitationDialogTest, TheServicesMessageWaitsForTheResultOfADeletion)
{
    DELETION_ANSWER answer;
    answer.mode = ANSWER_MODE::Answer;
    m_service.SetDeletionAnswer(answer);
    CopyText(Window().m_szServiceMessage, L"from the service");
    RunDialog([this](HWND hDlg) {
        m_whileBoxIsOpen = [this] { // the question's
            m_whileBoxIsOpen = [this] { SendMessageW(Window().m_hWnd, WM_SHOW_SERVICE_MESSAGE, 0, 0); };
        };
        Click(hDlg, IDC_INVITE_DELETE_ALL);
        ASSERT_EQ(m_boxes.size(), 2U) << "question and result";
        PumpMessages();
        ASSERT_EQ(m_boxes.size(), 3U);
        EXPECT_EQ(m_boxes[2].text, L"from the service");
    });
}

TEST_F(CreateInvitationDialogTest, WhileATimedBoxIsUpTheResultOfADeletionHasNoTimeOut)
{
    DELETION_ANSWER answer;
    answer.mode = ANSWER_MODE::Answer;
    m_service.SetDeletionAnswer(answer);
    Window().m_bBoxOpen = true;
    RunDialog([](HWND hDlg) { Click(hDlg, IDC_INVITE_DELETE_ALL); });
    EXPECT_EQ(m_boxes.size(), 2U);
    EXPECT_TRUE(m_trace.Calls("timer 0 30000").empty());
    Window().m_bBoxOpen = false;
}

TEST_F(CreateInvitationDialogTest, LogsEveryMessageAndWhatIsEnabled)
{
    const LogCapture capture("CreateInvitationDialog", log4cxx::Level::getDebug());
    MakeInvitations("invitation");
    RunDialog([](HWND hDlg) {
        FillIn(hDlg);
        Click(hDlg, IDC_INVITE_CREATE);
    });
    EXPECT_THAT(capture.Texts(), testing::Contains("DEBUG iMsg=272"));
    EXPECT_THAT(capture.Texts(), testing::Contains("DEBUG bEnable=0"));
    EXPECT_THAT(capture.Texts(), testing::Contains("DEBUG bEnable=1"));
}

TEST_F(CreateInvitationDialogTest, ManyInARowLeaveNothingBehind)
{
    ExpectNothingLeftBy(100, [this](int) { RunDialog([](HWND) {}); });
}

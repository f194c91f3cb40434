#include "dialogs/ConnectToClientDialog.h"

#include "Include/BoundedText.h"
#include "Include/Product.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/unit/BoxTrace.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/LogCapture.h"
#include "tests/unit/ModalScenario.h"
#include "tests/unit/RegistrySandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace
{
constexpr wchar_t LIST_KEY[] = L"Software\\Tessaran Development\\Kestrel Desk Assist\\Reverse Connection";
constexpr DWORD UNSET_PORT = 0xFFFFFFFF;

using Items = std::vector<std::pair<std::wstring, DWORD>>;

/// One value as it is stored.
struct STORED
{
    DWORD dwType = REG_NONE;
    std::vector<BYTE> bytes;
};

class ConnectToClientTest : public DialogHarness
{
  protected:
    void SetUp() override
    {
        DialogHarness::SetUp();
        m_record.bProxyAllowed = 1;
    }

    void TearDown() override
    {
        m_hDialog.reset();
        DialogHarness::TearDown();
    }

    static void Store(const std::wstring& name, DWORD dwType, const void* pData, size_t cbData)
    {
        ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, LIST_KEY, name.c_str(), dwType, pData,
                                  static_cast<DWORD>(cbData)),
                  ERROR_SUCCESS);
    }
    static void Store(const std::wstring& name, DWORD dwNumber)
    {
        Store(name, REG_DWORD, &dwNumber, sizeof(dwNumber));
    }
    // Without a terminator: the system would add one that it finds behind the text.
    static void Store(const std::wstring& name, const std::wstring& text)
    {
        const std::wstring unterminated = text + L'#';
        Store(name, REG_SZ, unterminated.data(), text.size() * sizeof(wchar_t));
    }
    static void StoreHosts(size_t nHosts)
    {
        for (size_t nHost = 0; nHost < nHosts; ++nHost)
        {
            Store(L"Host " + std::to_wstring(nHost), L"host" + std::to_wstring(nHost));
            Store(L"Port " + std::to_wstring(nHost), static_cast<DWORD>(7000 + nHost));
        }
    }

    static std::optional<STORED> Read(const std::wstring& name)
    {
        STORED stored;
        DWORD cbData = 0;
        CRegKey hKey;
        if (RegOpenKeyExW(HKEY_CURRENT_USER, LIST_KEY, 0, KEY_READ, hKey.put()) != ERROR_SUCCESS ||
            RegQueryValueExW(hKey.get(), name.c_str(), nullptr, &stored.dwType, nullptr, &cbData) !=
                ERROR_SUCCESS)
        {
            return std::nullopt;
        }
        stored.bytes.resize(cbData);
        RegQueryValueExW(hKey.get(), name.c_str(), nullptr, nullptr, stored.bytes.data(), &cbData);
        return stored;
    }
    static std::optional<DWORD> Number(const std::wstring& name)
    {
        const std::optional<STORED> stored = Read(name);
        if (!stored || stored->dwType != REG_DWORD || stored->bytes.size() != sizeof(DWORD))
        {
            return std::nullopt;
        }
        DWORD dwNumber = 0;
        std::copy(stored->bytes.begin(), stored->bytes.end(), reinterpret_cast<BYTE*>(&dwNumber));
        return dwNumber;
    }
    // The system has added the terminator that it found behind the text.
    static std::optional<std::wstring> Text(const std::wstring& name)
    {
        const std::optional<STORED> stored = Read(name);
        if (!stored || stored->dwType != REG_SZ)
        {
            return std::nullopt;
        }
        std::wstring text(stored->bytes.size() / sizeof(wchar_t), L'\0');
        std::copy(stored->bytes.begin(), stored->bytes.end(), reinterpret_cast<BYTE*>(text.data()));
        return std::wstring(FixedText(text.data(), text.size()));
    }

    // The dialog, without its modal loop.
    HWND Open()
    {
        m_hDialog.reset();
        m_hDialog.reset(CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_CONNECT_TO_CLIENT),
                                           nullptr, ConnectToClient, reinterpret_cast<LPARAM>(&m_record)));
        EXPECT_TRUE(m_hDialog);
        ShowWindow(m_hDialog.get(), SW_SHOW);
        return m_hDialog.get();
    }

    INT_PTR Run(const std::function<void(HWND)>& scenario)
    {
        m_hDialog.reset(); // the scenario would find it first
        const ModalScenario modal(scenario);
        const INT_PTR nResult =
            DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_CONNECT_TO_CLIENT), Window().m_hWnd,
                            ConnectToClient, reinterpret_cast<LPARAM>(&m_record));
        EXPECT_TRUE(modal.HasRun());
        PumpMessages();
        return nResult;
    }

    static void Type(HWND hDialog, int nControl, const std::wstring& text)
    {
        SetDlgItemTextW(hDialog, nControl, text.c_str());
    }
    static void Click(HWND hDialog, int nControl) { SendDlgItemMessageW(hDialog, nControl, BM_CLICK, 0, 0); }
    static void Select(HWND hDialog, int nCombo, WPARAM wItem)
    {
        SendDlgItemMessageW(hDialog, nCombo, CB_SETCURSEL, wItem, 0);
        SendMessageW(hDialog, WM_COMMAND, MAKEWPARAM(nCombo, CBN_SELENDOK),
                     reinterpret_cast<LPARAM>(GetDlgItem(hDialog, nCombo)));
    }
    static bool IsEnabled(HWND hDialog, int nControl)
    {
        return IsWindowEnabled(GetDlgItem(hDialog, nControl)) != FALSE;
    }
    static bool IsChecked(HWND hDialog, int nBox) { return IsDlgButtonChecked(hDialog, nBox) == BST_CHECKED; }

    static Items ItemsOf(HWND hDialog, int nCombo)
    {
        Items items;
        const HWND hCombo = GetDlgItem(hDialog, nCombo);
        const LRESULT nItems = SendMessageW(hCombo, CB_GETCOUNT, 0, 0);
        for (LRESULT nItem = 0; nItem < nItems; ++nItem)
        {
            const WPARAM wItem = static_cast<WPARAM>(nItem);
            std::wstring text(static_cast<size_t>(SendMessageW(hCombo, CB_GETLBTEXTLEN, wItem, 0)) + 1,
                              L'\0');
            text.resize(static_cast<size_t>(
                SendMessageW(hCombo, CB_GETLBTEXT, wItem, reinterpret_cast<LPARAM>(text.data()))));
            items.emplace_back(text, static_cast<DWORD>(SendMessageW(hCombo, CB_GETITEMDATA, wItem, 0)));
        }
        return items;
    }
    static Items Hosts(HWND hDialog) { return ItemsOf(hDialog, IDC_CONNECT_HOST); }

    // OK is refused with that text, and the focus goes there.
    void ExpectRefused(HWND hDialog, UINT uString, int nControl)
    {
        m_boxes.Forget();
        Click(hDialog, IDOK);
        ASSERT_EQ(m_boxes.Boxes().size(), 1U) << uString;
        const SHOWN_MESSAGE& box = m_boxes.Boxes()[0];
        EXPECT_EQ(box.text, m_language.Text(uString));
        EXPECT_EQ(box.title, PRODUCT_NAME);
        EXPECT_EQ(box.uType, 64U);
        EXPECT_EQ(box.hWndOwner, hDialog);
        const HWND hFocus = GetFocus();
        const HWND hControl = GetDlgItem(hDialog, nControl);
        EXPECT_TRUE(hFocus == hControl || GetParent(hFocus) == hControl) << nControl;
        EXPECT_TRUE(IsWindowVisible(hDialog)) << "it stays open";
        EXPECT_FALSE(Read(L"Port")) << "and nothing is stored";
    }

    RegistrySandbox m_sandbox{HKEY_CURRENT_USER};
    BoxTrace m_boxes;
    MSG_REVERSE_CONNECTION m_record = {};
    CWindow m_hDialog;
};
} // namespace

TEST_F(ConnectToClientTest, FirstUseShowsTheDefaultPortsAndEmptyLists)
{
    const HWND hDialog = Open();
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PORT), L"6130");
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PROXY_PORT), L"6127");
    EXPECT_TRUE(Hosts(hDialog).empty());
    EXPECT_TRUE(ItemsOf(hDialog, IDC_CONNECT_PROXY_HOST).empty());
    for (const int nBox : {IDC_CONNECT_USE_PROXY, IDC_CONNECT_USE_PROXY_SECRET})
    {
        EXPECT_FALSE(IsChecked(hDialog, nBox));
        EXPECT_TRUE(IsEnabled(hDialog, nBox));
    }
    for (const int nControl : {IDC_CONNECT_PROXY_HOST, IDC_CONNECT_PROXY_PORT, IDC_CONNECT_PROXY_SECRET})
    {
        EXPECT_FALSE(IsEnabled(hDialog, nControl)) << nControl;
    }
    EXPECT_EQ(LoadHostList(GetDlgItem(hDialog, IDC_CONNECT_HOST), hDialog), 0) << "there is no key";
    EXPECT_EQ(LoadProxyList(GetDlgItem(hDialog, IDC_CONNECT_PROXY_HOST), hDialog), 0);
}

TEST_F(ConnectToClientTest, AMissingPositionEndsTheList)
{
    StoreHosts(3);
    Store(L"Host 4", L"host4");
    EXPECT_EQ(Hosts(Open()), (Items{{L"host0", 7000}, {L"host1", 7001}, {L"host2", 7002}}));
}

TEST_F(ConnectToClientTest, AnEmptyHostIsSkippedAndTheListGoesOn)
{
    StoreHosts(4);
    Store(L"Host 2", L"");
    EXPECT_EQ(Hosts(Open()), (Items{{L"host0", 7000}, {L"host1", 7001}, {L"host3", 7003}}));
}

TEST_F(ConnectToClientTest, FiftyOneHostsAreReadAtMost)
{
    size_t nStored = 0;
    for (const auto& [nHosts, nRead] :
         {std::pair<size_t, size_t>{1, 1}, {50, 50}, {51, 51}, {52, 51}, {60, 51}})
    {
        StoreHosts(nHosts);
        nStored = nHosts;
        EXPECT_EQ(Hosts(Open()).size(), nRead) << nStored;
    }
}

TEST_F(ConnectToClientTest, FiftyTwoHostsAreWrittenAtMost)
{
    const HWND hDialog = Open();
    const HWND hCombo = GetDlgItem(hDialog, IDC_CONNECT_HOST);
    for (int nHost = 0; nHost < 60; ++nHost)
    {
        const std::wstring host = L"host" + std::to_wstring(nHost);
        SendMessageW(hCombo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(host.c_str()));
    }
    EXPECT_EQ(SaveHostList(hCombo, L"host3", 4711), 1);
    EXPECT_EQ(Text(L"Host 51"), L"host51");
    EXPECT_EQ(Number(L"Port 51"), 0U);
    EXPECT_FALSE(Read(L"Host 52"));
    EXPECT_EQ(Text(L"Last"), L"host3");
    EXPECT_EQ(Number(L"Port"), 4711U);
}

TEST_F(ConnectToClientTest, TheOrderIsThatOfTheListAndANewHostComesLast)
{
    Store(L"Host 0", L"zulu");
    Store(L"Host 1", L"alpha");
    EXPECT_EQ(Run([](HWND hDialog) {
                  Type(hDialog, IDC_CONNECT_HOST, L"mike");
                  Click(hDialog, IDOK);
              }),
              1);
    EXPECT_EQ(Text(L"Host 0"), L"zulu");
    EXPECT_EQ(Text(L"Host 1"), L"alpha");
    EXPECT_EQ(Text(L"Host 2"), L"mike");
}

TEST_F(ConnectToClientTest, AValueOfAWrongTypeOrSizeCountsAsMissing)
{
    StoreHosts(3);
    Store(L"Port 0", L"7000");
    Store(L"Port 1", REG_BINARY, "abcd", 4);
    Store(L"Port 2", REG_DWORD, "abcdefgh", 8);
    Store(L"Port", L"1234");
    Store(L"Last", 5);
    HWND hDialog = Open();
    EXPECT_EQ(Hosts(hDialog), (Items{{L"host0", 6127}, {L"host1", 6127}, {L"host2", 6127}}));
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PORT), L"6130");
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_HOST), L"");
    Store(L"Host 1", 0x00410041);
    hDialog = Open();
    EXPECT_EQ(Hosts(hDialog), (Items{{L"host0", 6127}}));
    Store(L"Host 0", REG_SZ, L"x", 1); // half a character
    EXPECT_TRUE(Hosts(Open()).empty());
}

TEST_F(ConnectToClientTest, AHostMayHaveAThousandAndTwentyFourCharacters)
{
    const std::wstring longest(1024, L'h');
    Store(L"Host 0", longest);
    Store(L"Host 1", longest + L'i'); // fills the buffer without a terminator
    Store(L"Host 2", longest + L"ij");
    Store(L"Host 3", L"host3");
    const Items items = Hosts(Open());
    ASSERT_EQ(items.size(), 2U) << "too long is missing";
    EXPECT_EQ(items[0].first, longest);
    EXPECT_EQ(items[1].first, longest) << "cut";
    EXPECT_EQ(Run([&](HWND hDialog) {
                  Type(hDialog, IDC_CONNECT_HOST, longest + L"more");
                  Click(hDialog, IDOK);
              }),
              1);
    EXPECT_EQ(FixedText(m_record.szHost), longest);
    EXPECT_EQ(Text(L"Last"), longest);
}

TEST_F(ConnectToClientTest, ATerminatorThatSomebodyElseHasStoredIsNoPartOfTheHost)
{
    Store(L"Host 0", REG_SZ, L"host0\0tail", 11 * sizeof(wchar_t));
    EXPECT_EQ(Hosts(Open()), (Items{{L"host0", 6127}}));
}

TEST_F(ConnectToClientTest, TheLastHostIsSelectedWithTheLastPort)
{
    StoreHosts(2);
    Store(L"Last", L"HOST1");
    Store(L"Port", 4711);
    const HWND hDialog = Open();
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_HOST), L"host1");
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PORT), L"4711") << "not the item's own";
    EXPECT_EQ(Hosts(hDialog).size(), 2U);
}

TEST_F(ConnectToClientTest, ALastHostThatIsNotListedJoinsTheListWithTheLastPort)
{
    StoreHosts(1);
    Store(L"Last", L"elsewhere");
    Store(L"Port", 4711);
    const HWND hDialog = Open();
    EXPECT_EQ(Hosts(hDialog), (Items{{L"host0", 7000}, {L"elsewhere", 4711}}));
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_HOST), L"elsewhere");
}

TEST_F(ConnectToClientTest, ASelectedItemShowsItsPortAndOneWithoutAPortTheDefault)
{
    StoreHosts(2);
    Store(L"Port 1", UNSET_PORT);
    Store(L"Proxy 0", L"proxy0");
    Store(L"Proxy Port 0", 8080);
    Store(L"Proxy 1", L"proxy1");
    Store(L"Proxy Port 1", UNSET_PORT);
    Store(L"Proxy 2", L"proxy2");
    const HWND hDialog = Open();
    Select(hDialog, IDC_CONNECT_HOST, 0);
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PORT), L"7000");
    Select(hDialog, IDC_CONNECT_HOST, 1);
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PORT), L"6130");
    Select(hDialog, IDC_CONNECT_PROXY_HOST, 0);
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PROXY_PORT), L"8080");
    Select(hDialog, IDC_CONNECT_PROXY_HOST, 1);
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PROXY_PORT), L"6127");
    Type(hDialog, IDC_CONNECT_PROXY_PORT, L"1");
    Select(hDialog, IDC_CONNECT_PROXY_HOST, 2);
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PROXY_PORT), L"6127");
    Type(hDialog, IDC_CONNECT_PORT, L"77");
    SendMessageW(hDialog, WM_COMMAND, MAKEWPARAM(IDC_CONNECT_HOST, CBN_SELCHANGE), 0);
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PORT), L"77") << "another notification changes nothing";
}

TEST_F(ConnectToClientTest, AnItemWithoutAPortIsStoredWithTheDefault)
{
    StoreHosts(1);
    Store(L"Port 0", UNSET_PORT);
    const HWND hDialog = Open();
    EXPECT_EQ(SaveHostList(GetDlgItem(hDialog, IDC_CONNECT_HOST), L"host0", 1), 1);
    EXPECT_EQ(Number(L"Port 0"), 6130U);
    const HWND hProxies = GetDlgItem(hDialog, IDC_CONNECT_PROXY_HOST);
    EXPECT_EQ(SaveProxyList(hProxies, hDialog, L"proxy", UNSET_PORT), 1);
    EXPECT_EQ(Number(L"Proxy Port 0"), 6127U);
}

TEST_F(ConnectToClientTest, AKnownHostKeepsItsPortInTheListAndOnlyTheLastPortChanges)
{
    StoreHosts(1);
    EXPECT_EQ(Run([](HWND hDialog) {
                  Type(hDialog, IDC_CONNECT_HOST, L"HOST0");
                  Type(hDialog, IDC_CONNECT_PORT, L"1");
                  Click(hDialog, IDOK);
              }),
              1);
    EXPECT_EQ(Number(L"Port 0"), 7000U);
    EXPECT_EQ(Number(L"Port"), 1U);
    EXPECT_EQ(Text(L"Last"), L"HOST0");
    EXPECT_FALSE(Read(L"Host 1")) << "letters' case makes no other host";
}

TEST_F(ConnectToClientTest, AnEmptyItemIsNotStoredAndTheNextKeepsItsPosition)
{
    const HWND hDialog = Open();
    const HWND hCombo = GetDlgItem(hDialog, IDC_CONNECT_HOST);
    for (const wchar_t* const pszHost : {L"", L"second"})
    {
        SendMessageW(hCombo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(pszHost));
    }
    EXPECT_EQ(SaveHostList(hCombo, L"second", 1), 1);
    EXPECT_FALSE(Read(L"Host 0"));
    EXPECT_FALSE(Read(L"Port 0"));
    EXPECT_EQ(Text(L"Host 1"), L"second");
}

TEST_F(ConnectToClientTest, ValuesBeyondTheListStay)
{
    StoreHosts(1);
    Store(L"Host 5", L"left over");
    Open();
    SaveHostList(GetDlgItem(m_hDialog.get(), IDC_CONNECT_HOST), L"new", 1);
    EXPECT_EQ(Text(L"Host 5"), L"left over");
    EXPECT_EQ(Text(L"Host 1"), L"new");
}

TEST_F(ConnectToClientTest, AFullTargetFillsTheRecordByteForByte)
{
    EXPECT_EQ(Run([](HWND hDialog) {
                  Type(hDialog, IDC_CONNECT_HOST, L"viewer.example");
                  Type(hDialog, IDC_CONNECT_PORT, L"4711");
                  Click(hDialog, IDC_CONNECT_USE_PROXY);
                  Type(hDialog, IDC_CONNECT_PROXY_HOST, L"proxy.example");
                  Type(hDialog, IDC_CONNECT_PROXY_PORT, L"8080");
                  Click(hDialog, IDC_CONNECT_USE_PROXY_SECRET);
                  Type(hDialog, IDC_CONNECT_PROXY_SECRET, L"open sesame");
                  Click(hDialog, IDOK);
              }),
              1);
    MSG_REVERSE_CONNECTION expected = {};
    expected.bProxyAllowed = 1;
    CopyText(expected.szHost, L"viewer.example");
    expected.dwPort = 4711;
    expected.bUseProxy = 1;
    CopyText(expected.szProxyHost, L"proxy.example");
    expected.dwProxyPort = 8080;
    CopyText(expected.szProxySecret, L"open sesame");
    EXPECT_EQ(memcmp(&m_record, &expected, sizeof(expected)), 0) << "bUseProxySecret stays zero";
    EXPECT_TRUE(m_boxes.Boxes().empty());
    EXPECT_EQ(Text(L"Host 0"), L"viewer.example");
    EXPECT_EQ(Number(L"Port 0"), 4711U);
    EXPECT_EQ(Text(L"Proxy Host 0"), L"proxy.example");
    EXPECT_EQ(Number(L"Proxy Port 0"), 8080U);
    EXPECT_EQ(Text(L"Proxy Last"), L"proxy.example");
    EXPECT_EQ(Number(L"Proxy Port"), 8080U);
    EXPECT_EQ(Number(L"Use Proxy"), 1U);
    EXPECT_EQ(Number(L"Use Proxy Secret"), 1U);
    EXPECT_FALSE(Read(L"Proxy 0")) << "written under another name than it is read";
}

TEST_F(ConnectToClientTest, ASavedProxyListNeverShowsAgainButTheLastProxyDoes)
{
    Store(L"Proxy Host 0", L"older");
    Store(L"Proxy Port 0", 1);
    for (const wchar_t* const pszProxy : {L"first", L"second"})
    {
        EXPECT_EQ(Run([&](HWND hDialog) {
                      Type(hDialog, IDC_CONNECT_HOST, L"viewer");
                      if (!IsChecked(hDialog, IDC_CONNECT_USE_PROXY))
                      {
                          Click(hDialog, IDC_CONNECT_USE_PROXY);
                      }
                      Type(hDialog, IDC_CONNECT_PROXY_HOST, pszProxy);
                      Type(hDialog, IDC_CONNECT_PROXY_PORT, L"8080");
                      Click(hDialog, IDOK);
                  }),
                  1);
    }
    const HWND hDialog = Open();
    EXPECT_EQ(ItemsOf(hDialog, IDC_CONNECT_PROXY_HOST), (Items{{L"second", 8080}}));
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PROXY_HOST), L"second");
    EXPECT_TRUE(IsChecked(hDialog, IDC_CONNECT_USE_PROXY));
    EXPECT_TRUE(IsEnabled(hDialog, IDC_CONNECT_PROXY_HOST));
    EXPECT_TRUE(IsEnabled(hDialog, IDC_CONNECT_PROXY_PORT));
    EXPECT_FALSE(IsEnabled(hDialog, IDC_CONNECT_PROXY_SECRET));
}

TEST_F(ConnectToClientTest, AConnectionWithoutAProxyStoresPortZeroAndKeepsTheLastProxy)
{
    Store(L"Proxy Last", L"proxy");
    Store(L"Proxy Port", 8080);
    EXPECT_EQ(Run([](HWND hDialog) {
                  Type(hDialog, IDC_CONNECT_HOST, L"viewer");
                  Click(hDialog, IDOK);
              }),
              1);
    EXPECT_EQ(m_record.dwProxyPort, 0U);
    EXPECT_EQ(Number(L"Proxy Port"), 0U);
    EXPECT_EQ(Number(L"Use Proxy"), 0U);
    EXPECT_EQ(Text(L"Proxy Last"), L"proxy");
    const HWND hDialog = Open();
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PROXY_PORT), L"0");
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PROXY_HOST), L"proxy");
}

TEST_F(ConnectToClientTest, WithoutLeaveForAProxyTheBoxesAreOffAndWhatTheyGovernStays)
{
    Store(L"Use Proxy", 1);
    Store(L"Use Proxy Secret", 1);
    m_record.bProxyAllowed = 0;
    EXPECT_EQ(Run([](HWND hDialog) {
                  for (const int nBox : {IDC_CONNECT_USE_PROXY, IDC_CONNECT_USE_PROXY_SECRET})
                  {
                      EXPECT_FALSE(IsChecked(hDialog, nBox));
                      EXPECT_FALSE(IsEnabled(hDialog, nBox));
                  }
                  for (const int nControl :
                       {IDC_CONNECT_PROXY_HOST, IDC_CONNECT_PROXY_PORT, IDC_CONNECT_PROXY_SECRET})
                  {
                      EXPECT_TRUE(IsEnabled(hDialog, nControl)) << nControl;
                  }
                  Type(hDialog, IDC_CONNECT_HOST, L"viewer");
                  Click(hDialog, IDOK);
              }),
              1);
    EXPECT_EQ(m_record.bUseProxy, 0U);
    EXPECT_EQ(Number(L"Use Proxy"), 0U);
    EXPECT_EQ(Number(L"Use Proxy Secret"), 0U);
}

TEST_F(ConnectToClientTest, EachEmptyFieldIsAskedForAndTheDialogStays)
{
    const HWND hDialog = Open();
    ExpectRefused(hDialog, IDS_CONNECT_HOST_EMPTY, IDC_CONNECT_HOST);
    Type(hDialog, IDC_CONNECT_HOST, L"\\\\");
    ExpectRefused(hDialog, IDS_CONNECT_HOST_EMPTY, IDC_CONNECT_HOST);
    Type(hDialog, IDC_CONNECT_HOST, L"viewer");
    Type(hDialog, IDC_CONNECT_PORT, L"");
    ExpectRefused(hDialog, IDS_CONNECT_PORT_EMPTY, IDC_CONNECT_PORT);
    Type(hDialog, IDC_CONNECT_PORT, L"1");
    Click(hDialog, IDC_CONNECT_USE_PROXY);
    Click(hDialog, IDC_CONNECT_USE_PROXY_SECRET);
    ExpectRefused(hDialog, IDS_PROXY_SECRET_EMPTY, IDC_CONNECT_PROXY_SECRET);
    Type(hDialog, IDC_CONNECT_PROXY_SECRET, L"secret");
    Type(hDialog, IDC_CONNECT_PROXY_PORT, L"");
    ExpectRefused(hDialog, IDS_PROXY_PORT_EMPTY, IDC_CONNECT_PROXY_PORT);
    Type(hDialog, IDC_CONNECT_PROXY_PORT, L"2");
    m_boxes.Forget();
    Click(hDialog, IDOK);
    EXPECT_TRUE(m_boxes.Boxes().empty()) << "an empty proxy is accepted";
    EXPECT_FALSE(IsWindowVisible(hDialog));
    EXPECT_EQ(m_record.bUseProxy, 1U);
    EXPECT_EQ(m_record.szProxyHost[0], L'\0');
}

TEST_F(ConnectToClientTest, OfMoreEmptyFieldsOneIsAskedForAtATime)
{
    const HWND hDialog = Open();
    Type(hDialog, IDC_CONNECT_PORT, L"");
    Click(hDialog, IDC_CONNECT_USE_PROXY);
    Click(hDialog, IDC_CONNECT_USE_PROXY_SECRET);
    Type(hDialog, IDC_CONNECT_PROXY_PORT, L"");
    ExpectRefused(hDialog, IDS_CONNECT_HOST_EMPTY, IDC_CONNECT_HOST);
    Type(hDialog, IDC_CONNECT_HOST, L"viewer");
    ExpectRefused(hDialog, IDS_CONNECT_PORT_EMPTY, IDC_CONNECT_PORT);
    Type(hDialog, IDC_CONNECT_PORT, L"1");
    ExpectRefused(hDialog, IDS_PROXY_SECRET_EMPTY, IDC_CONNECT_PROXY_SECRET);
    Type(hDialog, IDC_CONNECT_PROXY_SECRET, L"secret");
    ExpectRefused(hDialog, IDS_PROXY_PORT_EMPTY, IDC_CONNECT_PROXY_PORT);
}

TEST_F(ConnectToClientTest, WhatARefusedAttemptHasLeftIsForgotten)
{
    const HWND hDialog = Open();
    Type(hDialog, IDC_CONNECT_HOST, L"a long name of a viewer");
    Click(hDialog, IDC_CONNECT_USE_PROXY);
    Click(hDialog, IDC_CONNECT_USE_PROXY_SECRET);
    Type(hDialog, IDC_CONNECT_PROXY_HOST, L"proxy");
    Type(hDialog, IDC_CONNECT_PROXY_SECRET, L"secret");
    Type(hDialog, IDC_CONNECT_PROXY_PORT, L"");
    Click(hDialog, IDOK);
    Type(hDialog, IDC_CONNECT_HOST, L"viewer");
    Click(hDialog, IDC_CONNECT_USE_PROXY);
    Click(hDialog, IDOK);
    MSG_REVERSE_CONNECTION expected = {};
    expected.bProxyAllowed = 1;
    CopyText(expected.szHost, L"viewer");
    expected.dwPort = 6130;
    EXPECT_EQ(memcmp(&m_record, &expected, sizeof(expected)), 0);
}

TEST_F(ConnectToClientTest, BackslashesBeforeAHostGoAndTheControlShowsIt)
{
    const HWND hDialog = Open();
    Type(hDialog, IDC_CONNECT_HOST, L"\\\\COMPUTER\\share");
    Click(hDialog, IDOK);
    EXPECT_EQ(FixedText(m_record.szHost), L"COMPUTER\\share");
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_HOST), L"COMPUTER\\share");
}

TEST_F(ConnectToClientTest, ASelectedItemCountsBeforeWhatIsTyped)
{
    StoreHosts(2);
    const HWND hDialog = Open();
    Select(hDialog, IDC_CONNECT_HOST, 1);
    Click(hDialog, IDOK);
    EXPECT_EQ(FixedText(m_record.szHost), L"host1");
    EXPECT_EQ(m_record.dwPort, 7001U);
}

TEST_F(ConnectToClientTest, APortThatIsNoNumberIsTakenAsFarAsItIsOne)
{
    for (const auto& [pszText, dwPort] : {std::pair<const wchar_t*, DWORD>{L"abc", 0},
                                          {L"12x", 12},
                                          {L" 7", 7},
                                          {L" ", 0},
                                          {L"-1", UNSET_PORT},
                                          {L"99999999999", 0x7FFFFFFF},
                                          {L"0x10", 0},
                                          {L"65536", 65536}})
    {
        const HWND hDialog = Open();
        Type(hDialog, IDC_CONNECT_HOST, L"viewer");
        Type(hDialog, IDC_CONNECT_PORT, pszText);
        Click(hDialog, IDOK);
        EXPECT_EQ(m_record.dwPort, dwPort) << pszText;
        EXPECT_EQ(Number(L"Port"), dwPort) << pszText;
    }
    EXPECT_EQ(Number(L"Port 0"), 0U) << "the first that this host had";
}

TEST_F(ConnectToClientTest, TheBoxesEnableWhatTheyGovern)
{
    const HWND hDialog = Open();
    for (const bool bOn : {true, false})
    {
        Click(hDialog, IDC_CONNECT_USE_PROXY);
        EXPECT_EQ(IsEnabled(hDialog, IDC_CONNECT_PROXY_HOST), bOn);
        EXPECT_EQ(IsEnabled(hDialog, IDC_CONNECT_PROXY_PORT), bOn);
        EXPECT_FALSE(IsEnabled(hDialog, IDC_CONNECT_PROXY_SECRET));
    }
    for (const bool bOn : {true, false})
    {
        Click(hDialog, IDC_CONNECT_USE_PROXY_SECRET);
        EXPECT_EQ(IsEnabled(hDialog, IDC_CONNECT_PROXY_SECRET), bOn);
    }
}

TEST_F(ConnectToClientTest, DefaultPortsComeBackAndWhatTheBoxesGovernStaysEnabled)
{
    const HWND hDialog = Open();
    Click(hDialog, IDC_CONNECT_USE_PROXY);
    Click(hDialog, IDC_CONNECT_USE_PROXY_SECRET);
    Type(hDialog, IDC_CONNECT_PORT, L"1");
    Type(hDialog, IDC_CONNECT_PROXY_PORT, L"2");
    Click(hDialog, IDC_CONNECT_DEFAULT_PORTS);
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PORT), L"6130");
    EXPECT_EQ(ControlText(hDialog, IDC_CONNECT_PROXY_PORT), L"6127");
    EXPECT_FALSE(IsChecked(hDialog, IDC_CONNECT_USE_PROXY));
    EXPECT_FALSE(IsChecked(hDialog, IDC_CONNECT_USE_PROXY_SECRET));
    for (const int nControl : {IDC_CONNECT_PROXY_HOST, IDC_CONNECT_PROXY_PORT, IDC_CONNECT_PROXY_SECRET})
    {
        EXPECT_TRUE(IsEnabled(hDialog, nControl)) << nControl;
    }
}

TEST_F(ConnectToClientTest, HoweverItIsCancelledItEndsWithTwoAndNothingIsStored)
{
    for (const auto& way : {std::pair<UINT, WPARAM>{WM_COMMAND, IDCANCEL}, {WM_CLOSE, 0}})
    {
        EXPECT_EQ(Run([&](HWND hDialog) {
                      EXPECT_EQ(g_hConnectToClientDlg, hDialog);
                      Type(hDialog, IDC_CONNECT_HOST, L"viewer");
                      PostMessageW(hDialog, way.first, way.second, 0);
                  }),
                  2);
        EXPECT_EQ(g_hConnectToClientDlg, nullptr);
    }
    EXPECT_FALSE(Read(L"Port"));
    EXPECT_EQ(m_record.szHost[0], L'\0');
}

TEST_F(ConnectToClientTest, AConnectionGoesAheadWhenNothingCanBeStored)
{
    const ImportHook hook(
        "advapi32.dll", "RegCreateKeyExW",
        +[](HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY, LPDWORD) -> LSTATUS {
            return ERROR_ACCESS_DENIED;
        });
    EXPECT_EQ(Run([](HWND hDialog) {
                  Type(hDialog, IDC_CONNECT_HOST, L"viewer");
                  EXPECT_EQ(SaveHostList(GetDlgItem(hDialog, IDC_CONNECT_HOST), L"viewer", 1), 0);
                  EXPECT_EQ(SaveProxyList(GetDlgItem(hDialog, IDC_CONNECT_PROXY_HOST), hDialog, L"", 0), 0);
                  Click(hDialog, IDOK);
              }),
              1);
    EXPECT_FALSE(Read(L"Port"));
}

TEST_F(ConnectToClientTest, TheListEndsWhereAPortCannotBeWritten)
{
    const HWND hDialog = Open();
    const HWND hCombo = GetDlgItem(hDialog, IDC_CONNECT_HOST);
    for (const wchar_t* const pszHost : {L"first", L"second"})
    {
        SendMessageW(hCombo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(pszHost));
    }
    const ImportHook hook(
        "advapi32.dll", "RegSetValueExW",
        +[](HKEY hKey, LPCWSTR pszName, DWORD, DWORD dwType, const BYTE* pData, DWORD cbData) -> LSTATUS {
            return lstrcmpW(pszName, L"Port 0") == 0
                       ? ERROR_ACCESS_DENIED
                       : RegSetKeyValueW(hKey, nullptr, pszName, dwType, pData, cbData);
        });
    EXPECT_EQ(SaveHostList(hCombo, L"second", 1), 1);
    EXPECT_EQ(Text(L"Host 0"), L"first");
    EXPECT_FALSE(Read(L"Host 1"));
    EXPECT_EQ(Text(L"Last"), L"second") << "the last ones are stored all the same";
    EXPECT_EQ(Number(L"Port"), 1U);
}

TEST_F(ConnectToClientTest, AHostIsWrittenWithTwoBytesACharacterAndNoTerminator)
{
    static std::vector<std::pair<std::wstring, DWORD>> s_written;
    s_written.clear();
    const HWND hDialog = Open();
    const ImportHook hook(
        "advapi32.dll", "RegSetValueExW",
        +[](HKEY, LPCWSTR pszName, DWORD, DWORD dwType, const BYTE*, DWORD cbData) -> LSTATUS {
            if (dwType == REG_SZ)
            {
                s_written.emplace_back(pszName, cbData);
            }
            return ERROR_SUCCESS;
        });
    SaveHostList(GetDlgItem(hDialog, IDC_CONNECT_HOST), L"viewer", 1);
    EXPECT_EQ(s_written, (Items{{L"Host 0", 12}, {L"Last", 12}}));
}

TEST_F(ConnectToClientTest, HostsAreStoredBeforeProxiesAndTheLastOnesBehindTheirList)
{
    static std::vector<std::wstring> s_written;
    s_written.clear();
    const ImportHook hook(
        "advapi32.dll", "RegSetValueExW",
        +[](HKEY, LPCWSTR pszName, DWORD, DWORD, const BYTE*, DWORD) -> LSTATUS {
            s_written.emplace_back(pszName);
            return ERROR_SUCCESS;
        });
    EXPECT_EQ(Run([](HWND hDialog) {
                  Type(hDialog, IDC_CONNECT_HOST, L"viewer");
                  Click(hDialog, IDC_CONNECT_USE_PROXY);
                  Type(hDialog, IDC_CONNECT_PROXY_HOST, L"proxy");
                  Click(hDialog, IDOK);
              }),
              1);
    EXPECT_EQ(s_written, (std::vector<std::wstring>{L"Host 0", L"Port 0", L"Last", L"Port", L"Proxy Host 0",
                                                    L"Proxy Port 0", L"Proxy Last", L"Proxy Port",
                                                    L"Use Proxy", L"Use Proxy Secret"}));
}

TEST_F(ConnectToClientTest, TheSecretIsMaskedInBoldAndNeverStored)
{
    EXPECT_EQ(Run([](HWND hDialog) {
                  const HWND hSecret = GetDlgItem(hDialog, IDC_CONNECT_PROXY_SECRET);
                  EXPECT_NE(SendMessageW(hSecret, EM_GETPASSWORDCHAR, 0, 0), 0);
                  LOGFONTW font = {};
                  GetObjectW(reinterpret_cast<HFONT>(SendMessageW(hSecret, WM_GETFONT, 0, 0)), sizeof(font),
                             &font);
                  EXPECT_EQ(font.lfHeight, 14);
                  EXPECT_EQ(font.lfWeight, 700);
                  EXPECT_EQ(font.lfPitchAndFamily, 49);
                  EXPECT_STREQ(font.lfFaceName, L"Microsoft Sans Serif");
                  Type(hDialog, IDC_CONNECT_HOST, L"viewer");
                  Click(hDialog, IDC_CONNECT_USE_PROXY);
                  Click(hDialog, IDC_CONNECT_USE_PROXY_SECRET);
                  Type(hDialog, IDC_CONNECT_PROXY_SECRET, std::wstring(300, L'$'));
                  Click(hDialog, IDOK);
              }),
              1);
    EXPECT_EQ(FixedText(m_record.szProxySecret), std::wstring(259, L'$'));
    CRegKey hKey;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, LIST_KEY, 0, KEY_READ, hKey.put()), ERROR_SUCCESS);
    DWORD dwValue = 0;
    wchar_t szName[64] = {};
    BYTE abData[512] = {};
    DWORD cchName = static_cast<DWORD>(std::size(szName));
    DWORD cbData = sizeof(abData);
    while (RegEnumValueW(hKey.get(), dwValue, szName, &cchName, nullptr, nullptr, abData, &cbData) ==
           ERROR_SUCCESS)
    {
        EXPECT_EQ(std::find(abData, abData + cbData, BYTE{'$'}), abData + cbData) << szName;
        ++dwValue;
        cchName = static_cast<DWORD>(std::size(szName));
        cbData = sizeof(abData);
    }
    EXPECT_GT(dwValue, 5U);
}

TEST_F(ConnectToClientTest, ADialogWithoutARecordRefusesOkAndCanBeCancelled)
{
    m_hDialog.reset(CreateDialogParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_CONNECT_TO_CLIENT), nullptr,
                                       ConnectToClient, 0));
    const HWND hDialog = m_hDialog.get();
    ShowWindow(hDialog, SW_SHOW);
    Type(hDialog, IDC_CONNECT_HOST, L"viewer");
    Click(hDialog, IDOK);
    EXPECT_TRUE(IsWindowVisible(hDialog));
    EXPECT_FALSE(Read(L"Port"));
    Click(hDialog, IDCANCEL);
    EXPECT_FALSE(IsWindowVisible(hDialog));
}

TEST_F(ConnectToClientTest, TheKeyboardStartsAtTheHostAndReachesEverythingInOrder)
{
    const HWND hDialog = Open();
    Click(hDialog, IDC_CONNECT_USE_PROXY);
    Click(hDialog, IDC_CONNECT_USE_PROXY_SECRET);
    HWND hControl = nullptr;
    for (const int nControl : {IDC_CONNECT_HOST, IDC_CONNECT_PORT, IDC_CONNECT_USE_PROXY,
                               IDC_CONNECT_PROXY_HOST, IDC_CONNECT_PROXY_PORT, IDC_CONNECT_USE_PROXY_SECRET,
                               IDC_CONNECT_PROXY_SECRET, IDC_CONNECT_DEFAULT_PORTS, IDOK, IDCANCEL})
    {
        hControl = GetNextDlgTabItem(hDialog, hControl, FALSE);
        EXPECT_EQ(GetDlgCtrlID(hControl), nControl);
    }
    EXPECT_EQ(LOWORD(SendMessageW(hDialog, DM_GETDEFID, 0, 0)), IDOK);
    EXPECT_EQ(ConnectToClient(hDialog, WM_INITDIALOG, 0, reinterpret_cast<LPARAM>(&m_record)), TRUE)
        << "the dialog manager sets the focus";
}

TEST_F(ConnectToClientTest, LogsEveryMessage)
{
    const LogCapture capture("ConnectToClientDialog", log4cxx::Level::getDebug());
    Open();
    m_hDialog.reset();
    EXPECT_THAT(capture.Texts(), testing::Contains("DEBUG iMsg=272"));
    EXPECT_THAT(capture.Texts(), testing::Contains("DEBUG iMsg=2"));
}

TEST_F(ConnectToClientTest, ManyInARowLeaveNothingBehind)
{
    StoreHosts(3);
    const auto cancel = [](HWND hDialog) { PostMessageW(hDialog, WM_COMMAND, IDCANCEL, 0); };
    ExpectNothingLeftBy(100, [&](int) { Run(cancel); });
}

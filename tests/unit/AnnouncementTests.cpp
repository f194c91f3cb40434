#include "dialogs/Announcement.h"

#include "Include/Handles.h"
#include "resources/resource.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/DialogHarness.h"

#include <gtest/gtest.h>
#include <oleacc.h>

#include <string>
#include <vector>

namespace
{
using Calls = std::vector<std::string>;
Calls g_calls;
HRESULT g_hPresentation = S_OK;
HRESULT g_hDescribed = S_OK;
int g_nReferences = 0;

std::string Narrow(const wchar_t* pszText)
{
    const std::wstring text = pszText;
    return std::string(text.begin(), text.end());
}

// What the system would keep of a window; the test system keeps nothing.
class FakePresentation final : public IAccPropServices
{
  public:
    virtual ~FakePresentation() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++g_nReferences); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--g_nReferences); }

    HRESULT STDMETHODCALLTYPE SetHwndProp(HWND, DWORD dwObject, DWORD dwChild, MSAAPROPID property,
                                          VARIANT value) override
    {
        ExpectClient(dwObject, dwChild);
        EXPECT_EQ(property.Data1, 0xCB905FF2U);
        EXPECT_EQ(value.vt, VT_I4);
        g_calls.push_back("role " + std::to_string(value.lVal));
        return g_hDescribed;
    }
    HRESULT STDMETHODCALLTYPE SetHwndPropStr(HWND, DWORD dwObject, DWORD dwChild, MSAAPROPID property,
                                             LPCWSTR pszText) override
    {
        ExpectClient(dwObject, dwChild);
        EXPECT_EQ(property.Data1, 0x4D48DFE4U);
        g_calls.push_back("description " + Narrow(pszText));
        return g_hDescribed;
    }
    HRESULT STDMETHODCALLTYPE ClearHwndProps(HWND hWnd, DWORD dwObject, DWORD dwChild, const MSAAPROPID*,
                                             int nProperties) override
    {
        ExpectClient(dwObject, dwChild);
        EXPECT_TRUE(IsWindow(hWnd));
        g_calls.push_back("forgotten " + std::to_string(nProperties));
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetPropValue(const BYTE*, DWORD, MSAAPROPID, VARIANT) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetPropServer(const BYTE*, DWORD, const MSAAPROPID*, int, IAccPropServer*,
                                            AnnoScope) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ClearProps(const BYTE*, DWORD, const MSAAPROPID*, int) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetHwndPropServer(HWND, DWORD, DWORD, const MSAAPROPID*, int, IAccPropServer*,
                                                AnnoScope) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ComposeHwndIdentityString(HWND, DWORD, DWORD, BYTE**, DWORD*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DecomposeHwndIdentityString(const BYTE*, DWORD, HWND*, DWORD*, DWORD*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetHmenuProp(HMENU, DWORD, MSAAPROPID, VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetHmenuPropStr(HMENU, DWORD, MSAAPROPID, LPCWSTR) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetHmenuPropServer(HMENU, DWORD, const MSAAPROPID*, int, IAccPropServer*,
                                                 AnnoScope) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ClearHmenuProps(HMENU, DWORD, const MSAAPROPID*, int) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ComposeHmenuIdentityString(HMENU, DWORD, BYTE**, DWORD*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DecomposeHmenuIdentityString(const BYTE*, DWORD, HMENU*, DWORD*) override
    {
        return E_NOTIMPL;
    }

  private:
    static void ExpectClient(DWORD dwObject, DWORD dwChild)
    {
        EXPECT_EQ(dwObject, static_cast<DWORD>(OBJID_CLIENT));
        EXPECT_EQ(dwChild, static_cast<DWORD>(CHILDID_SELF));
    }
};

HRESULT WINAPI GivePresentation(REFCLSID, LPUNKNOWN, DWORD, REFIID, LPVOID* ppvObject)
{
    static FakePresentation s_presentation;
    if (SUCCEEDED(g_hPresentation))
    {
        s_presentation.AddRef();
        *ppvObject = &s_presentation;
    }
    return g_hPresentation;
}

void WINAPI RecordEvent(DWORD dwEvent, HWND, LONG lObject, LONG lChild)
{
    EXPECT_EQ(lObject, OBJID_CLIENT);
    EXPECT_EQ(lChild, CHILDID_SELF);
    g_calls.push_back(dwEvent == EVENT_SYSTEM_ALERT ? "alert" : "another event");
}

class AnnouncementTest : public DialogHarness
{
  public:
    ~AnnouncementTest() override = default;

  protected:
    void SetUp() override
    {
        DialogHarness::SetUp();
        g_calls.clear();
        g_hPresentation = g_hDescribed = S_OK;
        g_nReferences = 0;
    }
    void TearDown() override
    {
        EXPECT_EQ(g_nReferences, 0);
        DialogHarness::TearDown();
    }

    // What is told of a window until it is gone.
    static Calls Announce(const std::wstring& text)
    {
        CWindow hWnd(
            CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
        AnnounceWindow(hWnd.get(), text);
        hWnd.reset();
        return g_calls;
    }

  private:
    ImportHook<decltype(GivePresentation)> m_create{"ole32.dll", "CoCreateInstance", &GivePresentation};
    ImportHook<decltype(RecordEvent)> m_event{"user32.dll", "NotifyWinEvent", &RecordEvent};
};
} // namespace

TEST_F(AnnouncementTest, AWindowIsDescribedBeforeItIsToldAndForgottenWithItsEnd)
{
    EXPECT_EQ(Announce(L"Alice"), (Calls{"role 8", "description Alice", "alert", "forgotten 2"}));
}

TEST_F(AnnouncementTest, AWindowWhoseControlsSayAllHasNoDescription)
{
    EXPECT_EQ(Announce(L""), (Calls{"role 8", "alert", "forgotten 2"}));
}

TEST_F(AnnouncementTest, ASystemThatDescribesNothingIsToldTheAlert)
{
    g_hDescribed = E_NOTIMPL;
    EXPECT_EQ(Announce(L"Alice"), (Calls{"role 8", "description Alice", "alert"}));
    g_calls.clear();
    g_hPresentation = REGDB_E_CLASSNOTREG;
    EXPECT_EQ(Announce(L"Alice"), Calls{"alert"});
}

TEST_F(AnnouncementTest, APopupSaysWhatItPaintsAndAListSpeaksForItself)
{
    Window().m_Connection = Alice();
    const HWND hPopup = ShowPopup(NOTIFY_MODE_DISCONNECTED);
    ASSERT_EQ(g_calls.size(), 3U);
    const std::string body = "description " + Narrow(ControlText(hPopup, IDC_NOTIFY_BODY).c_str());
    EXPECT_NE(body.find("Alice"), std::string::npos);
    EXPECT_EQ(g_calls[1], body);
    g_calls.clear();
    ShowPopup(NOTIFY_MODE_EVERYONE);
    EXPECT_EQ(g_calls, (Calls{"forgotten 2", "role 8", "alert"}));
}

#include "dialogs/Announcement.h"

#include <commctrl.h>
#include <objbase.h>
#include <oleacc.h>

#include <iterator>

namespace
{
// The system's headers have them under different names, or not at all.
constexpr CLSID PRESENTATION_CLASS = {
    0xB5F8350B, 0x0548, 0x48B1, {0xA6, 0xEE, 0x88, 0xBD, 0x00, 0xB4, 0xA5, 0xE7}};
constexpr IID PRESENTATION_INTERFACE = {
    0x6E26E776, 0x04F0, 0x495D, {0x80, 0xE4, 0x33, 0x30, 0x35, 0x2E, 0x31, 0x69}};
constexpr MSAAPROPID ROLE_PROPERTY = {
    0xCB905FF2, 0x7BD1, 0x4C05, {0xB3, 0xC8, 0xE6, 0xC2, 0x41, 0x36, 0x4D, 0x70}};
constexpr MSAAPROPID DESCRIPTION_PROPERTY = {
    0x4D48DFE4, 0xBD3F, 0x491F, {0xA6, 0x48, 0x49, 0x2D, 0x6F, 0x20, 0xC5, 0x88}};
constexpr MSAAPROPID PROPERTIES[] = {ROLE_PROPERTY, DESCRIPTION_PROPERTY};

constexpr DWORD WHOLE_CLIENT = static_cast<DWORD>(OBJID_CLIENT);
constexpr UINT_PTR ANNOUNCED_SUBCLASS = 4;

// How the system presents windows to assistive programs, for one scope; test it before use.
class CPresentation
{
  public:
    CPresentation() noexcept : m_bCom(SUCCEEDED(CoInitialize(nullptr)))
    {
        void* pvServices = nullptr;
        if (SUCCEEDED(CoCreateInstance(PRESENTATION_CLASS, nullptr, CLSCTX_INPROC_SERVER,
                                       PRESENTATION_INTERFACE, &pvServices)))
        {
            m_pServices = static_cast<IAccPropServices*>(pvServices);
        }
    }
    ~CPresentation()
    {
        if (m_pServices != nullptr)
        {
            m_pServices->Release();
        }
        if (m_bCom)
        {
            CoUninitialize();
        }
    }
    CPresentation(const CPresentation&) = delete;
    CPresentation& operator=(const CPresentation&) = delete;

    explicit operator bool() const noexcept { return m_pServices != nullptr; }
    IAccPropServices* operator->() const noexcept { return m_pServices; }

  private:
    const bool m_bCom;
    IAccPropServices* m_pServices = nullptr;
};

bool Describe(HWND hWnd, const std::wstring& text)
{
    const CPresentation presentation;
    if (!presentation)
    {
        return false;
    }
    VARIANT role = {};
    role.vt = VT_I4;
    role.lVal = ROLE_SYSTEM_ALERT;
    const bool bRole =
        SUCCEEDED(presentation->SetHwndProp(hWnd, WHOLE_CLIENT, CHILDID_SELF, ROLE_PROPERTY, role));
    const bool bText =
        !text.empty() && SUCCEEDED(presentation->SetHwndPropStr(hWnd, WHOLE_CLIENT, CHILDID_SELF,
                                                                DESCRIPTION_PROPERTY, text.c_str()));
    return bRole || bText;
}

// The system would keep what it was told of a window that is no more.
void Forget(HWND hWnd)
{
    const CPresentation presentation;
    if (presentation)
    {
        presentation->ClearHwndProps(hWnd, WHOLE_CLIENT, CHILDID_SELF, PROPERTIES,
                                     static_cast<int>(std::size(PROPERTIES)));
    }
}

LRESULT CALLBACK AnnouncedProcedure(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam,
                                    UINT_PTR uSubclass, DWORD_PTR)
{
    if (uMessage == WM_DESTROY)
    {
        Forget(hWnd);
    }
    if (uMessage == WM_NCDESTROY)
    {
        RemoveWindowSubclass(hWnd, AnnouncedProcedure, uSubclass);
    }
    return DefSubclassProc(hWnd, uMessage, wParam, lParam);
}
} // namespace

void AnnounceWindow(HWND hWnd, const std::wstring& text)
{
    if (Describe(hWnd, text))
    {
        SetWindowSubclass(hWnd, AnnouncedProcedure, ANNOUNCED_SUBCLASS, 0);
    }
    NotifyWinEvent(EVENT_SYSTEM_ALERT, hWnd, OBJID_CLIENT, CHILDID_SELF);
}

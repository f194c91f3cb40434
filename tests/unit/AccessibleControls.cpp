#include "tests/unit/AccessibleControls.h"

#include "tests/unit/DialogMeasures.h"

#include <commctrl.h>
#include <oleacc.h>

#include <algorithm>
#include <iterator>
#include <map>

namespace
{
std::wstring ClassOf(HWND hControl)
{
    wchar_t szClass[32] = {};
    GetClassNameW(hControl, szClass, static_cast<int>(std::size(szClass)));
    CharLowerW(szClass);
    return szClass;
}

bool HasStyle(HWND hWnd, LONG_PTR nStyle)
{
    return (GetWindowLongPtrW(hWnd, GWL_STYLE) & nStyle) == nStyle;
}

ControlRole RoleOfButton(HWND hButton)
{
    const LONG_PTR nType = GetWindowLongPtrW(hButton, GWL_STYLE) & BS_TYPEMASK;
    return nType == BS_PUSHBUTTON || nType == BS_DEFPUSHBUTTON ? ControlRole::Button
           : nType == BS_AUTOCHECKBOX                          ? ControlRole::CheckBox
                                                               : ControlRole::Nothing;
}

std::wstring WithoutMarks(std::wstring text)
{
    std::erase(text, L'&');
    for (const std::wstring_view mark : {L"<a>", L"</a>"})
    {
        if (const size_t nMark = text.find(mark); nMark != std::wstring::npos)
        {
            text.erase(nMark, mark.size());
        }
    }
    return text;
}
} // namespace

ControlRole RoleOf(HWND hControl)
{
    static const std::map<std::wstring, ControlRole> s_roles = {
        {L"static", ControlRole::Text},
        {L"edit", ControlRole::Field},
        {L"combobox", ControlRole::List},
        {L"syslink", ControlRole::Link},
        {L"msctls_progress32", ControlRole::Progress}};
    const std::wstring name = ClassOf(hControl);
    if (name == L"button")
    {
        return RoleOfButton(hControl);
    }
    const auto found = s_roles.find(name);
    // A text that takes clicks says nothing of it, and no key reaches it.
    const bool bClickable = name == L"static" && HasStyle(hControl, SS_NOTIFY);
    return found == s_roles.end() || bClickable ? ControlRole::Nothing : found->second;
}

std::wstring AccessibleName(HWND hControl)
{
    switch (RoleOf(hControl))
    {
    case ControlRole::Text:
    case ControlRole::Button:
    case ControlRole::CheckBox:
    case ControlRole::Link:
        return WithoutMarks(TextOf(hControl));
    default:
        break;
    }
    const HWND hLabel = GetWindow(hControl, GW_HWNDPREV);
    const bool bNames = RoleOf(hLabel) == ControlRole::Text && HasStyle(hLabel, WS_VISIBLE);
    return bNames ? WithoutMarks(TextOf(hLabel)) : std::wstring();
}

PRESENTED_CONTROL PresentedControl(HWND hControl)
{
    PRESENTED_CONTROL presented;
    void* pvObject = nullptr;
    if (FAILED(AccessibleObjectFromWindow(hControl, static_cast<DWORD>(OBJID_CLIENT), IID_IAccessible,
                                          &pvObject)))
    {
        return presented;
    }
    auto* const pObject = static_cast<IAccessible*>(pvObject);
    VARIANT self = {};
    self.vt = VT_I4;
    self.lVal = CHILDID_SELF;
    BSTR bstrName = nullptr;
    if (pObject->get_accName(self, &bstrName) == S_OK && bstrName != nullptr)
    {
        presented.name = bstrName;
        SysFreeString(bstrName);
    }
    VARIANT role = {};
    if (pObject->get_accRole(self, &role) == S_OK && role.vt == VT_I4)
    {
        presented.lRole = role.lVal;
    }
    pObject->Release();
    return presented;
}

std::vector<HWND> ControlsToReach(HWND hWnd)
{
    std::vector<HWND> controls = ControlsOf(hWnd);
    std::erase_if(controls, [](HWND hControl) {
        const ControlRole role = RoleOf(hControl);
        return role == ControlRole::Text || role == ControlRole::Progress || !IsWindowVisible(hControl) ||
               !IsWindowEnabled(hControl);
    });
    return controls;
}

HWND FocusedControl(HWND hWnd)
{
    HWND hControl = GetFocus();
    while (hControl != nullptr && GetAncestor(hControl, GA_PARENT) != hWnd)
    {
        hControl = IsChild(hWnd, hControl) ? GetAncestor(hControl, GA_PARENT) : nullptr;
    }
    return hControl;
}

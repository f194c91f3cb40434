#include "dialogs/HostList.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "Include/UtilResource.h"
#include "dialogs/DialogControls.h"

#include <optional>
#include <string>
#include <vector>

namespace
{
constexpr wchar_t USE_PROXY[] = L"Use Proxy";
constexpr wchar_t USE_PROXY_SECRET[] = L"Use Proxy Secret";

constexpr int LAST_POSITION_READ = 50;
constexpr int LAST_POSITION_WRITTEN = 51; // one more than is read back

std::wstring ValueName(const wchar_t* pszName, int nPosition)
{
    return FillPlaceholders(pszName, {std::to_wstring(nPosition)});
}

// Texts are stored without a terminator, so none is relied on.
std::optional<std::wstring> ReadText(HKEY hKey, const std::wstring& name, size_t cchText)
{
    std::vector<wchar_t> text(cchText);
    DWORD dwType = REG_NONE;
    DWORD cbText = static_cast<DWORD>(cchText * sizeof(wchar_t));
    if (RegQueryValueExW(hKey, name.c_str(), nullptr, &dwType, reinterpret_cast<BYTE*>(text.data()),
                         &cbText) != ERROR_SUCCESS ||
        dwType != REG_SZ)
    {
        return std::nullopt;
    }
    text.back() = L'\0';
    return std::wstring(FixedText(text.data(), cbText / sizeof(wchar_t)));
}

std::optional<DWORD> ReadNumber(HKEY hKey, const std::wstring& name)
{
    DWORD dwNumber = 0;
    DWORD dwType = REG_NONE;
    DWORD cbNumber = sizeof(dwNumber);
    const bool bRead = RegQueryValueExW(hKey, name.c_str(), nullptr, &dwType,
                                        reinterpret_cast<BYTE*>(&dwNumber), &cbNumber) == ERROR_SUCCESS;
    return bRead && dwType == REG_DWORD ? std::optional(dwNumber) : std::nullopt;
}

bool WriteText(HKEY hKey, const std::wstring& name, std::wstring_view text)
{
    return RegSetValueExW(hKey, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.data()),
                          static_cast<DWORD>(text.size() * sizeof(wchar_t))) == ERROR_SUCCESS;
}

bool WriteNumber(HKEY hKey, const std::wstring& name, DWORD dwNumber)
{
    return RegSetValueExW(hKey, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&dwNumber),
                          sizeof(dwNumber)) == ERROR_SUCCESS;
}

LRESULT FindItem(HWND hCombo, const std::wstring& host)
{
    return SendMessageW(hCombo, CB_FINDSTRINGEXACT, static_cast<WPARAM>(-1),
                        reinterpret_cast<LPARAM>(host.c_str()));
}

LRESULT AddItem(HWND hCombo, const std::wstring& host, DWORD dwPort)
{
    const LRESULT nItem = SendMessageW(hCombo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(host.c_str()));
    if (nItem >= 0)
    {
        SendMessageW(hCombo, CB_SETITEMDATA, static_cast<WPARAM>(nItem), static_cast<LPARAM>(dwPort));
    }
    return nItem;
}

DWORD ItemPort(HWND hCombo, WPARAM wItem, DWORD dwDefaultPort)
{
    const DWORD dwPort = static_cast<DWORD>(SendMessageW(hCombo, CB_GETITEMDATA, wItem, 0));
    return dwPort != NO_ITEM_PORT ? dwPort : dwDefaultPort;
}

CRegKey OpenList(const wchar_t* pszKey)
{
    CRegKey hKey;
    RegOpenKeyExW(HKEY_CURRENT_USER, pszKey, 0, KEY_READ, hKey.put());
    return hKey;
}

CRegKey CreateList(const wchar_t* pszKey)
{
    CRegKey hKey;
    RegCreateKeyExW(HKEY_CURRENT_USER, pszKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                    hKey.put(), nullptr);
    return hKey;
}

void LoadItems(HKEY hKey, const HOST_LIST& list, HWND hCombo)
{
    for (int nPosition = 0; nPosition <= LAST_POSITION_READ; ++nPosition)
    {
        const std::optional<std::wstring> host =
            ReadText(hKey, ValueName(list.pszReadHost, nPosition), list.cchHost);
        if (!host)
        {
            return;
        }
        if (!host->empty())
        {
            AddItem(
                hCombo, *host,
                ReadNumber(hKey, ValueName(list.pszHostPort, nPosition)).value_or(list.dwMissingHostPort));
        }
    }
}

// The port shown is the last one, whatever port the item has.
void SelectLastHost(HKEY hKey, const HOST_LIST& list, HWND hCombo, DWORD dwLastPort)
{
    const std::wstring host = ReadText(hKey, list.pszLastHost, list.cchHost).value_or(std::wstring());
    if (host.empty())
    {
        return;
    }
    LRESULT nItem = FindItem(hCombo, host);
    if (nItem < 0)
    {
        nItem = AddItem(hCombo, host, dwLastPort);
    }
    SendMessageW(hCombo, CB_SETCURSEL, static_cast<WPARAM>(nItem), 0);
}

void SaveItems(HKEY hKey, const HOST_LIST& list, HWND hCombo)
{
    const LRESULT nItems = SendMessageW(hCombo, CB_GETCOUNT, 0, 0);
    for (int nPosition = 0; nPosition < nItems && nPosition <= LAST_POSITION_WRITTEN; ++nPosition)
    {
        const WPARAM wItem = static_cast<WPARAM>(nPosition);
        const std::wstring host = ItemText(hCombo, wItem, list.cchHost);
        if (host.empty())
        {
            continue;
        }
        WriteText(hKey, ValueName(list.pszWrittenHost, nPosition), host);
        if (!WriteNumber(hKey, ValueName(list.pszHostPort, nPosition),
                         ItemPort(hCombo, wItem, list.dwDefaultPort)))
        {
            return;
        }
    }
}

void LoadList(HKEY hKey, const HOST_LIST& list, HWND hCombo, HWND hDlg)
{
    LoadItems(hKey, list, hCombo);
    const DWORD dwLastPort = ReadNumber(hKey, list.pszLastPort).value_or(list.dwDefaultPort);
    SelectLastHost(hKey, list, hCombo, dwLastPort);
    ShowNumber(hDlg, list.nPortControl, dwLastPort);
}

void SaveList(HKEY hKey, const HOST_LIST& list, HWND hCombo, const std::wstring& host, DWORD dwPort)
{
    if (FindItem(hCombo, host) < 0)
    {
        AddItem(hCombo, host, dwPort);
    }
    SaveItems(hKey, list, hCombo);
    if (!host.empty())
    {
        WriteText(hKey, list.pszLastHost, host);
    }
    WriteNumber(hKey, list.pszLastPort, dwPort);
}
} // namespace

int LoadHosts(const HOST_LIST& list, HWND hCombo, HWND hDlg)
{
    const CRegKey hKey = OpenList(list.pszKey);
    if (!hKey)
    {
        return 0;
    }
    LoadList(hKey.get(), list, hCombo, hDlg);
    return 1;
}

int SaveHosts(const HOST_LIST& list, HWND hCombo, const wchar_t* pszHost, DWORD dwPort)
{
    const CRegKey hKey = CreateList(list.pszKey);
    if (!hKey)
    {
        return 0;
    }
    SaveList(hKey.get(), list, hCombo, pszHost, dwPort);
    return 1;
}

int LoadProxies(const PROXY_LIST& list, HWND hCombo, HWND hDlg)
{
    const CRegKey hKey = OpenList(list.hosts.pszKey);
    if (!hKey)
    {
        return 0;
    }
    LoadList(hKey.get(), list.hosts, hCombo, hDlg);
    if (ReadNumber(hKey.get(), USE_PROXY).value_or(0) != 0)
    {
        CheckDlgButton(hDlg, list.nUseProxyBox, BST_CHECKED);
        EnableControl(hDlg, list.nProxyControl, true);
        EnableControl(hDlg, list.hosts.nPortControl, true);
    }
    if (ReadNumber(hKey.get(), USE_PROXY_SECRET).value_or(0) != 0)
    {
        CheckDlgButton(hDlg, list.nUseProxySecretBox, BST_CHECKED);
        EnableControl(hDlg, list.nSecretControl, true);
    }
    return 1;
}

int SaveProxies(const PROXY_LIST& list, HWND hCombo, HWND hDlg, const wchar_t* pszHost, DWORD dwPort)
{
    const CRegKey hKey = CreateList(list.hosts.pszKey);
    if (!hKey)
    {
        return 0;
    }
    SaveList(hKey.get(), list.hosts, hCombo, pszHost, dwPort);
    WriteNumber(hKey.get(), USE_PROXY, IsTicked(hDlg, list.nUseProxyBox) ? 1 : 0);
    WriteNumber(hKey.get(), USE_PROXY_SECRET, IsTicked(hDlg, list.nUseProxySecretBox) ? 1 : 0);
    return 1;
}

void ShowItemPort(const HOST_LIST& list, HWND hCombo, HWND hDlg)
{
    const LRESULT nItem = SendMessageW(hCombo, CB_GETCURSEL, 0, 0);
    ShowNumber(hDlg, list.nPortControl, ItemPort(hCombo, static_cast<WPARAM>(nItem), list.dwDefaultPort));
}

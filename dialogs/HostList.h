#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>

/*
 * The hosts that a dialog remembers, as numbered values of one key of the current user. While the dialog is
 * open its combo box is the list: an item is a host, its item data the port. The order is that of the box,
 * nothing moves to the front, and only the box's own look-up, which ignores case, keeps doubles out.
 *
 * A value of another type than expected, or too long for cchHost, counts as missing. Main thread.
 */

// A list position is filled in for each "%d".
struct HOST_LIST
{
    const wchar_t* pszKey; // below HKEY_CURRENT_USER
    const wchar_t* pszReadHost;
    const wchar_t* pszWrittenHost;
    const wchar_t* pszHostPort;
    const wchar_t* pszLastHost;
    const wchar_t* pszLastPort;
    DWORD dwMissingHostPort; // of a listed host without a port
    DWORD dwDefaultPort;     // where there is no last port, and of an item that holds none
    size_t cchHost;          // room for a host, terminator included
    int nPortControl;        // shows the last port
};

// A list of proxies, and the boxes that say whether one is used.
struct PROXY_LIST
{
    HOST_LIST hosts;
    int nProxyControl;
    int nSecretControl;
    int nUseProxyBox;       // governs the proxy and its port
    int nUseProxySecretBox; // governs the secret, which itself is never stored
};

// Item data that stands for "no port of its own".
constexpr DWORD NO_ITEM_PORT = 0xFFFFFFFF;

constexpr DWORD DEFAULT_CLIENT_PORT = 6130;
constexpr DWORD DEFAULT_PROXY_PORT = 6127;

/// The proxies that one key remembers. A proxy is deliberately written under another name than it is read: a
/// list that was saved never shows again, and only the last proxy comes back.
constexpr HOST_LIST ProxyHosts(const wchar_t* pszKey, size_t cchHost, int nPortControl)
{
    return {pszKey,        L"Proxy %d",        L"Proxy Host %d",   L"Proxy Port %d", L"Proxy Last",
            L"Proxy Port", DEFAULT_PROXY_PORT, DEFAULT_PROXY_PORT, cchHost,          nPortControl};
}

/// Fills the box, selects the last host and shows the last port. 1, or 0 when there is no key to read: the
/// dialog is then as it was.
int LoadHosts(const HOST_LIST& list, HWND hCombo, HWND hDlg);

/// Adds the host to the box if it isn't there, and writes the list and the last host and port. 1, or 0 when
/// the key can't be made. A host that is already listed keeps its port; values beyond the list stay.
int SaveHosts(const HOST_LIST& list, HWND hCombo, const wchar_t* pszHost, DWORD dwPort);

/// As LoadHosts; then ticks the boxes that were ticked, and enables what they govern.
int LoadProxies(const PROXY_LIST& list, HWND hCombo, HWND hDlg);

/// As SaveHosts, and the state of the boxes.
int SaveProxies(const PROXY_LIST& list, HWND hCombo, HWND hDlg, const wchar_t* pszHost, DWORD dwPort);

/// Shows the selected item's port, or the default of an item without one.
void ShowItemPort(const HOST_LIST& list, HWND hCombo, HWND hDlg);

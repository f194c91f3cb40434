#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * What the agent asks of the service's machine-wide registry settings before it has a connection. A missing
 * key or value gives the default, and reading creates nothing. The last error means nothing. Any thread.
 */

/// Where the service keeps its settings, under HKEY_LOCAL_MACHINE, and what those are called that the agent
/// reads.
constexpr wchar_t SERVICE_SETTINGS_KEY[] =
    L"SOFTWARE\\Tessaran Development\\Kestrel Desk Assist Service\\Settings";
constexpr wchar_t SERVICE_PORT_VALUE[] = L"Port";
constexpr wchar_t PERMISSION_REQUIRED_VALUE[] = L"Permission Required";
constexpr wchar_t TRAY_ICON_VALUE[] = L"TrayIcon";

/// What GetServicePort takes for "no fallback of the caller's own".
constexpr DWORD NO_FALLBACK_PORT = 0xFFFFFFFF;

/// The TCP port of the service; where none is set the fallback, and without one the product's default port.
DWORD GetServicePort(DWORD dwFallback);

/// Whether the person at the desktop must consent to a connection: zero means no, and is the default.
DWORD GetPermissionRequired();

/// How the tray icon is shown: the service's mode number (TRAY_ICON_MODE of tray/TrayIcon.h); always, by
/// default.
DWORD GetTrayIconMode();

/// Whether this user can change the machine's settings, found out by writing and deleting a test value. The
/// company's key is made for that where it is missing, and stays.
bool CanWriteMachineSettings();

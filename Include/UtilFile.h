#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <string_view>

/// Whether a file or folder of that name (wildcards allowed) exists; pInfo gets what the system knows about
/// it. Result: 1 when found, else 0. Any thread.
int GetFileInformation(const wchar_t* pszPath, WIN32_FIND_DATAW* pInfo);

/// Hands a document or program to the shell with a verb; a null pointer leaves the choice to the shell.
/// Result: what ShellExecuteExW answered, non-zero for success, with the last error otherwise. Any thread.
int TKShellExec(HWND hWnd, const wchar_t* pszVerb, const wchar_t* pszPath, const wchar_t* pszParameters,
                const wchar_t* pszDirectory);

/// Loads a module of this product, which can only lie beside the executable. Result: the module, which the
/// caller frees, with a last error of 0; or null with the last error. Any thread.
HINSTANCE KDA_LoadLibrary(const wchar_t* pszName);

/// Starts the permission prompt in a process of its own and doesn't wait for it. nPort is the UDP port of the
/// exchange, nAfType its address family. Result: 1 when the process started; 0 with the last error otherwise.
/// Any thread.
int ExecutePermission(int nPort, int nAfType);

/// The account this process runs under, as DOMAIN\name where there is a domain, in a buffer of cchAccount
/// characters; empty when the system can't tell. Any thread.
void GetAccountName(wchar_t* pszAccount, size_t cchAccount);

/// The folder of the executable, with the backslash at its end, in a buffer of cchDirectory characters; on
/// failure the buffer stays as it was. Any thread.
void GetProgramDirectory(wchar_t* pszDirectory, size_t cchDirectory);

/// The path of a file beside the executable, truncated to the buffer. Result: false, with the last error,
/// when the folder isn't known: a bare file name would send the system searching elsewhere. Any thread.
bool GetPathBesideProgram(wchar_t (&szPath)[MAX_PATH], std::wstring_view fileName);

/// Has everybody in this process, the system's own modules included, look for modules of a bare name in the
/// program's folder and the system's alone, and in those that somebody adds on purpose; no longer in the
/// current folder or on the path. For the process's beginning. Result: false, with the last error, on
/// failure. Any thread.
bool RestrictModuleSearch();

/// Loads a module by short name without ever looking into the current directory. Result: the module, which
/// the caller frees, or null with the last error; null for a null name. Any thread.
HMODULE TKLoadSystemLibrary(const wchar_t* pszName, HANDLE hFile, DWORD dwFlags);

#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>

/*
 * The ways out for the text of IDC_INVITE_TEXT. hDlg is the invitation dialog. Main thread. Each returns 1 on
 * success and 0 otherwise, and shows nothing on failure.
 */

/// Puts the text on the clipboard, in the ANSI code page.
int CopyAsBlob(HWND hDlg);

/// Makes a new file in the user's documents folder and puts it on the clipboard. It is named after the
/// invitation, with a number from 1 to 20 where that name is taken; with all taken nothing is made. The file
/// remains, whatever becomes of the clipboard.
int CopyAsFile(HWND hDlg);

/// Asks for a place and makes a new file there. A file that exists is never replaced.
int SaveAsFile(HWND hDlg);

/// Asks for a place to save a file of that suggested name at. pszPath has cchPath characters; it holds the
/// folder to begin with and gets the file chosen. *pFilterIndex is the choice of file type, and gets the new
/// one. 0 when the user cancels.
int FileSaveAs(HWND hDlg, const wchar_t* pszName, wchar_t* pszPath, size_t cchPath, DWORD* pFilterIndex);

/// The user's documents folder, made if it is missing, in a buffer of cchPath characters.
int GetFolderPath(wchar_t* pszPath, size_t cchPath);

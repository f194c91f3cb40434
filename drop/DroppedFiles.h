#pragma once

#include <winsock2.h>
#include <windows.h>
#include <shellapi.h>

#include "Include/Handles.h"
#include "channel/TrayMessages.h"

#include <cstddef>
#include <string>
#include <vector>

/*
 * How the names of dropped files reach the service: by the data file or, when that can't be written, by the
 * clipboard; then an event of the service is set. The files themselves are never read. Main thread.
 */

constexpr size_t MAX_DROPPED_TEXT = 520; // characters of a path or an entry, terminator included
constexpr wchar_t DROP_DATA_FOLDER[] = L"Tessaran Development\\sft"; // below %PROGRAMDATA%
constexpr wchar_t DROP_DATA_FILE[] = L"TKDASSFTF.data";
constexpr wchar_t DROP_COUNTER_KEY[] = L"Counter"; // the next free number of a client's section
constexpr wchar_t DROP_CLIPBOARD_FORMAT[] = L"TKDAS_Files";
constexpr SIZE_T DROPPED_FILE_BYTES = 520; // that the clipboard's block has for each file

/// How many files were dropped. More than 16 bits can count wrap around.
WORD CountDroppedFiles(HDROP hDrop);

/// Whether such a count is of files that can be handed over.
bool IsUsableCount(WORD nFiles);

/// A dropped path, cut to MAX_DROPPED_TEXT; empty when it can't be read.
std::wstring ReadDroppedPath(HDROP hDrop, UINT uFile);

/// What the data file says of a path: the path, and for a file on the network "|" and the name of the
/// connection that leads to it, cut to MAX_DROPPED_TEXT. Asks the network, which may take its time.
std::wstring ComposeDroppedEntry(const std::wstring& path);

/// The section of the data file that a client's names stand in. Any thread.
std::wstring DropDataSection(DWORD dwClientId);

/// The path of the data file. Its folder is the service's to make.
std::wstring DropDataFile();

/// The clipboard's block for paths of a drop of nFiles files. The paths stand there as they are, in 16 bits a
/// character; one that the block has no more room for is left out, as a piece of it would name another file.
/// Null when there is no memory, or room for none of them.
CGlobalBlock MakeDroppedBlock(const std::vector<std::wstring>& paths, WORD nFiles);

/// Writes the names into the client's section of the data file, sets the client's event, and has the window
/// closed. When nobody waits for the event the names are withdrawn and the window stays. False when there was
/// nothing to write, or nothing could be written.
bool HandOverByFile(HDROP hDrop, const MSG_TRAYICON_SFT_DROP_CLIENT& client, HWND hWnd);

/// The same by the clipboard; there the names stay, whoever waits.
void HandOverByClipboard(HDROP hDrop, const MSG_TRAYICON_SFT_DROP_CLIENT& client, HWND hWnd);

/// By the file, else by the clipboard.
void HandOver(HDROP hDrop, const MSG_TRAYICON_SFT_DROP_CLIENT& client, HWND hWnd);

/// A list of its own of the files that somebody has copied, as a drag brings them. Null when there are none.
CGlobalBlock ReadCopiedFiles(HWND hWnd);

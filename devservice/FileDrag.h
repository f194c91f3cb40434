#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>
#include <vector>

/// Drags files onto a window as the person at the desktop does: the button goes down on a window of the
/// dragger's own, the pointer moves to the middle of the other window, and the button comes up when that has
/// taken the drag in. Moves the real pointer. True when the files were dropped and the window took them. Any
/// thread but one whose windows the files are dropped on.
bool DragFilesOnto(const std::vector<std::wstring>& paths, HWND hTarget);

/// A list of files as a drag or the clipboard carries it; the caller frees it. Null when there is no memory.
/// Any thread.
HGLOBAL MakeFileList(const std::vector<std::wstring>& paths);

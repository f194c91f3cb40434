#pragma once

#include <winsock2.h>
#include <windows.h>

#include <optional>
#include <span>
#include <string>
#include <vector>

/*
 * What an agent has handed over of a drop: the client's section of the data file or, where that couldn't be
 * written, a block on the clipboard. Nothing in either is trusted. Any thread.
 */

/// Makes the data file's folder, which is the service's job, and in it an empty file that holds UTF-16: one
/// that an agent begins holds only what its ANSI code page can say. An older file stays. False leaves the
/// reason as the last error.
bool PrepareDropDataFile();

/// The entries of a client, in the order of the drop. Empty when there is no such section.
std::vector<std::wstring> ReadDroppedEntries(DWORD dwClientId);

/// Takes a client's section out of the file.
void RemoveDroppedEntries(DWORD dwClientId);

/// The paths in a block of the clipboard's format, in 16 bits a character whatever its header says. Empty
/// when the block isn't what it should be: a list that begins and ends inside of it.
std::optional<std::vector<std::wstring>> ParseDroppedBlock(std::span<const BYTE> block);

/// The paths on the clipboard; none when there is no such block, or a broken one.
std::vector<std::wstring> ReadDroppedClipboard();

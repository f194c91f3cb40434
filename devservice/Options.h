#pragma once

#include "channel/TrayMessages.h"

#include <optional>
#include <span>
#include <string>

/// What TKDAS.exe has been asked to do.
struct TKDAS_OPTIONS
{
    bool bHelp = false;
    bool bInteractive = false;
    bool bDemo = false;
    unsigned short nPort = static_cast<unsigned short>(DEFAULT_SERVICE_PORT);
    unsigned short nQueryPort = static_cast<unsigned short>(QUERY_PORT);
    std::wstring scriptFile;
    std::wstring recordFile;
    std::wstring playFile;
    std::wstring logFile;
    std::wstring marksFolder;
};

/// Reads the words behind the program's name. Empty leaves a message for the user in error. Any thread.
std::optional<TKDAS_OPTIONS> ParseOptions(std::span<const std::wstring> words, std::wstring& error);

/// What --help prints. Any thread.
std::wstring UsageText();

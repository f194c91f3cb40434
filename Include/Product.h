#pragma once

// What this product and its parts are called outside the program: in event texts, message boxes, the service
// manager and the file system.
constexpr wchar_t PRODUCT_NAME[] = L"Tessaran Kestrel Desk Assist";
constexpr wchar_t LANGUAGE_MODULE[] = L"TKDASTRES.dll";
constexpr wchar_t AGENT_EXECUTABLE[] = L"TKDAST.exe";
constexpr wchar_t SERVICE_EXECUTABLE[] = L"TKDAS.exe";
constexpr wchar_t SETTINGS_MODULE[] = L"TKDASET.DLL";

// The local service, and the source under which its agent and it write to the Windows event log.
constexpr wchar_t SERVICE_NAME[] = L"tkkdas";

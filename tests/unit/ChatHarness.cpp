#include "tests/unit/ChatHarness.h"

#include <algorithm>
#include <cstring>
#include <iterator>

std::vector<BYTE> ChatHarness::ChatRecord(const std::vector<BYTE>& payload, std::wstring_view username)
{
    MSG_CHAT_MESSAGE head = {};
    head.dwType = MSG_TYPE_CHAT_MESSAGE;
    head.dwMessageLength = static_cast<DWORD>(payload.size());
    username.copy(head.szUsername, std::size(head.szUsername));
    std::vector<BYTE> record(sizeof(head) + payload.size());
    std::memcpy(record.data(), &head, sizeof(head));
    std::copy(payload.begin(), payload.end(), record.begin() + sizeof(head));
    return record;
}

std::vector<BYTE> ChatHarness::Payload(size_t nBytes, DWORD dwSeed)
{
    constexpr DWORD FACTOR = 1664525;
    constexpr DWORD STEP = 1013904223;
    constexpr int HIGHEST_BYTE = 24;
    std::vector<BYTE> payload(nBytes);
    for (BYTE& bByte : payload)
    {
        dwSeed = dwSeed * FACTOR + STEP;
        bByte = static_cast<BYTE>(dwSeed >> HIGHEST_BYTE);
    }
    return payload;
}

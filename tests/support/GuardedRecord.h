#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

#include <winsock2.h>
#include <windows.h>

/// Bytes that end where the memory ends: one read or write behind them is an access violation, and so the end
/// of the test program.
class GuardedBytes
{
  public:
    explicit GuardedBytes(size_t nBytes)
    {
        SYSTEM_INFO system = {};
        GetSystemInfo(&system);
        const size_t nPage = system.dwPageSize;
        const size_t nUsable = (nBytes + nPage - 1) / nPage * nPage;
        m_pPages = static_cast<BYTE*>(
            VirtualAlloc(nullptr, nUsable + nPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        DWORD dwBefore = 0;
        if (m_pPages == nullptr || !VirtualProtect(m_pPages + nUsable, nPage, PAGE_NOACCESS, &dwBefore))
        {
            throw std::bad_alloc();
        }
        m_pBytes = m_pPages + nUsable - nBytes;
    }
    ~GuardedBytes() { VirtualFree(m_pPages, 0, MEM_RELEASE); }
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    BYTE* Get() const { return m_pBytes; }

  private:
    BYTE* m_pPages;
    BYTE* m_pBytes;
};

/// A record, or a text field, that ends where the memory ends.
template <typename Record>
class GuardedRecord
{
    static_assert(std::is_trivially_copyable_v<Record>);

  public:
    explicit GuardedRecord(const Record& record) : m_bytes(sizeof(Record))
    {
        std::memcpy(m_bytes.Get(), &record, sizeof(Record));
    }

    Record& operator*() const { return *reinterpret_cast<Record*>(m_bytes.Get()); }
    Record* operator->() const { return &**this; }

  private:
    GuardedBytes m_bytes;
};

#pragma once

#include <cstdlib>

#include <winsock2.h>
#include <windows.h>

/// A record that a test shares with other programs and modules under a name, for as long as the object lives.
/// One object of a name at a time in one logon session.
template <typename Record>
class SharedRecord
{
  public:
    SharedRecord(const wchar_t* pszName, const Record& initial)
        : m_hMapping(
              CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Record), pszName)),
          m_pRecord(static_cast<Record*>(MapViewOfFile(m_hMapping, FILE_MAP_WRITE, 0, 0, sizeof(Record))))
    {
        if (m_pRecord == nullptr)
        {
            std::abort();
        }
        *m_pRecord = initial;
    }
    ~SharedRecord()
    {
        UnmapViewOfFile(m_pRecord);
        CloseHandle(m_hMapping);
    }
    SharedRecord(const SharedRecord&) = delete;
    SharedRecord& operator=(const SharedRecord&) = delete;

    Record* operator->() const { return m_pRecord; }

  private:
    HANDLE m_hMapping;
    Record* m_pRecord;
};

#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>

/// Zeroes a buffer that holds a secret at the end of the scope, in a way that no compiler leaves out. The
/// buffer outlives the object, and stays where it is; the size is in bytes. Any thread.
class CWipeAtEnd
{
  public:
    CWipeAtEnd(void* pBuffer, size_t cbBuffer) noexcept : m_pBuffer(pBuffer), m_cbBuffer(cbBuffer) {}
    ~CWipeAtEnd() { SecureZeroMemory(m_pBuffer, m_cbBuffer); }
    CWipeAtEnd(const CWipeAtEnd&) = delete;
    CWipeAtEnd& operator=(const CWipeAtEnd&) = delete;

  private:
    void* const m_pBuffer;
    const size_t m_cbBuffer;
};

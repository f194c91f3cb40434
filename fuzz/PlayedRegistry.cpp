#include "fuzz/PlayedRegistry.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace
{
constexpr BYTE HALF_READ = 0xEE;

HKEY PlayedKey()
{
    return reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x4B4B));
}
} // namespace

CPlayedRegistry* CPlayedRegistry::s_pThis = nullptr;

CPlayedRegistry::CPlayedRegistry(ANSWER answer) : m_answer(std::move(answer))
{
    s_pThis = this;
}

CPlayedRegistry::~CPlayedRegistry()
{
    s_pThis = nullptr;
}

LSTATUS WINAPI CPlayedRegistry::Open(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY phKey)
{
    *phKey = PlayedKey();
    return ERROR_SUCCESS;
}

LSTATUS WINAPI CPlayedRegistry::Create(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES,
                                       PHKEY phKey, LPDWORD)
{
    *phKey = PlayedKey();
    return ERROR_SUCCESS;
}

LSTATUS WINAPI CPlayedRegistry::Close(HKEY)
{
    return ERROR_SUCCESS;
}

LSTATUS WINAPI CPlayedRegistry::Query(HKEY, LPCWSTR pszName, LPDWORD, LPDWORD pdwType, LPBYTE pData,
                                      LPDWORD pcbData)
{
    const std::optional<PLAYED_VALUE> value = s_pThis->m_answer(pszName);
    if (!value)
    {
        return ERROR_FILE_NOT_FOUND;
    }
    if (pdwType != nullptr)
    {
        *pdwType = value->dwType;
    }
    const DWORD cbRoom = std::exchange(*pcbData, static_cast<DWORD>(value->data.size()));
    if (pData == nullptr)
    {
        return ERROR_SUCCESS;
    }
    if (value->data.size() > cbRoom)
    {
        std::fill_n(pData, cbRoom, HALF_READ); // what it then holds nobody promises
        return ERROR_MORE_DATA;
    }
    std::copy(value->data.begin(), value->data.end(), pData);
    return ERROR_SUCCESS;
}

// Reads all that is to be stored, so that a size too large shows.
LSTATUS WINAPI CPlayedRegistry::Set(HKEY, LPCWSTR, DWORD, DWORD, const BYTE* pData, DWORD cbData)
{
    volatile unsigned int uSum = std::accumulate(pData, pData + cbData, 0U);
    return uSum != 0 || cbData == 0 ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

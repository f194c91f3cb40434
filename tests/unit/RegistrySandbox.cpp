#include "tests/unit/RegistrySandbox.h"

#include <gtest/gtest.h>

namespace
{
HKEY MakeKey(HKEY hParent, const wchar_t* pszName)
{
    HKEY hKey = nullptr;
    EXPECT_EQ(RegCreateKeyExW(hParent, pszName, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                              &hKey, nullptr),
              ERROR_SUCCESS);
    return hKey;
}
} // namespace

RegistrySandbox::RegistrySandbox(HKEY hRoot)
    : m_hRoot(hRoot), m_hParent(MakeKey(HKEY_CURRENT_USER, L"Software\\KDA unit tests")),
      m_name(std::to_wstring(GetCurrentProcessId()) + L'.' +
             std::to_wstring(reinterpret_cast<ULONG_PTR>(hRoot)))
{
    RegDeleteTreeW(m_hParent, m_name.c_str());
    const HKEY hKey = MakeKey(m_hParent, m_name.c_str());
    EXPECT_EQ(RegOverridePredefKey(m_hRoot, hKey), ERROR_SUCCESS);
    RegCloseKey(hKey);
}

RegistrySandbox::~RegistrySandbox()
{
    RegOverridePredefKey(m_hRoot, nullptr);
    RegDeleteTreeW(m_hParent, m_name.c_str());
    RegCloseKey(m_hParent);
}

#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>

/// Lets this process see an empty key in the place of a root key for as long as the object lives, so that a
/// test neither meets nor leaves anything in the real one.
class RegistrySandbox
{
  public:
    explicit RegistrySandbox(HKEY hRoot);
    ~RegistrySandbox();
    RegistrySandbox(const RegistrySandbox&) = delete;
    RegistrySandbox& operator=(const RegistrySandbox&) = delete;

  private:
    HKEY m_hRoot;
    HKEY m_hParent = nullptr;
    std::wstring m_name;
};

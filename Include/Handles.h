#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/LastError.h"

#include <utility>

/// Sole owner of one system object. The traits name the handle's type, the value that stands for "none" and
/// the call that ends it; handles whose "none" differs are different types, so that one can't be tested by
/// the other's rule. Ending a handle keeps the last error. Threads: as the handle itself; the owner isn't
/// guarded.
template <typename Traits>
class CUniqueAny
{
  public:
    using Handle = typename Traits::Handle;

    CUniqueAny() noexcept = default;
    explicit CUniqueAny(Handle hOwned) noexcept : m_h(hOwned) {}
    CUniqueAny(CUniqueAny&& other) noexcept : m_h(other.release()) {}
    CUniqueAny& operator=(CUniqueAny&& other) noexcept
    {
        if (this != &other)
        {
            reset(other.release());
        }
        return *this;
    }
    ~CUniqueAny() { reset(); }

    Handle get() const noexcept { return m_h; }
    explicit operator bool() const noexcept { return m_h != Traits::Invalid(); }

    /// Ends what is owned and gives the address for an out-parameter.
    Handle* put() noexcept
    {
        reset();
        return &m_h;
    }

    /// Gives the handle up: the caller ends it.
    [[nodiscard]] Handle release() noexcept { return std::exchange(m_h, Traits::Invalid()); }

    /// Ends what is owned and takes over another handle.
    void reset(Handle hOwned = Traits::Invalid()) noexcept
    {
        const Handle hOld = std::exchange(m_h, hOwned);
        if (hOld == Traits::Invalid())
        {
            return;
        }
        const CKeepLastError keepLastError;
        Traits::Close(hOld);
    }

  private:
    Handle m_h = Traits::Invalid();
};

namespace HandleTraits
{
template <typename Type>
struct NullInvalid
{
    using Handle = Type;
    static Handle Invalid() noexcept { return nullptr; }
};

struct FileInvalid
{
    using Handle = HANDLE;
    static Handle Invalid() noexcept { return INVALID_HANDLE_VALUE; }
};

struct Kernel : NullInvalid<HANDLE>
{
    static void Close(Handle h) noexcept { CloseHandle(h); }
};

struct File : FileInvalid
{
    static void Close(Handle h) noexcept { CloseHandle(h); }
};

struct Find : FileInvalid
{
    static void Close(Handle h) noexcept { FindClose(h); }
};

struct RegKey : NullInvalid<HKEY>
{
    static void Close(Handle h) noexcept { RegCloseKey(h); }
};

struct Module : NullInvalid<HMODULE>
{
    static void Close(Handle h) noexcept { FreeLibrary(h); }
};

struct Desktop : NullInvalid<HDESK>
{
    static void Close(Handle h) noexcept { CloseDesktop(h); }
};

struct Service : NullInvalid<SC_HANDLE>
{
    static void Close(Handle h) noexcept { CloseServiceHandle(h); }
};

struct GdiObject : NullInvalid<HGDIOBJ>
{
    static void Close(Handle h) noexcept { DeleteObject(h); }
};

struct Menu : NullInvalid<HMENU>
{
    static void Close(Handle h) noexcept { DestroyMenu(h); }
};

struct Icon : NullInvalid<HICON>
{
    static void Close(Handle h) noexcept { DestroyIcon(h); }
};

struct Window : NullInvalid<HWND>
{
    static void Close(Handle h) noexcept { DestroyWindow(h); }
};

struct HeapBlock : NullInvalid<void*>
{
    static void Close(Handle p) noexcept { HeapFree(GetProcessHeap(), 0, p); }
};

struct LocalBlock : NullInvalid<void*>
{
    static void Close(Handle p) noexcept { LocalFree(p); }
};

struct GlobalBlock : NullInvalid<HGLOBAL>
{
    static void Close(Handle h) noexcept { GlobalFree(h); }
};

struct LocalText : NullInvalid<wchar_t*>
{
    static void Close(Handle p) noexcept { LocalFree(p); }
};
} // namespace HandleTraits

/// Process, thread, token, event, mutex, mapping: null means none.
using CKernelHandle = CUniqueAny<HandleTraits::Kernel>;
/// From CreateFileW: INVALID_HANDLE_VALUE means none.
using CFileHandle = CUniqueAny<HandleTraits::File>;
/// From FindFirstFileW.
using CFindHandle = CUniqueAny<HandleTraits::Find>;
using CRegKey = CUniqueAny<HandleTraits::RegKey>;
/// A module of this process's own loading, ended with FreeLibrary.
using CModule = CUniqueAny<HandleTraits::Module>;
using CDesktop = CUniqueAny<HandleTraits::Desktop>;
/// Service control manager or service.
using CServiceHandle = CUniqueAny<HandleTraits::Service>;
/// Brush, pen, font, bitmap; must not be selected into a device context any more when it ends.
using CGdiObject = CUniqueAny<HandleTraits::GdiObject>;
using CMenu = CUniqueAny<HandleTraits::Menu>;
using CIcon = CUniqueAny<HandleTraits::Icon>;
/// Must end on the thread that made the window.
using CWindow = CUniqueAny<HandleTraits::Window>;
/// From HeapAlloc on the process heap.
using CHeapBlock = CUniqueAny<HandleTraits::HeapBlock>;
/// From LocalAlloc.
using CLocalBlock = CUniqueAny<HandleTraits::LocalBlock>;
/// From GlobalAlloc; must not be locked any more when it ends.
using CGlobalBlock = CUniqueAny<HandleTraits::GlobalBlock>;
/// Text that the system allocated for us, as FormatMessageW does.
using CLocalText = CUniqueAny<HandleTraits::LocalText>;

#pragma once

#include "tray/TKDASTWindow.h"

/// One window of the agent, shown with made-up records.
struct EXHIBIT
{
    const wchar_t* pszName;
    const wchar_t* pszWhat;
    /// Shows the window; a modal one only when it is closed does it return. Main thread.
    void (*pfnShow)(CTaskBarWindow& window);
};

/// Ends with a row without a name.
extern const EXHIBIT g_exhibits[];

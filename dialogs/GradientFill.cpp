#include "dialogs/GradientFill.h"

#include "Include/Handles.h"
#include "Include/SystemCall.h"

namespace
{
using GradientFillFunction = BOOL(WINAPI*)(HDC, TRIVERTEX*, ULONG, void*, ULONG, ULONG);

CModule g_hGradientModule;
GradientFillFunction g_pfnGradientFill = nullptr;

// Eight bits of a colour become the high byte of sixteen.
COLOR16 WideChannel(BYTE bChannel)
{
    return static_cast<COLOR16>(bChannel << 8);
}

TRIVERTEX Vertex(LONG nX, LONG nY, COLORREF crColor)
{
    return {nX,
            nY,
            WideChannel(GetRValue(crColor)),
            WideChannel(GetGValue(crColor)),
            WideChannel(GetBValue(crColor)),
            0};
}

bool CanScreenShowGradient()
{
    const HDC hScreen = GetDC(nullptr);
    const int nBrushes = GetDeviceCaps(hScreen, NUMBRUSHES);
    ReleaseDC(nullptr, hScreen);
    return nBrushes != 0;
}
} // namespace

int LoadGradientFill()
{
    if (g_pfnGradientFill != nullptr)
    {
        return 1;
    }
    if (!CanScreenShowGradient())
    {
        return 0;
    }
    g_hGradientModule.reset(TKLoadSystemLibrary(L"msimg32.dll", nullptr, 0));
    if (!g_hGradientModule)
    {
        return 0;
    }
    g_pfnGradientFill = FindModuleEntry<GradientFillFunction>(g_hGradientModule.get(), "GradientFill");
    return g_pfnGradientFill != nullptr ? 1 : 0;
}

int FillGradientRect(HDC hDC, const RECT* pRect, COLORREF crTop, COLORREF crBottom, BOOL bHorizontal)
{
    if (g_pfnGradientFill == nullptr)
    {
        return 0;
    }
    TRIVERTEX aVertices[] = {Vertex(pRect->left, pRect->top, crTop),
                             Vertex(pRect->right, pRect->bottom, crBottom)};
    GRADIENT_RECT corners = {0, 1};
    return g_pfnGradientFill(hDC, aVertices, 2, &corners, 1,
                             bHorizontal ? GRADIENT_FILL_RECT_H : GRADIENT_FILL_RECT_V);
}

void UnloadGradientFill()
{
    g_pfnGradientFill = nullptr;
    g_hGradientModule.reset();
}

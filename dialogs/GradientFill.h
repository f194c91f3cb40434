#pragma once

#include <winsock2.h>
#include <windows.h>

/*
 * The background of the agent's painted dialogs. Main thread.
 */

constexpr COLORREF GRADIENT_TOP_COLOR = 0xFEECDD;
constexpr COLORREF GRADIENT_BOTTOM_COLOR = 0xE2A981;

/// Whether a gradient can be painted: 1 or 0. Loads the function, which stays until UnloadGradientFill.
int LoadGradientFill();

/// Fills a rectangle from one colour to the other, top to bottom or, with bHorizontal, left to right. Returns
/// what the system answered, or 0 while the function isn't loaded.
int FillGradientRect(HDC hDC, const RECT* pRect, COLORREF crTop, COLORREF crBottom, BOOL bHorizontal);

/// Forgets the function for all dialogs: what another one paints next fails, and it falls back to its plain
/// background.
void UnloadGradientFill();

#pragma once

#include <winsock2.h>
#include <windows.h>

#include <msi.h>

/// A step of the installer, before it decides what to install: gives the properties that nobody named on the
/// command line the values they have on this machine, where an earlier installation had brought them along.
/// Without this step a repair would write nothing in their place, and an upgrade would forget them. Any
/// thread of the installer. Result: a Windows error code.
extern "C" UINT __stdcall KeepSettings(MSIHANDLE hInstall);

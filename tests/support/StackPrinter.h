#pragma once

#include <winsock2.h>
#include <windows.h>

/// Writes the calls that lead to the given register state to the standard error stream, innermost first.
/// Any thread; not two at once.
void PrintStack(const CONTEXT& context);

/// Writes the calls of every thread of this process but the calling one. Each thread is stopped only while
/// its addresses are gathered, and nothing is allocated meanwhile, so a thread that holds the heap's lock
/// can't block the printing.
void PrintOtherThreads();

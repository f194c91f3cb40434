#pragma once

/// Whether the user has asked the system for high contrast: what a window paints itself is in the system's
/// colours then, and in nothing else. False, too, where the system doesn't say. The last error isn't told.
/// Any thread.
bool IsHighContrast();

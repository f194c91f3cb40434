#pragma once

#include "certificates/CertificateRegistry.h"

/*
 * The question whether a certificate may be trusted: the whole of a run that answers its caller by the exit
 * code. Main thread.
 */

/// Finds the candidate and, unless the user trusts exactly that certificate already, asks. True only when it
/// is trusted already or the person has accepted it; whatever else happens is a refusal.
bool ValidateCertDialog();

/// IDD_VALIDATE_CERTIFICATE. Modal; ends with IDYES, IDNO, or IDCANCEL when it is closed.
INT_PTR CALLBACK ValidateCertProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);

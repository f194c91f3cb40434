#pragma once

#include "channel/TrayMessages.h"

/*
 * What the invitation dialog asks of the service, each on a socket of its own to the query port. Main thread,
 * which waits: five seconds for each answer at most. A service that doesn't answer, or not in the right size,
 * shows nothing.
 */

/// Asks for an invitation and puts its text into IDC_INVITE_TEXT; a refusal is shown with the service's
/// reason. The record's dwRequest is set here. 1 when the text was received and shown, else 0.
int CreateInvitationViaUDP(HWND hDlg, MSG_UDP_CREATE_INVITATION& record);

/// Asks that all invitations be deleted. 1 when a good answer came, which says what became of them, else 0.
int DeleteInvitationsViaUDP(MSG_UDP_DELETE_INVITATIONS& answer);

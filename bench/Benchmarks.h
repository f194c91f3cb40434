#pragma once

class Report;

/// Records per second through the agent's reader thread, against a loop of two blocking receives a record.
void MeasureReader(Report& report);

/// Chat messages per second from the socket to the chat module, against a bare loop of SendMessageW from one
/// thread to another.
void MeasureChat(Report& report);

/// From a settings record's first byte to the shell's new icon, against a bare call of the shell.
void MeasureIcon(Report& report);

/// From a connect record's first byte to the painted notice, without the delay it has on purpose, against a
/// bare program that shows the same dialog after the same delay.
void MeasurePopup(Report& report);

/// A TKLogBlock with TRACE off, against one level test.
void MeasureLogBlock(Report& report);

/// From the start of the process to the answer to the service's first record, against the minimal agent.
void MeasureStart(Report& report);

/// Memory, handles and wake-ups of an agent that has nothing to do, against the minimal agent.
void MeasureRest(Report& report);

#pragma once

#include <string>
#include <vector>

class Report;

// Each part measures, and names the figures that it adds to the report, in their order.

/// A TKLogBlock with TRACE off, against one level test.
void MeasureLogBlock(Report& report);
std::vector<std::string> LogBlockFigureNames();

/// Records per second through the agent's reader thread, against a loop of two blocking receives a record.
void MeasureReader(Report& report);
std::vector<std::string> ReaderFigureNames();

/// Chat messages per second from the socket to the chat module, against a bare loop of SendMessageW from one
/// thread to another.
void MeasureChat(Report& report);
std::vector<std::string> ChatFigureNames();

/// From a settings record's first byte to the shell's new icon, against a bare call of the shell.
void MeasureIcon(Report& report);
std::vector<std::string> IconFigureNames();

/// From a connect record's first byte to the painted notice, without the delay it has on purpose, against a
/// bare program that shows the same dialog after the same delay.
void MeasurePopup(Report& report);
std::vector<std::string> PopupFigureNames();

/// From the start of the process to the answer to the service's first record, against the minimal agent.
void MeasureStart(Report& report);
std::vector<std::string> StartFigureNames();

/// Memory, handles and wake-ups of an agent that has nothing to do, against the minimal agent.
void MeasureRest(Report& report);
std::vector<std::string> RestFigureNames();

/// Many agents at one stand-in service, against one of them alone.
void MeasureCrowd(Report& report);
std::vector<std::string> CrowdFigureNames();

/// The staged files and the packages, against the smallest programs and against each other.
void MeasureSizes(Report& report);
std::vector<std::string> SizeFigureNames();

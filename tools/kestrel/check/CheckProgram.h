#ifndef KESTREL_TOOLS_CHECK_CHECKPROGRAM_H
#define KESTREL_TOOLS_CHECK_CHECKPROGRAM_H

#include "tools/kestrel/check/CheckReport.h"
#include "tools/session/program/ProgramProcess.h"

#include <ostream>

namespace KestrelTool
{

/// Runs a program to its end, and each of its launches a second time with checks.
/// \param bApi  also check the program's use of OpenCL
/// \param messages  receives what couldn't be checked, with the reason
/// \return the program's exit code, or an EExitCode if something couldn't be checked
/// \throws CProgramError
int CheckProgram(const CCheckedRuns& runs, const CLibraries& libraries, const SProgramCommand& command, bool bApi,
                 CCheckReport& report, std::ostream& messages);

} // namespace KestrelTool

#endif

#ifndef KESTREL_TOOLS_COMMAND_MANUAL_H
#define KESTREL_TOOLS_COMMAND_MANUAL_H

#include "tools/session/launch/Libraries.h"

#include <string>

namespace KestrelTool
{

/// The manual in Markdown: the table of commands, each with its example and the output of running that on a launch in
/// strExamples.
std::string MakeManual(const CLibraries& libraries, const std::string& strExamples);
/// The man page.
std::string MakeManPage();

} // namespace KestrelTool

#endif

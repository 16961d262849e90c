#ifndef KESTREL_TOOLS_COMMAND_EXITCODE_H
#define KESTREL_TOOLS_COMMAND_EXITCODE_H

namespace KestrelTool
{

/// The exit codes of the tool.
enum EExitCode
{
    EXIT_GOOD = 0,
    EXIT_COMMAND_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_PLATFORM_FAILED = 3,
    EXIT_OUTPUT_DIFFERS = 4,
    EXIT_FAULT = 5 ///< the platform has recorded a fault of a work-item
};

} // namespace KestrelTool

#endif

#ifndef KESTREL_TOOLS_COMMAND_EXITCODE_H
#define KESTREL_TOOLS_COMMAND_EXITCODE_H

namespace KestrelTool
{

/// What the program gives back.
enum EExitCode
{
    EXIT_GOOD = 0,
    EXIT_COMMAND_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_PLATFORM_FAILED = 3,
    EXIT_OUTPUT_DIFFERS = 4,
    EXIT_FAULT = 5 ///< the platform has recorded something that a work-item shouldn't have done
};

} // namespace KestrelTool

#endif

#ifndef KESTREL_TOOLS_CODES_H
#define KESTREL_TOOLS_CODES_H

#include <OVKKestrel.h>

#include <string>

namespace KestrelTool
{

/// An OpenCL code with its number and its words: "CL_OUT_OF_RESOURCES (-5), out of resources".
std::string NameCode(cl_int nCode);
/// A code of the debugger's in words.
std::string NameDebugCode(ovkclDebugError nCode);
/// Whether a code tells that the platform couldn't do what it was asked for, and not that it was asked wrongly.
bool IsPlatformFailure(cl_int nCode);

} // namespace KestrelTool

#endif

#ifndef KESTREL_TOOLS_CODES_H
#define KESTREL_TOOLS_CODES_H

#include <OVKKestrel.h>

#include <string>

namespace KestrelTool
{

/// An OpenCL code with its number and its words: "CL_OUT_OF_RESOURCES (-5), out of resources".
std::string NameCode(cl_int nCode);
/// The description of one of the debugger's codes.
std::string NameDebugCode(ovkclDebugError nCode);
/// Whether a code means that the platform couldn't do something, rather than that the request was wrong.
bool IsPlatformFailure(cl_int nCode);

} // namespace KestrelTool

#endif

#ifndef KESTREL_PLATFORM_RUNTIME_PRINTFRECORDS_H
#define KESTREL_PLATFORM_RUNTIME_PRINTFRECORDS_H

#include "platform/compiler/ProgramBuilder.h"
#include "platform/runtime/MemObject.h"
#include "platform/simt/WideLaunch.h"

#include <memory>
#include <string>
#include <vector>

namespace KestrelPlatform::Runtime
{

/// Gives a launch a buffer for what its kernel prints, among the memory that it may reach.
///
/// \return null for a kernel that prints nothing, and where there is no room for the buffer
std::unique_ptr<CStorage> ListenToPrintf(const SCompiledKernel& kernel, SLaunch& launch);

/// Writes what a kernel printed to the process's standard output.
void PrintRecords(const std::vector<SPrintfFormat>& vFormats, const CStorage& storage);

/// What a launch's kernel has written by printf, as text. Records of one work-group stand in the order in which they
/// were written, work-groups one after the other; docs/kernel-binary.md tells how the buffer is laid out.
///
/// A directive that doesn't fit its argument, or has none, stands in the text as it is in the format. Records that
/// make no sense end the text.
///
/// \param pBuffer the buffer, nBytes of it, its two words in front of the records included
/// \return the text, with a line about records that didn't fit if there were any
std::string FormatRecords(const std::vector<SPrintfFormat>& vFormats, const unsigned char* pBuffer, size_t nBytes);

} // namespace KestrelPlatform::Runtime

#endif

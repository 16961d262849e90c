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

/// Adds a buffer for the kernel's printf output to the memory of a launch.
///
/// \return null for a kernel without printf, and if there is no room for the buffer
std::unique_ptr<CStorage> ListenToPrintf(const SCompiledKernel& kernel, SLaunch& launch);

/// Writes what a kernel printed to the process's standard output.
void PrintRecords(const std::vector<SPrintfFormat>& vFormats, const CStorage& storage);

/// The printf output of a launch's kernel as text. Work-groups come one after the other, and the records of each in the
/// order in which they were written; docs/kernel-binary.md describes the buffer.
///
/// A directive without an argument, or with one of the wrong type, is copied from the format unchanged. An invalid
/// record ends the text.
///
/// \param pBuffer the buffer, nBytes long, with the two words before the records
/// \return the text, with a final line about records that didn't fit if there were any
std::string FormatRecords(const std::vector<SPrintfFormat>& vFormats, const unsigned char* pBuffer, size_t nBytes);

} // namespace KestrelPlatform::Runtime

#endif

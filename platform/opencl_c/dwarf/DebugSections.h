#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_DEBUGSECTIONS_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_DEBUGSECTIONS_H

#include "platform/compiler/FrontEnd.h"

#include <vector>

namespace llvm
{
class Module;
} // namespace llvm

namespace KestrelOpenCL
{

struct SLowered;

using KestrelPlatform::SDebugSection;

/// Writes DWARF 4 from a module's debug metadata and the lines and variables that lowering has recorded.
///
/// \param bLinesOnly leaves out all but the line table
std::vector<SDebugSection> WriteDwarf(const llvm::Module& module, const SLowered& lowered, bool bLinesOnly);

} // namespace KestrelOpenCL

#endif

#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_LINETABLE_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_LINETABLE_H

#include "platform/opencl_c/dwarf/FileTable.h"

#include <string>

namespace KestrelOpenCL
{

struct SLowered;

/// `.debug_line`, by section 6.2 of the DWARF 4 standard: for each kernel a sequence of rows. A line of the IL without
/// a place of its own belongs to the row before it, the first ones to the line where the kernel's body begins.
///
/// \param files gets the files that the lines name, and keeps those that it has
std::string WriteLineTable(const SLowered& lowered, CFileTable& files);

} // namespace KestrelOpenCL

#endif

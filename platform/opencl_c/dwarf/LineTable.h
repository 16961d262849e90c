#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_LINETABLE_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_LINETABLE_H

#include "platform/opencl_c/dwarf/FileTable.h"

#include <string>

namespace KestrelOpenCL
{

struct SLowered;

/// `.debug_line`, by section 6.2 of the DWARF 4 standard: a sequence of rows for each kernel. An IL line without a
/// source place belongs to the row before it; the first ones belong to the line where the kernel's body begins.
///
/// \param files receives the files that the lines name, in addition to those it has
std::string WriteLineTable(const SLowered& lowered, CFileTable& files);

} // namespace KestrelOpenCL

#endif

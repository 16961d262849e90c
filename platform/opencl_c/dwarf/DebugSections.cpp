#include "platform/opencl_c/dwarf/DebugSections.h"

#include "platform/opencl_c/dwarf/LineTable.h"
#include "platform/opencl_c/dwarf/UnitDies.h"
#include "platform/opencl_c/lowering/Lowered.h"

namespace KestrelOpenCL
{

std::vector<SDebugSection> WriteDwarf(const llvm::Module& module, const SLowered& lowered, bool bLinesOnly)
{
    std::vector<SDebugSection> vSections;
    CFileTable files;
    if (!bLinesOnly)
    {
        CUnitDies(module, lowered, files).Write(vSections);
    }
    // Written last, when all files have their numbers.
    vSections.push_back({".debug_line", WriteLineTable(lowered, files)});
    if (!bLinesOnly)
    {
        vSections.push_back({".debugsrc", files.WriteTexts()});
    }
    return vSections;
}

} // namespace KestrelOpenCL

#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_UNITDIES_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_UNITDIES_H

#include "platform/opencl_c/dwarf/ByteWriter.h"
#include "platform/opencl_c/dwarf/DebugSections.h"
#include "platform/opencl_c/dwarf/DieTree.h"
#include "platform/opencl_c/dwarf/FileTable.h"
#include "platform/opencl_c/dwarf/PlaceExpressions.h"
#include "platform/opencl_c/dwarf/ScopeTree.h"
#include "platform/opencl_c/dwarf/TypeDies.h"

#include "llvm/ADT/DenseMap.h"

#include <map>
#include <vector>

namespace llvm
{
class DILocalVariable;
class DISubprogram;
class GlobalVariable;
class Module;
} // namespace llvm

namespace KestrelOpenCL
{

/// The entries of a program: one compile unit with its kernels, their inlined functions, blocks and variables.
/// Addresses are lines of the IL.
class CUnitDies
{
public:
    CUnitDies(const llvm::Module& module, const SLowered& lowered, CFileTable& files);

    /// Appends `.debug_info`, `.debug_abbrev`, `.debug_str`, `.debug_loc`, `.debug_ranges` and `.debug_aranges`.
    void Write(std::vector<SDebugSection>& vSections);

private:
    using CDie = CDieTree::CDie;
    using CVariableKey = std::pair<const llvm::DILocalVariable*, const llvm::DILocation*>;

    void AddUnit();
    void CollectVariables();
    void AddKernel(const SLoweredKernel& kernel);
    void AddScopes(const SLoweredKernel& kernel, const CScopeTree& scopes);
    void AddVariables(const SLoweredKernel& kernel, const CScopeTree& scopes);
    void AddLocals(const SLoweredKernel& kernel, const CScopeTree& scopes);
    void AddConstants();
    void SetRanges(CDie die, const std::vector<std::pair<uint32_t, uint32_t>>& vRanges);
    void SetLocation(CDie die, const SLoweredKernel& kernel, const std::vector<const SVariablePlace*>& vPlaces);
    void DescribeSubprogram(CDie die, const llvm::DISubprogram& subprogram);
    void DescribeVariable(CDie die, const llvm::DILocalVariable& variable);
    CDie AddVariable(CDie parent, const llvm::DILocalVariable& variable);
    CDie Abstract(const llvm::DISubprogram& subprogram);
    CDie AbstractBlock(const llvm::DILocalScope& block);
    CDie AbstractVariable(const llvm::DILocalVariable& variable);
    std::string WriteAddressRanges() const;

    const llvm::Module& m_Module;
    const SLowered& m_Lowered;
    CFileTable& m_Files;
    CDieTree m_Tree;
    CDie m_Unit;
    CTypeDies m_Types;
    CByteWriter m_Ranges;
    std::vector<std::pair<uint32_t, uint32_t>> m_vKernelRanges;
    /// The variables of each function that have a place anywhere: parameters in order, then the others by line.
    std::map<const llvm::DISubprogram*, std::vector<const llvm::DILocalVariable*>> m_mapVariables;
    llvm::DenseMap<const llvm::DILocalScope*, CDie> m_mapAbstract;
    llvm::DenseMap<const llvm::DILocalVariable*, CDie> m_mapAbstractVariables;
    std::vector<CDie> m_vScopeDies; ///< of the kernel that is being added, by scope
};

} // namespace KestrelOpenCL

#endif

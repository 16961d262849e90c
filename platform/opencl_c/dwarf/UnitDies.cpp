#include "platform/opencl_c/dwarf/UnitDies.h"

#include "platform/opencl_c/dwarf/ConstantBytes.h"
#include "platform/opencl_c/lowering/Lowered.h"

#include "llvm/BinaryFormat/Dwarf.h"
#include "llvm/IR/Constants.h"
#include "llvm/IR/DebugInfoMetadata.h"
#include "llvm/IR/Function.h"
#include "llvm/IR/Module.h"

#include <algorithm>
#include <set>

namespace KestrelOpenCL
{

using namespace llvm::dwarf;

namespace
{

const uint8_t s_nFrameBase = DW_OP_lit0; ///< private memory begins at its offset 0

std::string_view View(llvm::StringRef text)
{
    return {text.data(), text.size()};
}

} // namespace

CUnitDies::CUnitDies(const llvm::Module& module, const SLowered& lowered, CFileTable& files)
    : m_Module(module), m_Lowered(lowered), m_Files(files), m_Unit(m_Tree.Add(-1, DW_TAG_compile_unit)),
      m_Types(m_Tree, files, m_Unit)
{
    CollectVariables();
    for (const SLoweredKernel& kernel : lowered.vKernels)
    {
        if (kernel.pFunction->getSubprogram())
        {
            m_vKernelRanges.push_back({kernel.nFirst, kernel.nLast + 1});
        }
    }
    AddUnit();
    AddConstants();
    for (const SLoweredKernel& kernel : lowered.vKernels)
    {
        if (kernel.pFunction->getSubprogram())
        {
            AddKernel(kernel);
        }
    }
    m_Types.Finish();
}

void CUnitDies::AddUnit()
{
    m_Tree.Text(m_Unit, DW_AT_producer, "Kestrel OpenCL C");
    const auto itUnit = m_Module.debug_compile_units_begin();
    if (itUnit != m_Module.debug_compile_units_end())
    {
        const llvm::DICompileUnit& unit = **itUnit;
        m_Tree.Unsigned(m_Unit, DW_AT_language, unit.getSourceLanguage());
        m_Tree.Text(m_Unit, DW_AT_comp_dir, View(unit.getDirectory()));
    }
    // The compiler reads the source from memory; the source's own lines give the name of the file.
    const llvm::DISubprogram* pFirst =
        m_Lowered.vKernels.empty() ? nullptr : m_Lowered.vKernels[0].pFunction->getSubprogram();
    if (pFirst)
    {
        m_Tree.Text(m_Unit, DW_AT_name, View(pFirst->getFilename()));
    }
    m_Tree.Offset(m_Unit, DW_AT_stmt_list, 0);
    // The base address of all ranges and location lists.
    m_Tree.Address(m_Unit, DW_AT_low_pc, 0);
    m_Tree.Offset(m_Unit, DW_AT_ranges, m_Ranges.Size());
    std::vector<std::pair<uint32_t, uint32_t>> vRanges = m_vKernelRanges;
    std::sort(vRanges.begin(), vRanges.end());
    for (const auto& [nFirst, nEnd] : vRanges)
    {
        m_Ranges.U64(nFirst);
        m_Ranges.U64(nEnd);
    }
    m_Ranges.U64(0);
    m_Ranges.U64(0);
}

void CUnitDies::CollectVariables()
{
    std::set<const llvm::DILocalVariable*> setSeen;
    const auto Add = [&](const llvm::DILocalVariable* pVariable)
    {
        if (setSeen.insert(pVariable).second)
        {
            m_mapVariables[pVariable->getScope()->getSubprogram()].push_back(pVariable);
        }
    };
    for (const SVariablePlace& place : m_Lowered.vVariables)
    {
        for (const llvm::DINode* pNode : place.pVariable->getScope()->getSubprogram()->getRetainedNodes())
        {
            if (const auto* pVariable = llvm::dyn_cast<llvm::DILocalVariable>(pNode))
            {
                Add(pVariable);
            }
        }
        Add(place.pVariable);
    }
    for (auto& [pSubprogram, vVariables] : m_mapVariables)
    {
        const auto Rank = [](const llvm::DILocalVariable* pVariable)
        {
            return pVariable->isParameter() ? std::make_pair(0U, pVariable->getArg())
                                            : std::make_pair(1U, pVariable->getLine());
        };
        std::stable_sort(vVariables.begin(), vVariables.end(),
                         [&](const auto* pA, const auto* pB) { return Rank(pA) < Rank(pB); });
    }
}

void CUnitDies::DescribeSubprogram(CDie die, const llvm::DISubprogram& subprogram)
{
    m_Tree.Text(die, DW_AT_name, View(subprogram.getName()));
    m_Types.SetPlace(die, subprogram.getFile(), subprogram.getLine());
    m_Tree.Flag(die, DW_AT_prototyped);
    if (!subprogram.isLocalToUnit())
    {
        m_Tree.Flag(die, DW_AT_external);
    }
    const llvm::DISubroutineType* pType = subprogram.getType();
    if (pType && pType->getTypeArray() && pType->getTypeArray().size() > 0)
    {
        m_Types.SetType(die, pType->getTypeArray()[0]);
    }
}

void CUnitDies::DescribeVariable(CDie die, const llvm::DILocalVariable& variable)
{
    if (!variable.getName().empty())
    {
        m_Tree.Text(die, DW_AT_name, View(variable.getName()));
    }
    m_Types.SetPlace(die, variable.getFile(), variable.getLine());
    m_Types.SetType(die, variable.getType());
    if (variable.isArtificial())
    {
        m_Tree.Flag(die, DW_AT_artificial);
    }
}

CDieTree::CDie CUnitDies::AddVariable(CDie parent, const llvm::DILocalVariable& variable)
{
    return m_Tree.Add(parent, variable.isParameter() ? DW_TAG_formal_parameter : DW_TAG_variable);
}

/// The abstract entry of a function: what all of its inlined copies have in common.
CDieTree::CDie CUnitDies::Abstract(const llvm::DISubprogram& subprogram)
{
    const auto it = m_mapAbstract.find(&subprogram);
    if (it != m_mapAbstract.end())
    {
        return it->second;
    }
    const CDie die = m_Tree.Add(m_Unit, DW_TAG_subprogram);
    m_mapAbstract[&subprogram] = die;
    DescribeSubprogram(die, subprogram);
    m_Tree.Unsigned(die, DW_AT_inline, DW_INL_inlined);
    for (const llvm::DILocalVariable* pVariable : m_mapVariables[&subprogram])
    {
        AbstractVariable(*pVariable);
    }
    return die;
}

CDieTree::CDie CUnitDies::AbstractBlock(const llvm::DILocalScope& block)
{
    // Recursion is safe here: the compiler's bracket depth limits blocks to a few hundred levels.
    std::vector<const llvm::DILocalScope*> vMissing;
    const llvm::DILocalScope* pScope = block.getNonLexicalBlockFileScope();
    while (!m_mapAbstract.count(pScope) && llvm::isa<llvm::DILexicalBlockBase>(pScope))
    {
        vMissing.push_back(pScope);
        pScope = llvm::cast<llvm::DILexicalBlockBase>(pScope)->getScope()->getNonLexicalBlockFileScope();
    }
    const auto* pSubprogram = llvm::dyn_cast<llvm::DISubprogram>(pScope);
    CDie die = pSubprogram ? Abstract(*pSubprogram) : m_mapAbstract[pScope];
    for (size_t n = vMissing.size(); n-- > 0;)
    {
        if (const auto it = m_mapAbstract.find(vMissing[n]); it != m_mapAbstract.end())
        {
            die = it->second;
            continue;
        }
        die = m_Tree.Add(die, DW_TAG_lexical_block);
        m_mapAbstract[vMissing[n]] = die;
    }
    return die;
}

CDieTree::CDie CUnitDies::AbstractVariable(const llvm::DILocalVariable& variable)
{
    const CDie parent = AbstractBlock(*variable.getScope());
    const auto it = m_mapAbstractVariables.find(&variable);
    if (it != m_mapAbstractVariables.end())
    {
        return it->second;
    }
    const CDie die = AddVariable(parent, variable);
    m_mapAbstractVariables[&variable] = die;
    DescribeVariable(die, variable);
    return die;
}

void CUnitDies::SetRanges(CDie die, const std::vector<std::pair<uint32_t, uint32_t>>& vRanges)
{
    if (vRanges.size() == 1)
    {
        m_Tree.Address(die, DW_AT_low_pc, vRanges[0].first);
        m_Tree.Unsigned(die, DW_AT_high_pc, vRanges[0].second - vRanges[0].first);
        return;
    }
    m_Tree.Offset(die, DW_AT_ranges, m_Ranges.Size());
    for (const auto& [nFirst, nEnd] : vRanges)
    {
        m_Ranges.U64(nFirst);
        m_Ranges.U64(nEnd);
    }
    m_Ranges.U64(0);
    m_Ranges.U64(0);
}

void CUnitDies::AddKernel(const SLoweredKernel& kernel)
{
    const CScopeTree scopes(m_Lowered, kernel);
    AddScopes(kernel, scopes);
    AddVariables(kernel, scopes);
    AddLocals(kernel, scopes);
}

void CUnitDies::AddScopes(const SLoweredKernel& kernel, const CScopeTree& scopes)
{
    m_vScopeDies.clear();
    for (const SScope& scope : scopes.GetScopes())
    {
        if (scope.vRanges.empty())
        {
            m_vScopeDies.push_back(-1);
            continue;
        }
        const auto* pSubprogram = llvm::dyn_cast<llvm::DISubprogram>(scope.pScope);
        const CDie parent = scope.nParent < 0 ? m_Unit : m_vScopeDies[scope.nParent];
        CDie die = -1;
        if (scope.nParent < 0)
        {
            die = m_Tree.Add(parent, DW_TAG_subprogram);
            DescribeSubprogram(die, *pSubprogram);
            m_Tree.Expression(die, DW_AT_frame_base, {static_cast<char>(s_nFrameBase)});
        }
        else if (pSubprogram)
        {
            const CDie origin = Abstract(*pSubprogram);
            die = m_Tree.Add(parent, DW_TAG_inlined_subroutine);
            m_Tree.Reference(die, DW_AT_abstract_origin, origin);
            if (scope.pInlinedAt)
            {
                m_Tree.Unsigned(die, DW_AT_call_file, m_Files.Number(*scope.pInlinedAt->getFile()));
                m_Tree.Unsigned(die, DW_AT_call_line, scope.pInlinedAt->getLine());
                m_Tree.Unsigned(die, DW_AT_call_column, scope.pInlinedAt->getColumn());
            }
        }
        else
        {
            die = m_Tree.Add(parent, DW_TAG_lexical_block);
            if (scope.pInlinedAt)
            {
                m_Tree.Reference(die, DW_AT_abstract_origin, AbstractBlock(*scope.pScope));
            }
        }
        SetRanges(die, scope.vRanges);
        m_vScopeDies.push_back(die);
    }
}

/// In each scope, variables have the order of their function.
void CUnitDies::AddVariables(const SLoweredKernel& kernel, const CScopeTree& scopes)
{
    std::map<CVariableKey, std::vector<const SVariablePlace*>> mapPlaces;
    for (const SVariablePlace& place : m_Lowered.vVariables)
    {
        if (place.pKernel == kernel.pFunction)
        {
            mapPlaces[{place.pVariable, place.pInlinedAt}].push_back(&place);
        }
    }
    // Grouped by function, so that each scope only visits variables that can be in it.
    std::set<CVariableKey> setAdded;
    for (size_t nScope = 0; nScope < scopes.GetScopes().size(); ++nScope)
    {
        const SScope& function = scopes.GetScopes()[nScope];
        const auto* pSubprogram = llvm::dyn_cast<llvm::DISubprogram>(function.pScope);
        if (!pSubprogram || m_vScopeDies[nScope] < 0)
        {
            continue;
        }
        for (const llvm::DILocalVariable* pVariable : m_mapVariables[pSubprogram])
        {
            const int nPlace = scopes.Find(pVariable->getScope(), function.pInlinedAt);
            const CDie parent = nPlace < 0 ? -1 : m_vScopeDies[nPlace];
            if (parent < 0)
            {
                continue;
            }
            const CDie die = AddVariable(parent, *pVariable);
            if (function.pInlinedAt)
            {
                m_Tree.Reference(die, DW_AT_abstract_origin, AbstractVariable(*pVariable));
            }
            else
            {
                DescribeVariable(die, *pVariable);
            }
            const auto it = mapPlaces.find({pVariable, function.pInlinedAt});
            if (it != mapPlaces.end())
            {
                SetLocation(die, kernel, it->second);
            }
        }
    }
}

void CUnitDies::SetLocation(CDie die, const SLoweredKernel& kernel, const std::vector<const SVariablePlace*>& vPlaces)
{
    const std::vector<SLocationRange> vRanges = JoinPlaces(vPlaces);
    if (vRanges.empty())
    {
        return;
    }
    if (vRanges.size() == 1 && vRanges[0].nFirst <= kernel.nFirst && vRanges[0].nEnd > kernel.nLast)
    {
        return m_Tree.Expression(die, DW_AT_location, vRanges[0].strExpression);
    }
    CByteWriter list;
    for (const SLocationRange& range : vRanges)
    {
        list.U64(range.nFirst);
        list.U64(range.nEnd);
        list.U16(range.strExpression.size());
        list.Bytes(range.strExpression);
    }
    list.U64(0);
    list.U64(0);
    m_Tree.List(die, DW_AT_location, list.Data());
}

/// Adds variables that the kernel declares in local memory. To LLVM they are globals; here they go into the kernel's
/// scope.
void CUnitDies::AddLocals(const SLoweredKernel& kernel, const CScopeTree& scopes)
{
    for (const SLocalPlace& place : m_Lowered.vLocals)
    {
        llvm::SmallVector<llvm::DIGlobalVariableExpression*, 1> vExpressions;
        place.pVariable->getDebugInfo(vExpressions);
        if (place.pKernel != kernel.pFunction || vExpressions.empty())
        {
            continue;
        }
        const llvm::DIGlobalVariable& variable = *vExpressions[0]->getVariable();
        const auto* pScope = llvm::dyn_cast_or_null<llvm::DILocalScope>(variable.getScope());
        const int nScope = pScope ? scopes.Find(pScope, nullptr) : -1;
        const CDie parent = nScope < 0 || m_vScopeDies[nScope] < 0 ? m_vScopeDies[0] : m_vScopeDies[nScope];
        const CDie die = m_Tree.Add(parent, DW_TAG_variable);
        m_Tree.Text(die, DW_AT_name, View(variable.getName()));
        m_Types.SetPlace(die, variable.getFile(), variable.getLine());
        m_Types.SetType(die, variable.getType());
        m_Tree.Expression(die, DW_AT_location, LocalExpression(place.nOffset));
    }
}

/// Adds constants of the program, whose values are known.
void CUnitDies::AddConstants()
{
    for (const llvm::GlobalVariable& global : m_Module.globals())
    {
        llvm::SmallVector<llvm::DIGlobalVariableExpression*, 1> vExpressions;
        global.getDebugInfo(vExpressions);
        std::string strBytes;
        if (vExpressions.empty() || !global.isConstant() || !global.hasInitializer() ||
            !GetConstantBytes(*global.getInitializer(), m_Module.getDataLayout(), strBytes))
        {
            continue;
        }
        const llvm::DIGlobalVariable& variable = *vExpressions[0]->getVariable();
        const CDie die = m_Tree.Add(m_Unit, DW_TAG_variable);
        m_Tree.Text(die, DW_AT_name, View(variable.getName()));
        m_Types.SetPlace(die, variable.getFile(), variable.getLine());
        m_Types.SetType(die, variable.getType());
        m_Tree.Block(die, DW_AT_const_value, std::move(strBytes));
    }
}

std::string CUnitDies::WriteAddressRanges() const
{
    CByteWriter writer;
    writer.U32(0); // the length, known at the end
    writer.U16(2);
    writer.U32(0); // offset of the only unit
    writer.U8(8);
    writer.U8(0);
    writer.U32(0); // pads to a multiple of 16
    for (const auto& [nFirst, nEnd] : m_vKernelRanges)
    {
        writer.U64(nFirst);
        writer.U64(nEnd - nFirst);
    }
    writer.U64(0);
    writer.U64(0);
    writer.PatchU32(0, writer.Size() - 4);
    return writer.Data();
}

void CUnitDies::Write(std::vector<SDebugSection>& vSections)
{
    m_Tree.Write(vSections);
    vSections.push_back({".debug_ranges", m_Ranges.Data()});
    vSections.push_back({".debug_aranges", WriteAddressRanges()});
}

} // namespace KestrelOpenCL

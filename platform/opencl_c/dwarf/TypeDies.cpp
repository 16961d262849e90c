#include "platform/opencl_c/dwarf/TypeDies.h"

#include "llvm/BinaryFormat/Dwarf.h"
#include "llvm/IR/Constants.h"
#include "llvm/IR/DebugInfoMetadata.h"

namespace KestrelOpenCL
{

using namespace llvm::dwarf;
using CDie = CDieTree::CDie;

namespace
{

/// The header with the language's types is not one of the user's sources.
const llvm::StringRef s_BaseHeader = "opencl-c-base.h";

} // namespace

void CTypeDies::SetType(CDie die, const llvm::DIType* pType)
{
    if (pType)
    {
        m_Tree.Reference(die, DW_AT_type, Find(pType));
    }
}

void CTypeDies::SetPlace(CDie die, const llvm::DIFile* pFile, unsigned int nLine)
{
    if (pFile && nLine > 0 && !pFile->getFilename().endswith(s_BaseHeader))
    {
        m_Tree.Unsigned(die, DW_AT_decl_file, m_Files.Number(*pFile));
        m_Tree.Unsigned(die, DW_AT_decl_line, nLine);
    }
}

CDie CTypeDies::Find(const llvm::DIType* pType)
{
    const auto it = m_mapTypes.find(pType);
    if (it != m_mapTypes.end())
    {
        return it->second;
    }
    const CDie die = m_Tree.Add(m_Unit, static_cast<uint16_t>(pType->getTag()));
    m_mapTypes[pType] = die;
    m_vOpen.push_back(pType);
    return die;
}

void CTypeDies::Finish()
{
    while (!m_vOpen.empty())
    {
        const llvm::DIType* pType = m_vOpen.back();
        m_vOpen.pop_back();
        Describe(pType, m_mapTypes[pType]);
    }
}

void CTypeDies::SetSize(CDie die, uint64_t nBits)
{
    m_Tree.Unsigned(die, DW_AT_byte_size, (nBits + 7) / 8);
}

void CTypeDies::Describe(const llvm::DIType* pType, CDie die)
{
    if (!pType->getName().empty())
    {
        m_Tree.Text(die, DW_AT_name, {pType->getName().data(), pType->getName().size()});
    }
    if (const auto* pBasic = llvm::dyn_cast<llvm::DIBasicType>(pType))
    {
        if (pBasic->getTag() == DW_TAG_base_type)
        {
            m_Tree.Unsigned(die, DW_AT_encoding, pBasic->getEncoding());
            SetSize(die, pBasic->getSizeInBits());
        }
    }
    else if (const auto* pDerived = llvm::dyn_cast<llvm::DIDerivedType>(pType))
    {
        DescribeDerived(*pDerived, die);
    }
    else if (const auto* pComposite = llvm::dyn_cast<llvm::DICompositeType>(pType))
    {
        DescribeComposite(*pComposite, die);
    }
    else if (const auto* pSubroutine = llvm::dyn_cast<llvm::DISubroutineType>(pType))
    {
        DescribeSubroutine(*pSubroutine, die);
    }
}

void CTypeDies::DescribeDerived(const llvm::DIDerivedType& type, CDie die)
{
    SetType(die, type.getBaseType());
    if (type.getTag() == DW_TAG_pointer_type)
    {
        SetSize(die, type.getSizeInBits());
        // 0 private, 1 global, 2 constant, 3 local; written for each pointer, private ones too.
        m_Tree.Unsigned(die, DW_AT_address_class, type.getDWARFAddressSpace().value_or(0));
    }
    else if (type.getTag() == DW_TAG_typedef)
    {
        SetPlace(die, type.getFile(), type.getLine());
    }
}

void CTypeDies::DescribeComposite(const llvm::DICompositeType& type, CDie die)
{
    if (type.getTag() == DW_TAG_array_type)
    {
        return DescribeArray(type, die);
    }
    if (type.isForwardDecl())
    {
        return m_Tree.Flag(die, DW_AT_declaration);
    }
    SetSize(die, type.getSizeInBits());
    SetPlace(die, type.getFile(), type.getLine());
    if (type.getTag() == DW_TAG_enumeration_type)
    {
        return DescribeEnumerators(type, die);
    }
    for (const llvm::DINode* pElement : type.getElements())
    {
        const auto* pMember = llvm::dyn_cast_or_null<llvm::DIDerivedType>(pElement);
        if (pMember && pMember->getTag() == DW_TAG_member)
        {
            DescribeMember(*pMember, die);
        }
    }
}

void CTypeDies::DescribeMember(const llvm::DIDerivedType& member, CDie die)
{
    const CDie dieMember = m_Tree.Add(die, DW_TAG_member);
    if (!member.getName().empty())
    {
        m_Tree.Text(dieMember, DW_AT_name, {member.getName().data(), member.getName().size()});
    }
    SetType(dieMember, member.getBaseType());
    SetPlace(dieMember, member.getFile(), member.getLine());
    if (member.isBitField())
    {
        m_Tree.Unsigned(dieMember, DW_AT_bit_size, member.getSizeInBits());
        m_Tree.Unsigned(dieMember, DW_AT_data_bit_offset, member.getOffsetInBits());
    }
    else
    {
        m_Tree.Unsigned(dieMember, DW_AT_data_member_location, member.getOffsetInBits() / 8);
    }
}

void CTypeDies::DescribeArray(const llvm::DICompositeType& type, CDie die)
{
    SetType(die, type.getBaseType());
    if (type.isVector())
    {
        m_Tree.Flag(die, DW_AT_GNU_vector);
    }
    SetSize(die, type.getSizeInBits());
    for (const llvm::DINode* pElement : type.getElements())
    {
        const auto* pRange = llvm::dyn_cast_or_null<llvm::DISubrange>(pElement);
        if (!pRange)
        {
            continue;
        }
        const CDie dieRange = m_Tree.Add(die, DW_TAG_subrange_type);
        const auto* pCount = pRange->getCount().dyn_cast<llvm::ConstantInt*>();
        if (pCount && !pCount->isMinusOne())
        {
            m_Tree.Unsigned(dieRange, DW_AT_count, pCount->getZExtValue());
        }
    }
}

void CTypeDies::DescribeEnumerators(const llvm::DICompositeType& type, CDie die)
{
    SetType(die, type.getBaseType());
    for (const llvm::DINode* pElement : type.getElements())
    {
        const auto* pEnumerator = llvm::dyn_cast_or_null<llvm::DIEnumerator>(pElement);
        if (!pEnumerator)
        {
            continue;
        }
        const CDie dieEnumerator = m_Tree.Add(die, DW_TAG_enumerator);
        m_Tree.Text(dieEnumerator, DW_AT_name, {pEnumerator->getName().data(), pEnumerator->getName().size()});
        if (pEnumerator->isUnsigned())
        {
            m_Tree.Unsigned(dieEnumerator, DW_AT_const_value, pEnumerator->getValue().getZExtValue());
        }
        else
        {
            m_Tree.Signed(dieEnumerator, DW_AT_const_value, pEnumerator->getValue().getSExtValue());
        }
    }
}

void CTypeDies::DescribeSubroutine(const llvm::DISubroutineType& type, CDie die)
{
    m_Tree.Flag(die, DW_AT_prototyped);
    const auto types = type.getTypeArray();
    for (unsigned int n = 0; n < types.size(); ++n)
    {
        if (n == 0)
        {
            SetType(die, types[0]);
        }
        else
        {
            SetType(m_Tree.Add(die, types[n] ? DW_TAG_formal_parameter : DW_TAG_unspecified_parameters), types[n]);
        }
    }
}

} // namespace KestrelOpenCL

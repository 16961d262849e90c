#include "platform/opencl_c/dwarf/DieTree.h"

#include "platform/opencl_c/dwarf/ByteWriter.h"

#include "llvm/BinaryFormat/Dwarf.h"

#include <map>

namespace KestrelOpenCL
{

using namespace llvm::dwarf;

CDieTree::CDie CDieTree::Add(CDie parent, uint16_t nTag)
{
    const CDie die = static_cast<CDie>(m_vDies.size());
    m_vDies.push_back({nTag, {}, {}});
    if (parent >= 0)
    {
        m_vDies[parent].vChildren.push_back(die);
    }
    return die;
}

void CDieTree::AddAttribute(CDie die, uint16_t nAttribute, uint8_t nForm, uint64_t nValue)
{
    m_vDies[die].vAttributes.push_back({nAttribute, nForm, nValue, {}});
}

void CDieTree::Unsigned(CDie die, uint16_t nAttribute, uint64_t nValue)
{
    AddAttribute(die, nAttribute, DW_FORM_udata, nValue);
}

void CDieTree::Signed(CDie die, uint16_t nAttribute, int64_t nValue)
{
    AddAttribute(die, nAttribute, DW_FORM_sdata, static_cast<uint64_t>(nValue));
}

void CDieTree::Text(CDie die, uint16_t nAttribute, std::string_view text)
{
    const auto [it, bNew] = m_mapTexts.insert({std::string(text.substr(0, text.find('\0'))), m_strTexts.size()});
    if (bNew)
    {
        m_strTexts.append(it->first.c_str(), it->first.size() + 1);
    }
    AddAttribute(die, nAttribute, DW_FORM_strp, it->second);
}

void CDieTree::Flag(CDie die, uint16_t nAttribute)
{
    AddAttribute(die, nAttribute, DW_FORM_flag_present, 0);
}

void CDieTree::Address(CDie die, uint16_t nAttribute, uint64_t nValue)
{
    AddAttribute(die, nAttribute, DW_FORM_addr, nValue);
}

void CDieTree::Offset(CDie die, uint16_t nAttribute, uint64_t nValue)
{
    AddAttribute(die, nAttribute, DW_FORM_sec_offset, nValue);
}

void CDieTree::Expression(CDie die, uint16_t nAttribute, std::string str)
{
    AddAttribute(die, nAttribute, DW_FORM_exprloc, 0);
    m_vDies[die].vAttributes.back().strBlock = std::move(str);
}

void CDieTree::Block(CDie die, uint16_t nAttribute, std::string str)
{
    AddAttribute(die, nAttribute, DW_FORM_block, 0);
    m_vDies[die].vAttributes.back().strBlock = std::move(str);
}

void CDieTree::List(CDie die, uint16_t nAttribute, std::string str)
{
    AddAttribute(die, nAttribute, DW_FORM_sec_offset, 0);
    m_vDies[die].vAttributes.back().strBlock = std::move(str);
}

void CDieTree::Reference(CDie die, uint16_t nAttribute, CDie target)
{
    AddAttribute(die, nAttribute, DW_FORM_ref4, static_cast<uint64_t>(target));
}

/// Writes entries in order, each followed by its children and a zero that ends them. References are filled in when all
/// offsets are known.
class CDieTree::CWriter
{
public:
    explicit CWriter(const CDieTree& tree) : m_Tree(tree), m_vOffsets(tree.m_vDies.size()) {}

    void Write(std::vector<KestrelPlatform::SDebugSection>& vSections)
    {
        m_Info.U32(0); // the length, known at the end
        m_Info.U16(4);
        m_Info.U32(0); // offset of the only abbreviation table
        m_Info.U8(8);
        WriteDies();
        m_Info.PatchU32(0, m_Info.Size() - 4);
        for (const auto& [nPlace, target] : m_vReferences)
        {
            m_Info.PatchU32(nPlace, m_vOffsets[target]);
        }
        m_Abbreviations.U8(0);
        vSections.push_back({".debug_info", m_Info.Data()});
        vSections.push_back({".debug_abbrev", m_Abbreviations.Data()});
        vSections.push_back({".debug_str", m_Tree.m_strTexts});
        if (m_Lists.Size() > 0)
        {
            vSections.push_back({".debug_loc", m_Lists.Data()});
        }
    }

private:
    struct SOpen
    {
        CDie die;
        size_t nChild;
    };

    void WriteDies()
    {
        std::vector<SOpen> vOpen;
        WriteDie(0);
        vOpen.push_back({0, 0});
        while (!vOpen.empty())
        {
            SOpen& open = vOpen.back();
            const auto& vChildren = m_Tree.m_vDies[open.die].vChildren;
            if (open.nChild < vChildren.size())
            {
                const CDie child = vChildren[open.nChild++];
                WriteDie(child);
                vOpen.push_back({child, 0});
                continue;
            }
            if (!vChildren.empty())
            {
                m_Info.U8(0);
            }
            vOpen.pop_back();
        }
    }

    void WriteDie(CDie die)
    {
        m_vOffsets[die] = m_Info.Size();
        m_Info.Unsigned(FindAbbreviation(m_Tree.m_vDies[die]));
        for (const SAttribute& attribute : m_Tree.m_vDies[die].vAttributes)
        {
            WriteAttribute(attribute);
        }
    }

    void WriteAttribute(const SAttribute& attribute)
    {
        switch (attribute.nForm)
        {
        case DW_FORM_udata:
            return m_Info.Unsigned(attribute.nValue);
        case DW_FORM_sdata:
            return m_Info.Signed(static_cast<int64_t>(attribute.nValue));
        case DW_FORM_strp:
            return m_Info.U32(attribute.nValue);
        case DW_FORM_sec_offset:
            m_Info.U32(attribute.strBlock.empty() ? attribute.nValue : m_Lists.Size());
            return m_Lists.Bytes(attribute.strBlock);
        case DW_FORM_addr:
            return m_Info.U64(attribute.nValue);
        case DW_FORM_exprloc:
        case DW_FORM_block:
            m_Info.Unsigned(attribute.strBlock.size());
            return m_Info.Bytes(attribute.strBlock);
        case DW_FORM_ref4:
            m_vReferences.push_back({m_Info.Size(), static_cast<CDie>(attribute.nValue)});
            return m_Info.U32(0);
        default:
            return; // DW_FORM_flag_present has no bytes
        }
    }

    uint64_t FindAbbreviation(const SDie& die)
    {
        CByteWriter shape;
        shape.Unsigned(die.nTag);
        shape.U8(die.vChildren.empty() ? DW_CHILDREN_no : DW_CHILDREN_yes);
        for (const SAttribute& attribute : die.vAttributes)
        {
            shape.Unsigned(attribute.nAttribute);
            shape.Unsigned(attribute.nForm);
        }
        shape.U16(0);
        const auto [it, bNew] = m_mapAbbreviations.insert({shape.Data(), m_mapAbbreviations.size() + 1});
        if (bNew)
        {
            m_Abbreviations.Unsigned(it->second);
            m_Abbreviations.Bytes(shape.Data());
        }
        return it->second;
    }

    const CDieTree& m_Tree;
    std::vector<uint64_t> m_vOffsets;
    std::vector<std::pair<size_t, CDie>> m_vReferences;
    std::map<std::string, uint64_t> m_mapAbbreviations;
    CByteWriter m_Info;
    CByteWriter m_Abbreviations;
    CByteWriter m_Lists;
};

void CDieTree::Write(std::vector<KestrelPlatform::SDebugSection>& vSections) const
{
    CWriter(*this).Write(vSections);
}

} // namespace KestrelOpenCL

#include "tools/source/DebugInfo.h"

#include <dwarf.h>
#include <elfutils/libdw.h>
#include <libelf.h>

#include <algorithm>
#include <cstdlib>
#include <map>

namespace KestrelTool
{

namespace
{

const uint64_t s_nFirstArgumentWord = 0x100000; ///< as the number of a register
const unsigned int s_nMaxDepth = 100;           ///< of nested types and scopes; more means damaged data

struct SNamedKind
{
    Dwarf_Word nEncoding;
    SSourceType::EKind eKind;
};

const SNamedKind s_BaseKinds[] = {
    {DW_ATE_boolean, SSourceType::Unsigned},       {DW_ATE_unsigned, SSourceType::Unsigned},
    {DW_ATE_unsigned_char, SSourceType::Unsigned}, {DW_ATE_signed, SSourceType::Signed},
    {DW_ATE_signed_char, SSourceType::Signed},     {DW_ATE_float, SSourceType::Float}};

std::string NameOf(Dwarf_Die& die)
{
    const char* const pszName = dwarf_diename(&die);
    return pszName != nullptr ? pszName : "";
}

Dwarf_Word NumberOf(Dwarf_Die& die, unsigned int nAttribute)
{
    Dwarf_Attribute attribute;
    Dwarf_Word nNumber = 0;
    return dwarf_attr_integrate(&die, nAttribute, &attribute) != nullptr && dwarf_formudata(&attribute, &nNumber) == 0
               ? nNumber
               : 0;
}

bool ReadTypeOf(Dwarf_Die& die, Dwarf_Die& type)
{
    Dwarf_Attribute attribute;
    return dwarf_attr_integrate(&die, DW_AT_type, &attribute) != nullptr &&
           dwarf_formref_die(&attribute, &type) != nullptr;
}

bool IsFunction(Dwarf_Die& die)
{
    const int nTag = dwarf_tag(&die);
    return nTag == DW_TAG_inlined_subroutine || nTag == DW_TAG_subprogram;
}

std::string JoinPlace(const char* pszFile, uint64_t nLine)
{
    return (pszFile != nullptr ? pszFile : "?") + (":" + std::to_string(nLine));
}

/// The "file:line" of a line of IL; empty if it has none.
std::string FindPlace(Dwarf_Die& unit, unsigned int nLine)
{
    Dwarf_Line* const pRow = dwarf_getsrc_die(&unit, nLine);
    int nSourceLine = 0;
    return pRow != nullptr && dwarf_lineno(pRow, &nSourceLine) == 0
               ? JoinPlace(dwarf_linesrc(pRow, nullptr, nullptr), static_cast<uint64_t>(nSourceLine))
               : std::string();
}

/// Where an inlined function is called; empty for other functions.
std::string FindCallPlace(Dwarf_Die& unit, Dwarf_Die& function)
{
    Dwarf_Attribute attribute;
    Dwarf_Word nLine = 0;
    if (dwarf_tag(&function) != DW_TAG_inlined_subroutine ||
        dwarf_formudata(dwarf_attr(&function, DW_AT_call_line, &attribute), &nLine) != 0)
    {
        return std::string();
    }
    Dwarf_Word nFile = 0;
    Dwarf_Files* pFiles = nullptr;
    size_t nFiles = 0;
    const bool bFile = dwarf_formudata(dwarf_attr(&function, DW_AT_call_file, &attribute), &nFile) == 0 &&
                       dwarf_getsrcfiles(&unit, &pFiles, &nFiles) == 0;
    return JoinPlace(bFile ? dwarf_filesrc(pFiles, nFile, nullptr, nullptr) : nullptr, nLine);
}

/// The scopes that contain a line of IL, innermost first. Code of the call's own line, such as handling parameters,
/// belongs to the caller.
std::vector<Dwarf_Die> FindScopes(Dwarf_Die& unit, unsigned int nLine)
{
    Dwarf_Die* pScopes = nullptr;
    int nScopes = dwarf_getscopes(&unit, nLine, &pScopes);
    if (nScopes > 0) // for an inlined function these continue where it is written, not where it is called
    {
        Dwarf_Die innermost = pScopes[0];
        std::free(pScopes);
        pScopes = nullptr;
        nScopes = dwarf_getscopes_die(&innermost, &pScopes);
    }
    std::vector<Dwarf_Die> vScopes(pScopes, pScopes + std::max(nScopes, 0));
    std::free(pScopes);
    const std::string strPlace = FindPlace(unit, nLine);
    size_t nSkipped = 0;
    for (size_t n = 0; n < vScopes.size(); ++n)
    {
        if (IsFunction(vScopes[n]) && (strPlace.empty() || FindCallPlace(unit, vScopes[n]) != strPlace))
        {
            break;
        }
        nSkipped = IsFunction(vScopes[n]) ? n + 1 : nSkipped;
    }
    vScopes.erase(vScopes.begin(), vScopes.begin() + static_cast<ptrdiff_t>(nSkipped));
    return vScopes;
}

template <class Visit>
void ForEachChild(Dwarf_Die& die, const Visit& visit)
{
    Dwarf_Die child;
    Dwarf_Off nLast = dwarf_dieoffset(&die);
    // Damaged data may contain cycles.
    for (int nResult = dwarf_child(&die, &child); nResult == 0 && dwarf_dieoffset(&child) > nLast;
         nResult = dwarf_siblingof(&child, &child))
    {
        nLast = dwarf_dieoffset(&child);
        visit(child);
    }
}

/// Reads one piece of an expression; false for an operation that isn't a place.
bool ReadPlace(Dwarf_Attribute& attribute, const Dwarf_Op& operation, SValuePiece& piece)
{
    Dwarf_Block block = {};
    switch (operation.atom)
    {
    case DW_OP_regx:
        piece.ePlace = operation.number < s_nFirstArgumentWord ? SValuePiece::Register : SValuePiece::Argument;
        piece.nNumber = operation.number - (piece.ePlace == SValuePiece::Argument ? s_nFirstArgumentWord : 0);
        return true;
    case DW_OP_fbreg:
        piece.ePlace = SValuePiece::Private;
        piece.nNumber = operation.number;
        return true;
    case DW_OP_addr:
        piece.ePlace = SValuePiece::Local;
        piece.nNumber = operation.number;
        return true;
    case DW_OP_implicit_value:
        piece.ePlace = SValuePiece::Constant;
        if (dwarf_getlocation_implicit_value(&attribute, &operation, &block) == 0)
        {
            piece.vBytes.assign(block.data, block.data + block.length);
        }
        return true;
    default:
        return false;
    }
}

std::vector<SValuePiece> ReadPieces(Dwarf_Attribute& attribute, const Dwarf_Op* pOperations, size_t nOperations,
                                    size_t nSize)
{
    std::vector<SValuePiece> vPieces;
    SValuePiece piece;
    for (size_t n = 0; n < nOperations; ++n)
    {
        if (pOperations[n].atom == DW_OP_piece)
        {
            piece.nBytes = pOperations[n].number;
            vPieces.push_back(std::move(piece));
            piece = SValuePiece();
        }
        else if (!ReadPlace(attribute, pOperations[n], piece))
        {
            return {};
        }
    }
    if (piece.ePlace != SValuePiece::Nowhere)
    {
        piece.nBytes = nSize;
        vPieces.push_back(std::move(piece));
    }
    return vPieces;
}

} // namespace

class CDebugInfo::CReader
{
public:
    explicit CReader(std::vector<char> vBinary)
        : m_vImage(std::move(vBinary)), m_pElf(nullptr, elf_end), m_pDwarf(nullptr, dwarf_end)
    {
        elf_version(EV_CURRENT);
        m_pElf.reset(elf_memory(m_vImage.data(), m_vImage.size()));
        m_pDwarf.reset(m_pElf ? dwarf_begin_elf(m_pElf.get(), DWARF_C_READ, nullptr) : nullptr);
    }

    std::vector<SSourceVariable> FindVariables(unsigned int nLine)
    {
        std::vector<SSourceVariable> vVariables;
        Dwarf_CU* pUnit = nullptr;
        Dwarf_Die unit;
        while (m_pDwarf && vVariables.empty() &&
               dwarf_get_units(m_pDwarf.get(), pUnit, &pUnit, nullptr, nullptr, &unit, nullptr) == 0)
        {
            AddScopes(unit, nLine, vVariables);
        }
        return vVariables;
    }

    const std::vector<SSourceFrame>& FindFrames(unsigned int nLine)
    {
        const auto [itKnown, bNew] = m_mapFrames.try_emplace(nLine);
        Dwarf_CU* pUnit = nullptr;
        Dwarf_Die unit;
        while (bNew && m_pDwarf && itKnown->second.empty() &&
               dwarf_get_units(m_pDwarf.get(), pUnit, &pUnit, nullptr, nullptr, &unit, nullptr) == 0)
        {
            for (Dwarf_Die& scope : FindScopes(unit, nLine))
            {
                if (IsFunction(scope))
                {
                    itKnown->second.push_back({NameOf(scope), dwarf_dieoffset(&scope), FindCallPlace(unit, scope)});
                }
            }
        }
        return itKnown->second;
    }

    std::vector<SSourceVariable> FindByName(const std::string& strName)
    {
        std::vector<SSourceVariable> vVariables;
        Dwarf_CU* pUnit = nullptr;
        Dwarf_Die unit;
        while (m_pDwarf && dwarf_get_units(m_pDwarf.get(), pUnit, &pUnit, nullptr, nullptr, &unit, nullptr) == 0)
        {
            AddByName(unit, strName, 0, vVariables);
        }
        return vVariables;
    }

    const SSourceType* FindType(const std::string& strName)
    {
        const SSourceType* pType = nullptr;
        Dwarf_CU* pUnit = nullptr;
        Dwarf_Die unit;
        while (m_pDwarf && pType == nullptr &&
               dwarf_get_units(m_pDwarf.get(), pUnit, &pUnit, nullptr, nullptr, &unit, nullptr) == 0)
        {
            ForEachChild(unit,
                         [&](Dwarf_Die& die)
                         {
                             const bool bFound = pType == nullptr && IsNamedType(die) && NameOf(die) == strName;
                             pType = bFound ? ReadType(die, 0) : pType;
                         });
        }
        CompleteAliases();
        return pType;
    }

private:
    static bool IsNamedType(Dwarf_Die& die)
    {
        const int nTag = dwarf_tag(&die);
        return nTag == DW_TAG_typedef || nTag == DW_TAG_structure_type || nTag == DW_TAG_union_type ||
               nTag == DW_TAG_enumeration_type;
    }

    void AddByName(Dwarf_Die& scope, const std::string& strName, unsigned int nDepth,
                   std::vector<SSourceVariable>& vVariables)
    {
        if (nDepth == s_nMaxDepth)
        {
            return;
        }
        ForEachChild(scope,
                     [&](Dwarf_Die& die)
                     {
                         if (IsVariable(die) && NameOf(die) == strName)
                         {
                             AddVariable(die, vVariables);
                         }
                         AddByName(die, strName, nDepth + 1, vVariables);
                     });
    }

    static bool IsVariable(Dwarf_Die& die)
    {
        const int nTag = dwarf_tag(&die);
        return nTag == DW_TAG_variable || nTag == DW_TAG_formal_parameter;
    }

    /// \return null for a variable without a type
    SSourceVariable* AddVariable(Dwarf_Die& die, std::vector<SSourceVariable>& vVariables)
    {
        Dwarf_Die type;
        if (!ReadTypeOf(die, type))
        {
            return nullptr;
        }
        SSourceVariable variable;
        variable.strName = NameOf(die);
        variable.pType = ReadType(type, 0);
        CompleteAliases();
        variable.bParameter = dwarf_tag(&die) == DW_TAG_formal_parameter;
        vVariables.push_back(std::move(variable));
        return &vVariables.back();
    }

    void AddScopes(Dwarf_Die& unit, unsigned int nLine, std::vector<SSourceVariable>& vVariables)
    {
        unsigned int nFrame = 0;
        for (Dwarf_Die& scope : FindScopes(unit, nLine))
        {
            const bool bUnit = dwarf_tag(&scope) == DW_TAG_compile_unit;
            AddVariables(scope, nLine, bUnit ? SSourceVariable::NoFrame : nFrame, vVariables);
            nFrame += IsFunction(scope) ? 1 : 0;
        }
    }

    void AddVariables(Dwarf_Die& scope, unsigned int nLine, unsigned int nFrame,
                      std::vector<SSourceVariable>& vVariables)
    {
        ForEachChild(scope,
                     [&](Dwarf_Die& die)
                     {
                         SSourceVariable* const pVariable = IsVariable(die) ? AddVariable(die, vVariables) : nullptr;
                         if (pVariable != nullptr)
                         {
                             pVariable->nFrame = nFrame;
                             pVariable->vPieces = FindPieces(die, nLine, pVariable->pType->nSize);
                         }
                     });
    }

    static std::vector<SValuePiece> FindPieces(Dwarf_Die& die, unsigned int nLine, size_t nSize)
    {
        Dwarf_Attribute attribute;
        Dwarf_Op* pOperations = nullptr;
        size_t nOperations = 0;
        if (dwarf_attr_integrate(&die, DW_AT_location, &attribute) != nullptr)
        {
            return dwarf_getlocation_addr(&attribute, nLine, &pOperations, &nOperations, 1) == 1
                       ? ReadPieces(attribute, pOperations, nOperations, nSize)
                       : std::vector<SValuePiece>();
        }
        SValuePiece constant;
        constant.ePlace = SValuePiece::Constant;
        constant.nBytes = nSize;
        Dwarf_Block block = {};
        Dwarf_Word nNumber = 0;
        if (dwarf_attr_integrate(&die, DW_AT_const_value, &attribute) == nullptr)
        {
            return {};
        }
        if (dwarf_formblock(&attribute, &block) == 0)
        {
            constant.vBytes.assign(block.data, block.data + block.length);
        }
        else if (dwarf_formudata(&attribute, &nNumber) == 0)
        {
            for (size_t n = 0; n < std::min(nSize, sizeof(nNumber)); ++n)
            {
                constant.vBytes.push_back(static_cast<unsigned char>(nNumber >> (8 * n)));
            }
        }
        return {constant};
    }

    const SSourceType* ReadType(Dwarf_Die& die, unsigned int nDepth)
    {
        std::unique_ptr<SSourceType>& pKnown = m_mapTypes[dwarf_dieoffset(&die)];
        if (pKnown == nullptr)
        {
            // Stored first, since the type may refer to itself by pointers.
            pKnown = std::make_unique<SSourceType>();
            SSourceType& type = *pKnown;
            if (nDepth < s_nMaxDepth)
            {
                FillType(die, type, nDepth);
            }
        }
        return pKnown.get();
    }

    const SSourceType* ReadElement(Dwarf_Die& die, unsigned int nDepth)
    {
        static const SSourceType s_Void = {SSourceType::Void, "void", 0, 0, nullptr, {}, SSourceType::PrivateSpace};
        Dwarf_Die element;
        return ReadTypeOf(die, element) ? ReadType(element, nDepth + 1) : &s_Void;
    }

    void FillType(Dwarf_Die& die, SSourceType& type, unsigned int nDepth)
    {
        type.strName = NameOf(die);
        type.nSize = NumberOf(die, DW_AT_byte_size);
        switch (dwarf_tag(&die))
        {
        case DW_TAG_base_type:
            for (const SNamedKind& kind : s_BaseKinds)
            {
                type.eKind = kind.nEncoding == NumberOf(die, DW_AT_encoding) ? kind.eKind : type.eKind;
            }
            break;
        case DW_TAG_enumeration_type:
            type.eKind = SSourceType::Unsigned;
            break;
        case DW_TAG_pointer_type:
            type.eKind = SSourceType::Pointer;
            type.nSize = type.nSize != 0 ? type.nSize : 8;
            type.pElement = ReadElement(die, nDepth);
            type.strName = type.pElement->strName + "*";
            type.eSpace = static_cast<SSourceType::ESpace>(NumberOf(die, DW_AT_address_class) & 3);
            break;
        case DW_TAG_array_type:
            FillArray(die, type, nDepth);
            break;
        case DW_TAG_structure_type:
        case DW_TAG_union_type:
            FillStruct(die, type, nDepth);
            break;
        default: // typedef, const, volatile, restrict
            FillLike(die, type, nDepth);
        }
    }

    /// Fills in a typedef or a qualified type.
    void FillLike(Dwarf_Die& die, SSourceType& type, unsigned int nDepth)
    {
        m_vAliases.push_back({&type, ReadElement(die, nDepth), type.strName});
        Complete(m_vAliases.back());
    }

    struct SAlias
    {
        SSourceType* pType;
        const SSourceType* pOf;
        std::string strName; ///< empty: takes the other type's name
    };

    static void Complete(const SAlias& alias)
    {
        *alias.pType = *alias.pOf;
        alias.pType->strName = alias.strName.empty() ? alias.pOf->strName : alias.strName;
    }

    /// An alias may have been read while the structure that it stands for was incomplete.
    void CompleteAliases()
    {
        std::for_each(m_vAliases.begin(), m_vAliases.end(), &Complete);
        m_vAliases.clear();
    }

    void FillArray(Dwarf_Die& die, SSourceType& type, unsigned int nDepth)
    {
        std::vector<size_t> vCounts;
        ForEachChild(die,
                     [&](Dwarf_Die& range)
                     {
                         Dwarf_Attribute attribute;
                         const bool bCount = dwarf_attr(&range, DW_AT_count, &attribute) != nullptr;
                         const bool bBound = dwarf_attr(&range, DW_AT_upper_bound, &attribute) != nullptr;
                         vCounts.push_back(bCount   ? NumberOf(range, DW_AT_count)
                                           : bBound ? NumberOf(range, DW_AT_upper_bound) + 1
                                                    : 0);
                     });
        Dwarf_Attribute attribute;
        const SSourceType* pElement = ReadElement(die, nDepth);
        const bool bVector = dwarf_attr(&die, DW_AT_GNU_vector, &attribute) != nullptr;
        std::string strRanges;
        for (size_t n = vCounts.size(); n-- > 0;)
        {
            // The last range is the innermost dimension.
            SSourceType& array = n == 0 ? type : *m_vInnerArrays.emplace_back(std::make_unique<SSourceType>());
            array.eKind = bVector ? SSourceType::Vector : SSourceType::Array;
            array.nCount = vCounts[n];
            array.pElement = pElement;
            array.nSize = n == 0 && type.nSize != 0 ? type.nSize : array.nCount * pElement->nSize;
            strRanges.insert(0, "[" + std::to_string(array.nCount) + "]");
            array.strName = ReadElement(die, nDepth)->strName + (bVector ? std::to_string(array.nCount) : strRanges);
            pElement = &array;
        }
    }

    void FillStruct(Dwarf_Die& die, SSourceType& type, unsigned int nDepth)
    {
        type.eKind = SSourceType::Struct;
        type.strName = type.strName.empty() ? "struct" : type.strName;
        ForEachChild(die,
                     [&](Dwarf_Die& child)
                     {
                         Dwarf_Die memberType;
                         if (dwarf_tag(&child) == DW_TAG_member && ReadTypeOf(child, memberType))
                         {
                             type.vMembers.push_back({NameOf(child), NumberOf(child, DW_AT_data_member_location),
                                                      ReadType(memberType, nDepth + 1)});
                         }
                     });
    }

    std::vector<char> m_vImage; ///< not const, as the ELF reader may change it
    std::unique_ptr<Elf, int (*)(Elf*)> m_pElf;
    std::unique_ptr<Dwarf, int (*)(Dwarf*)> m_pDwarf;
    std::map<Dwarf_Off, std::unique_ptr<SSourceType>> m_mapTypes;
    std::map<unsigned int, std::vector<SSourceFrame>> m_mapFrames; ///< by line
    std::vector<SAlias> m_vAliases;                                ///< read since the last variable
    std::vector<std::unique_ptr<SSourceType>> m_vInnerArrays;      ///< of arrays with several dimensions
};

CDebugInfo::CDebugInfo(std::vector<char> vBinary) : m_pReader(std::make_shared<CReader>(std::move(vBinary))) {}

CDebugInfo::~CDebugInfo() = default;

const std::vector<SSourceFrame>& CDebugInfo::FindFrames(unsigned int nLine)
{
    return m_pReader->FindFrames(nLine);
}

std::vector<SSourceVariable> CDebugInfo::FindByName(const std::string& strName)
{
    return m_pReader->FindByName(strName);
}

const SSourceType* CDebugInfo::FindType(const std::string& strName)
{
    return m_pReader->FindType(strName);
}

std::vector<SSourceVariable> CDebugInfo::FindVariables(unsigned int nLine)
{
    return m_pReader->FindVariables(nLine);
}

} // namespace KestrelTool

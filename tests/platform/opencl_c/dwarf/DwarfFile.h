#ifndef KESTREL_TESTS_OPENCL_C_DWARF_DWARFFILE_H
#define KESTREL_TESTS_OPENCL_C_DWARF_DWARFFILE_H

#include <cstdint>
#include <dwarf.h>
#include <elfutils/libdw.h>
#include <gelf.h>
#include <ostream>
#include <string>
#include <vector>

namespace KestrelTests
{

/// A function on the call stack of an address: an inlined one, or the kernel.
struct SDwarfFrame
{
    std::string strFunction;
    int nCallLine = 0; ///< 0 for the kernel
    int nCallColumn = 0;

    bool operator==(const SDwarfFrame& other) const
    {
        return strFunction == other.strFunction && nCallLine == other.nCallLine && nCallColumn == other.nCallColumn;
    }
    friend std::ostream& operator<<(std::ostream& stream, const SDwarfFrame& frame)
    {
        return stream << frame.strFunction << " called in " << frame.nCallLine;
    }
};

/// A variable that a debugger shows at an address.
struct SDwarfVariable
{
    std::string strFunction;
    int nCallLine = 0;
    std::string strName;
    std::string strType;
    bool bParameter = false;
    int nLine = 0;
    std::vector<Dwarf_Op> vLocation; ///< at the address; empty if there is none
};

/// The debug data of a kernel binary, read by elfutils.
class CDwarfFile
{
public:
    explicit CDwarfFile(std::vector<char> vImage) : m_vImage(std::move(vImage))
    {
        elf_version(EV_CURRENT);
        m_pElf = elf_memory(m_vImage.data(), m_vImage.size());
        m_pDwarf = m_pElf ? dwarf_begin_elf(m_pElf, DWARF_C_READ, nullptr) : nullptr;
    }
    ~CDwarfFile()
    {
        dwarf_end(m_pDwarf);
        elf_end(m_pElf);
    }
    CDwarfFile(const CDwarfFile&) = delete;
    CDwarfFile& operator=(const CDwarfFile&) = delete;

    bool IsOpen() const { return m_pDwarf != nullptr; }

    /// The "file:line:column" of an address, "" if there is none.
    std::string Place(uint64_t nAddress) const
    {
        Dwarf_Die unit;
        Dwarf_Line* pLine = FindUnit(nAddress, unit) ? dwarf_getsrc_die(&unit, nAddress) : nullptr;
        if (!pLine)
        {
            return "";
        }
        int nLine = 0;
        int nColumn = 0;
        dwarf_lineno(pLine, &nLine);
        dwarf_linecol(pLine, &nColumn);
        return std::string(dwarf_linesrc(pLine, nullptr, nullptr)) + ":" + std::to_string(nLine) + ":" +
               std::to_string(nColumn);
    }

    /// Innermost first.
    std::vector<SDwarfFrame> Frames(uint64_t nAddress) const
    {
        std::vector<SDwarfFrame> vFrames;
        for (Dwarf_Die& scope : Scopes(nAddress))
        {
            if (IsFunction(scope))
            {
                vFrames.push_back({Name(scope), CallLine(scope), Number(scope, DW_AT_call_column)});
            }
        }
        return vFrames;
    }

    /// Innermost scope first, and within a scope in the order of declaration.
    std::vector<SDwarfVariable> Variables(uint64_t nAddress) const
    {
        std::vector<SDwarfVariable> vVariables;
        std::vector<Dwarf_Die> vScopes = Scopes(nAddress);
        for (size_t n = 0; n < vScopes.size(); ++n)
        {
            size_t nFunction = n;
            while (nFunction < vScopes.size() && !IsFunction(vScopes[nFunction]))
            {
                ++nFunction;
            }
            Dwarf_Die child;
            for (int nResult = dwarf_child(&vScopes[n], &child); nResult == 0 && nFunction < vScopes.size();
                 nResult = dwarf_siblingof(&child, &child))
            {
                const int nTag = dwarf_tag(&child);
                if (nTag == DW_TAG_variable || nTag == DW_TAG_formal_parameter)
                {
                    vVariables.push_back(Describe(child, nAddress));
                    vVariables.back().strFunction = Name(vScopes[nFunction]);
                    vVariables.back().nCallLine = CallLine(vScopes[nFunction]);
                }
            }
        }
        return vVariables;
    }

    /// The program's own variables: "type name", and the bytes of the value.
    std::vector<std::pair<std::string, std::string>> Constants() const
    {
        std::vector<std::pair<std::string, std::string>> vConstants;
        Dwarf_Die unit;
        Dwarf_Die child;
        if (!FirstUnit(unit) || dwarf_child(&unit, &child) != 0)
        {
            return vConstants;
        }
        do
        {
            Dwarf_Attribute attribute;
            Dwarf_Block block;
            if (dwarf_tag(&child) == DW_TAG_variable && dwarf_attr(&child, DW_AT_const_value, &attribute) &&
                dwarf_formblock(&attribute, &block) == 0)
            {
                vConstants.emplace_back(TypeOf(child) + " " + Name(child),
                                        std::string(reinterpret_cast<const char*>(block.data), block.length));
            }
        } while (dwarf_siblingof(&child, &child) == 0);
        return vConstants;
    }

    /// The bytes of a section, "" if there is none.
    std::string Section(const std::string& strName) const
    {
        size_t nNames = 0;
        elf_getshdrstrndx(m_pElf, &nNames);
        for (Elf_Scn* pSection = elf_nextscn(m_pElf, nullptr); pSection; pSection = elf_nextscn(m_pElf, pSection))
        {
            GElf_Shdr header;
            gelf_getshdr(pSection, &header);
            if (strName == elf_strptr(m_pElf, nNames, header.sh_name))
            {
                return std::string(m_vImage.data() + header.sh_offset, header.sh_size);
            }
        }
        return "";
    }

private:
    bool FirstUnit(Dwarf_Die& unit) const
    {
        Dwarf_Off nNext = 0;
        size_t nHeader = 0;
        return dwarf_nextcu(m_pDwarf, 0, &nNext, &nHeader, nullptr, nullptr, nullptr) == 0 &&
               dwarf_offdie(m_pDwarf, nHeader, &unit);
    }

    bool FindUnit(uint64_t nAddress, Dwarf_Die& unit) const { return dwarf_addrdie(m_pDwarf, nAddress, &unit); }

    std::vector<Dwarf_Die> Scopes(uint64_t nAddress) const
    {
        Dwarf_Die unit;
        Dwarf_Die* pScopes = nullptr;
        if (!FindUnit(nAddress, unit))
        {
            return {};
        }
        const int nScopes = dwarf_getscopes(&unit, nAddress, &pScopes);
        // Only up to the inlined function; from there the entries' own parents continue.
        std::vector<Dwarf_Die> vScopes;
        if (nScopes > 0)
        {
            Dwarf_Die* pChain = nullptr;
            const int nChain = dwarf_getscopes_die(&pScopes[0], &pChain);
            vScopes.assign(pChain, pChain + std::max(0, nChain));
            free(pChain);
        }
        free(pScopes);
        return vScopes;
    }

    static bool IsFunction(Dwarf_Die& die)
    {
        return dwarf_tag(&die) == DW_TAG_subprogram || dwarf_tag(&die) == DW_TAG_inlined_subroutine;
    }

    static std::string Name(Dwarf_Die& die)
    {
        Dwarf_Attribute attribute;
        const char* pszName = dwarf_formstring(dwarf_attr_integrate(&die, DW_AT_name, &attribute));
        return pszName ? pszName : "";
    }

    static int Number(Dwarf_Die& die, unsigned int nAttribute)
    {
        Dwarf_Attribute attribute;
        Dwarf_Word nValue = 0;
        dwarf_formudata(dwarf_attr_integrate(&die, nAttribute, &attribute), &nValue);
        return static_cast<int>(nValue);
    }

    static int CallLine(Dwarf_Die& die) { return Number(die, DW_AT_call_line); }

    static SDwarfVariable Describe(Dwarf_Die& die, uint64_t nAddress)
    {
        SDwarfVariable variable;
        variable.strName = Name(die);
        variable.strType = TypeOf(die);
        variable.bParameter = dwarf_tag(&die) == DW_TAG_formal_parameter;
        variable.nLine = Number(die, DW_AT_decl_line);
        Dwarf_Attribute attribute;
        Dwarf_Op* pOps = nullptr;
        size_t nOps = 0;
        if (dwarf_attr(&die, DW_AT_location, &attribute) &&
            dwarf_getlocation_addr(&attribute, nAddress, &pOps, &nOps, 1) == 1)
        {
            variable.vLocation.assign(pOps, pOps + nOps);
        }
        return variable;
    }

    static std::string TypeOf(Dwarf_Die& die)
    {
        Dwarf_Attribute attribute;
        Dwarf_Die type;
        if (!dwarf_formref_die(dwarf_attr_integrate(&die, DW_AT_type, &attribute), &type))
        {
            return "void";
        }
        return Text(type);
    }

    /// A description of a type, such as "pointer(1) to const struct s {int@0 a}".
    static std::string Text(Dwarf_Die& type)
    {
        std::string strName = Name(type);
        switch (dwarf_tag(&type))
        {
        case DW_TAG_base_type:
            return strName;
        case DW_TAG_typedef:
            return strName + "=" + TypeOf(type);
        case DW_TAG_const_type:
            return "const " + TypeOf(type);
        case DW_TAG_volatile_type:
            return "volatile " + TypeOf(type);
        case DW_TAG_restrict_type:
            return "restrict " + TypeOf(type);
        case DW_TAG_pointer_type:
            return "pointer(" + std::to_string(Number(type, DW_AT_address_class)) + ") to " + TypeOf(type);
        case DW_TAG_array_type:
            return Array(type);
        case DW_TAG_structure_type:
        case DW_TAG_union_type:
        case DW_TAG_enumeration_type:
            return Members(type, strName);
        default:
            return "?";
        }
    }

    static std::string Array(Dwarf_Die& type)
    {
        std::string strText = dwarf_hasattr(&type, DW_AT_GNU_vector) ? "vector" : "array";
        Dwarf_Die child;
        for (int nResult = dwarf_child(&type, &child); nResult == 0; nResult = dwarf_siblingof(&child, &child))
        {
            strText += "[" + std::to_string(Number(child, DW_AT_count)) + "]";
        }
        return strText + " of " + TypeOf(type);
    }

    static std::string Members(Dwarf_Die& type, const std::string& strName)
    {
        const int nTag = dwarf_tag(&type);
        std::string strText = nTag == DW_TAG_structure_type ? "struct "
                              : nTag == DW_TAG_union_type   ? "union "
                                                            : "enum ";
        strText += strName + "(" + std::to_string(Number(type, DW_AT_byte_size)) + "){";
        Dwarf_Die child;
        for (int nResult = dwarf_child(&type, &child); nResult == 0; nResult = dwarf_siblingof(&child, &child))
        {
            if (dwarf_tag(&child) == DW_TAG_enumerator)
            {
                Dwarf_Attribute attribute;
                Dwarf_Sword nValue = 0;
                dwarf_formsdata(dwarf_attr(&child, DW_AT_const_value, &attribute), &nValue);
                strText += Name(child) + "=" + std::to_string(nValue) + ";";
            }
            else
            {
                // Avoids endless recursion for a struct with a pointer to itself.
                Dwarf_Attribute attribute;
                Dwarf_Die member;
                dwarf_formref_die(dwarf_attr(&child, DW_AT_type, &attribute), &member);
                const bool bPointer = dwarf_tag(&member) == DW_TAG_pointer_type;
                strText += std::to_string(Number(child, DW_AT_data_member_location)) + ":" +
                           (bPointer ? "pointer" : Text(member)) + " " + Name(child) + ";";
            }
        }
        return strText + "}";
    }

    std::vector<char> m_vImage;
    Elf* m_pElf = nullptr;
    Dwarf* m_pDwarf = nullptr;
};

} // namespace KestrelTests

#endif

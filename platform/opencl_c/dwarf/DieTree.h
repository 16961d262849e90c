#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_DIETREE_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_DIETREE_H

#include "platform/compiler/FrontEnd.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace KestrelOpenCL
{

/// The debugging entries of one compile unit, written as `.debug_info`, `.debug_abbrev` and `.debug_str` by the DWARF 4
/// standard (sections 7.5 and 2.1). Tags and attributes are the standard's numbers.
class CDieTree
{
public:
    using CDie = int;

    /// \param parent -1 for the unit's own entry, which comes first
    CDie Add(CDie parent, uint16_t nTag);

    void Unsigned(CDie die, uint16_t nAttribute, uint64_t nValue);
    void Signed(CDie die, uint16_t nAttribute, int64_t nValue);
    void Text(CDie die, uint16_t nAttribute, std::string_view text);
    void Flag(CDie die, uint16_t nAttribute);
    void Address(CDie die, uint16_t nAttribute, uint64_t nValue);
    void Offset(CDie die, uint16_t nAttribute, uint64_t nValue);     ///< offset in another section
    void Expression(CDie die, uint16_t nAttribute, std::string str); ///< operators
    void Block(CDie die, uint16_t nAttribute, std::string str);
    /// A location list. `.debug_loc` gets them in the order of the entries, as some readers expect.
    void List(CDie die, uint16_t nAttribute, std::string str);
    void Reference(CDie die, uint16_t nAttribute, CDie target);

    /// Appends the three sections, and that of the location lists if there are any.
    void Write(std::vector<KestrelPlatform::SDebugSection>& vSections) const;

private:
    struct SAttribute
    {
        uint16_t nAttribute;
        uint8_t nForm;
        uint64_t nValue; ///< number, offset of a string, or referenced entry
        std::string strBlock;
    };
    struct SDie
    {
        uint16_t nTag;
        std::vector<SAttribute> vAttributes;
        std::vector<CDie> vChildren;
    };
    class CWriter;

    void AddAttribute(CDie die, uint16_t nAttribute, uint8_t nForm, uint64_t nValue);

    std::vector<SDie> m_vDies;
    std::string m_strTexts;
    std::unordered_map<std::string, uint64_t> m_mapTexts; ///< offsets in m_strTexts
};

} // namespace KestrelOpenCL

#endif

#ifndef KESTREL_TOOLS_DEBUG_SOURCEVALUE_H
#define KESTREL_TOOLS_DEBUG_SOURCEVALUE_H

#include "tools/session/debug/Format.h"
#include "tools/source/DebugInfo.h"

#include <functional>

namespace KestrelTool
{

/// A value of the source, of one work-item.
struct SSourceValue
{
    const SSourceType* pType = nullptr;
    std::vector<unsigned char> vBytes;
    std::vector<bool> vKnown; ///< by byte: what has no place at this stop isn't

    bool IsKnown() const;
};

/// A part of a value as a value of its own.
/// \throws CCommandError if it isn't inside
SSourceValue PartOf(const SSourceValue& whole, size_t nOffset, const SSourceType& type);

/// \param nameAddress  the text of a pointer; hexadecimal without one
std::string FormatValue(const SSourceValue& value, EFormat eFormat,
                        const std::function<std::string(uint64_t)>& nameAddress);

} // namespace KestrelTool

#endif

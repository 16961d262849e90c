#ifndef KESTREL_TOOLS_DEBUG_SOURCEVALUE_H
#define KESTREL_TOOLS_DEBUG_SOURCEVALUE_H

#include "tools/session/debug/Format.h"
#include "tools/source/DebugInfo.h"

#include <functional>

namespace KestrelTool
{

/// The value of a source expression for one work-item.
struct SSourceValue
{
    const SSourceType* pType = nullptr;
    std::vector<unsigned char> vBytes;
    std::vector<bool> vKnown; ///< by byte: false if it has no place at this stop

    bool IsKnown() const;
};

/// A part of a value as a value.
/// \throws CCommandError if it isn't inside
SSourceValue PartOf(const SSourceValue& whole, size_t nOffset, const SSourceType& type);

/// \param nameAddress  formats pointers; if empty they are hexadecimal
std::string FormatValue(const SSourceValue& value, EFormat eFormat,
                        const std::function<std::string(uint64_t)>& nameAddress);

} // namespace KestrelTool

#endif

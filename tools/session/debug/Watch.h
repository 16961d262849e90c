#ifndef KESTREL_TOOLS_DEBUG_WATCH_H
#define KESTREL_TOOLS_DEBUG_WATCH_H

#include "KestrelPlatform.h"
#include "tools/session/debug/Expression.h"
#include "tools/session/launch/ElementType.h"
#include "tools/session/launch/Listing.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace KestrelTool
{

/// Bytes whose accesses a session stops in front of. Which instructions and work-items these come from is known from a
/// plain run; at a stop in front of such an instruction its address tells whether the access is one of them.
struct SWatch
{
    std::string strText; ///< "watch out[5]"
    SPlatformWatch bytes = {};
    std::optional<size_t> nGroup; ///< of local memory
    std::optional<size_t> nItem;  ///< of private memory
    bool bReads = false;
    bool bWrites = true;

    /// What a line of IL does with them.
    struct SLine
    {
        uint32_t nKind = 0;  ///< an EPlatformAccess
        uint32_t nBytes = 0; ///< of an access
        std::set<size_t> items;
    };
    std::map<unsigned int, SLine> mapLines;

    bool Wants(uint32_t nKind) const
    {
        return nKind == PLATFORM_ACCESS_ATOMIC || (nKind == PLATFORM_ACCESS_LOAD ? bReads : bWrites);
    }
};

/// The operands whose sum is the address of a memory instruction; none if the line's form isn't known.
std::vector<SOperand> FindAddressOperands(const CListing& listing, unsigned int nLine);

} // namespace KestrelTool

#endif

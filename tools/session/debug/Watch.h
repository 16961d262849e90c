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

/// Watched bytes: a session stops before accesses to them. A plain run tells which instructions and work-items make
/// them; at a stop before such an instruction, its address tells whether the access is one of them.
struct SWatch
{
    std::string strText; ///< "watch out[5]"
    SPlatformWatch bytes = {};
    std::optional<size_t> nGroup; ///< for local memory
    std::optional<size_t> nItem;  ///< for private memory
    bool bReads = false;
    bool bWrites = true;

    /// How a line of IL accesses them.
    struct SLine
    {
        uint32_t nKind = 0;  ///< an EPlatformAccess
        uint32_t nBytes = 0; ///< size of an access
        std::set<size_t> items;
    };
    std::map<unsigned int, SLine> mapLines;

    bool Wants(uint32_t nKind) const
    {
        return nKind == PLATFORM_ACCESS_ATOMIC || (nKind == PLATFORM_ACCESS_LOAD ? bReads : bWrites);
    }
};

/// The operands whose sum is the address of a memory instruction; none if its form isn't known.
std::vector<SOperand> FindAddressOperands(const CListing& listing, unsigned int nLine);

} // namespace KestrelTool

#endif

#ifndef KESTREL_TOOLS_DEBUG_FAULTSTOP_H
#define KESTREL_TOOLS_DEBUG_FAULTSTOP_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace KestrelTool
{

/// A fault of a kernel at one line.
struct SFaultPlace
{
    std::string strMessage;
    std::set<size_t> items; ///< the work-items with the fault; for a barrier, one that doesn't reach it
    bool bMissing = false;  ///< a barrier that isn't reached by all
    /// The address of the faulty access, in an argument's buffer or as instructions have it. Without an address, the
    /// first time that any of the work-items comes here counts.
    std::optional<uint64_t> nAddress;
    std::optional<size_t> nArgument;
};

/// Faults of a kernel before which a session stops. The instructions and work-items were found by a separate run.
struct SFaultStop
{
    std::string strText;                                ///< "stop on race"
    std::multimap<unsigned int, SFaultPlace> mapPlaces; ///< by line of IL
};

} // namespace KestrelTool

#endif

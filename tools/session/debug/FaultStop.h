#ifndef KESTREL_TOOLS_DEBUG_FAULTSTOP_H
#define KESTREL_TOOLS_DEBUG_FAULTSTOP_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace KestrelTool
{

/// Something that a kernel does wrong at a line.
struct SFaultPlace
{
    std::string strMessage;
    std::set<size_t> items; ///< the work-items that do it; of a barrier, one that doesn't come to it
    bool bMissing = false;  ///< it is a barrier
    /// Where an access that does it goes to, in the buffer of an argument or as instructions have it. Without one it is
    /// told the first time that any of the work-items comes here.
    std::optional<uint64_t> nAddress;
    std::optional<size_t> nArgument;
};

/// What a kernel does wrong, in front of which a session stops. A run of its own has told which instructions of which
/// work-items these are.
struct SFaultStop
{
    std::string strText;                                ///< "stop on race"
    std::multimap<unsigned int, SFaultPlace> mapPlaces; ///< by line of IL
};

} // namespace KestrelTool

#endif

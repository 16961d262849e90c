// Stops at watched memory accesses.

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Debugger.h"

#include <vector>

namespace KestrelTool
{

namespace
{

/// The largest access, in bytes.
const uint64_t s_nMostAccessed = 16;

} // namespace

/// The address of the first watched byte, as the kernel's instructions have it at this stop.
uint64_t CDebugger::FindWatchedAddress(const SWatch& watch)
{
    const bool bGlobal = watch.bytes.nMemory == PLATFORM_MEMORY_GLOBAL;
    return (bGlobal ? FindAddress(watch.bytes.nArgument) : 0) + watch.bytes.nAddress;
}

/// For the active ones of these work-items, the address that a line's access has.
std::vector<std::optional<uint64_t>> CDebugger::ReadAddresses(unsigned int nLine, const std::set<size_t>& items)
{
    const bool b64Bit = m_pListing->GetLine(nLine).find("_addr64") != std::string::npos;
    const std::vector<SOperand> vOperands = FindAddressOperands(*m_pListing, nLine);
    std::vector<SRegisterView> vViews;
    for (const SOperand& operand : vOperands)
    {
        vViews.push_back(GetValues(operand.strRegister));
    }
    const SMaskView mask = GetActive();
    std::vector<std::optional<uint64_t>> vAddresses;
    for (const size_t nItem : items)
    {
        vAddresses.emplace_back();
        if (nItem >= mask.nItems || mask.pActive[nItem] == CL_FALSE)
        {
            continue;
        }
        uint64_t nAddress = 0;
        for (size_t n = 0; n < vOperands.size(); ++n)
        {
            const std::vector<unsigned int>& vParts = vOperands[n].vComponents;
            nAddress += vViews[n][nItem][vParts[0]];
            nAddress |= b64Bit ? static_cast<uint64_t>(vViews[n][nItem][vParts.at(1)]) << 32 : 0;
        }
        vAddresses.back() = nAddress;
    }
    return vAddresses;
}

std::vector<size_t> CDebugger::FindTouchers(const SWatch& watch, unsigned int nLine)
{
    const auto it = watch.mapLines.find(nLine);
    if (it == watch.mapLines.end() || m_Target.GetState() != CTarget::AtStop)
    {
        return {};
    }
    const std::vector<std::optional<uint64_t>> vAddresses = ReadAddresses(nLine, it->second.items);
    std::vector<size_t> vTouchers;
    const uint64_t nWatched = FindWatchedAddress(watch);
    size_t n = 0;
    for (const size_t nItem : it->second.items)
    {
        const std::optional<uint64_t> nAddress = vAddresses[n++];
        if (nAddress && *nAddress<nWatched + watch.bytes.nBytes&& * nAddress + it->second.nBytes> nWatched)
        {
            vTouchers.push_back(nItem);
        }
    }
    return vTouchers;
}

/// The work-items of the same group that reach a barrier that nMissing doesn't reach.
std::vector<size_t> CDebugger::FindPart(size_t nMissing)
{
    const SMaskView mask = GetActive();
    std::vector<size_t> vItems;
    for (size_t n = 0; n < mask.nItems && nMissing < mask.nItems && mask.pActive[nMissing] == CL_FALSE; ++n)
    {
        if (mask.pActive[n] != CL_FALSE && m_Extent.GroupOf(n) == m_Extent.GroupOf(nMissing))
        {
            vItems.push_back(n);
        }
    }
    return vItems;
}

std::vector<size_t> CDebugger::FindFaulty(const SFaultPlace& place, unsigned int nLine)
{
    if (m_Target.GetState() != CTarget::AtStop || place.items.empty())
    {
        return {};
    }
    if (place.bMissing)
    {
        return FindPart(*place.items.begin());
    }
    const bool bPlain = FindAddressOperands(*m_pListing, nLine).empty();
    const uint64_t nWanted = place.nAddress.value_or(0) + (place.nArgument ? FindAddress(*place.nArgument) : 0);
    const std::vector<std::optional<uint64_t>> vAddresses = ReadAddresses(nLine, place.items);
    std::vector<size_t> vItems;
    size_t n = 0;
    for (const size_t nItem : place.items)
    {
        const std::optional<uint64_t> nAddress = vAddresses[n++];
        if (nAddress && (bPlain || !place.nAddress || nWanted - *nAddress < s_nMostAccessed))
        {
            vItems.push_back(nItem);
        }
    }
    return vItems;
}

SPlatformWatch CDebugger::FindArgumentOf(uint64_t nAddress, size_t nBytes)
{
    for (size_t i = 0; i < m_vArguments.size(); ++i)
    {
        const uint64_t nSize = m_vArguments[i].IsGlobal() ? GetGiven(i).vContents.size() : 0;
        const uint64_t nBase = nSize != 0 ? FindAddress(i) : 0;
        if (nBase <= nAddress && nAddress - nBase < nSize)
        {
            return {PLATFORM_MEMORY_GLOBAL, static_cast<uint32_t>(i), nAddress - nBase, nBytes};
        }
    }
    throw CCommandError(NameAddress(nAddress) + " is in no buffer of the launch");
}

} // namespace KestrelTool

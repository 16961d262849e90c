// Stops at accesses to memory that is watched.

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Debugger.h"

#include <vector>

namespace KestrelTool
{

/// The first byte that is watched, as the kernel's instructions have it at this stop.
uint64_t CDebugger::FindWatchedAddress(const SWatch& watch)
{
    const bool bGlobal = watch.bytes.nMemory == PLATFORM_MEMORY_GLOBAL;
    return (bGlobal ? FindAddress(watch.bytes.nArgument) : 0) + watch.bytes.nAddress;
}

std::vector<size_t> CDebugger::FindTouchers(const SWatch& watch, unsigned int nLine)
{
    const auto it = watch.mapLines.find(nLine);
    if (it == watch.mapLines.end() || m_Target.GetState() != CTarget::AtStop)
    {
        return {};
    }
    const bool b64Bit = m_pListing->GetLine(nLine).find("_addr64") != std::string::npos;
    const std::vector<SOperand> vOperands = FindAddressOperands(*m_pListing, nLine);
    std::vector<SRegisterView> vViews;
    for (const SOperand& operand : vOperands)
    {
        vViews.push_back(GetValues(operand.strRegister));
    }
    const auto readAddress = [&](size_t nItem)
    {
        uint64_t nAddress = 0;
        for (size_t n = 0; n < vOperands.size(); ++n)
        {
            const std::vector<unsigned int>& vParts = vOperands[n].vComponents;
            nAddress += vViews[n][nItem][vParts[0]];
            nAddress |= b64Bit ? static_cast<uint64_t>(vViews[n][nItem][vParts.at(1)]) << 32 : 0;
        }
        return nAddress;
    };
    const SMaskView mask = GetActive();
    std::vector<size_t> vTouchers;
    const uint64_t nWatched = FindWatchedAddress(watch);
    for (const size_t nItem : it->second.items)
    {
        const bool bActive = nItem < mask.nItems && mask.pActive[nItem] != CL_FALSE;
        const uint64_t nAddress = bActive ? readAddress(nItem) : 0;
        if (bActive && nAddress < nWatched + watch.bytes.nBytes && nAddress + it->second.nBytes > nWatched)
        {
            vTouchers.push_back(nItem);
        }
    }
    return vTouchers;
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

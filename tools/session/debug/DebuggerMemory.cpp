// Finds the addresses and contents of the kernel's buffers.

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/SourceValues.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace KestrelTool
{

namespace
{

const size_t s_nConstantBytes = 16;                ///< of an element of a constant buffer
const size_t s_nMaxPrivateBytes = size_t(1) << 30; ///< of all work-items
const size_t s_nDeclaredLocal = ~size_t(0);        ///< in place of an argument: the kernel's declared memory

/// The size of the constant buffer of arguments, as declared by the kernel.
size_t CountConstants(const CListing& listing)
{
    const std::string strDeclaration = "dcl_cb cb1[";
    for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
    {
        const std::string& strLine = listing.GetLine(nLine);
        if (strLine.compare(0, strDeclaration.size(), strDeclaration) == 0)
        {
            return std::strtoul(strLine.c_str() + strDeclaration.size(), nullptr, 10);
        }
    }
    return 0;
}

} // namespace

const SArgument& CDebugger::GetGiven(size_t nArgument) const
{
    const std::vector<SArgument>& vGiven = m_Launch.GetFile().vArguments;
    static const SArgument s_None;
    if (nArgument >= vGiven.size())
    {
        return s_None;
    }
    return vGiven[nArgument].eKind == SArgument::Same ? vGiven[vGiven[nArgument].nSame] : vGiven[nArgument];
}

/// A session begins by reading the kernel's constant buffer of arguments, and the tool keeps a copy of what is read.
/// The debugger is asked whether a number in it is an address.
std::optional<uint64_t> CDebugger::FindFirstRead(size_t nArgument)
{
    const SKernelArgument& argument = m_vArguments[nArgument];
    const size_t nSize = GetGiven(nArgument).vContents.size();
    const size_t nPlace = argument.nConstant * s_nConstantBytes;
    for (const std::vector<unsigned char>& vBytes : m_Runs.GetFirstReads())
    {
        if (nSize == 0 || vBytes.size() < nPlace + s_nConstantBytes)
        {
            continue;
        }
        uint64_t nAddress = 0;
        std::memcpy(&nAddress, &vBytes[nPlace], sizeof(nAddress));
        const bool bFits = GetSession().GetBufferSize(argument.nResource, nAddress) == nSize &&
                           GetSession().GetGlobalMemory(argument.nResource, nAddress + nSize - 1, 2).size() == 1;
        if (bFits)
        {
            return nAddress;
        }
    }
    return std::nullopt;
}

/// Before the first instruction the debugger can't be asked for memory yet. So the constant buffer of arguments is
/// recognised among the copies by its size, and by whether the numbers in it could be addresses.
std::optional<uint64_t> CDebugger::FindAtStart(size_t nArgument) const
{
    const uint64_t nMostAddress = uint64_t(1) << 48;
    const auto readAddress = [this](const std::vector<unsigned char>& vBytes, size_t n)
    {
        uint64_t nAddress = 0;
        std::memcpy(&nAddress, &vBytes[m_vArguments[n].nConstant * s_nConstantBytes], sizeof(nAddress));
        return nAddress;
    };
    const size_t nSize = CountConstants(*m_pListing) * s_nConstantBytes;
    for (const std::vector<unsigned char>& vBytes : m_Runs.GetFirstReads())
    {
        bool bFits = vBytes.size() == nSize && nSize != 0;
        for (size_t n = 0; bFits && n < m_vArguments.size(); ++n)
        {
            const bool bPlace = (m_vArguments[n].nConstant + size_t(1)) * s_nConstantBytes <= nSize;
            const uint64_t nAddress = bPlace && m_vArguments[n].IsGlobal() ? readAddress(vBytes, n) : 0;
            const bool bBuffer = m_vArguments[n].IsGlobal() && !GetGiven(n).vContents.empty();
            bFits = bPlace && (nAddress != 0) == bBuffer && nAddress < nMostAddress;
        }
        if (bFits)
        {
            return readAddress(vBytes, nArgument);
        }
    }
    return std::nullopt;
}

/// A register that is written at a single place, from the argument's constant, only holds addresses in the argument's
/// buffer.
std::optional<uint64_t> CDebugger::FindInRegisters(size_t nArgument)
{
    const SKernelArgument& argument = m_vArguments[nArgument];
    const std::string strConstant = "cb1[" + std::to_string(argument.nConstant) + "].x";
    std::map<std::string, unsigned int> mapWriters;
    std::string strCandidate;
    for (unsigned int nLine = 0; nLine < m_pListing->GetLineCount(); ++nLine)
    {
        const std::string strWritten = m_pListing->GetWrittenRegister(nLine);
        mapWriters[strWritten] += strWritten.empty() ? 0 : 1;
        if (!strWritten.empty() && m_pListing->GetLine(nLine).find(strConstant) != std::string::npos)
        {
            strCandidate = strWritten;
        }
    }
    const bool bSure = !strCandidate.empty() && mapWriters[strCandidate] == 1;
    const SRegisterView view = bSure ? GetSession().GetRegister(strCandidate) : SRegisterView();
    for (size_t i = 0; view.pWords != nullptr && i < view.nItems; ++i)
    {
        const uint64_t nAddress = uint64_t(view[i][1]) << 32 | view[i][0];
        const size_t nSize = GetSession().GetBufferSize(argument.nResource, nAddress);
        if (nSize != 0)
        {
            return nAddress - (nSize - GetSession().GetGlobalMemory(argument.nResource, nAddress, nSize).size());
        }
    }
    return std::nullopt;
}

uint64_t CDebugger::FindAddress(size_t nArgument)
{
    const auto it = m_mapAddresses.find(nArgument);
    if (it != m_mapAddresses.end())
    {
        return it->second;
    }
    std::optional<uint64_t> address;
    if (m_Target.GetState() == CTarget::AtStart)
    {
        address = FindAtStart(nArgument);
    }
    if (m_Target.GetState() == CTarget::AtStop)
    {
        address = FindFirstRead(nArgument);
        address = address ? address : FindInRegisters(nArgument);
    }
    if (!address)
    {
        const SKernelArgument& argument = m_vArguments[nArgument];
        throw CCommandError("where " + argument.strName + " lies isn't known here; say uav" +
                            std::to_string(argument.nResource) + ":ADDRESS");
    }
    m_mapAddresses[nArgument] = *address;
    return *address;
}

std::string CDebugger::NameAddress(uint64_t nAddress)
{
    // Chooses the buffer with the closest start before the address. Beyond its end the address is in no buffer.
    std::string strName;
    uint64_t nOffset = ~uint64_t(0);
    for (const SMemory& memory : ListMemory(SSourceType::GlobalSpace))
    {
        if (memory.nBase <= nAddress && nAddress - memory.nBase < nOffset)
        {
            nOffset = nAddress - memory.nBase;
            strName = m_vArguments[memory.nPlace].strName;
        }
    }
    // An address so far away has nothing to do with the buffer.
    const bool bNear = nOffset < uint64_t(1) << 32;
    return bNear ? strName + "+" + FormatHex(nOffset) : FormatHex(nAddress);
}

std::vector<unsigned char> CDebugger::ReadBuffer(size_t nArgument, uint64_t nOffset, size_t nBytes)
{
    return ReadAndLog({SMemoryRead::Buffer, nArgument, 0, nOffset, nBytes});
}

std::vector<unsigned char> CDebugger::FetchBuffer(size_t nArgument, uint64_t nOffset, size_t nBytes)
{
    RequireLive();
    const SArgument& given = GetGiven(nArgument);
    if (given.vContents.empty())
    {
        throw CCommandError(m_vArguments[nArgument].strName + " is a null buffer");
    }
    if (nOffset >= given.vContents.size())
    {
        throw CCommandError(m_vArguments[nArgument].strName + " has only " + std::to_string(given.vContents.size()) +
                            " bytes");
    }
    if (m_Target.GetState() == CTarget::AtStop && m_vArguments[nArgument].IsGlobal())
    {
        return GetSession().GetGlobalMemory(m_vArguments[nArgument].nResource, FindAddress(nArgument) + nOffset,
                                            nBytes);
    }
    // Before the first instruction, buffers are as in the launch file; value arguments always are.
    const auto itFirst = given.vContents.begin() + static_cast<std::ptrdiff_t>(nOffset);
    const size_t nThere = std::min<size_t>(nBytes, given.vContents.size() - nOffset);
    return std::vector<unsigned char>(itFirst, itFirst + static_cast<std::ptrdiff_t>(nThere));
}

std::vector<unsigned char> CDebugger::ReadGlobal(uint64_t nAddress, size_t nBytes)
{
    for (size_t i = 0; i < m_vArguments.size(); ++i)
    {
        const size_t nSize = m_vArguments[i].IsGlobal() ? GetGiven(i).vContents.size() : 0;
        const uint64_t nBase = nSize != 0 ? FindAddress(i) : 0;
        if (nBase <= nAddress && nAddress - nBase < nSize)
        {
            return ReadBuffer(i, nAddress - nBase, nBytes);
        }
    }
    return {};
}

std::vector<unsigned char> CDebugger::ReadPrivate(size_t nItem, uint64_t nAddress, size_t nBytes)
{
    const std::vector<unsigned char> vAll = ReadAllPrivate(nAddress, nBytes);
    if (vAll.size() < (nItem + 1) * nBytes)
    {
        throw CCommandError("private memory can't be read here");
    }
    const auto itFirst = vAll.begin() + static_cast<std::ptrdiff_t>(nItem * nBytes);
    return std::vector<unsigned char>(itFirst, itFirst + static_cast<std::ptrdiff_t>(nBytes));
}

unsigned int CDebugger::FindDeclaredLocal()
{
    const unsigned int nMaxBlocks = 16;
    for (unsigned int n = 0; n < nMaxBlocks; ++n)
    {
        if (GetLocalSize(OVKCLDEBUG_EXT_LOCAL_BLOCK(n)) != 0)
        {
            return OVKCLDEBUG_EXT_LOCAL_BLOCK(n);
        }
    }
    throw CCommandError("the kernel declares no local memory");
}

/// "local1": the local memory block that the kernel declares under this number, as 32-bit words.
std::optional<SElements> CDebugger::FindLocalBlock(const std::string& strName)
{
    const std::string strStart = "local";
    const bool bBlock = strName.compare(0, strStart.size(), strStart) == 0 && strName.size() > strStart.size() &&
                        strName.find_first_not_of("0123456789", strStart.size()) == std::string::npos;
    if (!bBlock || strName.size() > strStart.size() + 5)
    {
        return std::nullopt;
    }
    SElements elements;
    elements.strName = strName;
    elements.pType = FindElementType("i32");
    elements.bPerGroup = true;
    elements.nPlace = OVKCLDEBUG_EXT_LOCAL_BLOCK(std::stoul(strName.substr(strStart.size())));
    elements.nCount = GetLocalSize(static_cast<unsigned int>(elements.nPlace)) / elements.pType->nSize;
    return elements;
}

size_t CDebugger::GetLocalSize(unsigned int nResource)
{
    RequireLive();
    return m_Target.GetState() == CTarget::AtStop
               ? GetSession().GetBufferSize(nResource, OVKCLDEBUG_EXT_LOCAL_ADDRESS(0, 0))
               : 0;
}

std::vector<unsigned char> CDebugger::ReadLocal(unsigned int nResource, size_t nGroup, uint64_t nOffset, size_t nBytes)
{
    return ReadAndLog({SMemoryRead::Local, nResource, nGroup, nOffset, nBytes});
}

std::vector<unsigned char> CDebugger::FetchLocal(unsigned int nResource, size_t nGroup, uint64_t nOffset, size_t nBytes)
{
    RequireLive();
    if (m_Target.GetState() != CTarget::AtStop)
    {
        throw CCommandError("in front of the first instruction local memory isn't known");
    }
    if (!m_Extent.bLocalKnown)
    {
        throw CCommandError("the launch leaves the size of groups to the platform, so that there are none to name");
    }
    const size_t nSize = GetLocalSize(nResource);
    if (nSize == 0)
    {
        throw CCommandError("the kernel has no such local memory at this stop");
    }
    if (nOffset >= nSize)
    {
        throw CCommandError("it has only " + std::to_string(nSize) + " bytes");
    }
    return GetSession().GetGlobalMemory(nResource, OVKCLDEBUG_EXT_LOCAL_ADDRESS(nGroup, nOffset),
                                        std::min<size_t>(nBytes, nSize - nOffset));
}

std::optional<SSourceVariable> CDebugger::FindVariable(const std::string& strName, bool bHere)
{
    std::vector<SSourceVariable> vVariables;
    if (!bHere)
    {
        vVariables = m_pDebugInfo->FindByName(strName);
    }
    else if (IsLive())
    {
        vVariables = CSourceValues(*this).List();
    }
    const auto it = std::find_if(vVariables.begin(), vVariables.end(),
                                 [&](const SSourceVariable& variable) { return variable.strName == strName; });
    return it != vVariables.end() ? std::optional<SSourceVariable>(*it) : std::nullopt;
}

/// The value of a pointer in the constant buffer of arguments; for local memory, its offset there.
uint64_t CDebugger::ReadSlot(const SKernelArgument& argument, bool bWide)
{
    const unsigned int* const pWords = GetValues("cb1[" + std::to_string(argument.nConstant) + "]")[0];
    return bWide ? uint64_t(pWords[1]) << 32 | pWords[0] : pWords[0];
}

std::vector<SMemory> CDebugger::ListMemory(SSourceType::ESpace eSpace)
{
    std::vector<SMemory> vMemory;
    const bool bLocal = eSpace == SSourceType::LocalSpace;
    if (!IsLive() || (bLocal && m_Target.GetState() != CTarget::AtStop))
    {
        return vMemory;
    }
    for (size_t i = 0; i < m_vArguments.size(); ++i)
    {
        const SKernelArgument& argument = m_vArguments[i];
        const bool bConstant = argument.strKind == "pointer" && argument.strMemory == "c";
        const size_t nSize = bLocal ? GetGiven(i).nLocalBytes : GetGiven(i).vContents.size();
        if (nSize == 0 || (bLocal ? !argument.IsLocal() : !argument.IsGlobal() && !bConstant))
        {
            continue;
        }
        try
        {
            vMemory.push_back({bLocal || bConstant ? ReadSlot(argument, bConstant) : FindAddress(i), nSize, i});
        }
        catch (const CCommandError&)
        {
            continue; // its address isn't known
        }
    }
    if (bLocal)
    {
        try
        {
            vMemory.push_back({0, GetLocalSize(FindDeclaredLocal()), s_nDeclaredLocal});
        }
        catch (const CCommandError&)
        {
            // No such block.
        }
    }
    return vMemory;
}

std::vector<unsigned char> CDebugger::ReadMemory(SSourceType::ESpace eSpace, const SMemory& memory, size_t nGroup,
                                                 uint64_t nOffset, size_t nBytes)
{
    if (eSpace != SSourceType::LocalSpace)
    {
        return ReadBuffer(memory.nPlace, nOffset, nBytes);
    }
    return ReadLocal(FindLocalResource(memory), nGroup, nOffset, nBytes);
}

unsigned int CDebugger::FindLocalResource(const SMemory& memory)
{
    return memory.nPlace == s_nDeclaredLocal ? FindDeclaredLocal()
                                             : static_cast<unsigned int>(OVKCLDEBUG_EXT_LOCAL_ARGUMENT(memory.nPlace));
}

std::vector<unsigned char> CDebugger::ReadAllPrivate(uint64_t nAddress, size_t nBytes)
{
    return ReadAndLog({SMemoryRead::Private, 0, 0, nAddress, nBytes});
}

std::vector<unsigned char> CDebugger::FetchPrivate(uint64_t nAddress, size_t nBytes)
{
    RequireLive();
    const size_t nItems = m_Extent.Count();
    if (nItems > s_nMaxPrivateBytes / std::max<size_t>(nBytes, 1))
    {
        throw CCommandError("private memory comes of all work-items at once; that many bytes are too much");
    }
    try
    {
        return GetSession().GetPrivateMemory(nItems, nAddress, nBytes);
    }
    catch (const CSessionError& error)
    {
        throw CCommandError(error.what());
    }
}

std::optional<SElements> CDebugger::FindElements(const std::string& strName)
{
    for (size_t i = 0; i < m_vArguments.size(); ++i)
    {
        const SKernelArgument& argument = m_vArguments[i];
        if (argument.strName != strName && "arg" + std::to_string(i) != strName)
        {
            continue;
        }
        const SArgument& given = GetGiven(i);
        SElements elements;
        elements.strName = strName;
        elements.nPlace = i;
        elements.pType = given.pType != nullptr ? given.pType : FindElementType(argument.strType);
        elements.pType = elements.pType != nullptr ? elements.pType : FindElementType("i32");
        elements.nCount = given.vContents.size() / elements.pType->nSize;
        elements.bAlone = argument.strKind == "value" && elements.nCount == 1;
        if (argument.IsLocal())
        {
            elements.bPerGroup = true;
            elements.nPlace = OVKCLDEBUG_EXT_LOCAL_ARGUMENT(i);
            elements.nCount = given.nLocalBytes / elements.pType->nSize;
            return elements;
        }
        const bool bKnown = argument.strKind == "value" || argument.IsGlobal();
        return bKnown ? std::optional<SElements>(elements) : std::nullopt;
    }
    return FindLocalBlock(strName);
}

std::vector<unsigned char> CDebugger::ReadElements(const SElements& elements, size_t nGroup, uint64_t nOffset,
                                                   size_t nBytes)
{
    if (elements.bPerGroup)
    {
        return ReadLocal(static_cast<unsigned int>(elements.nPlace), nGroup, nOffset, nBytes);
    }
    return ReadBuffer(elements.nPlace, nOffset, nBytes);
}

} // namespace KestrelTool

#include "tools/kestrel/debug/Debugger.h"

#include "tools/kestrel/debug/CommandError.h"

#include <algorithm>
#include <cstdlib>

namespace KestrelTool
{

namespace
{

SExtent MakeExtent(const SLaunchFile& file)
{
    SExtent extent;
    extent.nDimensions = file.nDimensions;
    for (unsigned int i = 0; i < file.nDimensions; ++i)
    {
        extent.nGlobal[i] = file.nGlobalSize[i];
        extent.nLocal[i] = file.bHasLocalSize ? file.nLocalSize[i] : 1;
    }
    return extent;
}

} // namespace

CDebugger::CDebugger(const CLibraries& libraries, const SLaunchFile& file, IEventSink& sink)
    : m_Lib(libraries), m_Sink(sink), m_Launch(libraries, file), m_Runs(libraries), m_Faults(libraries),
      m_Target(libraries, m_Launch), m_Extent(MakeExtent(file))
{
    m_vAllActive.assign(m_Extent.Count(), CL_TRUE);
    m_Target.SetWaiter([this] { ShowProgress(); });
    ReadProgram();
}

CDebugger::~CDebugger() = default;

void CDebugger::ReadProgram()
{
    const std::vector<char> vBinary = m_Launch.ReadBinary();
    const std::vector<std::string> vMetadata = ReadMetadata(vBinary, m_Launch.GetFile().strKernel);
    m_vArguments = ReadArguments(vMetadata);
    const std::string strIdField = ";uniqueid:";
    for (const std::string& strLine : vMetadata)
    {
        if (strLine.compare(0, strIdField.size(), strIdField) == 0)
        {
            m_nLabel = static_cast<unsigned int>(std::strtoul(strLine.c_str() + strIdField.size(), nullptr, 10));
        }
    }
    SetListing(ReadLinesWithCall(vBinary, m_nLabel));
}

void CDebugger::SetListing(std::vector<std::string> vLines)
{
    m_pListing = std::make_unique<CListing>(std::move(vLines));
    m_pCode = std::make_unique<CCodeMap>(*m_pListing);
}

void CDebugger::RequireLive() const
{
    if (!IsLive())
    {
        throw CCommandError("the kernel isn't running; run or start launches it");
    }
}

SRegisterView CDebugger::GetValues(const std::string& strRegister)
{
    RequireLive();
    if (!GetSession().IsRegister(strRegister))
    {
        throw CCommandError(strRegister + " is no register");
    }
    SRegisterView view;
    if (m_Target.GetState() == CTarget::AtStop)
    {
        view = GetSession().GetRegister(strRegister);
    }
    if (view.pWords == nullptr)
    {
        throw CCommandError(strRegister + " has no value here");
    }
    m_LookedAt.insert(strRegister);
    return view;
}

SMaskView CDebugger::GetActive()
{
    RequireLive();
    if (m_Target.GetState() == CTarget::AtStop)
    {
        try
        {
            return GetSession().GetMask();
        }
        catch (const CSessionError&)
        {
            // Gone back to where nothing has been executed: everybody takes part.
        }
    }
    SMaskView mask;
    mask.pActive = m_vAllActive.data();
    mask.nItems = m_vAllActive.size();
    return mask;
}

void CDebugger::SetFocus(size_t nItem)
{
    if (nItem >= m_Extent.Count())
    {
        throw CCommandError("the dispatch has work-items 0 to " + std::to_string(m_Extent.Count() - 1));
    }
    m_nFocus = nItem;
}

std::vector<std::string> CDebugger::GetActiveRegisters()
{
    RequireLive();
    return m_Target.GetState() == CTarget::AtStop ? GetSession().GetActiveRegisters() : std::vector<std::string>();
}

std::vector<uint32_t> CDebugger::GetEarlierValues(const std::string& strRegister)
{
    const auto it = m_mapEarlier.find(strRegister);
    if (it != m_mapEarlier.end())
    {
        return it->second;
    }
    if (!m_bSingleStep)
    {
        throw CCommandError("what " + strRegister + " was at the last stop isn't known: nobody looked at it there");
    }
    std::vector<uint32_t> vWords;
    Move(OVKCLDEBUG_COMMAND_EXT_STEP_BACK, {});
    const SRegisterView view = GetSession().GetRegister(strRegister);
    if (view.pWords != nullptr)
    {
        vWords.assign(view.pWords, view.pWords + 4 * view.nItems);
    }
    Move(OVKCLDEBUG_COMMAND_STEP, {});
    m_mapEarlier[strRegister] = vWords;
    return vWords;
}

uint64_t CDebugger::FindAddress(size_t nArgument)
{
    RequireLive();
    const auto it = m_mapAddresses.find(nArgument);
    if (it != m_mapAddresses.end())
    {
        return it->second;
    }
    const SKernelArgument& argument = m_vArguments[nArgument];
    const std::string strConstant = "cb1[" + std::to_string(argument.nConstant) + "].x";
    std::map<std::string, unsigned int> mapWriters;
    std::string strCandidate;
    for (unsigned int nLine = 0; nLine < m_pListing->GetLineCount(); ++nLine)
    {
        const std::string strWritten = m_pListing->GetWrittenRegister(nLine);
        if (strWritten.empty())
        {
            continue;
        }
        ++mapWriters[strWritten];
        if (m_pListing->GetLine(nLine).find(strConstant) != std::string::npos)
        {
            strCandidate = strWritten;
        }
    }
    // A register that is written in one place only holds an address in this buffer and no other.
    const bool bSure = !strCandidate.empty() && mapWriters[strCandidate] == 1;
    const SRegisterView view =
        bSure && m_Target.GetState() == CTarget::AtStop ? GetSession().GetRegister(strCandidate) : SRegisterView();
    for (size_t i = 0; view.pWords != nullptr && i < view.nItems; ++i)
    {
        const uint64_t nAddress = uint64_t(view[i][1]) << 32 | view[i][0];
        const size_t nSize = GetSession().GetBufferSize(argument.nResource, nAddress);
        if (nSize != 0)
        {
            const size_t nBehind = GetSession().GetGlobalMemory(argument.nResource, nAddress, nSize).size();
            m_mapAddresses[nArgument] = nAddress - (nSize - nBehind);
            return m_mapAddresses[nArgument];
        }
    }
    throw CCommandError("the address of " + argument.strName + " isn't known here: no register holds it yet; say uav" +
                        std::to_string(argument.nResource) + ":ADDRESS");
}

std::vector<std::string> CDebugger::TakeCommands()
{
    std::vector<std::string> vCommands;
    vCommands.swap(m_vCommands);
    return vCommands;
}

std::string CDebugger::GetCurrentFunction() const
{
    const CCodeMap::SFunction* pFunction = m_pCode->FindFunction(m_nLine);
    return pFunction != nullptr ? pFunction->strName : std::string();
}

} // namespace KestrelTool

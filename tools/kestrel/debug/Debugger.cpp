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
        // The number that ReadOperand has put behind a bare name isn't the user's.
        const bool bBare =
            strRegister.find_first_of("0123456789") == strRegister.size() - 1 && strRegister.back() == '0';
        const std::string strBare = strRegister.substr(0, strRegister.size() - 1);
        throw CCommandError((bBare ? strBare : strRegister) + " is no register");
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

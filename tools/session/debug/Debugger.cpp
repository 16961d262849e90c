#include "tools/session/debug/Debugger.h"

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/ReadListing.h"
#include "tools/session/launch/HostMemory.h"
#include "tools/session/launch/PlatformDoor.h"

#include <algorithm>
#include <utility>

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
        extent.nOffset[i] = file.nGlobalOffset[i];
        extent.nLocal[i] = file.bHasLocalSize ? file.nLocalSize[i] : 1;
    }
    extent.bLocalKnown = file.bHasLocalSize;
    return extent;
}

bool IsBinary(const SLaunchFile& file)
{
    return file.strSource.compare(0, 4, "\177ELF") == 0;
}

} // namespace

CDebugger::CDebugger(const CLibraries& libraries, SLaunchFile file, IEventSink& sink)
    : m_Lib(libraries), m_pControl(FindPlatformControl(libraries)), m_Sink(sink), m_Launch(libraries, std::move(file)),
      m_Runs(libraries), m_Faults(m_pControl), m_Target(libraries, m_Launch), m_Extent(MakeExtent(m_Launch.GetFile()))
{
    m_Target.SetWaiter([this] { ShowProgress(); });
    m_Target.SetBreaker(
        [this](bool bBreak)
        {
            if (m_pControl != nullptr)
            {
                m_pControl->BreakRuns(bBreak ? 1 : 0);
            }
        });
    ReadProgram();
}

CDebugger::~CDebugger() = default;

void CDebugger::ReadProgram()
{
    const std::vector<char> vBinary = m_Launch.ReadBinary();
    const std::vector<std::string> vMetadata = ReadMetadata(vBinary, m_Launch.GetFile().strKernel);
    m_vArguments = ReadArguments(vMetadata);
    m_Faults.SetArguments(m_vArguments);
    m_Fixed.emplace(MakeFixedRegisters(ReadLocalBytes(vMetadata)));
    m_nLabel = ReadLabel(vMetadata);
    SetListing(ReadListing(vBinary, m_nLabel));
    m_pDebugInfo = std::make_unique<CDebugInfo>(vBinary);
    m_pSourceText = std::make_unique<CSourceText>(IsBinary(m_Launch.GetFile()) ? "" : m_Launch.GetFile().strSource);
}

CFixedRegisters CDebugger::MakeFixedRegisters(unsigned int nLocalBytes)
{
    CFixedRegisters::SSources sources;
    sources.pExtent = &m_Extent;
    sources.pFile = &m_Launch.GetFile();
    sources.pArguments = &m_vArguments;
    sources.nLocalBytes = nLocalBytes;
    sources.bKnownPlatform = m_pControl != nullptr;
    sources.findAddress = [this](size_t nArgument) { return FindAddress(nArgument); };
    return CFixedRegisters(std::move(sources));
}

/// If a launch leaves the local size to the platform, the platform has chosen it by the first kernel run.
void CDebugger::TakeLocalSize()
{
    if (m_Extent.bLocalKnown || m_pControl == nullptr)
    {
        return;
    }
    SPlatformSizes sizes = {};
    m_pControl->GetLastSizes(&sizes);
    for (size_t i = 0; i < 3; ++i)
    {
        if (sizes.global[i] != m_Extent.nGlobal[i] || sizes.local[i] == 0)
        {
            return;
        }
    }
    std::copy(sizes.local, sizes.local + 3, m_Extent.nLocal);
    m_Extent.bLocalKnown = true;
}

void CDebugger::SetListing(const CListing& listing)
{
    m_pListing = std::make_unique<CListing>(listing);
    m_pCode = std::make_unique<CCodeMap>(*m_pListing);
}

size_t CDebugger::CountActive()
{
    if (IsAtEntry() || m_Target.GetState() != CTarget::AtStop)
    {
        return m_Extent.Count();
    }
    try
    {
        return GetSession().CountActive();
    }
    catch (const CSessionError&)
    {
        return m_Extent.Count(); // like GetActive
    }
}

void CDebugger::RequireMemory() const
{
    RequireSessionMemory(m_Launch.GetFile().strPath, m_Extent.Count());
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
        // A bare name was typed without the number that ReadOperand has added to it.
        const bool bBare =
            strRegister.find_first_of("0123456789") == strRegister.size() - 1 && strRegister.back() == '0';
        const std::string strBare = strRegister.substr(0, strRegister.size() - 1);
        throw CCommandError((bBare ? strBare : strRegister) + " is no register");
    }
    if (const std::optional<SRegisterView> fixed = m_Fixed->Find(strRegister, *m_pListing, m_nLine))
    {
        return *fixed;
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
            // Back at the start, where nothing has been executed yet, all work-items are active.
        }
    }
    // Allocated on first use: before that, a session takes no memory for each work-item.
    m_vAllActive.resize(m_Extent.Count(), CL_TRUE);
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

std::vector<unsigned char> CDebugger::Fetch(const SMemoryRead& read)
{
    switch (read.eKind)
    {
    case SMemoryRead::Buffer:
        return FetchBuffer(read.nPlace, read.nOffset, read.nBytes);
    case SMemoryRead::Local:
        return FetchLocal(static_cast<unsigned int>(read.nPlace), read.nGroup, read.nOffset, read.nBytes);
    default:
        return FetchPrivate(read.nOffset, read.nBytes);
    }
}

std::vector<unsigned char> CDebugger::ReadAndLog(const SMemoryRead& read)
{
    std::vector<unsigned char> vBytes = Fetch(read);
    m_MemoryLog.Note(read, vBytes);
    return vBytes;
}

std::vector<unsigned char> CDebugger::GetEarlierMemory(const SMemoryRead& read)
{
    if (const std::vector<unsigned char>* pBytes = m_MemoryLog.FindEarlier(read))
    {
        return *pBytes;
    }
    if (!m_bSingleStep)
    {
        throw CCommandError("what memory held at the last stop isn't known: nobody looked at all of it there");
    }
    std::string strError;
    std::vector<unsigned char> vBytes;
    Move(OVKCLDEBUG_COMMAND_EXT_STEP_BACK, {});
    try
    {
        vBytes = Fetch(read);
    }
    catch (const CCommandError& error)
    {
        strError = error.what();
    }
    Move(OVKCLDEBUG_COMMAND_STEP, {});
    if (!strError.empty())
    {
        throw CCommandError(strError);
    }
    m_MemoryLog.NoteEarlier(read, vBytes);
    return vBytes;
}

std::vector<std::string> CDebugger::TakeCommands()
{
    std::vector<std::string> vCommands;
    vCommands.swap(m_vCommands);
    return vCommands;
}

} // namespace KestrelTool

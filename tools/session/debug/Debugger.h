#ifndef KESTREL_TOOLS_DEBUG_DEBUGGER_H
#define KESTREL_TOOLS_DEBUG_DEBUGGER_H

#include "tools/session/debug/Breakpoints.h"
#include "tools/session/debug/CodeMap.h"
#include "tools/session/debug/Faults.h"
#include "tools/session/debug/FixedRegisters.h"
#include "tools/session/debug/Format.h"
#include "tools/session/debug/Frames.h"
#include "tools/session/debug/KernelArguments.h"
#include "tools/session/debug/KernelRuns.h"
#include "tools/session/debug/MemoryLog.h"
#include "tools/session/debug/RunEstimate.h"
#include "tools/session/debug/SourceText.h"
#include "tools/session/debug/StopCounts.h"
#include "tools/session/debug/Target.h"
#include "tools/source/DebugInfo.h"

#include <nlohmann/json_fwd.hpp>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <optional>

namespace KestrelTool
{

/// Who is told of what happens to the launch.
class IEventSink
{
public:
    virtual ~IEventSink() = default;
    /// An object with "event": "started", "stopped", "finished" or "error".
    virtual void OnEvent(const nlohmann::json& event) = 0;
    /// Called now and then while kernels run, and with an empty text when they have.
    virtual void OnProgress(const std::string& /*strText*/) {}
    /// A second interrupt came in while kernels run. \param isOver  whether the wait has ended meanwhile
    /// \return whether to give the session up
    virtual bool OnAskToGiveUp(const std::function<bool()>& /*isOver*/) { return true; }
    /// An interrupt came in while a session that has been given up doesn't end.
    virtual void OnLeave() {}
    /// A program under the debugger is about to run: what has been printed should be out before what it prints.
    virtual void OnProgramGoesOn() {}
};

/// What the user may set.
struct SSettings
{
    EFormat eFormat = EFormat::Auto;
    size_t nWidth = 0;  ///< columns of a picture; 0 for the terminal's
    size_t nHeight = 0; ///< rows of a picture; 0 for the terminal's
    size_t nListSize = 10;
    size_t nLimit = 20;     ///< ranges and values that a list shows
    size_t nMaxSeconds = 0; ///< that a kernel run may take; 0 for any
    bool bUnicode = true;
    bool bConfirm = true; ///< questions are asked
    std::vector<std::string>
        vTracked; ///< registers that are kept up to date; if empty they are read when they are looked at
};

/// The model of a debugging session: a launch, breakpoints, a work-item in focus, and ways to go on.
/// It knows nothing of a prompt or of how things are shown. All calls come from one thread.
class CDebugger : public IValueSource
{
public:
    CDebugger(const CLibraries& libraries, SLaunchFile file, IEventSink& sink);
    ~CDebugger() override;

    // ---- what is debugged
    CLaunch& GetLaunch() { return m_Launch; }
    const CLibraries& GetLibraries() const { return m_Lib; }
    const CListing& GetListing() const { return *m_pListing; }
    const CCodeMap& GetCode() const { return *m_pCode; }
    /// Of the program as it was built.
    CDebugInfo& GetDebugInfo() { return *m_pDebugInfo; }
    /// The variables of the source in scope in front of a line's instruction. At a function's head, which does nothing
    /// itself, they are where its first instruction finds them.
    std::vector<SSourceVariable> FindVariables(unsigned int nLine);
    const std::vector<SKernelArgument>& GetArguments() const { return m_vArguments; }
    const SExtent& GetExtent() const override { return m_Extent; }
    SSettings& GetSettings() { return *m_pSettings; }
    CBreakpoints& GetBreakpoints() { return *m_pBreakpoints; }
    /// Works with settings and breakpoints that outlive it.
    void Share(SSettings& settings, CBreakpoints& breakpoints)
    {
        m_pSettings = &settings;
        m_pBreakpoints = &breakpoints;
    }

    // ---- the source
    /// Whether the kernel's own function comes from lines of a source.
    bool HasSource() const;
    CSourceText& GetSourceText() { return *m_pSourceText; }
    /// The functions that the stop is in, the innermost first; before the launch, those of the kernel's beginning.
    std::vector<SFrame> GetFrames();
    /// Which of them variables and lines are looked at in: the innermost, until another one is selected.
    size_t GetFrame() const { return m_nFrame; }
    /// \throws CCommandError for one that isn't there
    void SelectFrame(size_t nFrame);
    /// The line of the source that the selected function stands at; nothing if there is none.
    std::optional<SSourceLine> GetSourceLine();

    // ---- the state
    bool IsLive() const { return m_Target.IsLive(); }
    /// In front of the first instruction: no register has a value, and memory is as at the launch.
    bool IsAtEntry() const override { return m_Target.GetState() == CTarget::AtStart; }
    /// \throws CCommandError if the kernel isn't running
    void RequireLive() const;
    /// The line that is executed next.
    unsigned int GetLine() const { return m_nLine; }
    /// Counts movements, each of which ends the lives of what was read.
    uint64_t GetMoves() const { return m_nMoves; }
    uint64_t GetRuns() const { return m_Runs.GetCount(); }
    double GetRunSeconds() const { return m_Runs.GetSeconds(); }
    /// Whether the last finished run left another output than the launch file expects.
    bool HasDifference() const { return m_bDifference; }
    /// What the platform has recorded of the last launch that it shouldn't have done.
    const CFaults& GetFaults() const { return m_Faults; }
    /// Whether the platform has ended the last launch's kernel before its end.
    bool HasPlatformFailed() const { return m_bPlatformFailed; }
    CSession& GetSession() { return m_Target.GetSession(); }

    // ---- values
    SRegisterView GetValues(const std::string& strRegister) override;
    SMaskView GetActive() override;
    size_t CountActive();
    size_t GetFocus() const override { return m_nFocus; }
    /// A buffer, value or local argument by its name or as argN.
    std::optional<SElements> FindElements(const std::string& strName) override;
    std::optional<SSourceVariable> FindVariable(const std::string& strName, bool bHere) override;
    const SSourceType* FindType(const std::string& strName) override { return m_pDebugInfo->FindType(strName); }
    std::shared_ptr<const void> KeepTypes() override { return m_pDebugInfo->KeepTypes(); }
    std::vector<SMemory> ListMemory(SSourceType::ESpace eSpace) override;
    std::vector<unsigned char> ReadMemory(SSourceType::ESpace eSpace, const SMemory& memory, size_t nGroup,
                                          uint64_t nOffset, size_t nBytes) override;
    std::vector<unsigned char> ReadAllPrivate(uint64_t nAddress, size_t nBytes) override;
    std::vector<unsigned char> ReadElements(const SElements& elements, size_t nGroup, uint64_t nOffset,
                                            size_t nBytes) override;
    /// \throws CCommandError for one outside the dispatch
    void SetFocus(size_t nItem);
    std::vector<std::string> GetActiveRegisters();
    /// A register as it was at the last stop, four words a work-item; nothing if it had no value.
    /// A register that wasn't looked at there is fetched by going back and forth if one step lies between.
    std::vector<uint32_t> GetEarlierValues(const std::string& strRegister);
    /// Bytes of memory as they were at the last stop, in the same way.
    /// \throws CCommandError if that isn't known, or nothing lies there
    std::vector<unsigned char> GetEarlierMemory(const SMemoryRead& read);
    /// The line of the last stop.
    unsigned int GetEarlierLine() const { return m_nEarlierLine; }

    std::vector<size_t> FindFaulty(const SFaultPlace& place, unsigned int nLine) override;
    std::vector<size_t> FindTouchers(const SWatch& watch, unsigned int nLine) override;
    /// The argument and offset of an address in a buffer, at a stop.
    /// \throws CCommandError if it is in none
    SPlatformWatch FindArgumentOf(uint64_t nAddress, size_t nBytes);

    /// Where an argument's buffer lies for the kernel, at a stop.
    /// \throws CCommandError if that isn't known
    uint64_t FindAddress(size_t nArgument);
    /// "out+0x10" for an address in a buffer, or near one in no buffer; else the bare number.
    std::string NameAddress(uint64_t nAddress) override;
    /// The bytes of an argument's buffer from an offset on, as they are now, up to its end.
    std::vector<unsigned char> ReadBuffer(size_t nArgument, uint64_t nOffset, size_t nBytes);
    /// Bytes of a work-group's local memory, up to the end of the block or argument.
    /// \param nResource  OVKCLDEBUG_EXT_LOCAL_BLOCK or OVKCLDEBUG_EXT_LOCAL_ARGUMENT
    std::vector<unsigned char> ReadLocal(unsigned int nResource, size_t nGroup, uint64_t nOffset, size_t nBytes);
    /// Bytes of the argument's buffer that an address lies in, up to its end; none if no buffer holds it.
    std::vector<unsigned char> ReadGlobal(uint64_t nAddress, size_t nBytes);
    /// Bytes of a work-item's private memory.
    /// \throws CCommandError if the debugger can't hand over so many of all work-items, as it has to
    std::vector<unsigned char> ReadPrivate(size_t nItem, uint64_t nAddress, size_t nBytes);
    /// The resource that a stretch of local memory, as ListMemory has it, is in.
    unsigned int FindLocalResource(const SMemory& memory);
    /// The block of local memory that the kernel itself declares.
    unsigned int FindDeclaredLocal();
    /// What the launch file gives for an argument, that of the earlier one for the same once more.
    const SArgument& GetGiven(size_t nArgument) const;

    // ---- going on; each sends the events of what comes of it
    void Run();
    void Start();
    void Continue(size_t nTimes);
    /// \param bFocus  not counting stops that the work-item in focus has no part in
    void Step(size_t nTimes, bool bFocus = false);
    void Next(size_t nTimes, bool bFocus = false);
    void Finish();
    /// To a line after the present one, or to the function's end.
    void Until();
    /// To one of some lines, or to the function's end.
    void Advance(std::set<unsigned int> lines);
    /// To one of the lines that are worked out anew at each stop on the way, or to after the function's call.
    /// \param bFocus  not counting stops that the work-item in focus has no part in
    void RunToAny(size_t nTimes, const char* pszReason, bool bBack,
                  const std::function<std::set<unsigned int>()>& findLines, bool bFocus = false);
    void StepBack(size_t nTimes);
    void NextBack(size_t nTimes);
    void ContinueBack(size_t nTimes);
    /// Ends the session, if there is one, without a word.
    void Kill();

    /// From a signal handler or another thread. What goes on stops at the next place where it can; a kernel run that
    /// keeps it from that for longer than a twentieth of a second is broken off, and the session goes back to the stop
    /// where the movement began. Nothing goes on from then until ClearInterrupts.
    void Interrupt() { ++m_nInterrupts; }
    bool IsInterrupted() const { return m_nInterrupts != 0; }
    /// A new line of the user's is read.
    void ClearInterrupts() { m_nInterrupts = 0; }
    /// Makes long runs stop at the head of each loop pass on the way, unseen, so that they can be interrupted.
    void SetInterruptible(bool bInterruptible) { m_bInterruptible = bInterruptible; }
    /// Commands of the breakpoints that were stopped at last; given once.
    std::vector<std::string> TakeCommands();

private:
    enum class EReason
    {
        None, ///< the launch is over
        Moved,
        Breakpoint,
        Reached, ///< a line that was gone to
        FirstStop,
        Interrupted
    };

    uint64_t ReadSlot(const SKernelArgument& argument, bool bWide);
    void ReadProgram();
    void SetListing(const CListing& listing);
    bool Launch();
    bool Move(ovkclDebugCommand command, const std::set<unsigned int>& lines);
    void GoOn(size_t nTimes, ovkclDebugCommand command);
    EReason RunTo(ovkclDebugCommand command, const std::set<unsigned int>& lines);
    EReason RunToLines(const std::set<unsigned int>& lines, const CCodeMap::SFunction* pFunction);
    EReason TakeHits();
    EReason StepOnce();
    EReason NextOnce();
    EReason BackOnce();
    EReason BackOverCall();
    template <typename MoveOnce>
    EReason MoveFocus(MoveOnce moveOnce);
    bool IsFocusActive();
    std::vector<unsigned char> Fetch(const SMemoryRead& read);
    std::vector<unsigned char> FetchBuffer(size_t nArgument, uint64_t nOffset, size_t nBytes);
    std::vector<unsigned char> FetchLocal(unsigned int nResource, size_t nGroup, uint64_t nOffset, size_t nBytes);
    std::vector<unsigned char> FetchPrivate(uint64_t nAddress, size_t nBytes);
    std::vector<unsigned char> ReadAndLog(const SMemoryRead& read);
    EReason RunOverCall(const CCodeMap::SFunction& callee, const CCodeMap::SFunction* pCaller);
    template <typename MoveOnce>
    void Repeat(size_t nTimes, const char* pszReason, MoveOnce moveOnce);
    void BeginCommand(bool bSingleStep);
    void SendStop(EReason eReason, const std::string& strReason);
    void SendFinished(const std::string& strDoubt);
    void CheckFaults(bool bPatched);
    void CountStop(ovkclDebugCommand command, unsigned int nFrom);
    std::string CompareCounts(bool bStepped);
    void AddFaults(nlohmann::json& event);
    void AddSource(nlohmann::json& event);
    void BreakRun();
    void RequireNoInterrupt() const;
    std::string ExplainRefusal() const;
    void RequireMemory() const;
    void MindInterrupts();
    void EndIfGivenUp(CTarget::EState eFrom, bool bPatched);
    std::string ExplainBreak(bool bStays) const;
    void Ask(const std::function<void()>& query);
    void TellBreak(bool bPatched);
    SRunEstimate EstimateRun(const std::set<unsigned int>& stops);
    std::vector<std::optional<uint64_t>> ReadAddresses(unsigned int nLine, const std::set<size_t>& items);
    std::vector<size_t> FindPart(size_t nMissing);
    uint64_t FindWatchedAddress(const SWatch& watch);
    std::optional<uint64_t> FindFirstRead(size_t nArgument);
    std::optional<uint64_t> FindAtStart(size_t nArgument) const;
    std::optional<uint64_t> FindInRegisters(size_t nArgument);
    void ShowProgress();
    std::optional<SElements> FindLocalBlock(const std::string& strName);
    size_t GetLocalSize(unsigned int nResource);
    CFixedRegisters MakeFixedRegisters(unsigned int nLocalBytes);
    void TakeLocalSize();

    const CLibraries& m_Lib;
    const SPlatformControl* const m_pControl; ///< null on another platform than the software one
    IEventSink& m_Sink;
    CLaunch m_Launch;
    CKernelRuns m_Runs;
    CFaults m_Faults;
    CStopCounts m_StopCounts;
    CTarget m_Target;
    SExtent m_Extent;
    SSettings m_Settings;
    CBreakpoints m_Breakpoints;
    SSettings* m_pSettings = &m_Settings;
    CBreakpoints* m_pBreakpoints = &m_Breakpoints;
    std::unique_ptr<CListing> m_pListing;
    std::unique_ptr<CCodeMap> m_pCode;
    std::unique_ptr<CDebugInfo> m_pDebugInfo;
    std::unique_ptr<CSourceText> m_pSourceText;
    std::vector<SKernelArgument> m_vArguments;
    std::optional<CFixedRegisters> m_Fixed;
    unsigned int m_nLabel = 0; ///< of the kernel's function

    unsigned int m_nLine = 0;
    unsigned int m_nEarlierLine = 0;
    uint64_t m_nMoves = 0;
    size_t m_nFrame = 0;
    size_t m_nFocus = 0;
    std::vector<cl_bool> m_vAllActive;
    CBreakpoints::SHits m_Hits;
    std::vector<std::string> m_vCommands;
    std::optional<SFaults> m_NewFaults; ///< not shown yet
    std::map<size_t, uint64_t> m_mapAddresses;
    bool m_bDifference = false;

    std::set<std::string> m_LookedAt;
    std::map<std::string, std::vector<uint32_t>> m_mapEarlier;
    CMemoryLog m_MemoryLog;
    bool m_bSingleStep = false; ///< a step back leads to the last stop

    /// What the progress line is made of.
    struct SProgress
    {
        uint64_t nRunsBefore = 0;
        SRunEstimate estimate;
        size_t nMove = 0;
        size_t nMoves = 0;
    };

    std::atomic<unsigned int> m_nInterrupts{0};
    unsigned int m_nAnswered = 0; ///< interrupts at the last question whether to give up
    bool m_bGivenUp = false;
    bool m_bTooLong = false;                                              ///< not because of an interrupt
    std::optional<std::chrono::steady_clock::time_point> m_SeenInterrupt; ///< during the present wait
    bool m_bLastPatched = false;                                          ///< the last kernel run was a patched copy's
    bool m_bPlatformFailed = false;                                       ///< it ended the last launch's kernel
    bool m_bInterruptible = false;
    std::set<unsigned int> m_Unseen; ///< stops of a run that are passed without a word
    SProgress m_Progress;
    std::chrono::steady_clock::time_point m_LastProgress;
};

} // namespace KestrelTool

#endif

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
#include "tools/session/debug/TimeLine.h"
#include "tools/source/DebugInfo.h"

#include <nlohmann/json_fwd.hpp>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <optional>

namespace KestrelTool
{

/// Receives the events of a launch.
class IEventSink
{
public:
    virtual ~IEventSink() = default;
    /// An object with "event": "started", "stopped", "finished" or "error".
    virtual void OnEvent(const nlohmann::json& event) = 0;
    /// Called now and then while kernels run, and with an empty text when they have finished.
    virtual void OnProgress(const std::string& /*strText*/) {}
    /// Called for a second interrupt while kernels run. \param isOver  whether the run has ended meanwhile
    /// \return whether to give up the session
    virtual bool OnAskToGiveUp(const std::function<bool()>& /*isOver*/) { return true; }
    /// Called for an interrupt when a session that was given up doesn't end.
    virtual void OnLeave() {}
    /// Called before a program under the debugger continues, so that printed text is flushed before the program's
    /// output.
    virtual void OnProgramGoesOn() {}
};

/// The user's settings.
struct SSettings
{
    EFormat eFormat = EFormat::Auto;
    size_t nWidth = 0;  ///< columns of a picture; 0 for the terminal's
    size_t nHeight = 0; ///< rows of a picture; 0 for the terminal's
    size_t nListSize = 10;
    size_t nLimit = 20;     ///< ranges and values shown in a list
    size_t nMaxSeconds = 0; ///< limit for a kernel run; 0 for none
    bool bUnicode = true;
    bool bConfirm = true; ///< ask questions
    std::vector<std::string>
        vTracked; ///< registers that are kept up to date; if empty they are read when they are looked at
};

/// The model of a debugging session: a launch, breakpoints, a focused work-item, and ways to continue. It doesn't know
/// how anything is shown or entered. All calls come from one thread.
class CDebugger : public IValueSource
{
public:
    CDebugger(const CLibraries& libraries, SLaunchFile file, IEventSink& sink);
    ~CDebugger() override;

    // ---- the launch
    CLaunch& GetLaunch() { return m_Launch; }
    const CLibraries& GetLibraries() const { return m_Lib; }
    const CListing& GetListing() const { return *m_pListing; }
    const CCodeMap& GetCode() const { return *m_pCode; }
    /// The debug information of the program as built.
    CDebugInfo& GetDebugInfo() { return *m_pDebugInfo; }
    /// The source variables in scope before a line's instruction. A function's head does nothing, so there they are as
    /// before the function's first instruction.
    std::vector<SSourceVariable> FindVariables(unsigned int nLine);
    const std::vector<SKernelArgument>& GetArguments() const { return m_vArguments; }
    const SExtent& GetExtent() const override { return m_Extent; }
    SSettings& GetSettings() { return *m_pSettings; }
    CBreakpoints& GetBreakpoints() { return *m_pBreakpoints; }
    /// Uses settings and breakpoints that outlive it.
    void Share(SSettings& settings, CBreakpoints& breakpoints)
    {
        m_pSettings = &settings;
        m_pBreakpoints = &breakpoints;
    }

    // ---- the source
    // Whether the kernel's own function has source lines.
    bool HasSource() const;
    CSourceText& GetSourceText() { return *m_pSourceText; }
    /// The call stack of the stop, innermost function first; before the launch, that of the kernel's entry.
    std::vector<SFrame> GetFrames();
    /// The selected frame, in which variables and lines are looked up: the innermost until another one is selected.
    size_t GetFrame() const { return m_nFrame; }
    /// \throws CCommandError if there is no such frame
    void SelectFrame(size_t nFrame);
    /// The current source line of the selected frame; nothing if it has none.
    std::optional<SSourceLine> GetSourceLine();

    // ---- the state
    bool IsLive() const { return m_Target.IsLive(); }
    /// Before the first instruction: no register has a value, and memory is as at the launch.
    bool IsAtEntry() const override { return m_Target.GetState() == CTarget::AtStart; }
    /// \throws CCommandError if the kernel isn't running
    void RequireLive() const;
    /// The line to be executed next.
    unsigned int GetLine() const { return m_nLine; }
    /// Counts movements; each one invalidates what was read before.
    uint64_t GetMoves() const { return m_nMoves; }
    uint64_t GetRuns() const { return m_Runs.GetCount(); }
    double GetRunSeconds() const { return m_Runs.GetSeconds(); }
    /// Whether an output of the last finished run differs from what the launch file expects.
    bool HasDifference() const { return m_bDifference; }
    /// The faults that the platform has recorded in the last launch.
    const CFaults& GetFaults() const { return m_Faults; }
    /// Whether the platform has stopped the last launch's kernel before its end.
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
    /// The value of a register at the last stop, four words for each work-item; nothing if it had none.
    /// If it wasn't read then, it is fetched by going back and forth, provided that one step lies between.
    std::vector<uint32_t> GetEarlierValues(const std::string& strRegister);
    /// Bytes of memory at the last stop, in the same way.
    /// \throws CCommandError if they aren't known, or the address is invalid
    std::vector<unsigned char> GetEarlierMemory(const SMemoryRead& read);
    /// The line of the last stop.
    unsigned int GetEarlierLine() const { return m_nEarlierLine; }

    /// The line of IL at which each work-item was active last before this stop; NoLine for one that was active nowhere.
    /// That takes a way back and forth. Empty where the platform can't trace, or there is no way back.
    std::vector<unsigned int> FindLastLines();

    std::vector<size_t> FindFaulty(const SFaultPlace& place, unsigned int nLine) override;
    std::vector<size_t> FindTouchers(const SWatch& watch, unsigned int nLine) override;
    /// The argument and offset of an address in a buffer, at a stop.
    /// \throws CCommandError if the address is in no buffer
    SPlatformWatch FindArgumentOf(uint64_t nAddress, size_t nBytes);

    /// The address of an argument's buffer as the kernel sees it, at a stop.
    /// \throws CCommandError if it isn't known
    uint64_t FindAddress(size_t nArgument);
    /// "out+0x10" for an address in a buffer, or near one if it is in none; else the bare number.
    std::string NameAddress(uint64_t nAddress) override;
    /// The current bytes of an argument's buffer, from an offset to its end.
    std::vector<unsigned char> ReadBuffer(size_t nArgument, uint64_t nOffset, size_t nBytes);
    /// Bytes of a work-group's local memory, up to the end of the block or argument.
    /// \param nResource  OVKCLDEBUG_EXT_LOCAL_BLOCK or OVKCLDEBUG_EXT_LOCAL_ARGUMENT
    std::vector<unsigned char> ReadLocal(unsigned int nResource, size_t nGroup, uint64_t nOffset, size_t nBytes);
    /// Bytes of the argument's buffer that contains an address, up to its end; none if no buffer does.
    std::vector<unsigned char> ReadGlobal(uint64_t nAddress, size_t nBytes);
    /// Bytes of a work-item's private memory.
    /// \throws CCommandError if the debugger, which must read it for all work-items, can't read so much
    std::vector<unsigned char> ReadPrivate(size_t nItem, uint64_t nAddress, size_t nBytes);
    /// The resource of a range of local memory from ListMemory.
    unsigned int FindLocalResource(const SMemory& memory);
    /// The block of local memory that the kernel itself declares.
    unsigned int FindDeclaredLocal();
    /// An argument as given in the launch file; for "same", the earlier argument.
    const SArgument& GetGiven(size_t nArgument) const;

    // ---- continuing; each function sends the resulting events
    void Run();
    void Start();
    void Continue(size_t nTimes);
    /// \param bFocus  count only stops where the focused work-item takes part
    void Step(size_t nTimes, bool bFocus = false);
    void Next(size_t nTimes, bool bFocus = false);
    void Finish();
    /// To a line after the current one, or to the function's end.
    void Until();
    /// To any of these lines, or to the function's end.
    void Advance(std::set<unsigned int> lines);
    /// To any of the lines that findLines gives, which is called again at each stop on the way, or to after the call.
    /// \param bFocus  count only stops where the focused work-item takes part
    void RunToAny(size_t nTimes, const char* pszReason, bool bBack,
                  const std::function<std::set<unsigned int>()>& findLines, bool bFocus = false);
    void StepBack(size_t nTimes);
    void NextBack(size_t nTimes);
    void ContinueBack(size_t nTimes);

    // ---- the stops so far
    const CTimeLine& GetTimeLine() const { return m_TimeLine; }
    /// To one of the time line's stops, forward or back.
    void GoTo(size_t nStop);
    /// To where a work-item comes to a line of IL once more after so many times.
    void GoToPass(unsigned int nLine, size_t nItem, uint64_t nPass);
    /// Looks at stops of the time line, given by their numbers, each where the session stands at it, and comes back to
    /// the present one. Nobody is told of a stop.
    /// \throws CCommandError if the present place is none of the time line's, or after an interrupt
    void VisitStops(const std::vector<size_t>& vStops, const std::function<void(size_t nStop)>& look);

    /// Ends the session, if there is one, without an event.
    void Kill();

    /// Callable from a signal handler or another thread. Movements stop at the next possible place. A kernel run that
    /// prevents this for more than a twentieth of a second is aborted, and the session returns to the stop where the
    /// movement began. Nothing continues until ClearInterrupts is called.
    void Interrupt() { ++m_nInterrupts; }
    bool IsInterrupted() const { return m_nInterrupts != 0; }
    /// To be called when the user's next line is read.
    void ClearInterrupts() { m_nInterrupts = 0; }
    /// Makes long runs stop briefly at the head of each loop pass, without an event, so that they can be interrupted.
    void SetInterruptible(bool bInterruptible) { m_bInterruptible = bInterruptible; }
    /// The commands of the breakpoints at the latest stop; given only once.
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
    static bool IsRun(ovkclDebugCommand command);
    std::set<unsigned int> FindStops(ovkclDebugCommand command, const std::set<unsigned int>& lines);
    bool Resume(ovkclDebugCommand command, const std::set<unsigned int>& stops);
    bool Travel(size_t nPlace);
    bool Retrace(size_t nPlace);
    bool GoBackTo(size_t nPlace);
    const CTimeLine::SStop& GetStop(size_t nStop) const;
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
    const SPlatformControl* const m_pControl; ///< null on platforms other than the software platform
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
    std::optional<SFaults> m_NewFaults; ///< not reported yet
    std::map<size_t, uint64_t> m_mapAddresses;
    bool m_bDifference = false;

    std::set<std::string> m_LookedAt;
    std::map<std::string, std::vector<uint32_t>> m_mapEarlier;
    CMemoryLog m_MemoryLog;
    CTimeLine m_TimeLine;
    bool m_bSingleStep = false; ///< a step back leads to the last stop

    /// Data for the progress line.
    struct SProgress
    {
        uint64_t nRunsBefore = 0;
        SRunEstimate estimate;
        size_t nMove = 0;
        size_t nMoves = 0;
    };

    std::atomic<unsigned int> m_nInterrupts{0};
    unsigned int m_nAnswered = 0; ///< number of interrupts when the user was last asked whether to give up
    bool m_bGivenUp = false;
    bool m_bTooLong = false;                                              ///< rather than interrupted
    std::optional<std::chrono::steady_clock::time_point> m_SeenInterrupt; ///< during the current wait
    bool m_bLastPatched = false;                                          ///< the last kernel run was of a patched copy
    bool m_bPlatformFailed = false;                                       ///< it stopped the last launch's kernel
    bool m_bInterruptible = false;
    std::set<unsigned int> m_Unseen; ///< lines where a run stops briefly, without an event
    SProgress m_Progress;
    std::chrono::steady_clock::time_point m_LastProgress;
};

} // namespace KestrelTool

#endif

#ifndef KESTREL_ENGINE_STOPHISTORY_H
#define KESTREL_ENGINE_STOPHISTORY_H

#include "engine/LaneLedger.h"
#include "engine/Position.h"

#include <cstddef>
#include <deque>
#include <set>
#include <vector>

namespace OVK_ShaderDebugger
{

/// A register that a run has updated, and where.
struct SFiling
{
    ProgramCounter pc;
    CCallPath callStack;
    Register reg;
    std::set<InstructionNumber> leaving; ///< the jumps at which it was read, too
};

/// Where the position stands: the instruction that was executed last, and the next one, each with its call and with
/// where the work-items are before it.
struct SStanding
{
    ProgramCounter pc;
    CCallPath callStack;
    ProgramCounter next;
    CCallPath nextCallStack;
    CLaneLedger ledger;
    CLaneLedger nextLedger;
    ProgramCounter lastGlobalStore; ///< the last store to global memory that the position reached
};

/// The stops of a session, and what is needed to come back to each: where the position stood, which registers were
/// written since the stop before, and which results the runs updated. It makes no run and holds no value.
class CStopHistory
{
public:
    struct SStop
    {
        SStanding at;
        bool bJump = false;             ///< its instruction leads some of the work-items that execute it elsewhere
        bool bGap = false;              ///< a run has passed over instructions before it
        bool bShown = false;            ///< false: a run walked over it
        std::vector<Register> vWritten; ///< registers that may have changed since the stop before
        std::vector<SFiling> vFiled;    ///< results that runs updated since the stop before, oldest first
    };

    /// What a way back undoes.
    struct SUndone
    {
        std::vector<Register> vChanged; ///< registers that may have changed, the latest stop's first
        std::vector<SFiling> vFiled;    ///< newest first
        bool bAllShown = false;         ///< a client has seen the stop and all that followed

        /// How many of the updates were of a register's result.
        size_t CountFilings(const Register& reg) const;
    };

    bool IsEmpty() const { return m_Stops.empty(); }
    size_t Count() const { return m_Stops.size(); }
    /// By its number, from 0 for the oldest.
    const SStop& At(size_t nStop) const { return m_Stops[nStop]; }
    /// There must be one.
    const SStop& Newest() const { return m_Stops.back(); }
    bool IsNewest(const ProgramCounter& pc) const { return !m_Stops.empty() && m_Stops.back().at.pc == pc; }

    /// Adds a stop, with all that has been noted since the one before.
    void Push(SStanding at, bool bJump);
    /// From the newest stop the position goes on elsewhere: from there a run may skip a block that a step enters.
    void ChangeNext(const ProgramCounter& next, const CCallPath& callStack, const CLaneLedger& ledger);
    /// The next stop differs from the newest by writes of these registers.
    void NoteWritten(const std::vector<Register>& vRegisters);
    /// A run has updated a result: at the newest stop, or on the way to the next one.
    void NoteFiled(SFiling filing);
    /// Instructions are passed over before the next stop.
    void NoteGap() { m_Pending.bGap = true; }

    /// Counts the newest stop, if there is one, as shown.
    void Show();
    /// What was written on the way over stops that a run only walked over, up to the newest: each result once.
    std::vector<Register> FindUnshown() const;
    /// The registers written up to the newest stop, each result once and as a whole, the latest first.
    std::vector<Register> FindWritten() const;

    /// Where runs deliver a register's values as the newest stop shows them, newest first: everything that a stop ever
    /// shows was read at one of these. If a run only walked over the newest stop, its values haven't been shown, and it
    /// comes first itself.
    std::vector<SFiling> FindSources(const Register& reg) const;
    /// A reading of the whole register at the newest stop; at a jump also for the work-items that take it.
    SFiling ReadingHere(const Register& reg) const;

    /// Makes an earlier stop the newest, and forgets what followed.
    SUndone GoBackTo(size_t nStop);

    /// A movement begins.
    void BeginMovement();
    /// How many of the stops at the start of the last movement are left after going back.
    size_t CountKept() const { return m_nKept; }
    bool HasGoneBack() const { return m_nKept != m_nMovementStops; }

private:
    std::deque<SStop> m_Stops;
    SStop m_Pending; ///< what the next stop takes over
    size_t m_nMovementStops = 0;
    size_t m_nKept = 0;
};

} // namespace OVK_ShaderDebugger

#endif

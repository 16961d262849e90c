#include "platform/simt/ValueGraph.h"

#include "platform/simt/RowVisits.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

/// Limits the work at branches and joins, which is rows times blocks, and conditions times rows, so that no kernel
/// takes long.
const size_t s_nMostWork = 1u << 21;

/// Finds the order of the steps with each body at the place of its call.
bool FindOrder(const SCode& code, std::vector<uint32_t>& vOrder)
{
    std::vector<char> vCalled(code.vBodyEntries.size(), 0);
    std::vector<uint32_t> vReturns;
    uint32_t nStep = code.vBodyEntries[0];
    for (;;)
    {
        const SMicroOp& step = code.vSteps[nStep];
        vOrder.push_back(nStep++);
        if (step.eKind == MICRO_CALL)
        {
            if ((step.nFlags & s_nFlagConditional) || vCalled[step.nAux])
            {
                return false;
            }
            vCalled[step.nAux] = 1;
            vReturns.push_back(nStep);
            nStep = code.vBodyEntries[step.nAux];
        }
        else if (step.eKind == MICRO_END_BODY)
        {
            if (vReturns.empty())
            {
                return true;
            }
            nStep = vReturns.back();
            vReturns.pop_back();
        }
    }
}

/// Visits the steps in order, keeping the current value of each row. For each open block it keeps the values that
/// work-items have when they wait or leave.
class CValueWalk
{
public:
    CValueWalk(const SCode& code, SValueGraph& graph) : m_Code(code), m_Graph(graph), m_vSlots(code.nRows, 0) {}

    bool Run()
    {
        if (!FindOrder(m_Code, m_vOrder))
        {
            return false;
        }
        m_Graph.vValues.resize(2);
        FindSlots();
        m_vPlaces.assign(m_Code.vSteps.size(), 0);
        for (uint32_t n = 0; n < m_vOrder.size(); ++n)
        {
            m_vPlaces[m_vOrder[n]] = n;
        }
        m_vOpen.emplace_back();
        m_vOpen.back().eKind = MICRO_CALL;
        for (const uint32_t nStep : m_vOrder)
        {
            Follow(nStep);
            if (m_nWork > s_nMostWork)
            {
                return false;
            }
        }
        MarkUsed();
        return true;
    }

private:
    /// Values by slot; there is a slot for each tracked row.
    typedef std::vector<uint32_t> CState;

    struct SOpen
    {
        EMicroKind eKind = MICRO_IF;
        uint32_t nStep = 0;
        uint32_t nOutRow = 0;      ///< row of the work-items that leave it
        uint32_t nContinueRow = 0; ///< loop
        uint32_t nCondition = SValueGraph::s_nConstant;
        CState vStart; ///< if, switch: the state at its start
        bool bStart = false;
        bool bElse = false;
        CState vOther; ///< if: the state at the end of the first part
        bool bOther = false;
        std::vector<uint32_t> vSlots;    ///< loop: slots written in it
        std::vector<uint32_t> vHeads;    ///< loop: the meetings of those slots at its start
        std::vector<CState> vExits;      ///< states in which work-items left
        std::vector<CState> vContinues;  ///< loop: states in which they continued
        std::vector<uint32_t> vWhoLeave; ///< conditions that decide who leaves
        std::vector<uint32_t> vWhoContinue;
    };

    void FindSlots()
    {
        std::vector<char> vPinned(m_Code.nRows, 0);
        std::vector<char> vFilled(m_Code.nRows, 0);
        ForEachPinned(m_Code, [&](uint32_t nRow) { vPinned[nRow] = 1; });
        for (const uint32_t nStep : m_vOrder)
        {
            ForEachWritten(m_Code, m_Code.vSteps[nStep],
                           [&](uint32_t nRow)
                           {
                               if (nRow == s_nMaskRow || vPinned[nRow] || m_vSlots[nRow] != 0)
                               {
                                   return;
                               }
                               SValue given;
                               given.nRow = nRow;
                               given.bGiven = true;
                               m_vState.push_back(static_cast<uint32_t>(m_Graph.vValues.size()));
                               m_Graph.vValues.push_back(given);
                               m_vSlots[nRow] = static_cast<uint32_t>(m_vState.size());
                           });
        }
        m_vConstants.assign(m_Code.nRows, 0);
        m_vConstants[s_nZeroRow] = 1;
        for (const SCode::SConstant& constant : m_Code.vConstants)
        {
            m_vConstants[constant.nRow] = 1;
        }
    }

    uint32_t ValueOf(uint32_t nRow) const
    {
        if (m_vSlots[nRow] != 0)
        {
            return m_vState[m_vSlots[nRow] - 1];
        }
        return m_vConstants[nRow] ? SValueGraph::s_nConstant : SValueGraph::s_nUnknown;
    }

    uint32_t NewValue(uint32_t nRow, uint32_t nStep)
    {
        SValue value;
        value.nRow = nRow;
        value.nStep = nStep;
        m_Graph.vValues.push_back(value);
        return static_cast<uint32_t>(m_Graph.vValues.size() - 1);
    }

    void Follow(uint32_t nStep)
    {
        const SMicroOp& step = m_Code.vSteps[nStep];
        ForEachRead(m_Code, step, [&](uint32_t nRow) { m_Graph.vReads.push_back({nStep, nRow, ValueOf(nRow)}); });
        if (IsStraight(step))
        {
            ForEachWritten(m_Code, step,
                           [&](uint32_t nRow)
                           {
                               if (m_vSlots[nRow] != 0)
                               {
                                   m_vState[m_vSlots[nRow] - 1] = NewValue(nRow, nStep);
                               }
                           });
            return;
        }
        switch (step.eKind)
        {
        case MICRO_IF:
        case MICRO_SWITCH:
            Open(step, nStep);
            m_bHere = m_bHere && step.eKind == MICRO_IF;
            break;
        case MICRO_ELSE:
            Else(nStep);
            break;
        case MICRO_END_IF:
            EndIf(nStep);
            break;
        case MICRO_LOOP:
            OpenLoop(step, nStep);
            break;
        case MICRO_LEAVE:
        case MICRO_LEAVE_IF:
            Leave(step);
            break;
        case MICRO_END_LOOP:
            EndLoop();
            break;
        case MICRO_CASE:
        case MICRO_DEFAULT:
            Case();
            break;
        case MICRO_END_SWITCH:
            EndSwitch();
            break;
        case MICRO_CALL:
            m_vOpen.emplace_back();
            m_vOpen.back().eKind = MICRO_CALL;
            break;
        case MICRO_ENTER:
            m_vOpen.back().nOutRow = step.rows.d[0];
            break;
        case MICRO_END_BODY:
            EndBody();
            break;
        default:
            break;
        }
    }

    /// Counts work that is about to be done. \return whether it is within the limit
    bool Spend(size_t nWork)
    {
        m_nWork += nWork;
        return m_nWork <= s_nMostWork;
    }

    void Open(const SMicroOp& step, uint32_t nStep)
    {
        Spend(m_vState.size());
        SOpen open;
        open.eKind = step.eKind;
        open.nStep = nStep;
        open.nOutRow = step.eKind == MICRO_SWITCH ? step.rows.d[0] : 0;
        open.nCondition = ValueOf(step.rows.s[0]);
        open.vStart = m_vState;
        open.bStart = m_bHere;
        m_vOpen.push_back(std::move(open));
    }

    void Else(uint32_t nStep)
    {
        SOpen& open = m_vOpen.back();
        m_Graph.vParts.emplace_back(open.nStep, nStep);
        open.bElse = true;
        open.bOther = m_bHere;
        open.vOther.swap(m_vState);
        m_vState = open.vStart;
        m_bHere = open.bStart;
    }

    void EndIf(uint32_t nStep)
    {
        SOpen& open = m_vOpen.back();
        m_Graph.vParts.emplace_back(open.nStep, nStep);
        std::vector<CState> vWays;
        if (open.bElse && open.bOther)
        {
            vWays.push_back(std::move(open.vOther));
        }
        if (!open.bElse && open.bStart)
        {
            vWays.push_back(std::move(open.vStart));
        }
        const std::vector<uint32_t> vConditions = {open.nCondition};
        m_vOpen.pop_back();
        Meet(vWays, vConditions);
    }

    /// Joins the current state with those of other paths.
    void Meet(std::vector<CState>& vWays, const std::vector<uint32_t>& vConditions)
    {
        if (m_bHere)
        {
            vWays.push_back(std::move(m_vState));
        }
        else if (vWays.empty())
        {
            return;
        }
        m_bHere = true;
        m_vState = vWays.back();
        if (!Spend(m_vState.size() * (vWays.size() + vConditions.size())))
        {
            return;
        }
        for (size_t nSlot = 0; nSlot < m_vState.size(); ++nSlot)
        {
            const bool bSame = std::all_of(vWays.begin(), vWays.end(),
                                           [&](const CState& way) { return way[nSlot] == m_vState[nSlot]; });
            if (!bSame)
            {
                m_vState[nSlot] = Meeting(nSlot, vWays, nSlot, vConditions);
            }
        }
    }

    /// \param nPlace  index of the slot in the states
    uint32_t Meeting(size_t nSlot, const std::vector<CState>& vWays, size_t nPlace,
                     const std::vector<uint32_t>& vConditions)
    {
        const uint32_t nMeeting = NewValue(m_Graph.vValues[m_vState[nSlot]].nRow, SValue::s_nNoStep);
        for (const CState& way : vWays)
        {
            m_Graph.vMeetings.emplace_back(nMeeting, way[nPlace]);
        }
        for (const uint32_t nCondition : vConditions)
        {
            m_Graph.vConditions.emplace_back(nMeeting, nCondition);
        }
        return nMeeting;
    }

    void OpenLoop(const SMicroOp& step, uint32_t nStep)
    {
        SOpen open;
        open.eKind = MICRO_LOOP;
        open.nOutRow = step.rows.d[0];
        open.nContinueRow = step.rows.d[1];
        if (!Spend(m_vState.size() + m_vPlaces[step.nTarget] - m_vPlaces[nStep]))
        {
            return;
        }
        std::vector<char> vSeen(m_vState.size(), 0);
        for (uint32_t n = m_vPlaces[nStep]; n < m_vPlaces[step.nTarget]; ++n)
        {
            ForEachWritten(m_Code, m_Code.vSteps[m_vOrder[n]],
                           [&](uint32_t nRow)
                           {
                               const uint32_t nSlot = m_vSlots[nRow];
                               if (nSlot == 0 || vSeen[nSlot - 1])
                               {
                                   return;
                               }
                               vSeen[nSlot - 1] = 1;
                               open.vSlots.push_back(nSlot - 1);
                           });
        }
        for (const uint32_t nSlot : open.vSlots)
        {
            const uint32_t nHead = NewValue(m_Graph.vValues[m_vState[nSlot]].nRow, SValue::s_nNoStep);
            m_Graph.vMeetings.emplace_back(nHead, m_vState[nSlot]);
            m_vState[nSlot] = nHead;
            open.vHeads.push_back(nHead);
        }
        m_vOpen.push_back(std::move(open));
    }

    CState OfSlots(const std::vector<uint32_t>& vSlots) const
    {
        CState vValues;
        for (const uint32_t nSlot : vSlots)
        {
            vValues.push_back(m_vState[nSlot]);
        }
        return vValues;
    }

    /// Work-items go to the end of an open block, or of a loop's pass. Which ones is decided by the conditions of the
    /// open blocks inside it and, in a loop, by who continued before.
    void Leave(const SMicroOp& step)
    {
        std::vector<uint32_t> vWho;
        if (step.eKind == MICRO_LEAVE_IF)
        {
            vWho.push_back(ValueOf(step.rows.s[0]));
        }
        size_t nOpen = m_vOpen.size() - 1;
        const auto isIt = [&step](const SOpen& open)
        {
            return (open.nOutRow == step.rows.d[0] && open.nOutRow != 0) ||
                   (open.eKind == MICRO_LOOP && open.nContinueRow == step.rows.d[0]) || open.eKind == MICRO_CALL;
        };
        for (; !isIt(m_vOpen[nOpen]); --nOpen)
        {
            vWho.push_back(m_vOpen[nOpen].eKind == MICRO_LOOP ? SValueGraph::s_nUnknown : m_vOpen[nOpen].nCondition);
        }
        SOpen& open = m_vOpen[nOpen];
        Spend(m_vState.size() + vWho.size() + open.vWhoContinue.size() + open.vWhoLeave.size());
        const bool bContinue = open.eKind == MICRO_LOOP && step.rows.d[0] == open.nContinueRow;
        if (m_bHere)
        {
            vWho.insert(vWho.end(), open.vWhoContinue.begin(), open.vWhoContinue.end());
            std::vector<uint32_t>& vTo = bContinue ? open.vWhoContinue : open.vWhoLeave;
            vTo.insert(vTo.end(), vWho.begin(), vWho.end());
            std::sort(vTo.begin(), vTo.end());
            vTo.erase(std::unique(vTo.begin(), vTo.end()), vTo.end());
            (bContinue ? open.vContinues : open.vExits)
                .push_back(open.eKind == MICRO_LOOP ? OfSlots(open.vSlots) : m_vState);
        }
        m_bHere = m_bHere && step.eKind == MICRO_LEAVE_IF;
    }

    void EndLoop()
    {
        SOpen open = std::move(m_vOpen.back());
        m_vOpen.pop_back();
        if (m_bHere)
        {
            open.vContinues.push_back(OfSlots(open.vSlots));
        }
        if (!Spend(open.vSlots.size() *
                   (open.vContinues.size() + open.vExits.size() + open.vWhoContinue.size() + open.vWhoLeave.size())))
        {
            return;
        }
        for (size_t n = 0; n < open.vSlots.size(); ++n)
        {
            for (const CState& way : open.vContinues)
            {
                m_Graph.vMeetings.emplace_back(open.vHeads[n], way[n]);
            }
            for (const uint32_t nCondition : open.vWhoContinue)
            {
                m_Graph.vConditions.emplace_back(open.vHeads[n], nCondition);
            }
        }
        m_bHere = !open.vExits.empty();
        for (size_t n = 0; n < open.vSlots.size() && m_bHere; ++n)
        {
            m_vState[open.vSlots[n]] = Meeting(open.vSlots[n], open.vExits, n, open.vWhoLeave);
        }
    }

    void Case()
    {
        std::vector<CState> vWays = {m_vOpen.back().vStart};
        const std::vector<uint32_t> vConditions = {m_vOpen.back().nCondition};
        Meet(vWays, vConditions);
    }

    /// Work-items that no case has taken come to the end too.
    void EndSwitch()
    {
        SOpen open = std::move(m_vOpen.back());
        m_vOpen.pop_back();
        open.vExits.push_back(std::move(open.vStart));
        open.vWhoLeave.push_back(open.nCondition);
        Meet(open.vExits, open.vWhoLeave);
    }

    /// Returns aren't tracked by place.
    void EndBody()
    {
        SOpen open = std::move(m_vOpen.back());
        m_vOpen.pop_back();
        const std::vector<uint32_t> vUnknown = {SValueGraph::s_nUnknown};
        Meet(open.vExits, vUnknown);
    }

    void MarkUsed()
    {
        std::vector<SValue>& vValues = m_Graph.vValues;
        std::vector<uint32_t> vFirst(vValues.size() + 1, 0);
        std::stable_sort(m_Graph.vMeetings.begin(), m_Graph.vMeetings.end(),
                         [](const auto& left, const auto& right) { return left.first < right.first; });
        for (const auto& meeting : m_Graph.vMeetings)
        {
            ++vFirst[meeting.first + 1];
        }
        for (size_t n = 1; n < vFirst.size(); ++n)
        {
            vFirst[n] += vFirst[n - 1];
        }
        std::vector<uint32_t> vNew;
        const auto use = [&](uint32_t nValue)
        {
            if (!vValues[nValue].bUsed)
            {
                vNew.push_back(nValue);
            }
            vValues[nValue].bUsed = true;
        };
        for (const SValueRead& read : m_Graph.vReads)
        {
            use(read.nValue);
        }
        while (!vNew.empty())
        {
            const uint32_t nValue = vNew.back();
            vNew.pop_back();
            for (uint32_t n = vFirst[nValue]; n < vFirst[nValue + 1]; ++n)
            {
                use(m_Graph.vMeetings[n].second);
            }
        }
    }

    const SCode& m_Code;
    SValueGraph& m_Graph;
    std::vector<uint32_t> m_vOrder;
    std::vector<uint32_t> m_vPlaces; ///< by step: its place in the order
    std::vector<uint32_t> m_vSlots;  ///< by row, counted from 1; 0 for a row that isn't tracked
    std::vector<char> m_vConstants;  ///< by row
    CState m_vState;                 ///< of the work-items that reach the next step
    size_t m_nWork = 0;
    bool m_bHere = true; ///< whether any work-item can get here
    std::vector<SOpen> m_vOpen;
};

} // namespace

bool FollowValues(const SCode& code, SValueGraph& graph)
{
    return CValueWalk(code, graph).Run();
}

} // namespace KestrelPlatform

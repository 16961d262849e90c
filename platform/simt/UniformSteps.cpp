#include "platform/simt/UniformSteps.h"

#include "platform/simt/RowVisits.h"
#include "platform/simt/ValueGraph.h"

#include <algorithm>
#include <numeric>

namespace KestrelPlatform
{

namespace
{

/// The most passes over all values until nothing changes; enough for any nesting of loops in practice.
const int s_nMostPasses = 64;
/// The most rows for uniform values.
const uint32_t s_nMostRows = 1024;

/// Values that meet share a row with the value at the meeting. Such a web is uniform if all of its values are.
class CUniformSteps
{
public:
    CUniformSteps(SCode& code, SValueGraph& graph)
        : m_Code(code), m_Graph(graph), m_vWebs(graph.vValues.size()), m_vVaries(graph.vValues.size(), 0),
          m_vSpread(graph.vValues.size(), 0), m_vRows(graph.vValues.size(), 0)
    {
        std::iota(m_vWebs.begin(), m_vWebs.end(), 0);
    }

    void Run()
    {
        for (const auto& meeting : m_Graph.vMeetings)
        {
            if (m_Graph.vValues[meeting.first].bUsed)
            {
                m_vWebs[Web(meeting.first)] = Web(meeting.second);
            }
        }
        m_vVaries[SValueGraph::s_nUnknown] = 1;
        for (uint32_t n = 0; n < m_Graph.vValues.size(); ++n)
        {
            if (m_Graph.vValues[n].bGiven)
            {
                Vary(n);
            }
        }
        if (!FindVarying() || !GiveRows())
        {
            return;
        }
        FindSpread();
        Rewrite();
    }

private:
    uint32_t Web(uint32_t nValue)
    {
        while (m_vWebs[nValue] != nValue)
        {
            m_vWebs[nValue] = m_vWebs[m_vWebs[nValue]];
            nValue = m_vWebs[nValue];
        }
        return nValue;
    }

    bool Varies(uint32_t nValue) { return m_vVaries[Web(nValue)] != 0; }

    bool Vary(uint32_t nValue)
    {
        char& bVaries = m_vVaries[Web(nValue)];
        const bool bNew = !bVaries;
        bVaries = 1;
        return bNew;
    }

    /// The steps in order, with the values that they read and write.
    struct SStep
    {
        uint32_t nStep = 0;
        size_t nFirstRead = 0;
        size_t nReads = 0;
        uint32_t nValues[4] = {}; ///< written values
        uint32_t nWritten = 0;
    };

    void CollectSteps()
    {
        std::vector<uint32_t> vPlaces(m_Code.vSteps.size(), ~0u);
        const auto at = [&](uint32_t nStep) -> SStep&
        {
            if (vPlaces[nStep] == ~0u)
            {
                vPlaces[nStep] = static_cast<uint32_t>(m_vSteps.size());
                m_vSteps.emplace_back();
                m_vSteps.back().nStep = nStep;
            }
            return m_vSteps[vPlaces[nStep]];
        };
        for (size_t n = 0; n < m_Graph.vReads.size(); ++n)
        {
            SStep& step = at(m_Graph.vReads[n].nStep);
            step.nFirstRead = step.nReads == 0 ? n : step.nFirstRead;
            ++step.nReads;
        }
        for (uint32_t n = 0; n < m_Graph.vValues.size(); ++n)
        {
            if (m_Graph.vValues[n].nStep == SValue::s_nNoStep)
            {
                continue;
            }
            SStep& step = at(m_Graph.vValues[n].nStep);
            step.nValues[step.nWritten++] = n;
        }
    }

    bool ReadsVarying(const SStep& step)
    {
        for (size_t n = step.nFirstRead; n < step.nFirstRead + step.nReads; ++n)
        {
            if (Varies(m_Graph.vReads[n].nValue))
            {
                return true;
            }
        }
        return false;
    }

    bool IsUniformLoad(const SStep& step)
    {
        const SMicroOp& op = m_Code.vSteps[step.nStep];
        return op.eKind == MICRO_ACCESS && m_Code.vAccesses[op.nAux].eSpace == SAccess::Global &&
               m_Code.vAccesses[op.nAux].eOperation == SAccess::Load && !ReadsVarying(step);
    }

    /// Whether the step's results vary between work-items, whatever it reads.
    bool GivesVarying(const SStep& step)
    {
        const SMicroOp& op = m_Code.vSteps[step.nStep];
        if (!IsLaneOperation(op))
        {
            return !IsUniformLoad(step);
        }
        bool bVaries = ReadsVarying(step);
        // Both words of a result must be uniform.
        for (uint32_t n = 0; n < step.nWritten; ++n)
        {
            bVaries = bVaries || Varies(step.nValues[n]);
        }
        // One of the result's words isn't tracked.
        const uint32_t nResults = op.rows.d[1] != s_nMaskRow ? 2 : 1;
        return bVaries || step.nWritten != nResults;
    }

    bool FindVarying()
    {
        CollectSteps();
        for (int nPass = 0; nPass < s_nMostPasses; ++nPass)
        {
            bool bNew = false;
            for (const SStep& step : m_vSteps)
            {
                if (step.nWritten == 0 || !GivesVarying(step))
                {
                    continue;
                }
                for (uint32_t n = 0; n < step.nWritten; ++n)
                {
                    bNew = Vary(step.nValues[n]) || bNew;
                }
            }
            for (const auto& condition : m_Graph.vConditions)
            {
                if (m_Graph.vValues[condition.first].bUsed && Varies(condition.second))
                {
                    bNew = Vary(condition.first) || bNew;
                }
            }
            if (!bNew)
            {
                return true;
            }
        }
        return false;
    }

    bool IsUniform(uint32_t nValue) { return nValue > SValueGraph::s_nUnknown && !Varies(nValue); }

    bool GiveRows()
    {
        uint32_t nRows = m_Code.nRows;
        for (uint32_t n = 0; n < m_Graph.vValues.size(); ++n)
        {
            if (m_Graph.vValues[n].nStep == SValue::s_nNoStep || !IsUniform(n))
            {
                continue;
            }
            uint32_t& nRow = m_vRows[Web(n)];
            nRow = nRow == 0 ? nRows++ : nRow;
        }
        if (nRows == m_Code.nRows || nRows - m_Code.nRows > s_nMostRows || nRows > s_nMaxRows)
        {
            return false;
        }
        m_Code.nRows = nRows;
        return true;
    }

    bool RunsOnce(const SStep& step)
    {
        return IsLaneOperation(m_Code.vSteps[step.nStep]) && step.nWritten != 0 && IsUniform(step.nValues[0]);
    }

    /// Finds uniform values that some step reads for all work-items, so that they need whole rows.
    void FindSpread()
    {
        for (const SStep& step : m_vSteps)
        {
            const EMicroKind eKind = m_Code.vSteps[step.nStep].eKind;
            if (eKind == MICRO_IF || eKind == MICRO_LEAVE_IF || RunsOnce(step) || IsUniformLoad(step))
            {
                continue;
            }
            for (size_t n = step.nFirstRead; n < step.nFirstRead + step.nReads; ++n)
            {
                m_vSpread[Web(m_Graph.vReads[n].nValue)] = 1;
            }
        }
    }

    void Rewrite()
    {
        std::vector<char> vAllOrNone(m_Code.vSteps.size(), 0);
        for (const SStep& step : m_vSteps)
        {
            SMicroOp& op = m_Code.vSteps[step.nStep];
            if (op.eKind == MICRO_ACCESS)
            {
                RewriteAccess(step, m_Code.vAccesses[op.nAux]);
            }
            else if (op.eKind == MICRO_IMAGE)
            {
                RewriteImage(step, m_Code.vImages[op.nAux]);
            }
            else
            {
                RewriteStep(step, op);
            }
            if ((op.eKind == MICRO_IF || op.eKind == MICRO_LEAVE_IF) && !ReadsVarying(step))
            {
                op.nFlags |= s_nFlagUniform;
                vAllOrNone[step.nStep] = 1;
            }
        }
        for (const auto& part : m_Graph.vParts)
        {
            if (vAllOrNone[part.first])
            {
                m_Code.vSteps[part.second].nFlags |= s_nFlagUniform;
            }
        }
    }

    /// Replaces the row that a step reads.
    template <class TRow>
    void Reread(const SStep& step, TRow& nRow)
    {
        for (size_t n = step.nFirstRead; n < step.nFirstRead + step.nReads; ++n)
        {
            const SValueRead& read = m_Graph.vReads[n];
            if (read.nRow != nRow || !IsUniform(read.nValue))
            {
                continue;
            }
            nRow = static_cast<TRow>(m_vRows[Web(read.nValue)]);
            return;
        }
    }

    template <class TRow, size_t nCount>
    void Reread(const SStep& step, TRow (&rows)[nCount])
    {
        for (TRow& nRow : rows)
        {
            Reread(step, nRow);
        }
    }

    void RewriteStep(const SStep& step, SMicroOp& op)
    {
        // The second source of a switch is a row that it writes itself.
        if (op.eKind == MICRO_SWITCH)
        {
            Reread(step, op.rows.s[0]);
        }
        else
        {
            Reread(step, op.rows.s);
        }
        if (op.eKind == MICRO_INDEX_LOAD || op.eKind == MICRO_INDEX_STORE)
        {
            Reread(step, m_Code.vIndexed[op.nAux].nIndexRow);
        }
        if (!RunsOnce(step))
        {
            return;
        }
        for (uint32_t n = 0; n < step.nWritten; ++n)
        {
            uint16_t* const pRow = std::find(op.rows.d, op.rows.d + 2, m_Graph.vValues[step.nValues[n]].nRow);
            *pRow = static_cast<uint16_t>(m_vRows[Web(step.nValues[n])]);
            op.nFlags |= m_vSpread[Web(step.nValues[n])] ? s_nFlagSpread : 0;
        }
        op.eKind = MICRO_LANE_UNIFORM;
    }

    void RewriteAccess(const SStep& step, SAccess& access)
    {
        access.bUniform = IsUniformLoad(step);
        Reread(step, access.nAddressRows);
        Reread(step, access.nValueRows);
        if (access.eOperation == SAccess::Store)
        {
            Reread(step, access.nRows);
        }
        for (uint32_t n = 0; n < step.nWritten && access.bUniform; ++n)
        {
            if (!IsUniform(step.nValues[n]))
            {
                continue;
            }
            uint32_t* const pRow = std::find(access.nRows, access.nRows + 4, m_Graph.vValues[step.nValues[n]].nRow);
            *pRow = m_vRows[Web(step.nValues[n])];
            access.nUniformWords |= static_cast<uint8_t>(1u << (pRow - access.nRows));
        }
    }

    void RewriteImage(const SStep& step, SImageAccess& image)
    {
        Reread(step, image.nCoordinates);
        Reread(step, image.nOffsets);
        Reread(step, image.nReference);
        if (image.eOperation == SImageAccess::UavStore)
        {
            Reread(step, image.nRows);
        }
        for (uint32_t n = 0; n < image.nFlatAccesses; ++n)
        {
            SAccess& access = m_Code.vAccesses[image.nFirstFlatAccess + n];
            Reread(step, access.nAddressRows);
            Reread(step, access.nValueRows);
            if (access.eOperation == SAccess::Store)
            {
                Reread(step, access.nRows);
            }
        }
    }

    SCode& m_Code;
    SValueGraph& m_Graph;
    std::vector<SStep> m_vSteps;
    std::vector<uint32_t> m_vWebs; ///< by value: another value of its web, or itself
    // Indexed by the value that represents a web.
    std::vector<char> m_vVaries;
    std::vector<char> m_vSpread;
    std::vector<uint32_t> m_vRows;
};

} // namespace

void FindUniformSteps(SCode& code)
{
    const bool bLoops = std::any_of(code.vSteps.begin(), code.vSteps.end(),
                                    [](const SMicroOp& step) { return step.eKind == MICRO_LOOP; });
    SValueGraph graph;
    if (bLoops && FollowValues(code, graph))
    {
        CUniformSteps(code, graph).Run();
    }
}

} // namespace KestrelPlatform

#include "platform/simt/SteadySteps.h"

#include "platform/simt/RowVisits.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

/// The most rows for steady results in a block: each takes room in the cache that other rows could use.
const uint32_t s_nMaxSteadyRows = 64;

/// Whether a step's sources may be replaced by other rows.
bool CanReadElsewhere(const SMicroOp& step)
{
    return IsLaneOperation(step) || step.eKind == MICRO_ACCESS;
}

/// Goes through the straight-line pieces twice: first to find results that are read after their piece, then to move
/// steps.
class CSteadySteps
{
public:
    CSteadySteps(SCode& code, std::vector<uint32_t>& vReads, std::vector<char>& vDropped)
        : m_Code(code), m_vReads(vReads), m_vDropped(vDropped), m_vRows(code.nRows),
          m_vOverwritten(code.vSteps.size(), 0), m_nRowLimit(std::min(code.nRows + s_nMaxSteadyRows, s_nMaxRows))
    {
        ForEachPinned(code, [this](uint32_t nRow) { m_vRows[nRow].bKept = true; });
        // Unused fields name these rows.
        m_vRows[s_nMaskRow].bSteady = m_vRows[s_nZeroRow].bSteady = true;
        for (const SCode::SConstant& constant : code.vConstants)
        {
            m_vRows[constant.nRow].bSteady = true;
        }
        for (const SCode::SId& id : code.vIds)
        {
            m_vRows[id.nRow].bSteady = IsSteady(id);
        }
    }

    void Run()
    {
        ForEachStep([this](size_t nStep) { Look(nStep); });
        ForEachStep([this](size_t nStep) { Move(nStep); });
        DropUnread();
    }

private:
    struct SRow
    {
        uint32_t nPiece = 0;     ///< the piece that wrote it last
        uint32_t nLastStep = 0;  ///< the step that wrote it last
        uint32_t nNamePiece = 0; ///< the piece in which row nName holds this row's value
        uint32_t nName = 0;
        bool bSteady = false;
        bool bKept = false;   ///< its readers can't read another row
        bool bLeaves = false; ///< read in a piece that hasn't written it before
    };

    template <class F>
    void ForEachStep(F&& visit)
    {
        ForEachStepOfPieces(m_Code, m_vDropped, m_nPiece, visit);
    }

    void Look(size_t nStep)
    {
        const SMicroOp& step = m_Code.vSteps[nStep];
        const bool bKept = !CanReadElsewhere(step);
        ForEachRead(m_Code, step,
                    [&](uint32_t nRow)
                    {
                        SRow& row = m_vRows[nRow];
                        row.bKept = row.bKept || bKept;
                        row.bLeaves = row.bLeaves || row.nPiece != m_nPiece;
                    });
        ForEachWritten(m_Code, step,
                       [&](uint32_t nRow)
                       {
                           SRow& row = m_vRows[nRow];
                           if (row.nPiece == m_nPiece && nRow != s_nMaskRow)
                           {
                               ++m_vOverwritten[row.nLastStep];
                           }
                           row.nPiece = m_nPiece;
                           row.nLastStep = static_cast<uint32_t>(nStep);
                       });
    }

    void Move(size_t nStep)
    {
        SMicroOp& step = m_Code.vSteps[nStep];
        if (CanReadElsewhere(step))
        {
            ReadNames(step);
        }
        if (CanMove(nStep))
        {
            for (uint16_t& nRow : step.rows.d)
            {
                nRow = nRow == s_nMaskRow ? nRow : Name(nRow);
            }
            m_Code.vSteadySteps.push_back(step);
            m_vDropped[nStep] = 1;
            return;
        }
        ForEachWritten(m_Code, step, [this](uint32_t nRow) { m_vRows[nRow].nNamePiece = 0; });
    }

    void ReadNames(SMicroOp& step)
    {
        if (step.eKind != MICRO_ACCESS)
        {
            ReadNames(step.rows.s);
            return;
        }
        SAccess& access = m_Code.vAccesses[step.nAux];
        if (access.bScaled)
        {
            ReadName(access.nIndexRow);
            ReadName(access.nScaleRow);
            ReadNames(access.nBaseRows);
        }
        else
        {
            ReadNames(access.nAddressRows);
        }
        ReadNames(access.nValueRows);
        if (access.eOperation == SAccess::Store)
        {
            ReadNames(access.nRows);
        }
    }

    template <class TRow, size_t nCount>
    void ReadNames(TRow (&rows)[nCount])
    {
        for (TRow& nRow : rows)
        {
            ReadName(nRow);
        }
    }

    template <class TRow>
    void ReadName(TRow& nRow)
    {
        if (m_vRows[nRow].nNamePiece != m_nPiece)
        {
            return;
        }
        --m_vReads[nRow];
        nRow = static_cast<TRow>(m_vRows[nRow].nName);
        ++m_vReads[nRow];
    }

    bool CanMove(size_t nStep) const
    {
        const SMicroOp& step = m_Code.vSteps[nStep];
        const bool bFast =
            step.eKind == MICRO_LANE_FAST || (step.eKind == MICRO_LANE_UNIFORM && step.nOp < LANE_FIRST_SLOW);
        if (!bFast || m_Code.nRows + 2 > m_nRowLimit)
        {
            return false;
        }
        for (const uint16_t nRow : step.rows.s)
        {
            if (!m_vRows[nRow].bSteady)
            {
                return false;
            }
        }
        uint32_t nResults = 0;
        bool bLeaves = false;
        for (const uint16_t nRow : step.rows.d)
        {
            if (nRow == s_nMaskRow)
            {
                continue;
            }
            if (m_vRows[nRow].bKept)
            {
                return false;
            }
            bLeaves = bLeaves || m_vRows[nRow].bLeaves;
            ++nResults;
        }
        return !bLeaves || m_vOverwritten[nStep] == nResults;
    }

    /// A new row for a value that was to be written to nRow.
    uint16_t Name(uint32_t nRow)
    {
        const uint32_t nName = m_Code.nRows++;
        m_vRows.emplace_back();
        m_vRows.back().bSteady = true;
        m_vRows[nRow].nNamePiece = m_nPiece;
        m_vRows[nRow].nName = nName;
        m_vReads.push_back(0);
        return static_cast<uint16_t>(nName);
    }

    /// Goes backwards, so that steps whose results only dropped steps read are dropped too.
    void DropUnread()
    {
        std::vector<SMicroOp>& vSteps = m_Code.vSteadySteps;
        for (size_t n = vSteps.size(); n-- > 0;)
        {
            const SLaneRows& rows = vSteps[n].rows;
            if (m_vReads[rows.d[0]] != 0 || (rows.d[1] != s_nMaskRow && m_vReads[rows.d[1]] != 0))
            {
                continue;
            }
            ForEach(rows.s, 6, [this](uint32_t nRow) { --m_vReads[nRow]; });
            vSteps.erase(vSteps.begin() + static_cast<ptrdiff_t>(n));
        }
    }

    SCode& m_Code;
    std::vector<uint32_t>& m_vReads;
    std::vector<char>& m_vDropped;
    std::vector<SRow> m_vRows;
    std::vector<uint8_t> m_vOverwritten; ///< by step: how many of its results the same piece writes again
    const uint32_t m_nRowLimit;
    uint32_t m_nPiece = 0;
};

} // namespace

bool IsSteady(const SCode::SId& id)
{
    const bool bAlongX = id.nComponent == 0;
    return id.nType == IL_REGTYPE_THREAD_ID_IN_GROUP || id.nType == IL_REGTYPE_THREAD_ID_IN_GROUP_FLAT ||
           (id.nType == IL_REGTYPE_THREAD_GROUP_ID && !bAlongX);
}

void MoveSteadySteps(SCode& code, std::vector<uint32_t>& vReads, std::vector<char>& vDropped)
{
    CSteadySteps(code, vReads, vDropped).Run();
}

} // namespace KestrelPlatform

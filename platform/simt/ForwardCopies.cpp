#include "platform/simt/ForwardCopies.h"

#include "platform/simt/RowVisits.h"

namespace KestrelPlatform
{

namespace
{

bool IsCopy(const SMicroOp& step)
{
    return step.eKind == MICRO_LANE_FAST && (step.nOp == LANE_Mov || step.nOp == LANE_IL_OP_MOV);
}

/// Visits the steps in order, and forgets all copies where the active work-items may change.
class CCopies
{
public:
    explicit CCopies(SCode& code) : m_Code(code), m_vRows(code.nRows)
    {
        // Rows of arrays may be written by an index, so they aren't tracked.
        ForEachPinned(code, [this](uint32_t nRow) { m_vRows[nRow].bPinned = true; });
    }

    void Run()
    {
        for (SMicroOp& step : m_Code.vSteps)
        {
            if (!IsStraight(step))
            {
                ++m_nPiece;
                continue;
            }
            Forward(step);
            ForEachWritten(m_Code, step, [this](uint32_t nRow) { Overwrite(nRow); });
            if (IsCopy(step))
            {
                Note(step.rows.d[0], step.rows.s[0]);
            }
        }
    }

private:
    struct SRow
    {
        uint32_t nWrites = 0; ///< number of writes so far
        bool bPinned = false;
        // For a copy: the straight-line piece that made it, its origin, and how often the origin had been written then.
        uint32_t nPiece = 0;
        uint32_t nOrigin = 0;
        uint32_t nOriginWrites = 0;
    };

    template <class TRow>
    void Replace(TRow& nRow) const
    {
        const SRow& row = m_vRows[nRow];
        if (row.nPiece == m_nPiece && m_vRows[row.nOrigin].nWrites == row.nOriginWrites)
        {
            nRow = static_cast<TRow>(row.nOrigin);
        }
    }

    /// Not for addresses of loads and atomics: those process several rows in turn, and may overwrite the origin on the
    /// way.
    void Forward(SMicroOp& step)
    {
        if (IsLaneOperation(step))
        {
            for (uint16_t& nRow : step.rows.s)
            {
                Replace(nRow);
            }
        }
        if (step.eKind != MICRO_ACCESS || m_Code.vAccesses[step.nAux].eOperation != SAccess::Store)
        {
            return;
        }
        for (uint32_t& nRow : m_Code.vAccesses[step.nAux].nAddressRows)
        {
            Replace(nRow);
        }
        for (uint32_t& nRow : m_Code.vAccesses[step.nAux].nRows)
        {
            Replace(nRow);
        }
    }

    void Overwrite(uint32_t nRow)
    {
        ++m_vRows[nRow].nWrites;
        m_vRows[nRow].nPiece = 0;
    }

    void Note(uint32_t nTo, uint32_t nFrom)
    {
        if (nTo == nFrom || m_vRows[nTo].bPinned || m_vRows[nFrom].bPinned)
        {
            return;
        }
        m_vRows[nTo].nPiece = m_nPiece;
        m_vRows[nTo].nOrigin = nFrom;
        m_vRows[nTo].nOriginWrites = m_vRows[nFrom].nWrites;
    }

    SCode& m_Code;
    std::vector<SRow> m_vRows;
    uint32_t m_nPiece = 1;
};

} // namespace

void ForwardCopies(SCode& code)
{
    CCopies(code).Run();
}

} // namespace KestrelPlatform

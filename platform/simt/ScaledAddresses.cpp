#include "platform/simt/ScaledAddresses.h"

#include "platform/simt/RowVisits.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

/// The positions of index, scale and base among the sources of a step that multiplies and adds.
const int s_nSumSources[] = {0, 2, 4, 5};

/// Goes through the straight-line pieces twice: first to find rows that carry a value from one piece to another, then
/// to find sums that only accesses read.
class CScaledAddresses
{
public:
    CScaledAddresses(SCode& code, uint32_t nFirstUniform, std::vector<uint32_t>& vReads, std::vector<char>& vDropped)
        : m_Code(code), m_vReads(vReads), m_vDropped(vDropped), m_vRows(code.nRows)
    {
        ForEachPinned(code, [this](uint32_t nRow) { m_vRows[nRow].bLeaves = true; });
        for (const SCode::SConstant& constant : code.vConstants)
        {
            m_vRows[constant.nRow].bUniform = true;
        }
        m_vRows[s_nZeroRow].bUniform = true;
        for (uint32_t n = nFirstUniform; n < code.nRows; ++n)
        {
            m_vRows[n].bUniform = true;
        }
    }

    void Run()
    {
        if (!IsAnySum() || m_Code.nRows + 2 > s_nMaxRows)
        {
            return;
        }
        ForEachStep([this](size_t nStep) { Look(nStep); });
        ForEachStep([this](size_t nStep) { Follow(nStep); });
        for (size_t n = 0; n < m_vSums.size(); ++n)
        {
            EndOf(n);
        }
        const SUse* pLast = nullptr;
        for (const SUse& use : m_vUses)
        {
            const SSum& sum = m_vSums[use.nSum];
            if (sum.bKept)
            {
                continue;
            }
            SAccess& access = m_Code.vAccesses[use.nAccess];
            Scale(access, m_Code.vSteps[sum.nStep]);
            access.bSameIndex = pLast && IsSameIndex(*pLast, use);
            pLast = &use;
        }
        for (const SSum& sum : m_vSums)
        {
            if (!sum.bKept)
            {
                Drop(sum.nStep);
            }
        }
    }

private:
    struct SRow
    {
        uint32_t nPiece = 0;  ///< the piece that wrote it last
        uint32_t nWrites = 0; ///< number of writes so far
        uint32_t nSum = 0;    ///< the sum that it holds, counted from 1; 0 for none
        bool bLeaves = false; ///< read in a piece that hasn't written it before
        bool bUniform = false;
    };

    /// A step that multiplies and adds in 64 bits.
    struct SSum
    {
        size_t nStep = 0;
        uint32_t nWrites[4] = {}; ///< write counts of the rows that it reads, after it has run
        bool bKept = false;       ///< something else reads it
        bool bEnded[2] = {};      ///< for each of its words: the piece overwrites it
    };

    struct SUse
    {
        size_t nSum = 0;
        uint32_t nAccess = 0;
        uint32_t nPiece = 0;
    };

    template <class F>
    void ForEachStep(F&& visit)
    {
        ForEachStepOfPieces(m_Code, m_vDropped, m_nPiece, visit);
    }

    void Look(size_t nStep)
    {
        const SMicroOp& step = m_Code.vSteps[nStep];
        ForEachRead(m_Code, step,
                    [this](uint32_t nRow)
                    { m_vRows[nRow].bLeaves = m_vRows[nRow].bLeaves || m_vRows[nRow].nPiece != m_nPiece; });
        ForEachWritten(m_Code, step, [this](uint32_t nRow) { m_vRows[nRow].nPiece = m_nPiece; });
    }

    /// The sum that the row holds, or null.
    SSum* SumIn(uint32_t nRow)
    {
        const SRow& row = m_vRows[nRow];
        return row.nSum != 0 && row.nPiece == m_nPiece ? &m_vSums[row.nSum - 1] : nullptr;
    }

    void Follow(size_t nStep)
    {
        const SMicroOp& step = m_Code.vSteps[nStep];
        const SSum* const pSum = IsOfSum(step) ? SumIn(m_Code.vAccesses[step.nAux].nAddressRows[0]) : nullptr;
        if (pSum)
        {
            m_vUses.push_back({static_cast<size_t>(pSum - m_vSums.data()), step.nAux, m_nPiece});
        }
        else
        {
            ForEachRead(m_Code, step, [this](uint32_t nRow) { Keep(SumIn(nRow)); });
        }
        const bool bSum = IsSum(step);
        if (bSum)
        {
            m_vSums.push_back({nStep, {}, false, {}});
        }
        ForEachWritten(m_Code, step,
                       [this, bSum](uint32_t nRow)
                       {
                           End(nRow);
                           SRow& row = m_vRows[nRow];
                           row.nPiece = m_nPiece;
                           row.nSum = bSum ? static_cast<uint32_t>(m_vSums.size()) : 0;
                           ++row.nWrites;
                       });
        if (bSum)
        {
            for (int n = 0; n < 4; ++n)
            {
                m_vSums.back().nWrites[n] = m_vRows[step.rows.s[s_nSumSources[n]]].nWrites;
            }
        }
    }

    void End(uint32_t nRow)
    {
        SSum* const pSum = SumIn(nRow);
        for (int n = 0; pSum && n < 2; ++n)
        {
            pSum->bEnded[n] = pSum->bEnded[n] || m_Code.vSteps[pSum->nStep].rows.d[n] == nRow;
        }
    }

    static void Keep(SSum* pSum)
    {
        if (pSum)
        {
            pSum->bKept = true;
        }
    }

    bool IsAnySum() const
    {
        return std::any_of(m_Code.vSteps.begin(), m_Code.vSteps.end(),
                           [this](const SMicroOp& step) { return IsSum(step); });
    }

    bool IsSum(const SMicroOp& step) const
    {
        const bool bMad =
            step.eKind == MICRO_LANE_FAST && (step.nOp == LANE_IL_OP_MAD_U64_U32 || step.nOp == LANE_IL_OP_MAD_I64_I32);
        return bMad && m_vRows[step.rows.s[2]].bUniform && m_vRows[step.rows.s[4]].bUniform &&
               m_vRows[step.rows.s[5]].bUniform;
    }

    /// Whether the step is an access whose address is a sum, whose parts are still unchanged, and that reads no sum
    /// otherwise.
    bool IsOfSum(const SMicroOp& step)
    {
        if (step.eKind != MICRO_ACCESS)
        {
            return false;
        }
        const SAccess& access = m_Code.vAccesses[step.nAux];
        if (access.eSpace != SAccess::Global || !access.b64BitAddress)
        {
            return false;
        }
        const SSum* const pSum = SumIn(access.nAddressRows[0]);
        if (!pSum || SumIn(access.nAddressRows[1]) != pSum)
        {
            return false;
        }
        const SLaneRows& rows = m_Code.vSteps[pSum->nStep].rows;
        bool bElsewhere = rows.d[0] != access.nAddressRows[0] || rows.d[1] != access.nAddressRows[1];
        const auto compare = [&](uint32_t nRow) { bElsewhere = bElsewhere || SumIn(nRow) != nullptr; };
        ForEach(access.nValueRows, 4, compare);
        if (access.eOperation == SAccess::Store)
        {
            ForEach(access.nRows, 4, compare);
        }
        for (int n = 0; n < 4; ++n)
        {
            bElsewhere = bElsewhere || m_vRows[rows.s[s_nSumSources[n]]].nWrites != pSum->nWrites[n];
        }
        return !bElsewhere;
    }

    bool IsSameIndex(const SUse& left, const SUse& right) const
    {
        const uint32_t nLeft = m_vSums[left.nSum].nWrites[0];
        return left.nPiece == right.nPiece && nLeft == m_vSums[right.nSum].nWrites[0] &&
               m_Code.vAccesses[left.nAccess].nIndexRow == m_Code.vAccesses[right.nAccess].nIndexRow;
    }

    /// Keeps a sum that may be read in another piece.
    void EndOf(size_t nSum)
    {
        SSum& sum = m_vSums[nSum];
        for (int n = 0; n < 2; ++n)
        {
            sum.bKept = sum.bKept || (!sum.bEnded[n] && m_vRows[m_Code.vSteps[sum.nStep].rows.d[n]].bLeaves);
        }
    }

    void Scale(SAccess& access, const SMicroOp& sum)
    {
        if (m_nScratch == 0)
        {
            m_nScratch = m_Code.nRows;
            m_Code.nRows += 2;
            m_vReads.resize(m_Code.nRows, 0);
        }
        ForEachRead(access, [this](uint32_t nRow) { --m_vReads[nRow]; });
        access.bScaled = true;
        access.bIndexSigned = sum.nOp == LANE_IL_OP_MAD_I64_I32;
        access.nIndexRow = sum.rows.s[0];
        access.nScaleRow = sum.rows.s[2];
        access.nBaseRows[0] = sum.rows.s[4];
        access.nBaseRows[1] = sum.rows.s[5];
        access.nAddressRows[0] = m_nScratch;
        access.nAddressRows[1] = m_nScratch + 1;
        ForEachRead(access, [this](uint32_t nRow) { ++m_vReads[nRow]; });
    }

    void Drop(size_t nStep)
    {
        m_vDropped[nStep] = 1;
        ForEachRead(m_Code, m_Code.vSteps[nStep], [this](uint32_t nRow) { --m_vReads[nRow]; });
    }

    SCode& m_Code;
    std::vector<uint32_t>& m_vReads;
    std::vector<char>& m_vDropped;
    std::vector<SRow> m_vRows;
    std::vector<SSum> m_vSums;
    std::vector<SUse> m_vUses;
    uint32_t m_nPiece = 0;
    uint32_t m_nScratch = 0; ///< two rows for addresses that turn out to be needed
};

} // namespace

void ScaleAddresses(SCode& code, uint32_t nFirstUniform, std::vector<uint32_t>& vReads, std::vector<char>& vDropped)
{
    CScaledAddresses(code, nFirstUniform, vReads, vDropped).Run();
}

} // namespace KestrelPlatform

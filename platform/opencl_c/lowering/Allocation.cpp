#include "platform/opencl_c/lowering/Allocation.h"

#include "platform/opencl_c/lowering/Liveness.h"

#include <algorithm>
#include <numeric>

namespace KestrelOpenCL
{
namespace
{

/// The most stretches that are compared for one copy; a phi with more of them keeps its copies.
const size_t s_nMaxSpans = 4096;

/// Sets of registers that are to share one place; sets can be joined.
class CClasses
{
public:
    CClasses(const SKernelCode& code, SLiveness& live) : m_Code(code), m_Live(live), m_vParents(live.vHulls.size())
    {
        std::iota(m_vParents.begin(), m_vParents.end(), 0u);
        for (const SVirtualRegister& reg : code.machine.Registers())
        {
            m_vComponents.push_back(reg.nComponents);
        }
        m_vEdgesFrom.resize(code.machine.Blocks().size());
        for (const SEdge& edge : code.vEdges)
        {
            m_vEdgesFrom[edge.nFrom].push_back(&edge);
        }
        for (unsigned nBlock = 0; nBlock < live.vCopiesWritten.size(); ++nBlock)
        {
            m_vAfterCopies.emplace_back(live.vCopiesWritten[nBlock], nBlock);
        }
        std::sort(m_vAfterCopies.begin(), m_vAfterCopies.end(),
                  [](const auto& x, const auto& y) { return x.first.nFirst < y.first.nFirst; });
    }

    uint32_t Find(uint32_t n)
    {
        while (m_vParents[n] != n)
        {
            m_vParents[n] = m_vParents[m_vParents[n]];
            n = m_vParents[n];
        }
        return n;
    }

    /// The components of a set's largest register.
    unsigned CountComponents(uint32_t n) { return m_vComponents[Find(n)]; }

    void JoinCopies()
    {
        for (const SEdge& edge : m_Code.vEdges)
        {
            for (size_t n = 0; n < edge.to.size();)
            {
                size_t nEnd = n;
                while (nEnd < edge.to.size() && edge.to[nEnd].nId == edge.to[n].nId)
                {
                    ++nEnd;
                }
                if (IsWhole(edge, n, nEnd))
                {
                    Join(edge.to[n].nId, edge.from[n].nId);
                }
                n = nEnd;
            }
        }
    }

private:
    /// Whether a copy is from one register to another, with every component in its place.
    bool IsWhole(const SEdge& edge, size_t nFirst, size_t nEnd) const
    {
        for (size_t n = nFirst; n < nEnd; ++n)
        {
            const SWord& from = edge.from[n];
            if (from.eKind != SWord::Register || from.nId != edge.from[nFirst].nId ||
                from.nComponent != edge.to[n].nComponent)
            {
                return false;
            }
        }
        return !m_Code.machine.Registers()[edge.from[nFirst].nId].bPinned;
    }

    /// Whether two sets may be live together after the copies on a block's edges, because they hold equal values there.
    /// That is so if everything copied into either of them comes from one of the two, or if neither was live before the
    /// copies and both get the same constants.
    bool AreEqualAfterCopies(unsigned nBlock, uint32_t a, uint32_t b)
    {
        const auto IsOneOfThem = [&](const SWord& word)
        { return word.eKind == SWord::Register && (Find(word.nId) == a || Find(word.nId) == b); };
        const uint32_t nBefore = m_Live.vCopiesWritten[nBlock].nFirst - 1;
        const bool bNew = !LivesAt(m_Live.vSpans[a], nBefore) && !LivesAt(m_Live.vSpans[b], nBefore);
        std::array<SWord, s_nComponents> numbers = {};
        for (const SEdge* const pEdge : m_vEdgesFrom[nBlock])
        {
            for (size_t n = 0; n < pEdge->to.size(); ++n)
            {
                if (!IsOneOfThem(pEdge->to[n]))
                {
                    continue;
                }
                const SWord& from = pEdge->from[n];
                SWord& number = numbers[pEdge->to[n].nComponent];
                const bool bSame = IsOneOfThem(from) && from.nComponent == pEdge->to[n].nComponent;
                const bool bNumber =
                    bNew && from.eKind == SWord::Literal && (number.eKind == SWord::Undefined || number == from);
                if (!bSame && !bNumber)
                {
                    return false;
                }
                number = bNumber ? from : number;
            }
        }
        return true;
    }

    static bool LivesAt(const Spans& spans, uint32_t nPosition)
    {
        const auto it = std::upper_bound(spans.begin(), spans.end(), nPosition,
                                         [](uint32_t nAt, const SSpan& span) { return nAt < span.nFirst; });
        return it != spans.begin() && nPosition <= std::prev(it)->nLast;
    }

    /// The block in which a stretch lies after the copies of its edges, -1 for none.
    int FindBlockAfterCopies(const SSpan& span) const
    {
        auto it = std::upper_bound(m_vAfterCopies.begin(), m_vAfterCopies.end(), span.nFirst,
                                   [](uint32_t nFirst, const auto& entry) { return nFirst < entry.first.nFirst; });
        if (it == m_vAfterCopies.begin())
        {
            return -1;
        }
        --it;
        return span.nLast <= it->first.nLast ? static_cast<int>(it->second) : -1;
    }

    void Join(uint32_t a, uint32_t b)
    {
        a = Find(a);
        b = Find(b);
        Spans& spansA = m_Live.vSpans[a];
        Spans& spansB = m_Live.vSpans[b];
        if (a == b || spansA.size() + spansB.size() > s_nMaxSpans ||
            Meet(spansA, spansB,
                 [&](const SSpan& both)
                 {
                     const int nBlock = FindBlockAfterCopies(both);
                     return nBlock < 0 || !AreEqualAfterCopies(static_cast<unsigned>(nBlock), a, b);
                 }))
        {
            return;
        }
        m_vParents[b] = a;
        m_vComponents[a] = std::max(m_vComponents[a], m_vComponents[b]);
        if (spansA.size() < spansB.size())
        {
            spansA.swap(spansB);
        }
        Unite(spansA, spansB);
        spansB = Spans();
        m_Live.vHulls[a].nFirst = std::min(m_Live.vHulls[a].nFirst, m_Live.vHulls[b].nFirst);
        m_Live.vHulls[a].nLast = std::max(m_Live.vHulls[a].nLast, m_Live.vHulls[b].nLast);
    }

    const SKernelCode& m_Code;
    SLiveness& m_Live;
    std::vector<uint32_t> m_vParents;
    std::vector<unsigned> m_vComponents;                          ///< by the set's first register
    std::vector<llvm::SmallVector<const SEdge*, 2>> m_vEdgesFrom; ///< by block
    std::vector<std::pair<SSpan, unsigned>> m_vAfterCopies;       ///< the stretches after the blocks' copies, in order
};

/// The temps, and until when each of their components is occupied.
class CTemps
{
public:
    /// \param span is given the first components that are free from its start on
    STemp Take(unsigned nCount, const SSpan& span)
    {
        const unsigned nStep = nCount == 1 ? 1 : nCount == 2 ? 2 : 4;
        for (uint32_t nRegister = 0;; ++nRegister)
        {
            if (nRegister == m_vEnds.size())
            {
                m_vEnds.push_back({});
            }
            for (unsigned nFirst = 0; nFirst < s_nComponents; nFirst += nStep)
            {
                if (IsFree(nRegister, nFirst, nCount, span.nFirst))
                {
                    std::fill_n(m_vEnds[nRegister].begin() + nFirst, nCount, span.nLast + 1);
                    return {nRegister, static_cast<uint8_t>(nFirst)};
                }
            }
        }
    }
    uint32_t Count() const { return static_cast<uint32_t>(m_vEnds.size()); }

private:
    bool IsFree(uint32_t nRegister, unsigned nFirst, unsigned nCount, uint32_t nFrom) const
    {
        const auto itFirst = m_vEnds[nRegister].begin() + nFirst;
        return std::all_of(itFirst, itFirst + nCount, [nFrom](uint32_t nEnd) { return nEnd <= nFrom; });
    }

    std::vector<std::array<uint32_t, s_nComponents>> m_vEnds;
};

} // namespace

SAllocation AllocateTemps(const SKernelCode& code, const std::vector<SFlowStep>& vSteps, unsigned nGuards)
{
    SLiveness live = FindLiveness(code, vSteps, nGuards);
    CClasses classes(code, live);
    classes.JoinCopies();
    const std::vector<SVirtualRegister>& vRegisters = code.machine.Registers();
    std::vector<std::pair<SSpan, uint32_t>> vOrder; // registers first, then guards
    SAllocation result;
    result.vTemps.resize(vRegisters.size());
    result.vGuards.resize(nGuards);
    CTemps temps;
    for (uint32_t n = 0; n < vRegisters.size(); ++n)
    {
        if (vRegisters[n].bPinned)
        {
            result.vTemps[n] = temps.Take(vRegisters[n].nComponents, {0, 0xFFFFFFFEu});
        }
        else if (classes.Find(n) == n && !live.vHulls[n].IsEmpty())
        {
            vOrder.emplace_back(live.vHulls[n], n);
        }
    }
    for (uint32_t n = 0; n < nGuards; ++n)
    {
        if (!live.vGuards[n].IsEmpty())
        {
            vOrder.emplace_back(live.vGuards[n], static_cast<uint32_t>(vRegisters.size()) + n);
        }
    }
    std::sort(vOrder.begin(), vOrder.end(),
              [](const auto& a, const auto& b)
              { return a.first.nFirst != b.first.nFirst ? a.first.nFirst < b.first.nFirst : a.second < b.second; });
    for (const auto& [span, n] : vOrder)
    {
        if (n >= vRegisters.size())
        {
            result.vGuards[n - vRegisters.size()] = temps.Take(1, span);
            continue;
        }
        result.vTemps[n] = temps.Take(classes.CountComponents(n), span);
    }
    for (uint32_t n = 0; n < vRegisters.size(); ++n)
    {
        result.vTemps[n] = vRegisters[n].bPinned ? result.vTemps[n] : result.vTemps[classes.Find(n)];
    }
    result.nRegisters = temps.Count();
    return result;
}

} // namespace KestrelOpenCL

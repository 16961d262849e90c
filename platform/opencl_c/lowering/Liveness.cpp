#include "platform/opencl_c/lowering/Liveness.h"

#include <algorithm>

namespace KestrelOpenCL
{
namespace
{

/// Computes the liveness of one kernel. Each object serves one call.
class CLiveness
{
public:
    CLiveness(const SKernelCode& code, const std::vector<SFlowStep>& vSteps, unsigned nGuards)
        : m_Code(code), m_vSteps(vSteps)
    {
        const size_t nRegisters = code.machine.Registers().size();
        m_Live.vHulls.resize(nRegisters);
        m_Live.vSpans.resize(nRegisters);
        m_Live.vGuards.resize(nGuards);
        m_vStarts.resize(code.machine.Blocks().size(), 0);
        m_vEdgePositions.resize(code.vEdges.size(), 0);
        m_vCandidate.resize(nRegisters, false);
        m_vFirstDefinition.resize(nRegisters, 0xFFFFFFFFu);
        m_vIn.resize(code.machine.Blocks().size(), s_nNoRegister);
        m_vOut.resize(code.machine.Blocks().size(), s_nNoRegister);
    }

    SLiveness Run()
    {
        Number();
        Collect();
        std::sort(m_vUses.begin(), m_vUses.end(),
                  [](const SUse& a, const SUse& b)
                  { return a.nRegister != b.nRegister ? a.nRegister < b.nRegister : a.nBlock < b.nBlock; });
        for (size_t n = 0; n < m_vUses.size();)
        {
            size_t nEnd = n;
            while (nEnd < m_vUses.size() && m_vUses[nEnd].nRegister == m_vUses[n].nRegister)
            {
                ++nEnd;
            }
            Extend(n, nEnd);
            n = nEnd;
        }
        for (Spans& spans : m_Live.vSpans)
        {
            Normalize(spans);
        }
        for (unsigned nBlock = 0; nBlock < m_vStarts.size(); ++nBlock)
        {
            m_Live.vCopiesWritten.push_back({CopyReads(nBlock) + 1, End(nBlock)});
        }
        return std::move(m_Live);
    }

private:
    struct SUse
    {
        uint32_t nRegister;
        unsigned nBlock;
        uint32_t nPosition;
    };

    unsigned CountInstructions(unsigned nBlock) const
    {
        return static_cast<unsigned>(m_Code.machine.Blocks()[nBlock].size());
    }
    uint32_t CopyReads(unsigned nBlock) const { return m_vStarts[nBlock] + 2 + CountInstructions(nBlock) * 2; }
    uint32_t End(unsigned nBlock) const { return CopyReads(nBlock) + 2; }

    void Number()
    {
        uint32_t nPosition = 0;
        for (const SFlowStep& step : m_vSteps)
        {
            switch (step.eKind)
            {
            case SFlowStep::Block:
                m_vStarts[step.nBlock] = nPosition;
                nPosition = End(step.nBlock);
                break;
            case SFlowStep::Edge:
                m_vEdgePositions[step.nEdge] = nPosition;
                break;
            case SFlowStep::Branch:
                AddToHull(m_Code.vConditions[step.nBlock].word, nPosition);
                break;
            case SFlowStep::SetGuard:
            case SFlowStep::UseGuard:
                m_Live.vGuards[step.nGuard].Add(nPosition);
                break;
            case SFlowStep::Other:
                break;
            }
            nPosition += 2;
        }
    }

    void AddToHull(const SWord& word, uint32_t nPosition)
    {
        if (word.eKind == SWord::Register)
        {
            m_Live.vHulls[word.nId].Add(nPosition);
        }
    }

    void Use(const SWord& word, unsigned nBlock, uint32_t nPosition)
    {
        if (word.eKind == SWord::Register && !m_Code.machine.Registers()[word.nId].bPinned)
        {
            m_vUses.push_back({word.nId, nBlock, nPosition});
        }
    }

    void Collect()
    {
        std::vector<unsigned> vEdgesFrom(m_Code.machine.Blocks().size(), 0);
        for (const SEdge& edge : m_Code.vEdges)
        {
            ++vEdgesFrom[edge.nFrom];
        }
        for (unsigned nEdge = 0; nEdge < m_Code.vEdges.size(); ++nEdge)
        {
            const SEdge& edge = m_Code.vEdges[nEdge];
            for (size_t n = 0; n < edge.to.size(); ++n)
            {
                const uint32_t nTo = edge.to[n].nId;
                m_vCandidate[nTo] = true;
                m_Live.vSpans[nTo].push_back({CopyReads(edge.nFrom) + 1, End(edge.nFrom)});
                m_Live.vHulls[nTo].Add(m_vEdgePositions[nEdge] + 1);
                AddToHull(edge.from[n], m_vEdgePositions[nEdge]);
                if (edge.from[n].eKind == SWord::Register)
                {
                    m_vCandidate[edge.from[n].nId] = true;
                }
                // The copies of a switch's edges may follow each other, so that one edge reads after another one has
                // written.
                const bool bAlone = vEdgesFrom[edge.nFrom] == 1;
                Use(edge.from[n], edge.nFrom, bAlone ? CopyReads(edge.nFrom) : End(edge.nFrom));
            }
        }
        for (unsigned nBlock = 0; nBlock < m_Code.machine.Blocks().size(); ++nBlock)
        {
            CollectBlock(nBlock);
        }
    }

    void CollectBlock(unsigned nBlock)
    {
        uint32_t nPosition = m_vStarts[nBlock] + 2;
        for (const SInstruction& instruction : m_Code.machine.Blocks()[nBlock])
        {
            for (unsigned n = 0; n < instruction.nSources; ++n)
            {
                const SSource& source = instruction.sources[n];
                for (unsigned i = 0; i < source.words.size(); ++i)
                {
                    if (source.eArrange == EArrange::InOrder || (instruction.nMask & (1u << i)) != 0)
                    {
                        Use(source.words[i], nBlock, nPosition);
                    }
                }
                Use(source.index, nBlock, nPosition);
            }
            if (instruction.nDestination != s_nNoRegister)
            {
                // A load of several words must not overwrite its own address with the first one.
                const bool bAtOnce = instruction.bLoad && (instruction.nMask & (instruction.nMask - 1)) != 0;
                const uint32_t nAt = nPosition + (bAtOnce ? 0 : 1);
                m_Live.vHulls[instruction.nDestination].Add(nAt);
                m_Live.vHulls[instruction.nDestination].Add(nPosition + 1);
                uint32_t& nFirst = m_vFirstDefinition[instruction.nDestination];
                nFirst = std::min(nFirst, nAt);
                if (m_vCandidate[instruction.nDestination])
                {
                    m_Live.vSpans[instruction.nDestination].push_back({nAt, nPosition + 1});
                }
            }
            nPosition += 2;
        }
        Use(m_Code.vConditions[nBlock].word, nBlock, End(nBlock));
    }

    void Note(uint32_t nRegister, uint32_t nFirst, uint32_t nLast)
    {
        m_Live.vHulls[nRegister].Add(nFirst);
        m_Live.vHulls[nRegister].Add(nLast);
        if (m_vCandidate[nRegister])
        {
            m_Live.vSpans[nRegister].push_back({nFirst, nLast});
        }
    }

    /// Extends the stretches of one register from its uses back to its definitions.
    void Extend(size_t nFirst, size_t nEnd)
    {
        const uint32_t nRegister = m_vUses[nFirst].nRegister;
        const SVirtualRegister& reg = m_Code.machine.Registers()[nRegister];
        const auto nHome = static_cast<unsigned>(reg.nDefiningBlock);
        std::vector<unsigned> vWork;
        for (size_t n = nFirst; n < nEnd; ++n)
        {
            const SUse& use = m_vUses[n];
            if (!reg.bPhi && use.nBlock == nHome)
            {
                Note(nRegister, std::min(m_vFirstDefinition[nRegister], use.nPosition), use.nPosition);
                continue;
            }
            Note(nRegister, m_vStarts[use.nBlock], use.nPosition);
            if (m_vIn[use.nBlock] != nRegister)
            {
                m_vIn[use.nBlock] = nRegister;
                vWork.push_back(use.nBlock);
            }
        }
        while (!vWork.empty())
        {
            const unsigned nBlock = vWork.back();
            vWork.pop_back();
            if (reg.bPhi && nBlock == nHome)
            {
                continue; // a phi gets its value on the edges
            }
            for (const unsigned nFrom : m_Code.vPredecessors[nBlock])
            {
                if (m_vOut[nFrom] == nRegister)
                {
                    continue;
                }
                m_vOut[nFrom] = nRegister;
                if (!reg.bPhi && nFrom == nHome)
                {
                    Note(nRegister, m_vFirstDefinition[nRegister], End(nFrom));
                    continue;
                }
                Note(nRegister, m_vStarts[nFrom], End(nFrom));
                if (m_vIn[nFrom] != nRegister)
                {
                    m_vIn[nFrom] = nRegister;
                    vWork.push_back(nFrom);
                }
            }
        }
    }

    static void Normalize(Spans& spans)
    {
        if (spans.size() < 2)
        {
            return;
        }
        std::sort(spans.begin(), spans.end(), [](const SSpan& a, const SSpan& b) { return a.nFirst < b.nFirst; });
        Spans merged;
        for (const SSpan& span : spans)
        {
            if (!merged.empty() && span.nFirst <= merged.back().nLast)
            {
                merged.back().nLast = std::max(merged.back().nLast, span.nLast);
            }
            else
            {
                merged.push_back(span);
            }
        }
        spans = std::move(merged);
    }

    const SKernelCode& m_Code;
    const std::vector<SFlowStep>& m_vSteps;
    SLiveness m_Live;
    std::vector<uint32_t> m_vStarts;
    std::vector<uint32_t> m_vEdgePositions;
    std::vector<bool> m_vCandidate;
    std::vector<uint32_t> m_vFirstDefinition;
    std::vector<SUse> m_vUses;
    std::vector<uint32_t> m_vIn; ///< by block: the register that was last found to live at its start
    std::vector<uint32_t> m_vOut;
};

} // namespace

bool Meet(const Spans& a, const Spans& b, llvm::function_ref<bool(const SSpan&)> counts)
{
    // One list may be much longer; of that one only stretches near those of the short list are looked at.
    const Spans& rare = a.size() < b.size() ? a : b;
    const Spans& many = a.size() < b.size() ? b : a;
    for (const SSpan& span : rare)
    {
        auto it = std::lower_bound(many.begin(), many.end(), span.nFirst,
                                   [](const SSpan& other, uint32_t nFirst) { return other.nLast < nFirst; });
        for (; it != many.end() && it->nFirst <= span.nLast; ++it)
        {
            if (counts({std::max(it->nFirst, span.nFirst), std::min(it->nLast, span.nLast)}))
            {
                return true;
            }
        }
    }
    return false;
}

void Unite(Spans& spans, const Spans& others)
{
    for (const SSpan& span : others)
    {
        const auto itFirst = std::lower_bound(spans.begin(), spans.end(), span.nFirst,
                                              [](const SSpan& has, uint32_t nFirst) { return has.nLast < nFirst; });
        const auto itEnd = std::upper_bound(itFirst, spans.end(), span.nLast,
                                            [](uint32_t nLast, const SSpan& has) { return nLast < has.nFirst; });
        if (itFirst == itEnd)
        {
            spans.insert(itFirst, span);
            continue;
        }
        itFirst->nFirst = std::min(itFirst->nFirst, span.nFirst);
        itFirst->nLast = std::max(std::prev(itEnd)->nLast, span.nLast);
        spans.erase(std::next(itFirst), itEnd);
    }
}

SLiveness FindLiveness(const SKernelCode& code, const std::vector<SFlowStep>& vSteps, unsigned nGuards)
{
    return CLiveness(code, vSteps, nGuards).Run();
}

} // namespace KestrelOpenCL

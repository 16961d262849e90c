#include "platform/opencl_c/lowering/Cleanup.h"

#include <algorithm>

namespace KestrelOpenCL
{
namespace
{

const unsigned s_nMaxPasses = 8; ///< that look for unread results; more would not find cycles that only read themselves

/// Calls a function with a reference to each word of a source that is read.
template <class TSource, class TFunction>
void ForEachRead(const SInstruction& instruction, TSource& source, TFunction function)
{
    for (unsigned n = 0; n < s_nComponents; ++n)
    {
        const bool bRead = source.eArrange == EArrange::InOrder || (instruction.nMask & (1u << n)) != 0;
        if (bRead && source.words[n].eKind != SWord::Undefined)
        {
            function(source.words[n]);
        }
    }
}

/// Replaces reads of copies by reads of the original, within each block.
class CCopyPropagation
{
public:
    explicit CCopyPropagation(SKernelCode& code) : m_Code(code), m_vRegisters(code.machine.Registers().size())
    {
        m_vEdgesFrom.resize(code.machine.Blocks().size());
        for (SEdge& edge : code.vEdges)
        {
            m_vEdgesFrom[edge.nFrom].push_back(&edge);
        }
    }

    void Run()
    {
        for (unsigned nBlock = 0; nBlock < m_Code.machine.Blocks().size(); ++nBlock)
        {
            ++m_nPiece;
            for (SInstruction& instruction : m_Code.machine.Blocks()[nBlock])
            {
                Visit(instruction);
            }
            m_Code.vConditions[nBlock].word = Origin(m_Code.vConditions[nBlock].word);
            for (SEdge* const pEdge : m_vEdgesFrom[nBlock])
            {
                std::transform(pEdge->from.begin(), pEdge->from.end(), pEdge->from.begin(),
                               [this](const SWord& word) { return Origin(word); });
            }
        }
    }

private:
    struct SCopy
    {
        SWord from;
        uint32_t nPiece = 0;
        uint32_t nFromWrites = 0;
    };
    struct SRegister
    {
        SCopy copies[s_nComponents];
        uint32_t nWrites[s_nComponents] = {};
    };

    SWord Origin(const SWord& word) const
    {
        if (word.eKind != SWord::Register)
        {
            return word;
        }
        const SCopy& copy = m_vRegisters[word.nId].copies[word.nComponent];
        if (copy.nPiece != m_nPiece)
        {
            return word;
        }
        const bool bSame = copy.from.eKind != SWord::Register ||
                           m_vRegisters[copy.from.nId].nWrites[copy.from.nComponent] == copy.nFromWrites;
        return bSame ? copy.from : word;
    }

    /// Replaces all words of a source or none, as they have to be of one register.
    void Replace(const SInstruction& instruction, SSource& source) const
    {
        if (source.index.eKind != SWord::Undefined)
        {
            const SWord index = Origin(source.index);
            source.index = index.eKind == SWord::Register ? index : source.index;
            return;
        }
        SSource replaced = source;
        SWord first;
        bool bJoins = true;
        ForEachRead(instruction, replaced,
                    [&](SWord& word)
                    {
                        word = Origin(word);
                        if (word.IsLiteral(0))
                        {
                            return;
                        }
                        first = first.eKind == SWord::Undefined ? word : first;
                        bJoins = bJoins && word.eKind == first.eKind &&
                                 (word.nId == first.nId || word.eKind == SWord::Literal);
                    });
        source = bJoins ? replaced : source;
    }

    void Visit(SInstruction& instruction)
    {
        m_nPiece += instruction.bControl ? 1 : 0;
        for (unsigned n = 0; n < instruction.nSources; ++n)
        {
            Replace(instruction, instruction.sources[n]);
        }
        if (instruction.nDestination == s_nNoRegister)
        {
            return;
        }
        SRegister& reg = m_vRegisters[instruction.nDestination];
        for (unsigned n = 0; n < s_nComponents; ++n)
        {
            if ((instruction.nMask & (1u << n)) == 0)
            {
                continue;
            }
            ++reg.nWrites[n];
            reg.copies[n].nPiece = 0;
            const SSource& source = instruction.sources[0];
            if (!instruction.bMove || source.index.eKind != SWord::Undefined ||
                source.words[n].eKind == SWord::Undefined ||
                (source.words[n].eKind == SWord::Register && source.words[n].nId == instruction.nDestination))
            {
                continue;
            }
            // A variable with registers of its own is read from them, so that its value can be computed there directly.
            const SWord& from = source.words[n];
            if (from.eKind == SWord::Register && m_Code.machine.Registers()[instruction.nDestination].bPinned &&
                !m_Code.machine.Registers()[from.nId].bPinned)
            {
                continue;
            }
            reg.copies[n] = {from, m_nPiece,
                             from.eKind == SWord::Register ? m_vRegisters[from.nId].nWrites[from.nComponent] : 0};
        }
    }

    SKernelCode& m_Code;
    std::vector<SRegister> m_vRegisters;
    std::vector<llvm::SmallVector<SEdge*, 2>> m_vEdgesFrom;
    uint32_t m_nPiece = 0;
};

/// How often each component of each register is read.
class CReads
{
public:
    explicit CReads(SKernelCode& code) : m_Code(code), m_vCounts(code.machine.Registers().size() * s_nComponents, 0)
    {
        for (const std::vector<SInstruction>& vBlock : code.machine.Blocks())
        {
            for (const SInstruction& instruction : vBlock)
            {
                Count(instruction, 1);
            }
        }
        for (const SCondition& condition : code.vConditions)
        {
            Count(condition.word, 1);
        }
        for (const SEdge& edge : code.vEdges)
        {
            std::for_each(edge.from.begin(), edge.from.end(), [this](const SWord& word) { Count(word, 1); });
        }
    }

    void Count(const SWord& word, int nBy)
    {
        if (word.eKind == SWord::Register)
        {
            m_vCounts[word.nId * s_nComponents + word.nComponent] += nBy;
        }
    }

    void Count(const SInstruction& instruction, int nBy)
    {
        for (unsigned n = 0; n < instruction.nSources; ++n)
        {
            const SSource& source = instruction.sources[n];
            ForEachRead(instruction, source, [&](const SWord& word) { Count(word, nBy); });
            Count(source.index, nBy);
        }
    }

    int Get(uint32_t nRegister, unsigned nComponent) const { return m_vCounts[nRegister * s_nComponents + nComponent]; }

    /// The components of a mask that are read, or kept for a debugger.
    unsigned Read(uint32_t nRegister, unsigned nMask) const
    {
        if (m_Code.machine.Registers()[nRegister].bPinned)
        {
            return nMask;
        }
        unsigned nRead = 0;
        for (unsigned n = 0; n < s_nComponents; ++n)
        {
            nRead |= Get(nRegister, n) != 0 ? 1u << n : 0;
        }
        return nRead & nMask;
    }

private:
    SKernelCode& m_Code;
    std::vector<int> m_vCounts;
};

/// Removes results that nobody reads, from the end backwards.
class CUnread
{
public:
    CUnread(SKernelCode& code, CReads& reads) : m_Code(code), m_Reads(reads) {}

    void Run()
    {
        for (unsigned nPass = 0; nPass < s_nMaxPasses && Pass(); ++nPass)
        {
        }
    }

private:
    bool Pass()
    {
        bool bChanged = false;
        for (SEdge& edge : m_Code.vEdges)
        {
            for (size_t n = edge.to.size(); n-- > 0;)
            {
                if (m_Reads.Read(edge.to[n].nId, 1u << edge.to[n].nComponent) == 0)
                {
                    m_Reads.Count(edge.from[n], -1);
                    edge.to.erase(edge.to.begin() + static_cast<std::ptrdiff_t>(n));
                    edge.from.erase(edge.from.begin() + static_cast<std::ptrdiff_t>(n));
                    bChanged = true;
                }
            }
        }
        std::vector<std::vector<SInstruction>>& vBlocks = m_Code.machine.Blocks();
        for (auto itBlock = vBlocks.rbegin(); itBlock != vBlocks.rend(); ++itBlock)
        {
            bool bRemoved = false;
            for (auto it = itBlock->rbegin(); it != itBlock->rend(); ++it)
            {
                bRemoved = Narrow(*it) || bRemoved;
            }
            if (bRemoved)
            {
                bChanged = true;
                itBlock->erase(std::remove_if(itBlock->begin(), itBlock->end(),
                                              [](const SInstruction& instruction)
                                              { return !instruction.bKeep && instruction.nMask == 0; }),
                               itBlock->end());
            }
        }
        return bChanged;
    }

    /// Reduces the mask to components that are read. \return whether the whole instruction is removed
    bool Narrow(SInstruction& instruction)
    {
        if (instruction.bKeep || instruction.nDestination == s_nNoRegister || instruction.nMask == 0)
        {
            return false;
        }
        unsigned nRead = m_Reads.Read(instruction.nDestination, instruction.nMask);
        if (nRead != 0 && instruction.bWhole)
        {
            return false;
        }
        if (instruction.bLoad)
        {
            // A load's words are consecutive, so those before a read one stay too.
            nRead |= nRead >> 1;
            nRead |= nRead >> 2;
            nRead &= instruction.nMask;
        }
        if (instruction.bPairs)
        {
            nRead |= ((nRead & 0x5) << 1) | ((nRead & 0xA) >> 1);
        }
        if (nRead == instruction.nMask)
        {
            return false;
        }
        m_Reads.Count(instruction, -1);
        instruction.nMask = static_cast<uint8_t>(nRead);
        if (nRead != 0)
        {
            m_Reads.Count(instruction, 1);
        }
        return nRead == 0;
    }

    SKernelCode& m_Code;
    CReads& m_Reads;
};

/// Lets an instruction write directly to a register if its result is only copied there.
class CDirectWrites
{
public:
    CDirectWrites(SKernelCode& code, CReads& reads)
        : m_Code(code), m_Reads(reads), m_vStates(code.machine.Registers().size())
    {
    }

    void Run()
    {
        for (std::vector<SInstruction>& vBlock : m_Code.machine.Blocks())
        {
            ++m_nBlock;
            m_nControl = -1;
            bool bChanged = false;
            for (size_t n = 0; n < vBlock.size(); ++n)
            {
                bChanged = Visit(vBlock, static_cast<int>(n)) || bChanged;
            }
            if (bChanged)
            {
                vBlock.erase(std::remove_if(vBlock.begin(), vBlock.end(),
                                            [](const SInstruction& instruction)
                                            { return instruction.bMove && instruction.nMask == 0; }),
                             vBlock.end());
            }
        }
    }

private:
    /// The state of a register at the current place in the block.
    struct SState
    {
        unsigned nBlock = 0;
        int nWriter = -1;                                   ///< the instruction that writes it
        unsigned nWriters = 0;                              ///< how many instructions write it
        int nLastTouched[s_nComponents] = {-1, -1, -1, -1}; ///< by a read or a write
    };

    SState& State(uint32_t nRegister)
    {
        SState& state = m_vStates[nRegister];
        if (state.nBlock != m_nBlock)
        {
            state = SState();
            state.nBlock = m_nBlock;
        }
        return state;
    }

    void Touch(const SWord& word, int nAt)
    {
        if (word.eKind == SWord::Register)
        {
            State(word.nId).nLastTouched[word.nComponent] = nAt;
        }
    }

    void TouchMask(SState& state, unsigned nMask, int nAt)
    {
        for (unsigned n = 0; n < s_nComponents; ++n)
        {
            state.nLastTouched[n] = (nMask & (1u << n)) != 0 ? nAt : state.nLastTouched[n];
        }
    }

    static bool IsTouchedAfter(const SState& state, unsigned nMask, int nAt)
    {
        bool bTouched = false;
        for (unsigned n = 0; n < s_nComponents; ++n)
        {
            bTouched = bTouched || ((nMask & (1u << n)) != 0 && state.nLastTouched[n] > nAt);
        }
        return bTouched;
    }

    bool Visit(std::vector<SInstruction>& vBlock, int nAt)
    {
        SInstruction& instruction = vBlock[static_cast<size_t>(nAt)];
        m_nControl = instruction.bControl ? nAt : m_nControl;
        if (Retarget(vBlock, nAt))
        {
            return true;
        }
        for (unsigned n = 0; n < instruction.nSources; ++n)
        {
            ForEachRead(instruction, instruction.sources[n], [&](const SWord& word) { Touch(word, nAt); });
            Touch(instruction.sources[n].index, nAt);
        }
        if (instruction.nDestination != s_nNoRegister)
        {
            SState& state = State(instruction.nDestination);
            state.nWriter = nAt;
            ++state.nWriters;
            TouchMask(state, instruction.nMask, nAt);
        }
        return false;
    }

    bool Retarget(std::vector<SInstruction>& vBlock, int nAt)
    {
        SInstruction& move = vBlock[static_cast<size_t>(nAt)];
        if (!move.bMove || move.nDestination == s_nNoRegister || move.sources[0].index.eKind != SWord::Undefined)
        {
            return false;
        }
        // All words come from one register that nobody else reads.
        uint32_t nFrom = s_nNoRegister;
        unsigned nFromMask = 0;
        bool bSame = true;
        for (unsigned n = 0; n < s_nComponents; ++n)
        {
            if ((move.nMask & (1u << n)) == 0)
            {
                continue;
            }
            const SWord& word = move.sources[0].words[n];
            if (word.eKind != SWord::Register || (nFrom != s_nNoRegister && nFrom != word.nId) ||
                m_Reads.Get(word.nId, word.nComponent) != 1)
            {
                return false;
            }
            nFrom = word.nId;
            nFromMask |= 1u << word.nComponent;
            bSame = bSame && word.nComponent == n;
        }
        const SVirtualRegister& from = m_Code.machine.Registers()[nFrom];
        SState& state = State(nFrom);
        if (from.bPinned || from.bPhi || state.nWriters != 1 || state.nWriter <= m_nControl ||
            IsTouchedAfter(State(move.nDestination), move.nMask, state.nWriter))
        {
            return false;
        }
        SInstruction& writer = vBlock[static_cast<size_t>(state.nWriter)];
        if (writer.nMask != nFromMask || (!bSame && !MoveComponent(writer, move)))
        {
            return false;
        }
        writer.nDestination = move.nDestination;
        writer.nMask = move.nMask;
        SState& to = State(move.nDestination);
        TouchMask(to, move.nMask, nAt);
        to.nWriters += 2; // so a copy from it has no single writer
        move.nMask = 0;
        return true;
    }

    /// Moves the result of an instruction with one component to another component.
    static bool MoveComponent(SInstruction& writer, const SInstruction& move)
    {
        const unsigned nMask = writer.nMask;
        if ((nMask & (nMask - 1)) != 0 || (move.nMask & (move.nMask - 1)) != 0 || writer.bPairs)
        {
            return false;
        }
        const unsigned nOld = static_cast<unsigned>(__builtin_ctz(nMask));
        const unsigned nNew = static_cast<unsigned>(__builtin_ctz(move.nMask));
        for (unsigned n = 0; n < writer.nSources; ++n)
        {
            if (writer.sources[n].eArrange == EArrange::ByDestination)
            {
                const SWord word = writer.sources[n].words[nOld];
                writer.sources[n].words = {};
                writer.sources[n].words[nNew] = word;
            }
        }
        return true;
    }

    SKernelCode& m_Code;
    CReads& m_Reads;
    std::vector<SState> m_vStates;
    unsigned m_nBlock = 0;
    int m_nControl = -1;
};

} // namespace

void CleanUp(SKernelCode& code)
{
    CCopyPropagation(code).Run();
    CReads reads(code);
    CUnread(code, reads).Run();
    CDirectWrites(code, reads).Run();
}

} // namespace KestrelOpenCL

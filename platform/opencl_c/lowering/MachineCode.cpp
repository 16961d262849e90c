#include "platform/opencl_c/lowering/MachineCode.h"

#include <algorithm>

namespace KestrelOpenCL
{
namespace
{

/// What all words of one operand must have in common; words of another key need a separate instruction.
struct SKey
{
    enum EKind
    {
        Any,
        Literals,
        Of
    };
    EKind eKind = Any;
    SWord word;

    bool Joins(const SWord& other)
    {
        // 0 fits beside everything: swizzles have a selector for it.
        if (other.eKind == SWord::Undefined || other.IsLiteral(0))
        {
            return true;
        }
        const EKind eOther = other.eKind == SWord::Literal ? Literals : Of;
        if (eKind == Any)
        {
            eKind = eOther;
            word = other;
            return true;
        }
        return eKind == eOther && (eKind == Literals || (word.eKind == other.eKind && word.nId == other.nId));
    }
};

typedef uint32_t (*FoldFunction)(uint32_t, uint32_t);

struct SFold
{
    const char* pszMnemonic;
    FoldFunction pfn;
};

/// The operations that sums of constant addresses consist of; LLVM has folded all others.
const SFold s_Folds[] = {
    {"iadd", [](uint32_t a, uint32_t b) { return a + b; }},
    {"isub", [](uint32_t a, uint32_t b) { return a - b; }},
    {"imul", [](uint32_t a, uint32_t b) { return a * b; }},
    {"iand", [](uint32_t a, uint32_t b) { return a & b; }},
    {"ior", [](uint32_t a, uint32_t b) { return a | b; }},
    {"ishl", [](uint32_t a, uint32_t b) { return a << (b & 31); }},
    {"ushr", [](uint32_t a, uint32_t b) { return a >> (b & 31); }},
};

/// Operations that give the first word unchanged if the second one is 0.
const char* const s_ZeroIsNeutral[] = {"iadd", "ior", "ixor", "isub", "ishl", "ushr", "ishr"};
const char* const s_Commutes[] = {"iadd", "ior", "ixor"};

} // namespace

uint32_t CMachine::NewRegister(unsigned nComponents)
{
    SVirtualRegister reg;
    reg.nComponents = static_cast<uint8_t>(nComponents);
    m_vRegisters.push_back(reg);
    return static_cast<uint32_t>(m_vRegisters.size() - 1);
}

Words CMachine::NewWords(unsigned nCount)
{
    Words words;
    for (unsigned n = 0; n < nCount; n += s_nComponents)
    {
        const unsigned nHere = std::min(s_nComponents, nCount - n);
        const uint32_t nRegister = NewRegister(nHere);
        for (unsigned i = 0; i < nHere; ++i)
        {
            words.push_back({SWord::Register, static_cast<uint8_t>(i), nRegister});
        }
    }
    return words;
}

void CMachine::SetBlock(unsigned nBlock)
{
    m_nBlock = nBlock;
    if (m_vBlocks.size() <= nBlock)
    {
        m_vBlocks.resize(nBlock + 1);
    }
}

uint32_t CMachine::Name(llvm::StringRef text)
{
    const auto inserted = m_mapNames.try_emplace(text, static_cast<uint32_t>(m_vNames.size()));
    if (inserted.second)
    {
        m_vNames.push_back(text.str());
    }
    return inserted.first->second;
}

SWord CMachine::FixedWord(llvm::StringRef name, unsigned nComponent)
{
    return {SWord::Fixed, static_cast<uint8_t>(nComponent), Name(name)};
}

SSource CMachine::Source(llvm::ArrayRef<SWord> words, EArrange eArrange)
{
    SSource source;
    source.eArrange = eArrange;
    std::copy_n(words.begin(), std::min<size_t>(words.size(), s_nComponents), source.words.begin());
    return source;
}

SInstruction CMachine::Make(llvm::StringRef mnemonic) const
{
    SInstruction instruction;
    instruction.nMnemonic = const_cast<CMachine*>(this)->Name(mnemonic);
    instruction.pLocation = m_pLocation;
    return instruction;
}

void CMachine::Add(SInstruction instruction)
{
    if (instruction.nDestination != s_nNoRegister)
    {
        SVirtualRegister& reg = m_vRegisters[instruction.nDestination];
        reg.nDefiningBlock = reg.bPhi || reg.bPinned ? reg.nDefiningBlock : static_cast<int>(m_nBlock);
    }
    m_vBlocks[m_nBlock].push_back(instruction);
}

/// Emits one instruction for all components whose sources come from the same registers, and further ones for the rest.
///
/// \param nUnit number of components that stay together
void CMachine::EmitGroups(llvm::StringRef mnemonic, uint32_t nRegister, unsigned nComponents, unsigned nUnit,
                          llvm::ArrayRef<std::array<SWord, 4>> sources)
{
    unsigned nLeft = (1u << nComponents) - 1;
    while (nLeft != 0)
    {
        SInstruction instruction = Make(mnemonic);
        instruction.nDestination = nRegister;
        instruction.bPairs = nUnit == 2;
        instruction.bMove = mnemonic == "mov";
        instruction.nSources = static_cast<uint8_t>(sources.size());
        SKey keys[SInstruction::s_nMaxSources];
        for (unsigned n = 0; n < nComponents; n += nUnit)
        {
            const unsigned nUnitMask = ((1u << nUnit) - 1) << n;
            if ((nLeft & nUnitMask) == 0)
            {
                continue;
            }
            SKey tried[SInstruction::s_nMaxSources];
            std::copy(std::begin(keys), std::end(keys), std::begin(tried));
            bool bJoins = true;
            for (size_t s = 0; s < sources.size(); ++s)
            {
                for (unsigned i = n; i < n + nUnit; ++i)
                {
                    bJoins = bJoins && tried[s].Joins(sources[s][i]);
                }
            }
            if (!bJoins)
            {
                continue;
            }
            std::copy(std::begin(tried), std::end(tried), std::begin(keys));
            for (size_t s = 0; s < sources.size(); ++s)
            {
                std::copy_n(sources[s].begin() + n, nUnit, instruction.sources[s].words.begin() + n);
            }
            instruction.nMask |= nUnitMask;
            nLeft &= ~nUnitMask;
        }
        Add(instruction);
    }
}

bool CMachine::Fold(llvm::StringRef mnemonic, llvm::ArrayRef<SWord> sources, SWord& result) const
{
    if (sources.size() != 2)
    {
        return false;
    }
    const bool bNeutral = llvm::is_contained(s_ZeroIsNeutral, mnemonic);
    if (bNeutral && sources[1].IsLiteral(0))
    {
        result = sources[0];
        return true;
    }
    if (sources[0].IsLiteral(0) && llvm::is_contained(s_Commutes, mnemonic))
    {
        result = sources[1];
        return true;
    }
    if (sources[0].eKind != SWord::Literal || sources[1].eKind != SWord::Literal)
    {
        return false;
    }
    for (const SFold& fold : s_Folds)
    {
        if (mnemonic == fold.pszMnemonic)
        {
            result = LiteralWord(fold.pfn(sources[0].nId, sources[1].nId));
            return true;
        }
    }
    return false;
}

Words CMachine::Each(llvm::StringRef mnemonic, unsigned nCount, std::initializer_list<llvm::ArrayRef<SWord>> sources)
{
    Words result;
    llvm::SmallVector<SWord, 4> vFold;
    bool bFolded = true;
    for (unsigned n = 0; n < nCount && bFolded; ++n)
    {
        vFold.clear();
        for (const llvm::ArrayRef<SWord>& source : sources)
        {
            vFold.push_back(source[source.size() == 1 ? 0 : n]);
        }
        SWord word;
        bFolded = Fold(mnemonic, vFold, word);
        result.push_back(word);
    }
    if (bFolded)
    {
        return result;
    }
    result.clear();
    for (unsigned n = 0; n < nCount; n += s_nComponents)
    {
        const unsigned nHere = std::min(s_nComponents, nCount - n);
        llvm::SmallVector<std::array<SWord, 4>, 4> vSources;
        for (const llvm::ArrayRef<SWord>& source : sources)
        {
            std::array<SWord, 4> words = {};
            for (unsigned i = 0; i < nHere; ++i)
            {
                words[i] = source[source.size() == 1 ? 0 : n + i];
            }
            vSources.push_back(words);
        }
        const uint32_t nRegister = NewRegister(nHere);
        EmitGroups(mnemonic, nRegister, nHere, 1, vSources);
        for (unsigned i = 0; i < nHere; ++i)
        {
            result.push_back({SWord::Register, static_cast<uint8_t>(i), nRegister});
        }
    }
    return result;
}

SWord CMachine::One(llvm::StringRef mnemonic, std::initializer_list<SWord> sources)
{
    const SWord* const p = sources.begin();
    switch (sources.size())
    {
    case 1:
        return Each(mnemonic, 1, {p[0]})[0];
    case 2:
        return Each(mnemonic, 1, {p[0], p[1]})[0];
    case 3:
        return Each(mnemonic, 1, {p[0], p[1], p[2]})[0];
    default:
        return Each(mnemonic, 1, {p[0], p[1], p[2], p[3]})[0];
    }
}

Words CMachine::Pairs(llvm::StringRef mnemonic, unsigned nPairs, std::initializer_list<llvm::ArrayRef<SWord>> sources)
{
    Words result;
    for (unsigned n = 0; n < nPairs; n += 2)
    {
        const unsigned nHere = std::min(2u, nPairs - n);
        llvm::SmallVector<std::array<SWord, 4>, 4> vSources;
        for (const llvm::ArrayRef<SWord>& source : sources)
        {
            std::array<SWord, 4> words = {};
            for (unsigned i = 0; i < nHere * 2; ++i)
            {
                const unsigned nPair = n + i / 2;
                words[i] = source.size() == 1            ? source[0]
                           : source.size() == nPairs * 2 ? source[nPair * 2 + i % 2]
                                                         : source[nPair];
            }
            vSources.push_back(words);
        }
        // A pair is read as a whole, so both words have to be of one register.
        for (std::array<SWord, 4>& words : vSources)
        {
            for (unsigned i = 0; i < nHere * 2; i += 2)
            {
                SKey key;
                if (!key.Joins(words[i]) || !key.Joins(words[i + 1]))
                {
                    const Words gathered = Gather({words[i], words[i + 1]});
                    words[i] = gathered[0];
                    words[i + 1] = gathered[1];
                }
            }
        }
        const uint32_t nRegister = NewRegister(nHere * 2);
        EmitGroups(mnemonic, nRegister, nHere * 2, 2, vSources);
        for (unsigned i = 0; i < nHere * 2; ++i)
        {
            result.push_back({SWord::Register, static_cast<uint8_t>(i), nRegister});
        }
    }
    return result;
}

SWord CMachine::FromPair(llvm::StringRef mnemonic, llvm::ArrayRef<SWord> pair)
{
    const Words words = Gather(pair);
    SInstruction instruction = Make(mnemonic);
    instruction.nDestination = NewRegister(1);
    instruction.nMask = 1;
    instruction.nSources = 1;
    instruction.sources[0] = Source({words[0], words[1], words[0], words[1]});
    Add(instruction);
    return {SWord::Register, 0, instruction.nDestination};
}

Words CMachine::ToPair(llvm::StringRef mnemonic, SWord word)
{
    SInstruction instruction = Make(mnemonic);
    instruction.nDestination = NewRegister(2);
    instruction.nMask = 3;
    instruction.bPairs = true;
    instruction.nSources = 1;
    instruction.sources[0] = Source({word, word, word, word});
    Add(instruction);
    return {{SWord::Register, 0, instruction.nDestination}, {SWord::Register, 1, instruction.nDestination}};
}

Words CMachine::Gather(llvm::ArrayRef<SWord> words)
{
    SKey key;
    if (llvm::all_of(words, [&](const SWord& word) { return key.Joins(word); }))
    {
        return Words(words.begin(), words.end());
    }
    Words result = NewWords(static_cast<unsigned>(words.size()));
    Move(result, words);
    return result;
}

void CMachine::Hold(SWord word)
{
    if (word.eKind != SWord::Register)
    {
        return;
    }
    SInstruction hold = Make("");
    hold.bKeep = true;
    hold.nSources = 1;
    hold.sources[0] = Source({word});
    Add(hold);
}

/// Makes a move, still without a destination, of those components of a mask that come from one register. Removes them
/// from the mask.
SInstruction CMachine::MakeMove(const std::array<SWord, s_nComponents>& sources, unsigned& nLeft) const
{
    SInstruction instruction = Make("mov");
    instruction.nSources = 1;
    SKey key;
    for (unsigned n = 0; n < s_nComponents; ++n)
    {
        if ((nLeft & (1u << n)) != 0 && key.Joins(sources[n]))
        {
            instruction.nMask |= 1u << n;
            instruction.sources[0].words[n] = sources[n];
        }
    }
    nLeft &= ~instruction.nMask;
    return instruction;
}

void CMachine::MoveToArray(uint32_t nArray, SWord index, uint32_t nDistance,
                           const std::array<SWord, s_nComponents>& values)
{
    unsigned nLeft = 0;
    for (unsigned n = 0; n < s_nComponents; ++n)
    {
        nLeft |= values[n].eKind != SWord::Undefined ? 1u << n : 0;
    }
    while (nLeft != 0)
    {
        SInstruction instruction = MakeMove(values, nLeft);
        instruction.bKeep = true;
        instruction.nArray = nArray;
        if (index.eKind == SWord::Register)
        {
            instruction.nSources = 2;
            instruction.sources[1].index = index;
            instruction.sources[1].nImmediate = nDistance;
        }
        Add(instruction);
    }
}

/// Both have the same number of words; the words of each destination register are consecutive.
void CMachine::Move(llvm::ArrayRef<SWord> to, llvm::ArrayRef<SWord> from)
{
    for (size_t n = 0; n < to.size();)
    {
        const uint32_t nRegister = to[n].nId;
        std::array<SWord, 4> sources = {};
        unsigned nMask = 0;
        for (; n < to.size() && to[n].nId == nRegister && (nMask & (1u << to[n].nComponent)) == 0; ++n)
        {
            sources[to[n].nComponent] = from[n];
            nMask |= 1u << to[n].nComponent;
        }
        // Moves groups of components that share a source register.
        while (nMask != 0)
        {
            SInstruction instruction = MakeMove(sources, nMask);
            instruction.bMove = true;
            instruction.nDestination = nRegister;
            Add(instruction);
        }
    }
}

} // namespace KestrelOpenCL

#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"

namespace KestrelOpenCL
{
namespace
{

const unsigned s_nAccessWords = 4; ///< of one load or store

struct SSmallRow
{
    unsigned nBytes;
    bool bSigned;
    const char* pszUavLoad;
    const char* pszLocalLoad;
    const char* pszUavStore;
    const char* pszLocalStore;
};

const SSmallRow s_SmallRows[] = {
    {1, false, "uav_ubyte_load", "lds_load_ubyte", "uav_byte_store", "lds_store_byte"},
    {1, true, "uav_byte_load", "lds_load_byte", "uav_byte_store", "lds_store_byte"},
    {2, false, "uav_ushort_load", "lds_load_ushort", "uav_short_store", "lds_store_short"},
    {2, true, "uav_short_load", "lds_load_short", "uav_short_store", "lds_store_short"},
};

const SSmallRow& FindSmall(unsigned nBytes, bool bSigned)
{
    for (const SSmallRow& row : s_SmallRows)
    {
        if (row.nBytes == nBytes && row.bSigned == bSigned)
        {
            return row;
        }
    }
    return s_SmallRows[0];
}

} // namespace

std::string CSelector::Mnemonic(const SPlace& place, const char* pszUav, const char* pszLocal) const
{
    if (place.nSpace == SpaceLocal)
    {
        return std::string(pszLocal) + "_id(" + std::to_string(s_nLocalId) + ")";
    }
    if (place.nSpace == SpacePrivate)
    {
        return std::string(pszUav) + "_id(" + std::to_string(s_nPrivateUav) + ")";
    }
    return std::string(pszUav) + "_id(" + std::to_string(place.nUav) + ")" +
           (m_Target.b64BitAddresses ? "_addr64" : "");
}

/// Emits control flow within the translation of one LLVM instruction.
void CSelector::Control(const char* pszMnemonic, const SWord* pCondition)
{
    SInstruction instruction = m_Machine.Make(pszMnemonic);
    instruction.bKeep = true;
    instruction.bControl = true;
    if (pCondition != nullptr)
    {
        instruction.nSources = 1;
        instruction.sources[0] = CMachine::Source({*pCondition});
    }
    m_Machine.Add(instruction);
}

/// Loads from the program's constants: element n of their buffer holds the words n to n + 3, so that one instruction
/// loads any aligned word and those after it.
Words CSelector::LoadInline(const SPlace& place, unsigned nCount)
{
    const SWord address = place.address[0];
    if (place.nAlignment < 4 && !(address.eKind == SWord::Literal && address.nId % 4 == 0))
    {
        return LoadInlineBetween(place, nCount);
    }
    const std::string strBuffer = "cb" + std::to_string(KestrelPlatform::s_nConstantsBuffer);
    Words words;
    if (address.eKind == SWord::Literal)
    {
        for (unsigned n = 0; n < nCount; ++n)
        {
            words.push_back(m_Machine.FixedWord(strBuffer + "[" + std::to_string(address.nId / 4) + "]", n));
        }
        return words;
    }
    SInstruction load = m_Machine.Make("mov");
    load.nSources = 1;
    load.nDestination = m_Machine.NewRegister(nCount);
    load.nMask = static_cast<uint8_t>((1u << nCount) - 1);
    const SWord index = m_Machine.One("ushr", {address, LiteralWord(2)});
    for (unsigned n = 0; n < nCount; ++n)
    {
        load.sources[0].words[n] = m_Machine.FixedWord(strBuffer, n);
        words.push_back({SWord::Register, static_cast<uint8_t>(n), load.nDestination});
    }
    load.sources[0].index = index;
    m_Machine.Add(load);
    return words;
}

/// The same for an address that needn't be aligned: puts the words together from those around it.
Words CSelector::LoadInlineBetween(const SPlace& place, unsigned nCount)
{
    m_Storage.KeepWordAfterConstants();
    SPlace aligned = place;
    aligned.nAlignment = 4;
    const SWord low = place.address[0];
    aligned.address[0] = low.eKind == SWord::Literal ? LiteralWord(low.nId & ~3u) : low;
    Words around = LoadInline(aligned, std::min(nCount + 1, s_nAccessWords));
    if (nCount == s_nAccessWords)
    {
        aligned.address = AddOffset(aligned.address, uint64_t{nCount} * 4);
        around.push_back(LoadInline(aligned, 1)[0]);
    }
    Words words;
    for (unsigned n = 0; n < nCount; ++n)
    {
        words.push_back(m_Machine.One("bytealign", {around[n + 1], around[n], low}));
    }
    return words;
}

/// Loads from a place that may be among the program's constants or in a buffer, which is found out at run time.
Words CSelector::LoadEither(const SPlace& place, unsigned nCount, llvm::function_ref<Words(const SPlace&)> load)
{
    SPlace known = place;
    known.bUnknown = false;
    Words result = m_Machine.NewWords(nCount);
    const SWord low = m_Machine.One("ult", {place.address[0], LiteralWord(0x10000)});
    const SWord isInline = place.address.size() == 1
                               ? low
                               : m_Machine.One("iand", {low, m_Machine.One("ieq", {place.address[1], LiteralWord(0)})});
    Control("if_logicalnz", &isInline);
    known.bInline = true;
    m_Machine.Move(result, load(known));
    Control("else");
    known.bInline = false;
    m_Machine.Move(result, load(known));
    Control("endif");
    return result;
}

/// Loads up to four consecutive words.
Words CSelector::LoadRaw(const SPlace& place, unsigned nCount)
{
    if (place.pArray != nullptr)
    {
        return LoadArray(place, nCount);
    }
    if (place.bInline)
    {
        return LoadInline(place, nCount);
    }
    if (place.bUnknown)
    {
        return LoadEither(place, nCount, [&](const SPlace& here) { return LoadRaw(here, nCount); });
    }
    SInstruction load = m_Machine.Make(Mnemonic(place, "uav_raw_load", "lds_load"));
    load.bLoad = true;
    load.nSources = 1;
    load.sources[0] = CMachine::Source(m_Machine.Gather(place.address));
    load.nDestination = m_Machine.NewRegister(nCount);
    load.nMask = static_cast<uint8_t>((1u << nCount) - 1);
    m_Machine.Add(load);
    Words words;
    for (unsigned n = 0; n < nCount; ++n)
    {
        words.push_back({SWord::Register, static_cast<uint8_t>(n), load.nDestination});
    }
    return words;
}

Words CSelector::LoadWords(const SPlace& place, uint64_t nOffset, unsigned nCount)
{
    Words words;
    for (unsigned n = 0; n < nCount; n += s_nAccessWords)
    {
        const Words some = LoadRaw(Advance(place, nOffset + n * 4), std::min(s_nAccessWords, nCount - n));
        words.append(some.begin(), some.end());
    }
    return words;
}

/// Loads one or two bytes, extended by sign or zeros.
SWord CSelector::LoadSmall(const SPlace& place, uint64_t nOffset, unsigned nBytes, bool bSigned)
{
    const SPlace here = Advance(place, nOffset);
    if (here.bUnknown)
    {
        return LoadEither(here, 1, [&](const SPlace& one) { return Words{LoadSmall(one, 0, nBytes, bSigned)}; })[0];
    }
    if (here.bInline)
    {
        SPlace aligned = here;
        const SWord low = here.address[0];
        SWord moved;
        if (here.nAlignment < nBytes)
        {
            moved = LoadInline(here, 1)[0];
        }
        else
        {
            aligned.nAlignment = 4;
            aligned.address[0] = m_Machine.One("iand", {low, LiteralWord(~3u)});
            const SWord bits = m_Machine.One("ishl", {m_Machine.One("iand", {low, LiteralWord(3)}), LiteralWord(3)});
            moved = m_Machine.One("ushr", {LoadInline(aligned, 1)[0], bits});
        }
        return bSigned ? m_Machine.One("ibit_extract", {LiteralWord(nBytes * 8), LiteralWord(0), moved})
                       : m_Machine.One("iand", {moved, LiteralWord((1u << (nBytes * 8)) - 1)});
    }
    const SSmallRow& row = FindSmall(nBytes, bSigned);
    SInstruction load = m_Machine.Make(Mnemonic(here, row.pszUavLoad, row.pszLocalLoad));
    load.bLoad = true;
    load.nSources = 1;
    load.sources[0] = CMachine::Source(m_Machine.Gather(here.address));
    load.nDestination = m_Machine.NewRegister(1);
    load.nMask = 1;
    m_Machine.Add(load);
    return {SWord::Register, 0, load.nDestination};
}

void CSelector::StoreSmall(const SPlace& place, uint64_t nOffset, unsigned nBytes, SWord word)
{
    const SPlace here = Advance(place, nOffset);
    const SSmallRow& row = FindSmall(nBytes, false);
    SInstruction store = m_Machine.Make(Mnemonic(here, row.pszUavStore, row.pszLocalStore));
    store.bKeep = true;
    store.bMemory = here.nSpace != SpaceLocal;
    store.nMask = 1;
    store.nSources = 2;
    store.sources[0] = CMachine::Source(m_Machine.Gather(here.address));
    store.sources[1] = CMachine::Source({word});
    m_Machine.Add(store);
}

void CSelector::StoreWords(const SPlace& place, uint64_t nOffset, llvm::ArrayRef<SWord> words)
{
    while (!words.empty() && words.back().eKind == SWord::Undefined)
    {
        words = words.drop_back();
    }
    for (size_t n = 0; n < words.size(); n += s_nAccessWords)
    {
        const llvm::ArrayRef<SWord> some = words.slice(n, std::min<size_t>(s_nAccessWords, words.size() - n));
        const SPlace here = Advance(place, nOffset + n * 4);
        if (here.pArray != nullptr)
        {
            StoreArray(here, some);
            continue;
        }
        const bool bVector = here.nSpace == SpaceLocal && some.size() > 1;
        SInstruction store = m_Machine.Make(Mnemonic(here, "uav_raw_store", bVector ? "lds_store_vec" : "lds_store"));
        store.bKeep = true;
        store.bMemory = here.nSpace != SpaceLocal || bVector;
        store.nMask = static_cast<uint8_t>((1u << some.size()) - 1);
        store.sources[store.nSources++] = CMachine::Source(m_Machine.Gather(here.address));
        if (bVector)
        {
            store.sources[store.nSources++] = CMachine::Source({LiteralWord(0)});
        }
        store.sources[store.nSources++] = CMachine::Source(m_Machine.Gather(some));
        m_Machine.Add(store);
    }
}

namespace
{

/// How many leaves of less than four bytes follow each other without a gap.
size_t CountSmallRun(llvm::ArrayRef<SLeaf> leaves, size_t nFirst)
{
    size_t n = nFirst;
    uint64_t nEnd = leaves[n].nOffset;
    while (n < leaves.size() && leaves[n].nBytes == leaves[nFirst].nBytes && leaves[n].nBytes < 3 &&
           leaves[n].nOffset == nEnd)
    {
        nEnd += leaves[n].nBytes;
        ++n;
    }
    return n - nFirst;
}

bool IsBit(const SLeaf& leaf)
{
    return leaf.pType->isIntegerTy(1);
}

} // namespace

Words CSelector::LoadBytes(const SPlace& place, uint64_t nBytes)
{
    Words words = LoadWords(place, 0, static_cast<unsigned>(nBytes / 4));
    uint64_t n = nBytes / 4 * 4;
    if (n == nBytes)
    {
        return words;
    }
    SWord last = LiteralWord(0);
    for (unsigned nShift = 0; n < nBytes;)
    {
        const unsigned nHere = nBytes - n >= 2 ? 2 : 1;
        const SWord part = LoadSmall(place, n, nHere, false);
        last = m_Machine.One("ior", {last, m_Machine.One("ishl", {part, LiteralWord(nShift)})});
        nShift += nHere * 8;
        n += nHere;
    }
    words.push_back(last);
    return words;
}

Words CSelector::LoadValue(const SPlace& place, Type* pType, bool bSigned)
{
    const llvm::SmallVector<SLeaf, 8> vLeaves = m_Types.GetLeaves(pType);
    Words words;
    for (size_t n = 0; n < vLeaves.size();)
    {
        const SLeaf& leaf = vLeaves[n];
        if (leaf.nBytes == 4 || leaf.nBytes == 8)
        {
            // As many consecutive words at once as possible.
            size_t nEnd = n;
            unsigned nWords = 0;
            const bool bShort = leaf.nWords * 4 < leaf.nBytes;
            while (nEnd < vLeaves.size() && vLeaves[nEnd].nWords * 4 == vLeaves[nEnd].nBytes &&
                   vLeaves[nEnd].nOffset == leaf.nOffset + nWords * 4)
            {
                nWords += vLeaves[nEnd++].nWords;
            }
            const Words some = LoadWords(place, leaf.nOffset, bShort ? leaf.nWords : nWords);
            words.append(some.begin(), some.end());
            n = bShort ? n + 1 : nEnd;
            continue;
        }
        const size_t nRun = CountSmallRun(vLeaves, n);
        const size_t nPerWord = leaf.nBytes < 3 ? 4 / leaf.nBytes : 1;
        if (nRun >= nPerWord && leaf.nBytes < 3)
        {
            const size_t nWhole = nRun / nPerWord;
            const Words some = LoadWords(place, leaf.nOffset, static_cast<unsigned>(nWhole));
            for (size_t i = 0; i < nWhole * nPerWord; ++i)
            {
                const auto nBits = static_cast<uint32_t>(leaf.nBytes * 8);
                const auto nShift = static_cast<uint32_t>(i % nPerWord) * nBits;
                const SWord left = bSigned
                                       ? m_Machine.One("ishl", {some[i / nPerWord], LiteralWord(32 - nBits - nShift)})
                                       : some[i / nPerWord];
                const SWord bits =
                    m_Machine.One(bSigned ? "ishr" : "ushr", {left, LiteralWord(bSigned ? 32 - nBits : nShift)});
                words.push_back(bSigned || nShift + nBits == 32
                                    ? bits
                                    : m_Machine.One("iand", {bits, LiteralWord((1u << nBits) - 1)}));
            }
            n += nWhole * nPerWord;
            continue;
        }
        if (leaf.nBytes < 3)
        {
            SWord word = LoadSmall(place, leaf.nOffset, static_cast<unsigned>(leaf.nBytes), bSigned);
            if (IsBit(leaf))
            {
                word = m_Machine.One("inegate", {m_Machine.One("iand", {word, LiteralWord(1)})});
            }
            words.push_back(word);
        }
        else
        {
            const Words some = LoadBytes(Advance(place, leaf.nOffset), leaf.nBytes);
            words.append(some.begin(), some.begin() + leaf.nWords);
        }
        ++n;
    }
    return words;
}

void CSelector::StoreValue(const SPlace& place, Type* pType, llvm::ArrayRef<SWord> words)
{
    const llvm::SmallVector<SLeaf, 8> vLeaves = m_Types.GetLeaves(pType);
    Words run; // consecutive words, from nRunStart on
    uint64_t nRunStart = 0;
    const auto Flush = [&]
    {
        StoreWords(place, nRunStart, run);
        run.clear();
    };
    const auto Append = [&](uint64_t nOffset, SWord word)
    {
        if (run.empty() || nRunStart + run.size() * 4 != nOffset)
        {
            Flush();
            nRunStart = nOffset;
        }
        run.push_back(word);
    };
    for (size_t n = 0; n < vLeaves.size();)
    {
        const SLeaf& leaf = vLeaves[n];
        const size_t nRun = CountSmallRun(vLeaves, n);
        const size_t nPerWord = leaf.nBytes < 3 ? 4 / leaf.nBytes : 1;
        if (leaf.nBytes < 3 && nRun >= nPerWord && !IsBit(leaf))
        {
            const auto nBits = static_cast<uint32_t>(leaf.nBytes * 8);
            SWord word = words[leaf.nFirstWord + nPerWord - 1];
            for (size_t i = nPerWord - 1; i-- > 0;)
            {
                word = m_Machine.One("bfi", {LiteralWord((1u << nBits) - 1), words[leaf.nFirstWord + i],
                                             m_Machine.One("ishl", {word, LiteralWord(nBits)})});
            }
            Append(leaf.nOffset, word);
            n += nPerWord;
            continue;
        }
        ++n;
        uint64_t nDone = 0;
        for (unsigned i = 0; i < leaf.nWords && nDone + 4 <= leaf.nBytes; ++i, nDone += 4)
        {
            Append(leaf.nOffset + nDone, words[leaf.nFirstWord + i]);
        }
        for (; nDone + 4 <= leaf.nBytes; nDone += 4)
        {
            Append(leaf.nOffset + nDone, LiteralWord(0)); // the high word of an offset that is stored as a pointer
        }
        for (unsigned nShift = 0; nDone < leaf.nBytes;)
        {
            const unsigned nHere = leaf.nBytes - nDone >= 2 ? 2 : 1;
            SWord word = words[leaf.nFirstWord + nDone / 4];
            word = IsBit(leaf) ? m_Machine.One("iand", {word, LiteralWord(1)})
                               : m_Machine.One("ushr", {word, LiteralWord(nShift)});
            StoreSmall(place, leaf.nOffset + nDone, nHere, word);
            nShift += nHere * 8;
            nDone += nHere;
        }
    }
    Flush();
}

void CSelector::SelectLoad(const llvm::LoadInst& load)
{
    Type* const pType = load.getType();
    if (const SRegisterVariable* pVariable = FindVariable(load.getPointerOperand()))
    {
        const unsigned nWords = m_Types.CountWords(pType);
        const llvm::ArrayRef<SWord> held = llvm::ArrayRef<SWord>(pVariable->words).take_front(nWords);
        if (pVariable->pArgument != nullptr)
        {
            Set(load, Words(held.begin(), held.end()));
            return;
        }
        // The variable may change before this value is used. If it doesn't, cleanup removes the copy.
        const Words copy = m_Machine.NewWords(nWords);
        m_Machine.Move(copy, held);
        Set(load, copy);
        return;
    }
    const bool bSigned =
        m_Types.IsNarrow(pType) && !load.use_empty() &&
        llvm::all_of(load.users(), [](const llvm::User* pUser)
                     { return llvm::isa<llvm::SExtInst>(pUser) || llvm::isa<llvm::SIToFPInst>(pUser); }) &&
        m_Types.CountBits(pType) % 8 == 0 && m_Types.CountBits(pType) <= 16;
    if (bSigned)
    {
        m_setSigned.insert(&load);
    }
    SPlace place = GetPlace(load.getPointerOperand());
    place.nAlignment = static_cast<unsigned>(std::min<uint64_t>(load.getAlign().value(), 4));
    Set(load, LoadValue(place, pType, bSigned));
}

void CSelector::SelectStore(const llvm::StoreInst& store)
{
    const Value* const pValue = store.getValueOperand();
    if (const SRegisterVariable* pVariable = FindVariable(store.getPointerOperand()))
    {
        if (pVariable->pArgument == nullptr)
        {
            const Words words = Get(pValue);
            Words to;
            Words from;
            for (size_t n = 0; n < words.size(); ++n)
            {
                if (words[n].eKind != SWord::Undefined)
                {
                    to.push_back(pVariable->words[n]);
                    from.push_back(words[n]);
                }
            }
            m_Machine.Move(to, from);
        }
        return;
    }
    const SPlace place = GetPlace(store.getPointerOperand());
    StoreValue(place, pValue->getType(), Get(pValue));
}

} // namespace KestrelOpenCL

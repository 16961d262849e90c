#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"
#include "llvm/Support/MathExtras.h"

namespace KestrelOpenCL
{
namespace
{

const uint64_t s_nMaxStraightBytes = 256; ///< longer copies become loops
const uint32_t s_nLoopBytes = 16;         ///< bytes in each pass, when copying words

} // namespace

SPlace CSelector::AdvanceBy(const SPlace& place, SWord offset)
{
    SPlace next = place;
    if (place.pArray != nullptr)
    {
        const SWord step = LiteralWord(llvm::Log2_32(place.pArray->nUnitBytes));
        next.address = {m_Machine.One("iadd", {m_Machine.One("ushr", {offset, step}), place.address[0]})};
        return next;
    }
    next.address = place.address.size() == 1
                       ? Words{m_Machine.One("iadd", {place.address[0], offset})}
                       : m_Machine.Pairs("i64add", 1, {place.address, llvm::ArrayRef<SWord>({offset, LiteralWord(0)})});
    return next;
}

/// A loop within a block: the body runs for the offsets 0, nStep, ... below the end.
///
/// \param kept words that the body reads; they keep their values until the last pass
template <class TBody>
void CSelector::Repeat(SWord end, uint32_t nStep, std::initializer_list<llvm::ArrayRef<SWord>> kept, TBody body)
{
    const Words counter = m_Machine.NewWords(1);
    m_Machine.Move(counter, {LiteralWord(0)});
    Control("whileloop");
    const SWord done = m_Machine.One("uge", {counter[0], end});
    Control("break_logicalnz", &done);
    body(counter[0]);
    SInstruction step = m_Machine.Make("iadd");
    step.nDestination = counter[0].nId;
    step.nMask = 1;
    step.bKeep = true;
    step.nSources = 2;
    step.sources[0].words[0] = counter[0];
    step.sources[1].words[0] = LiteralWord(nStep);
    m_Machine.Add(step);
    Control("endloop");
    for (const llvm::ArrayRef<SWord>& words : kept)
    {
        for (const SWord& word : words)
        {
            m_Machine.Hold(word);
        }
    }
    m_Machine.Hold(end);
    m_Machine.Hold(counter[0]);
}

void CSelector::SelectMemTransfer(const llvm::MemTransferInst& copy)
{
    const SPlace to = GetPlace(copy.getRawDest());
    SPlace from = GetPlace(copy.getRawSource());
    from.nAlignment = static_cast<unsigned>(std::min<uint64_t>(copy.getSourceAlign().valueOrOne().value(), 4));
    const auto* const pLength = llvm::dyn_cast<llvm::ConstantInt>(copy.getLength());
    const bool bMove = llvm::isa<llvm::MemMoveInst>(copy);
    uint64_t nBytes = pLength != nullptr ? pLength->getLimitedValue() : 0;
    uint64_t nDone = 0;
    if (pLength == nullptr || nBytes > s_nMaxStraightBytes)
    {
        if (bMove && to.nSpace == from.nSpace)
        {
            Fail(&copy, "a move of more than 256 bytes, or of a number of them that isn't known, between places that "
                        "may overlap");
            return;
        }
        const bool bWords = pLength != nullptr;
        nDone = nBytes / s_nLoopBytes * s_nLoopBytes;
        const SWord end = bWords ? LiteralWord(static_cast<uint32_t>(nDone)) : GetWord(copy.getLength());
        Repeat(end, bWords ? s_nLoopBytes : 1, {to.address, from.address},
               [&](SWord offset)
               {
                   const SPlace there = AdvanceBy(to, offset);
                   const SPlace here = AdvanceBy(from, offset);
                   if (bWords)
                   {
                       StoreWords(there, 0, LoadWords(here, 0, s_nLoopBytes / 4));
                   }
                   else
                   {
                       StoreSmall(there, 0, 1, LoadSmall(here, 0, 1, false));
                   }
               });
    }
    // The rest, or everything: all reads come before all writes.
    const Words words = LoadWords(from, nDone, static_cast<unsigned>((nBytes - nDone) / 4));
    const uint64_t nWhole = nDone + words.size() * 4;
    llvm::SmallVector<SWord, 4> bytes;
    for (uint64_t n = nWhole; n < nBytes; ++n)
    {
        bytes.push_back(LoadSmall(from, n, 1, false));
    }
    StoreWords(to, nDone, words);
    for (uint64_t n = nWhole; n < nBytes; ++n)
    {
        StoreSmall(to, n, 1, bytes[n - nWhole]);
    }
}

void CSelector::SelectMemSet(const llvm::MemSetInst& set)
{
    const SPlace to = GetPlace(set.getRawDest());
    const auto* const pLength = llvm::dyn_cast<llvm::ConstantInt>(set.getLength());
    const SWord byte = GetWord(set.getValue());
    const SWord pattern =
        byte.eKind == SWord::Undefined ? LiteralWord(0) : m_Machine.One("imul", {byte, LiteralWord(0x01010101)});
    const Words four(4, pattern);
    const uint64_t nBytes = pLength != nullptr ? pLength->getLimitedValue() : 0;
    uint64_t nDone = 0;
    if (pLength == nullptr || nBytes > s_nMaxStraightBytes)
    {
        const bool bWords = pLength != nullptr;
        nDone = nBytes / s_nLoopBytes * s_nLoopBytes;
        const SWord end = bWords ? LiteralWord(static_cast<uint32_t>(nDone)) : GetWord(set.getLength());
        Repeat(end, bWords ? s_nLoopBytes : 1, {to.address, pattern},
               [&](SWord offset)
               {
                   const SPlace there = AdvanceBy(to, offset);
                   bWords ? StoreWords(there, 0, four) : StoreSmall(there, 0, 1, pattern);
               });
    }
    for (; nDone + 4 <= nBytes; nDone += std::min<uint64_t>(16, (nBytes - nDone) / 4 * 4))
    {
        StoreWords(to, nDone, llvm::ArrayRef<SWord>(four).take_front((nBytes - nDone) / 4));
    }
    for (; nDone < nBytes; ++nDone)
    {
        StoreSmall(to, nDone, 1, pattern);
    }
}

} // namespace KestrelOpenCL

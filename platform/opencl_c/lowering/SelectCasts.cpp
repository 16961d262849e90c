#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"

namespace KestrelOpenCL
{
namespace
{

using llvm::Instruction;

/// Whether an extended number is used with both of its words; as an index of an address it isn't.
bool IsReadAsPair(const llvm::CastInst& cast)
{
    return llvm::any_of(cast.users(), [](const llvm::User* pUser)
                        { return !llvm::isa<llvm::TruncInst>(pUser) && !llvm::isa<llvm::GetElementPtrInst>(pUser); });
}

} // namespace

void CSelector::SelectCast(const llvm::CastInst& cast)
{
    switch (cast.getOpcode())
    {
    case Instruction::BitCast:
    case Instruction::AddrSpaceCast:
        return SelectBitCast(cast);
    case Instruction::Trunc:
        return SelectTrunc(cast);
    case Instruction::ZExt:
    case Instruction::SExt:
        return SelectExtend(cast);
    case Instruction::FPToUI:
    case Instruction::FPToSI:
        return SelectFloatToInteger(cast);
    case Instruction::UIToFP:
    case Instruction::SIToFP:
        return SelectIntegerToFloat(cast);
    case Instruction::FPTrunc:
    case Instruction::FPExt:
        return SelectFloatResize(cast);
    case Instruction::PtrToInt:
    case Instruction::IntToPtr:
    {
        Words words = Get(cast.getOperand(0));
        const unsigned nPer = m_Types.CountElementWords(cast.getOperand(0)->getType());
        const unsigned nTo = m_Types.CountElementWords(cast.getType());
        Words result;
        for (size_t n = 0; n < words.size(); n += nPer)
        {
            for (unsigned i = 0; i < nTo; ++i)
            {
                result.push_back(i < nPer ? words[n + i] : LiteralWord(0));
            }
        }
        SetNarrow(cast, result);
        return;
    }
    default:
        Fail(&cast, std::string("no translation of ") + cast.getOpcodeName());
    }
}

/// The bits of a value, as another type of the same size in memory.
Words CSelector::Reinterpret(llvm::ArrayRef<SWord> words, Type* pFrom, Type* pTo)
{
    const unsigned nFrom = m_Types.CountBits(pFrom);
    const unsigned nTo = m_Types.CountBits(pTo);
    if (nFrom == nTo || (nFrom % 32 == 0 && nTo % 32 == 0))
    {
        return Words(words.begin(), words.end());
    }
    // First packed as in memory, then split into elements of the new type.
    Words packed;
    if (nFrom % 32 == 0)
    {
        packed.assign(words.begin(), words.end());
    }
    else
    {
        const unsigned nPerWord = 32 / nFrom;
        for (size_t n = 0; n < words.size(); n += nPerWord)
        {
            SWord word = words[n];
            for (size_t i = 1; i < nPerWord && n + i < words.size(); ++i)
            {
                const SWord shifted =
                    m_Machine.One("ishl", {words[n + i], LiteralWord(static_cast<uint32_t>(i * nFrom))});
                word = m_Machine.One("ior", {word, shifted});
            }
            packed.push_back(word);
        }
    }
    if (nTo % 32 == 0 || m_Types.CountWords(pTo) == packed.size())
    {
        return packed;
    }
    Words result;
    for (unsigned n = 0; n < m_Types.CountWords(pTo); ++n)
    {
        const unsigned nBit = n * nTo;
        const SWord bits = m_Machine.One("ushr", {packed[nBit / 32], LiteralWord(nBit % 32)});
        result.push_back(nBit % 32 + nTo == 32 ? bits : m_Machine.One("iand", {bits, LiteralWord((1u << nTo) - 1)}));
    }
    return result;
}

void CSelector::SelectBitCast(const llvm::CastInst& cast)
{
    Type* const pFrom = cast.getSrcTy();
    Type* const pTo = cast.getDestTy();
    const bool bBits = pFrom->isVectorTy() || pTo->isVectorTy();
    if (bBits && (pFrom->getScalarType()->isIntegerTy(1) || pTo->getScalarType()->isIntegerTy(1)))
    {
        // From a vector of single bits to a number, or back.
        Words result;
        const Words words = Get(cast.getOperand(0));
        if (pFrom->isVectorTy())
        {
            SWord sum = LiteralWord(0);
            for (size_t n = 0; n < words.size() && n < 32; ++n)
            {
                const SWord bit = m_Machine.One("iand", {words[n], LiteralWord(1u << n)});
                sum = m_Machine.One("ior", {sum, bit});
            }
            result.push_back(sum);
        }
        else
        {
            for (unsigned n = 0; n < m_Types.CountWords(pTo); ++n)
            {
                const SWord bit = m_Machine.One("iand", {words[n / 32], LiteralWord(1u << (n % 32))});
                result.push_back(m_Machine.One("ine", {bit, LiteralWord(0)}));
            }
        }
        Set(cast, result);
        return;
    }
    Set(cast, Reinterpret(Get(cast.getOperand(0)), pFrom, pTo));
}

void CSelector::SelectTrunc(const llvm::CastInst& cast)
{
    const Words words = Get(cast.getOperand(0));
    const unsigned nFrom = m_Types.CountElementWords(cast.getSrcTy());
    const unsigned nTo = m_Types.CountElementWords(cast.getDestTy());
    Words result;
    for (size_t n = 0; n < words.size(); n += nFrom)
    {
        result.append(words.begin() + static_cast<std::ptrdiff_t>(n),
                      words.begin() + static_cast<std::ptrdiff_t>(n + nTo));
    }
    if (cast.getDestTy()->getScalarType()->isIntegerTy(1))
    {
        const unsigned nCount = static_cast<unsigned>(result.size());
        result = m_Machine.Each("inegate", nCount, {m_Machine.Each("iand", nCount, {result, LiteralWord(1)})});
    }
    SetNarrow(cast, result);
}

void CSelector::SelectExtend(const llvm::CastInst& cast)
{
    const bool bSigned = cast.getOpcode() == Instruction::SExt;
    Type* const pFrom = cast.getSrcTy();
    const bool bBit = pFrom->getScalarType()->isIntegerTy(1);
    const unsigned nFrom = m_Types.CountElementWords(pFrom);
    const unsigned nTo = m_Types.CountElementWords(cast.getDestTy());
    Words words = bSigned ? SignedSource(cast.getOperand(0)) : Get(cast.getOperand(0));
    if (bBit && !bSigned)
    {
        words = m_Machine.Each("iand", static_cast<unsigned>(words.size()), {words, LiteralWord(1)});
    }
    if (nFrom == nTo)
    {
        bSigned ? SetNarrow(cast, words) : Set(cast, words);
        return;
    }
    Words result;
    const bool bWhole = bSigned && nFrom == 1 && nTo == 2 && !bBit && IsReadAsPair(cast);
    for (size_t n = 0; n < words.size(); n += nFrom)
    {
        if (bWhole)
        {
            const llvm::ArrayRef<SWord> word = llvm::ArrayRef<SWord>(words).slice(n, 1);
            const Words pair =
                m_Machine.Pairs("vmad_i64_i32", 1, {word, LiteralWord(1), Words{LiteralWord(0), LiteralWord(0)}});
            result.append(pair.begin(), pair.end());
            continue;
        }
        const SWord top = words[n + nFrom - 1];
        const SWord above = !bSigned ? LiteralWord(0) : bBit ? top : m_Machine.One("ishr", {top, LiteralWord(31)});
        for (unsigned i = 0; i < nTo; ++i)
        {
            result.push_back(i < nFrom ? words[n + i] : above);
        }
    }
    bSigned ? SetNarrow(cast, result) : Set(cast, result);
}

void CSelector::SelectFloatToInteger(const llvm::CastInst& cast)
{
    const bool bSigned = cast.getOpcode() == Instruction::FPToSI;
    const bool bDouble = cast.getSrcTy()->getScalarType()->isDoubleTy();
    const unsigned nTo = m_Types.CountElementWords(cast.getDestTy());
    Words words = Get(cast.getOperand(0));
    if (nTo > 2)
    {
        Fail(&cast, "conversion to an integer of more than 64 bits");
        return;
    }
    if (cast.getSrcTy()->getScalarType()->isHalfTy())
    {
        words = m_Machine.Each("f162f", static_cast<unsigned>(words.size()), {words});
    }
    if (!bDouble && nTo == 1)
    {
        const Words whole = m_Machine.Each(bSigned ? "ftoi" : "ftou", static_cast<unsigned>(words.size()), {words});
        SetNarrow(cast, whole);
        return;
    }
    Words result;
    for (size_t n = 0; n < words.size(); n += bDouble ? 2 : 1)
    {
        const Words wide = bDouble ? Words{words[n], words[n + 1]} : m_Machine.ToPair("f2d", words[n]);
        if (nTo == 1)
        {
            result.push_back(m_Machine.FromPair(bSigned ? "dtoi" : "dtou", wide));
            continue;
        }
        const Words pair = m_Machine.Pairs(bSigned ? "dtoi64" : "dtou64", 1, {wide});
        result.append(pair.begin(), pair.end());
    }
    SetNarrow(cast, result);
}

/// A 64-bit integer has more bits than a double can hold. The bits that are too low to matter for a float's rounding
/// are first combined into one sticky bit, which tells whether the number lies exactly halfway between two floats.
Words CSelector::LongToFloat(llvm::ArrayRef<SWord> pair, bool bSigned)
{
    const Words low = {m_Machine.One("iand", {pair[0], LiteralWord(2047)}), LiteralWord(0)};
    const SWord carry = m_Machine.One("iadd", {low[0], LiteralWord(2047)});
    const SWord sticky = m_Machine.One("iand", {m_Machine.One("ior", {pair[0], carry}), LiteralWord(~2047u)});
    // Numbers below 2^53 keep all bits.
    const SWord limit = LiteralWord(1u << 21);
    const SWord large = bSigned ? m_Machine.One("uge", {m_Machine.One("iadd", {pair[1], limit}), LiteralWord(1u << 22)})
                                : m_Machine.One("uge", {pair[1], limit});
    const SWord word = m_Machine.One("cmov_logical", {large, sticky, pair[0]});
    const Words exact = m_Machine.Pairs(bSigned ? "i64tod" : "u64tod", 1, {m_Machine.Gather({word, pair[1]})});
    return {m_Machine.FromPair("d2f", exact)};
}

/// A condition is all ones or 0, so masking gives 1.0 or 0 - or -1.0 for a signed condition, whose set bit counts as
/// -1.
void CSelector::SelectConditionToFloat(const llvm::CastInst& cast)
{
    const bool bSigned = cast.getOpcode() == Instruction::SIToFP;
    Type* const pTo = cast.getDestTy()->getScalarType();
    const Words one = GetConstant(*llvm::cast<llvm::Constant>(llvm::ConstantFP::get(pTo, bSigned ? -1.0 : 1.0)));
    Words result;
    for (const SWord& condition : Get(cast.getOperand(0)))
    {
        for (const SWord& word : one)
        {
            result.push_back(m_Machine.One("iand", {condition, word}));
        }
    }
    Set(cast, result);
}

void CSelector::SelectIntegerToFloat(const llvm::CastInst& cast)
{
    if (cast.getSrcTy()->getScalarType()->isIntegerTy(1))
    {
        SelectConditionToFloat(cast);
        return;
    }
    const bool bSigned = cast.getOpcode() == Instruction::SIToFP;
    const bool bDouble = cast.getDestTy()->getScalarType()->isDoubleTy();
    const unsigned nFrom = m_Types.CountElementWords(cast.getSrcTy());
    const Words words = bSigned ? SignedSource(cast.getOperand(0)) : Get(cast.getOperand(0));
    if (nFrom > 2)
    {
        Fail(&cast, "conversion of an integer of more than 64 bits");
        return;
    }
    Words result;
    if (!bDouble && nFrom == 1)
    {
        result = m_Machine.Each(bSigned ? "itof" : "utof", static_cast<unsigned>(words.size()), {words});
    }
    for (size_t n = 0; n < words.size() && (bDouble || nFrom == 2); n += nFrom)
    {
        const Words wide = nFrom == 1 ? m_Machine.ToPair(bSigned ? "itod" : "utod", words[n])
                           : bDouble  ? m_Machine.Pairs(bSigned ? "i64tod" : "u64tod", 1,
                                                       {llvm::ArrayRef<SWord>({words[n], words[n + 1]})})
                                      : LongToFloat({words[n], words[n + 1]}, bSigned);
        result.append(wide.begin(), wide.end());
    }
    if (cast.getDestTy()->getScalarType()->isHalfTy())
    {
        result = m_Machine.Each("f2f16_near", static_cast<unsigned>(result.size()), {result});
    }
    Set(cast, result);
}

void CSelector::SelectFloatResize(const llvm::CastInst& cast)
{
    Type* const pFrom = cast.getSrcTy()->getScalarType();
    Type* const pTo = cast.getDestTy()->getScalarType();
    Words words = Get(cast.getOperand(0));
    if (pFrom->isHalfTy())
    {
        words = m_Machine.Each("f162f", static_cast<unsigned>(words.size()), {words});
    }
    Words result;
    if (pTo->isDoubleTy())
    {
        for (const SWord& word : words)
        {
            const Words pair = m_Machine.ToPair("f2d", word);
            result.append(pair.begin(), pair.end());
        }
    }
    else if (pFrom->isDoubleTy())
    {
        for (size_t n = 0; n < words.size(); n += 2)
        {
            SWord word = m_Machine.FromPair("d2f", {words[n], words[n + 1]});
            if (pTo->isHalfTy())
            {
                // Rounding twice may give a wrong result, unless the first rounding leaves a trace in the last bit: the
                // float is truncated toward zero, and its last bit is set if anything was lost.
                const Words back = m_Machine.ToPair("f2d", word);
                const Words exact = {words[n], words[n + 1]};
                const Words backSize = m_Machine.Pairs("dabs", 1, {back});
                const Words size = m_Machine.Pairs("dabs", 1, {exact});
                const SWord above = m_Machine.Pairs("dlt", 1, {size, backSize})[0];
                const SWord lost = m_Machine.Pairs("dne", 1, {size, backSize})[0];
                const SWord isNumber = m_Machine.Pairs("deq", 1, {exact, exact})[0];
                const SWord cut = m_Machine.One("iadd", {word, above}); // minus 1 where it was rounded up
                const SWord odd = m_Machine.One(
                    "ior", {cut, m_Machine.One("iand", {m_Machine.One("iand", {lost, isNumber}), LiteralWord(1)})});
                word = odd;
            }
            result.push_back(word);
        }
    }
    else
    {
        result = words;
    }
    if (pTo->isHalfTy())
    {
        result = m_Machine.Each("f2f16_near", static_cast<unsigned>(result.size()), {result});
    }
    Set(cast, result);
}

} // namespace KestrelOpenCL

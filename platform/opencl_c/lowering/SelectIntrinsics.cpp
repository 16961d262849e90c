#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"

namespace KestrelOpenCL
{
namespace
{

using llvm::Intrinsic::ID;

/// Intrinsics that become one instruction for each word or pair.
struct SSimpleRow
{
    ID eId;
    unsigned nSources;
    const char* psz32;
    const char* psz64; ///< null: none for pairs
};

const SSimpleRow s_SimpleRows[] = {
    {llvm::Intrinsic::fma, 3, "fma", "dfma"},
    {llvm::Intrinsic::fmuladd, 3, "mad", "dmad"},
    {llvm::Intrinsic::sqrt, 1, "sqrt_vec", "dsqrt"},
    {llvm::Intrinsic::floor, 1, "round_neginf", "dround_neginf"},
    {llvm::Intrinsic::ceil, 1, "round_plusinf", "dround_plusinf"},
    {llvm::Intrinsic::trunc, 1, "round_z", "dround_z"},
    {llvm::Intrinsic::rint, 1, "round_nearest", "dround_nearest"},
    {llvm::Intrinsic::nearbyint, 1, "round_nearest", "dround_nearest"},
    {llvm::Intrinsic::roundeven, 1, "round_nearest", "dround_nearest"},
    {llvm::Intrinsic::minnum, 2, "min", "dmin"},
    {llvm::Intrinsic::maxnum, 2, "max", "dmax"},
    {llvm::Intrinsic::bitreverse, 1, "ubit_reverse", nullptr},
};

/// Intrinsics that are hints for the optimiser, or have no effect on a device.
bool MeansNothing(ID eId)
{
    switch (eId)
    {
    case llvm::Intrinsic::dbg_declare:
    case llvm::Intrinsic::dbg_value:
    case llvm::Intrinsic::dbg_addr:
    case llvm::Intrinsic::dbg_label:
    case llvm::Intrinsic::lifetime_start:
    case llvm::Intrinsic::lifetime_end:
    case llvm::Intrinsic::invariant_start:
    case llvm::Intrinsic::invariant_end:
    case llvm::Intrinsic::assume:
    case llvm::Intrinsic::experimental_noalias_scope_decl:
    case llvm::Intrinsic::donothing:
    case llvm::Intrinsic::sideeffect:
    case llvm::Intrinsic::prefetch:
        return true;
    default:
        return false;
    }
}

} // namespace

void CSelector::SelectCall(const llvm::CallInst& call)
{
    const llvm::Function* const pCallee = call.getCalledFunction();
    if (const auto* pIntrinsic = llvm::dyn_cast<llvm::IntrinsicInst>(&call))
    {
        if (!SelectIntrinsic(*pIntrinsic))
        {
            Fail(&call, "no translation of " + pCallee->getName().str());
        }
        return;
    }
    if (pCallee == nullptr)
    {
        Fail(&call, call.isInlineAsm() ? "inline assembly" : "a call through a pointer");
        return;
    }
    if (!SelectBuiltin(call, pCallee->getName()))
    {
        Fail(&call, "call of the function '" + pCallee->getName().str() + "', which isn't defined");
    }
}

/// The number of leading or trailing zeros; for 0, the number of bits.
Words CSelector::CountZeros(Words words, Type* pType, bool bLeading)
{
    const char* const pszFind = bLeading ? "ffb_ctl(1)" : "ffb";
    const unsigned nElementWords = m_Types.CountElementWords(pType);
    const unsigned nBits = m_Types.CountBits(pType);
    const unsigned nCount = static_cast<unsigned>(words.size());
    if (nElementWords == 1)
    {
        if (bLeading && nBits < 32)
        {
            // Shifts the number's top bit to the word's.
            words = m_Machine.Each("ishl", nCount, {words, LiteralWord(32 - nBits)});
        }
        return m_Machine.Each("umin", nCount, {m_Machine.Each(pszFind, nCount, {words}), LiteralWord(nBits)});
    }
    Words result;
    for (unsigned n = 0; n < nCount; n += 2)
    {
        const SWord first = m_Machine.One(pszFind, {words[n + (bLeading ? 1 : 0)]});
        const SWord second = m_Machine.One(pszFind, {words[n + (bLeading ? 0 : 1)]});
        const SWord below = m_Machine.One("iadd", {m_Machine.One("umin", {second, LiteralWord(32)}), LiteralWord(32)});
        const SWord all = m_Machine.One("umin", {first, below}); // "none found" is all ones
        result.push_back(bLeading && nBits < 64 ? m_Machine.One("isub", {all, LiteralWord(64 - nBits)})
                                                : m_Machine.One("umin", {all, LiteralWord(nBits)}));
        result.push_back(LiteralWord(0));
    }
    return result;
}

Words CSelector::ByteSwap(Words words, Type* pType)
{
    const unsigned nCount = static_cast<unsigned>(words.size());
    const Words right = m_Machine.Each("bitalign", nCount, {words, words, LiteralWord(8)});
    const Words left = m_Machine.Each("bitalign", nCount, {words, words, LiteralWord(24)});
    Words swapped = m_Machine.Each("bfi", nCount, {LiteralWord(0x00FF00FF), left, right});
    const unsigned nBits = m_Types.CountBits(pType);
    if (nBits < 32)
    {
        return m_Machine.Each("ushr", nCount, {swapped, LiteralWord(32 - nBits)});
    }
    for (unsigned n = 0; n + 1 < nCount && nBits == 64; n += 2)
    {
        std::swap(swapped[n], swapped[n + 1]);
    }
    return swapped;
}

/// Shifts the concatenation of two 64-bit numbers. What comes from the other number is shifted by one first and then by
/// the rest, so that no amount reaches 64.
Words CSelector::FunnelShiftPair(const Words& high, const Words& low, const SWord& amount, bool bLeft)
{
    const SWord turn = m_Machine.One("iand", {amount, LiteralWord(63)});
    const SWord rest = m_Machine.One("ixor", {turn, LiteralWord(63)});
    const char* const pszOther = bLeft ? "u64shr" : "i64shl";
    const Words own = m_Machine.Pairs(bLeft ? "i64shl" : "u64shr", 1, {bLeft ? high : low, turn});
    const Words first = m_Machine.Pairs(pszOther, 1, {bLeft ? low : high, LiteralWord(1)});
    const Words other = m_Machine.Pairs(pszOther, 1, {first, rest});
    return m_Machine.Each("ior", 2, {own, other});
}

/// Shifts the concatenation of two numbers; the amount counts modulo the number of bits.
Words CSelector::FunnelShift(const llvm::IntrinsicInst& call, bool bLeft)
{
    Type* const pType = call.getType();
    const unsigned nBits = m_Types.CountBits(pType);
    const unsigned nElementWords = m_Types.CountElementWords(pType);
    const Words a = Get(call.getArgOperand(0));
    const Words b = Get(call.getArgOperand(1));
    const Words amount = Get(call.getArgOperand(2));
    const unsigned nCount = static_cast<unsigned>(a.size());
    if (nBits == 32)
    {
        if (!bLeft)
        {
            return m_Machine.Each("bitalign", nCount, {a, b, amount});
        }
        if (a == b)
        {
            return m_Machine.Each("bitalign", nCount, {a, b, m_Machine.Each("inegate", nCount, {amount})});
        }
        // A left shift by n is a right shift by 32 - n. Shifting by one first and then by 31 - n keeps n = 0 from
        // becoming 32.
        const Words high = m_Machine.Each("ushr", nCount, {a, LiteralWord(1)});
        const Words low = m_Machine.Each("bitalign", nCount, {a, b, LiteralWord(1)});
        return m_Machine.Each("bitalign", nCount, {high, low, m_Machine.Each("inot", nCount, {amount})});
    }
    Words result;
    if (nBits == 64)
    {
        for (unsigned n = 0; n < nCount; n += nElementWords)
        {
            const Words pair = FunnelShiftPair({a[n], a[n + 1]}, {b[n], b[n + 1]}, amount[n], bLeft);
            result.append(pair.begin(), pair.end());
        }
        return result;
    }
    for (unsigned n = 0; n < nCount; n += nElementWords)
    {
        const bool bPower = (nBits & (nBits - 1)) == 0;
        const SWord turn = bPower ? m_Machine.One("iand", {amount[n], LiteralWord(nBits - 1)})
                                  : m_Machine.One("umod", {amount[n], LiteralWord(nBits)});
        const SWord rest = m_Machine.One("isub", {LiteralWord(nBits), turn});
        const SWord isMoved = m_Machine.One("ine", {turn, LiteralWord(0)});
        const SWord toLeft = bLeft ? turn : rest;
        const SWord toRight = bLeft ? rest : turn;
        const llvm::ArrayRef<SWord> high = llvm::ArrayRef<SWord>(a).slice(n, nElementWords);
        const llvm::ArrayRef<SWord> low = llvm::ArrayRef<SWord>(b).slice(n, nElementWords);
        const bool bPair = nElementWords == 2;
        const Words left =
            bPair ? m_Machine.Pairs("i64shl", 1, {high, toLeft}) : Words{m_Machine.One("ishl", {high[0], toLeft})};
        const Words right =
            bPair ? m_Machine.Pairs("u64shr", 1, {low, toRight}) : Words{m_Machine.One("ushr", {low[0], toRight})};
        const Words both = m_Machine.Each("ior", nElementWords, {left, right});
        const Words chosen = m_Machine.Each("cmov_logical", nElementWords, {isMoved, both, bLeft ? high : low});
        result.append(chosen.begin(), chosen.end());
    }
    return Clean(result, pType);
}

Words CSelector::MinMax(const llvm::IntrinsicInst& call)
{
    const ID eId = call.getIntrinsicID();
    const bool bSigned = eId == llvm::Intrinsic::smax || eId == llvm::Intrinsic::smin;
    const bool bMax = eId == llvm::Intrinsic::smax || eId == llvm::Intrinsic::umax;
    const Words a = bSigned ? SignedSource(call.getArgOperand(0)) : Get(call.getArgOperand(0));
    const Words b = bSigned ? SignedSource(call.getArgOperand(1)) : Get(call.getArgOperand(1));
    const unsigned nCount = static_cast<unsigned>(a.size());
    const bool bPairs = m_Types.CountElementWords(call.getType()) == 2;
    const std::string strName = std::string(bSigned ? "i" : "u") + (bPairs ? "64" : "") + (bMax ? "max" : "min");
    const Words result =
        bPairs ? m_Machine.Pairs(strName, nCount / 2, {a, b}) : m_Machine.Each(strName, nCount, {a, b});
    return bSigned ? Clean(result, call.getType()) : result;
}

bool CSelector::SelectIntrinsic(const llvm::IntrinsicInst& call)
{
    const ID eId = call.getIntrinsicID();
    Type* const pType = call.getType();
    if (MeansNothing(eId))
    {
        return true;
    }
    const unsigned nElementWords = pType->isVoidTy() || pType->isAggregateType() ? 0 : m_Types.CountElementWords(pType);
    for (const SSimpleRow& row : s_SimpleRows)
    {
        if (row.eId != eId || nElementWords > 2 || (nElementWords == 2 && row.psz64 == nullptr))
        {
            continue;
        }
        Words sources[3];
        for (unsigned n = 0; n < row.nSources; ++n)
        {
            sources[n] = Get(call.getArgOperand(n));
        }
        const unsigned nCount = static_cast<unsigned>(sources[0].size());
        const auto Emit = [&](auto... operands)
        {
            return nElementWords == 2 ? m_Machine.Pairs(row.psz64, nCount / 2, {operands...})
                                      : m_Machine.Each(row.psz32, nCount, {operands...});
        };
        const llvm::ArrayRef<SWord> a = sources[0];
        const llvm::ArrayRef<SWord> b = sources[1];
        const llvm::ArrayRef<SWord> c = sources[2];
        Words result = row.nSources == 1 ? Emit(a) : row.nSources == 2 ? Emit(a, b) : Emit(a, b, c);
        const unsigned nBits = m_Types.CountBits(pType);
        if (eId == llvm::Intrinsic::bitreverse && nBits < 32)
        {
            result = m_Machine.Each("ushr", nCount, {result, LiteralWord(32 - nBits)});
        }
        Set(call, result);
        return true;
    }
    switch (eId)
    {
    case llvm::Intrinsic::fabs:
    case llvm::Intrinsic::copysign:
    {
        Words words = Get(call.getArgOperand(0));
        const bool bCopy = eId == llvm::Intrinsic::copysign;
        const Words signs = bCopy ? Get(call.getArgOperand(1)) : Words(words.size(), LiteralWord(0));
        for (size_t n = nElementWords - 1; n < words.size(); n += nElementWords)
        {
            words[n] = bCopy ? m_Machine.One("bfi", {LiteralWord(0x7FFFFFFF), words[n], signs[n]})
                             : m_Machine.One("iand", {words[n], LiteralWord(0x7FFFFFFF)});
        }
        Set(call, words);
        return true;
    }
    case llvm::Intrinsic::ctlz:
    case llvm::Intrinsic::cttz:
        if (nElementWords > 2)
        {
            return false;
        }
        Set(call, CountZeros(Get(call.getArgOperand(0)), pType, eId == llvm::Intrinsic::ctlz));
        return true;
    case llvm::Intrinsic::ctpop:
    {
        const Words words = Get(call.getArgOperand(0));
        const Words counts = m_Machine.Each("icbits", static_cast<unsigned>(words.size()), {words});
        Words result;
        for (size_t n = 0; n < counts.size(); n += nElementWords)
        {
            SWord sum = counts[n];
            for (unsigned i = 1; i < nElementWords; ++i)
            {
                sum = m_Machine.One("iadd", {sum, counts[n + i]});
            }
            result.push_back(sum);
            result.append(nElementWords - 1, LiteralWord(0));
        }
        Set(call, result);
        return true;
    }
    case llvm::Intrinsic::bswap:
        Set(call, ByteSwap(Get(call.getArgOperand(0)), pType));
        return nElementWords <= 2;
    case llvm::Intrinsic::bitreverse:
    {
        Words words = Get(call.getArgOperand(0));
        words = m_Machine.Each("ubit_reverse", static_cast<unsigned>(words.size()), {words});
        for (size_t n = 0; n < words.size(); n += 2)
        {
            std::swap(words[n], words[n + 1]);
        }
        Set(call, words);
        return nElementWords == 2 && m_Types.CountBits(pType) == 64;
    }
    case llvm::Intrinsic::fshl:
    case llvm::Intrinsic::fshr:
        if (nElementWords > 2)
        {
            return false;
        }
        Set(call, FunnelShift(call, eId == llvm::Intrinsic::fshl));
        return true;
    case llvm::Intrinsic::smax:
    case llvm::Intrinsic::smin:
    case llvm::Intrinsic::umax:
    case llvm::Intrinsic::umin:
        if (nElementWords > 2)
        {
            return false;
        }
        Set(call, MinMax(call));
        return true;
    case llvm::Intrinsic::abs:
    {
        const Words a = SignedSource(call.getArgOperand(0));
        const unsigned nCount = static_cast<unsigned>(a.size());
        if (nElementWords > 2)
        {
            return false;
        }
        Set(call, nElementWords == 1
                      ? Clean(m_Machine.Each("imax", nCount, {a, m_Machine.Each("inegate", nCount, {a})}), pType)
                      : Clean(m_Machine.Pairs("i64max", nCount / 2, {a, m_Machine.Pairs("i64negate", nCount / 2, {a})}),
                              pType));
        return true;
    }
    case llvm::Intrinsic::sadd_sat:
    case llvm::Intrinsic::ssub_sat:
    case llvm::Intrinsic::uadd_sat:
    case llvm::Intrinsic::usub_sat:
        if (nElementWords > 2)
        {
            return false;
        }
        Set(call, Saturating(call));
        return true;
    case llvm::Intrinsic::sadd_with_overflow:
    case llvm::Intrinsic::ssub_with_overflow:
    case llvm::Intrinsic::uadd_with_overflow:
    case llvm::Intrinsic::usub_with_overflow:
    case llvm::Intrinsic::umul_with_overflow:
    case llvm::Intrinsic::smul_with_overflow:
    {
        const Words words = WithOverflow(call);
        if (words.empty())
        {
            return false;
        }
        Set(call, words);
        return true;
    }
    case llvm::Intrinsic::memcpy:
    case llvm::Intrinsic::memcpy_inline:
    case llvm::Intrinsic::memmove:
        SelectMemTransfer(llvm::cast<llvm::MemTransferInst>(call));
        return true;
    case llvm::Intrinsic::memset:
        SelectMemSet(llvm::cast<llvm::MemSetInst>(call));
        return true;
    case llvm::Intrinsic::expect:
    case llvm::Intrinsic::annotation:
    case llvm::Intrinsic::ssa_copy:
    case llvm::Intrinsic::launder_invariant_group:
    case llvm::Intrinsic::strip_invariant_group:
        Set(call, Get(call.getArgOperand(0)));
        return true;
    case llvm::Intrinsic::is_constant:
        Set(call, {LiteralWord(0)});
        return true;
    case llvm::Intrinsic::objectsize:
        Set(call, Words(nElementWords,
                        LiteralWord(llvm::cast<llvm::ConstantInt>(call.getArgOperand(1))->isOne() ? 0 : 0xFFFFFFFFu)));
        return true;
    case llvm::Intrinsic::trap:
    case llvm::Intrinsic::debugtrap:
        return true;
    default:
        return false;
    }
}

} // namespace KestrelOpenCL

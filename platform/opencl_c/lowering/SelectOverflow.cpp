#include "platform/opencl_c/lowering/Selector.h"

namespace KestrelOpenCL
{
namespace
{

using llvm::Intrinsic::ID;

bool IsAdd(ID eId)
{
    return eId == llvm::Intrinsic::sadd_sat || eId == llvm::Intrinsic::uadd_sat ||
           eId == llvm::Intrinsic::sadd_with_overflow || eId == llvm::Intrinsic::uadd_with_overflow;
}

bool IsSigned(ID eId)
{
    return eId == llvm::Intrinsic::sadd_sat || eId == llvm::Intrinsic::ssub_sat ||
           eId == llvm::Intrinsic::sadd_with_overflow || eId == llvm::Intrinsic::ssub_with_overflow ||
           eId == llvm::Intrinsic::smul_with_overflow;
}

} // namespace

/// A sum or difference that saturates at the limits of its type.
Words CSelector::Saturating(const llvm::IntrinsicInst& call)
{
    const ID eId = call.getIntrinsicID();
    Type* const pType = call.getType();
    const bool bAdd = IsAdd(eId);
    const bool bSigned = IsSigned(eId);
    const unsigned nBits = m_Types.CountBits(pType);
    const bool bPairs = m_Types.CountElementWords(pType) == 2;
    const Words a = bSigned ? SignedSource(call.getArgOperand(0)) : Get(call.getArgOperand(0));
    const Words b = bSigned ? SignedSource(call.getArgOperand(1)) : Get(call.getArgOperand(1));
    const unsigned nCount = static_cast<unsigned>(a.size());
    if (!bPairs && nBits < 32)
    {
        // A narrow type: the word can hold the exact result.
        const SWord top = LiteralWord(bSigned ? (1u << (nBits - 1)) - 1 : (1u << nBits) - 1);
        const SWord bottom = LiteralWord(bSigned ? 0u - (1u << (nBits - 1)) : 0);
        const Words sum = m_Machine.Each(bAdd ? "iadd" : "isub", nCount, {a, b});
        const Words low = m_Machine.Each("imax", nCount, {sum, bottom});
        return Clean(m_Machine.Each("imin", nCount, {low, top}), pType);
    }
    const auto Op = [&](const char* psz32, const char* psz64, llvm::ArrayRef<SWord> x, llvm::ArrayRef<SWord> y) {
        return bPairs ? m_Machine.Pairs(psz64, nCount / 2, {x, y}) : m_Machine.Each(psz32, nCount, {x, y});
    };
    if (!bSigned)
    {
        // In a + b, b is limited to what a leaves free; in a - b, it is limited to a.
        return bAdd ? Op("iadd", "i64add", Op("umin", "u64min", a, m_Machine.Each("inot", nCount, {b})), b)
                    : Op("isub", "i64sub", Op("umax", "u64max", a, b), b);
    }
    const Words sum = Op(bAdd ? "iadd" : "isub", bAdd ? "i64add" : "i64sub", a, b);
    Words result;
    for (unsigned n = 0; n < nCount; n += bPairs ? 2 : 1)
    {
        // An overflow gives a sign that neither operand has; the result is then the limit on a's side.
        const unsigned nTop = n + (bPairs ? 1 : 0);
        const SWord other = bAdd ? m_Machine.One("inot", {m_Machine.One("ixor", {a[nTop], b[nTop]})})
                                 : m_Machine.One("ixor", {a[nTop], b[nTop]});
        const SWord over = m_Machine.One(
            "ilt", {m_Machine.One("iand", {other, m_Machine.One("ixor", {a[nTop], sum[nTop]})}), LiteralWord(0)});
        const SWord sign = m_Machine.One("ishr", {a[nTop], LiteralWord(31)});
        const SWord end = m_Machine.One("ixor", {sign, LiteralWord(0x7FFFFFFF)});
        if (bPairs)
        {
            result.push_back(m_Machine.One("cmov_logical", {over, m_Machine.One("inot", {sign}), sum[n]}));
        }
        result.push_back(m_Machine.One("cmov_logical", {over, end, sum[nTop]}));
    }
    return result;
}

/// The result, and a bit that tells whether it overflowed. \return empty for an unknown intrinsic
Words CSelector::WithOverflow(const llvm::IntrinsicInst& call)
{
    const ID eId = call.getIntrinsicID();
    Type* const pType = call.getArgOperand(0)->getType();
    const unsigned nBits = m_Types.CountBits(pType);
    const bool bSigned = IsSigned(eId);
    const bool bAdd = IsAdd(eId);
    const bool bMultiply = eId == llvm::Intrinsic::umul_with_overflow || eId == llvm::Intrinsic::smul_with_overflow;
    const Words a = bSigned ? SignedSource(call.getArgOperand(0)) : Get(call.getArgOperand(0));
    const Words b = bSigned ? SignedSource(call.getArgOperand(1)) : Get(call.getArgOperand(1));
    if (pType->isVectorTy() || nBits > 64 || (bMultiply && nBits > 32))
    {
        return {};
    }
    const bool bPairs = a.size() == 2;
    if (bMultiply)
    {
        const SWord low = m_Machine.One("imul", {a[0], b[0]});
        const SWord high = m_Machine.One(bSigned ? "imul_high" : "umul_high", {a[0], b[0]});
        const Words cut = Clean({low}, pType);
        const SWord back = bSigned ? SignExtend(cut, pType)[0] : cut[0];
        const SWord rest = bSigned ? m_Machine.One("ishr", {back, LiteralWord(31)}) : LiteralWord(0);
        return {cut[0], m_Machine.One("ior", {m_Machine.One("ine", {back, low}), m_Machine.One("ine", {high, rest})})};
    }
    const auto Op = [&](const char* psz32, const char* psz64, llvm::ArrayRef<SWord> x, llvm::ArrayRef<SWord> y) {
        return bPairs ? m_Machine.Pairs(psz64, 1, {x, y}) : m_Machine.Each(psz32, 1, {x, y});
    };
    const Words sum = Op(bAdd ? "iadd" : "isub", bAdd ? "i64add" : "i64sub", a, b);
    Words result = Clean(sum, pType);
    SWord over;
    if (nBits % 32 != 0)
    {
        // The words can hold the exact result.
        const Words back = bSigned ? SignExtend(result, pType) : result;
        over = Op("ine", "i64ne", back, sum)[0];
    }
    else if (!bSigned)
    {
        over = bAdd ? Op("ult", "u64lt", sum, a)[0] : Op("ult", "u64lt", a, b)[0];
    }
    else
    {
        const SWord signs = m_Machine.One("ixor", {a.back(), b.back()});
        const SWord other = bAdd ? m_Machine.One("inot", {signs}) : signs;
        const SWord changed = m_Machine.One("ixor", {a.back(), sum.back()});
        over = m_Machine.One("ilt", {m_Machine.One("iand", {other, changed}), LiteralWord(0)});
    }
    result.push_back(over);
    return result;
}

} // namespace KestrelOpenCL

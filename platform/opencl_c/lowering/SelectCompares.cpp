#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"

namespace KestrelOpenCL
{
namespace
{

using llvm::CmpInst;

/// One comparison of the device. Its operands may have to be swapped, and its answer inverted.
struct SCompareRow
{
    CmpInst::Predicate ePredicate;
    const char* psz32;
    const char* psz64;
    bool bSwap;
    bool bInvert;
};

const SCompareRow s_CompareRows[] = {
    {CmpInst::ICMP_EQ, "ieq", "i64eq", false, false},  {CmpInst::ICMP_NE, "ine", "i64ne", false, false},
    {CmpInst::ICMP_SLT, "ilt", "i64lt", false, false}, {CmpInst::ICMP_SGE, "ige", "i64ge", false, false},
    {CmpInst::ICMP_SGT, "ilt", "i64lt", true, false},  {CmpInst::ICMP_SLE, "ige", "i64ge", true, false},
    {CmpInst::ICMP_ULT, "ult", "u64lt", false, false}, {CmpInst::ICMP_UGE, "uge", "u64ge", false, false},
    {CmpInst::ICMP_UGT, "ult", "u64lt", true, false},  {CmpInst::ICMP_ULE, "uge", "u64ge", true, false},
    {CmpInst::FCMP_OEQ, "eq", "deq", false, false},    {CmpInst::FCMP_UNE, "ne", "dne", false, false},
    {CmpInst::FCMP_OLT, "lt", "dlt", false, false},    {CmpInst::FCMP_OGE, "ge", "dge", false, false},
    {CmpInst::FCMP_OGT, "lt", "dlt", true, false},     {CmpInst::FCMP_OLE, "ge", "dge", true, false},
    {CmpInst::FCMP_UGE, "lt", "dlt", false, true},     {CmpInst::FCMP_ULT, "ge", "dge", false, true},
    {CmpInst::FCMP_ULE, "lt", "dlt", true, true},      {CmpInst::FCMP_UGT, "ge", "dge", true, true},
};

const SCompareRow* FindCompare(CmpInst::Predicate ePredicate)
{
    for (const SCompareRow& row : s_CompareRows)
    {
        if (row.ePredicate == ePredicate)
        {
            return &row;
        }
    }
    return nullptr;
}

/// Comparisons that take two of the device's comparisons.
struct STwoCompares
{
    CmpInst::Predicate ePredicate;
    CmpInst::Predicate eFirst;
    CmpInst::Predicate eSecond;
    const char* pszJoin;
    bool bWithSelf; ///< each operand is compared with itself
};

const STwoCompares s_TwoCompares[] = {
    {CmpInst::FCMP_ONE, CmpInst::FCMP_OLT, CmpInst::FCMP_OGT, "ior", false},
    {CmpInst::FCMP_UEQ, CmpInst::FCMP_UGE, CmpInst::FCMP_ULE, "iand", false},
    {CmpInst::FCMP_ORD, CmpInst::FCMP_OEQ, CmpInst::FCMP_OEQ, "iand", true},
    {CmpInst::FCMP_UNO, CmpInst::FCMP_UNE, CmpInst::FCMP_UNE, "ior", true},
};

Words FirstOfPairs(llvm::ArrayRef<SWord> pairs)
{
    Words words;
    for (size_t n = 0; n < pairs.size(); n += 2)
    {
        words.push_back(pairs[n]);
    }
    return words;
}

} // namespace

Words CSelector::CompareIntegers(CmpInst::Predicate ePredicate, Words a, Words b, unsigned nElementWords)
{
    const SCompareRow& row = *FindCompare(ePredicate);
    if (row.bSwap)
    {
        std::swap(a, b);
    }
    const unsigned nWords = static_cast<unsigned>(a.size());
    if (nElementWords == 1)
    {
        return m_Machine.Each(row.psz32, nWords, {a, b});
    }
    if (nElementWords == 2)
    {
        return FirstOfPairs(m_Machine.Pairs(row.psz64, nWords / 2, {a, b}));
    }
    // Wider integers from the top word down: the first difference decides, and only the top word has a sign.
    const CmpInst::Predicate eUnsigned =
        CmpInst::isEquality(ePredicate) ? ePredicate : llvm::ICmpInst::getUnsignedPredicate(ePredicate);
    const Words low = m_Machine.Each(FindCompare(eUnsigned)->psz32, 1, {a[0], b[0]});
    SWord result = low[0];
    for (unsigned n = 1; n < nWords; ++n)
    {
        const SWord equal = m_Machine.One("ieq", {a[n], b[n]});
        const char* const pszHere = n + 1 == nWords ? row.psz32 : FindCompare(eUnsigned)->psz32;
        result = m_Machine.One("cmov_logical", {equal, result, m_Machine.One(pszHere, {a[n], b[n]})});
    }
    return {result};
}

void CSelector::SelectICmp(const llvm::ICmpInst& compare)
{
    Type* const pType = compare.getOperand(0)->getType();
    const bool bSigned = compare.isSigned();
    const Words a = bSigned ? SignedSource(compare.getOperand(0)) : Get(compare.getOperand(0));
    const Words b = bSigned ? SignedSource(compare.getOperand(1)) : Get(compare.getOperand(1));
    Set(compare, CompareIntegers(compare.getPredicate(), a, b, m_Types.CountElementWords(pType)));
}

Words CSelector::CompareFloats(CmpInst::Predicate ePredicate, Words a, Words b, Type* pType)
{
    for (const STwoCompares& two : s_TwoCompares)
    {
        if (two.ePredicate == ePredicate)
        {
            const Words first = CompareFloats(two.eFirst, a, two.bWithSelf ? a : b, pType);
            const Words second = CompareFloats(two.eSecond, two.bWithSelf ? b : a, b, pType);
            return m_Machine.Each(two.pszJoin, static_cast<unsigned>(first.size()), {first, second});
        }
    }
    const SCompareRow& row = *FindCompare(ePredicate);
    if (row.bSwap)
    {
        std::swap(a, b);
    }
    const unsigned nWords = static_cast<unsigned>(a.size());
    Words result = pType->getScalarType()->isDoubleTy() ? FirstOfPairs(m_Machine.Pairs(row.psz64, nWords / 2, {a, b}))
                                                        : m_Machine.Each(row.psz32, nWords, {a, b});
    if (row.bInvert)
    {
        result = m_Machine.Each("inot", static_cast<unsigned>(result.size()), {result});
    }
    return result;
}

void CSelector::SelectFCmp(const llvm::FCmpInst& compare)
{
    Type* const pType = compare.getOperand(0)->getType();
    const CmpInst::Predicate ePredicate = compare.getPredicate();
    Words a = Get(compare.getOperand(0));
    Words b = Get(compare.getOperand(1));
    if (ePredicate == CmpInst::FCMP_FALSE || ePredicate == CmpInst::FCMP_TRUE)
    {
        const SWord answer = LiteralWord(ePredicate == CmpInst::FCMP_TRUE ? 0xFFFFFFFFu : 0);
        Set(compare, Words(m_Types.CountWords(compare.getType()), answer));
        return;
    }
    if (pType->getScalarType()->isHalfTy())
    {
        a = m_Machine.Each("f162f", static_cast<unsigned>(a.size()), {a});
        b = m_Machine.Each("f162f", static_cast<unsigned>(b.size()), {b});
    }
    Set(compare, CompareFloats(ePredicate, a, b, pType));
}

void CSelector::SelectSelect(const llvm::SelectInst& select)
{
    const Words conditions = Get(select.getCondition());
    const Words a = Get(select.getTrueValue());
    const Words b = Get(select.getFalseValue());
    const unsigned nWords = static_cast<unsigned>(a.size());
    Words spread = conditions;
    if (conditions.size() > 1)
    {
        spread.clear();
        for (unsigned n = 0; n < nWords; ++n)
        {
            spread.push_back(conditions[n / (nWords / conditions.size())]);
        }
    }
    if (select.getType()->getScalarType()->isIntegerTy(1))
    {
        if (llvm::all_of(b, [](const SWord& word) { return word.IsLiteral(0); }))
        {
            Set(select, m_Machine.Each("iand", nWords, {spread, a}));
            return;
        }
        if (llvm::all_of(a, [](const SWord& word) { return word.IsLiteral(0xFFFFFFFFu); }))
        {
            Set(select, m_Machine.Each("ior", nWords, {spread, b}));
            return;
        }
    }
    Set(select, m_Machine.Each("cmov_logical", nWords, {spread, a, b}));
}

} // namespace KestrelOpenCL

#include "platform/opencl_c/lowering/MaskedShifts.h"
#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"

namespace KestrelOpenCL
{
namespace
{

using llvm::Instruction;
using llvm::Value;

struct SBinaryRow
{
    unsigned nOpcode;
    const char* psz32;
    const char* psz64; ///< null: word by word
    bool bSigned;      ///< treats a narrow integer's upper bits as its sign
};

const SBinaryRow s_BinaryRows[] = {
    {Instruction::Add, "iadd", "i64add", false},  {Instruction::Sub, "isub", "i64sub", false},
    {Instruction::Mul, "imul", "i64mul", false},  {Instruction::UDiv, "udiv", "u64div", false},
    {Instruction::SDiv, "idiv", "i64div", true},  {Instruction::URem, "umod", "u64mod", false},
    {Instruction::SRem, "imod", "i64mod", true},  {Instruction::Shl, "ishl", "i64shl", false},
    {Instruction::LShr, "ushr", "u64shr", false}, {Instruction::AShr, "ishr", "i64shr", true},
    {Instruction::And, "iand", nullptr, false},   {Instruction::Or, "ior", nullptr, false},
    {Instruction::Xor, "ixor", nullptr, false},   {Instruction::FAdd, "add", "dadd", false},
    {Instruction::FSub, "sub", "dsub", false},    {Instruction::FMul, "mul", "dmul", false},
    {Instruction::FDiv, "div", "ddiv", false},    {Instruction::FRem, "mod", nullptr, false},
};

const SBinaryRow* FindBinary(unsigned nOpcode)
{
    for (const SBinaryRow& row : s_BinaryRows)
    {
        if (row.nOpcode == nOpcode)
        {
            return &row;
        }
    }
    return nullptr;
}

/// Operations on single bits, which are stored as all ones or 0.
const char* BitMnemonic(unsigned nOpcode)
{
    switch (nOpcode)
    {
    case Instruction::And:
    case Instruction::Mul:
        return "iand";
    case Instruction::Or:
        return "ior";
    case Instruction::Add:
    case Instruction::Sub:
    case Instruction::Xor:
        return "ixor";
    default:
        return nullptr; // for the other operations only the first operand is defined as a result
    }
}

Words LowWords(llvm::ArrayRef<SWord> pairs)
{
    Words words;
    for (size_t n = 0; n < pairs.size(); n += 2)
    {
        words.push_back(pairs[n]);
    }
    return words;
}

bool IsShift(unsigned nOpcode)
{
    return nOpcode == Instruction::Shl || nOpcode == Instruction::LShr || nOpcode == Instruction::AShr;
}

} // namespace

void CSelector::SelectBinary(const llvm::BinaryOperator& op)
{
    Type* const pType = op.getType();
    if (pType->getScalarType()->isHalfTy())
    {
        Fail(&op, "arithmetic of type half");
        return;
    }
    if (FusesIntoAdd(op))
    {
        return; // selected together with the sum
    }
    if (SelectProductAndSum(op))
    {
        return;
    }
    const unsigned nElementWords = m_Types.CountElementWords(pType);
    if (nElementWords > 2)
    {
        return SelectWideBinary(op);
    }
    if (pType->getScalarType()->isIntegerTy(1))
    {
        const char* const pszMnemonic = BitMnemonic(op.getOpcode());
        const Words a = Get(op.getOperand(0));
        Set(op, pszMnemonic == nullptr
                    ? a
                    : m_Machine.Each(pszMnemonic, static_cast<unsigned>(a.size()), {a, Get(op.getOperand(1))}));
        return;
    }
    const SBinaryRow& row = *FindBinary(op.getOpcode());
    const Words a = row.bSigned ? SignedSource(op.getOperand(0)) : Get(op.getOperand(0));
    const Value* const pB = IsShift(op.getOpcode()) ? FindShiftAmount(op) : op.getOperand(1);
    const bool bSignedB = row.bSigned && !IsShift(op.getOpcode());
    Words b = bSignedB ? SignedSource(pB) : Get(pB);
    const unsigned nWords = static_cast<unsigned>(a.size());
    if (nElementWords == 1 || row.psz64 == nullptr)
    {
        if (nElementWords == 2 && op.getOpcode() == Instruction::FRem)
        {
            Fail(&op, "the remainder of doubles as an operator");
            return;
        }
        SetNarrow(op, m_Machine.Each(row.psz32, nWords, {a, b}));
        return;
    }
    b = IsShift(op.getOpcode()) && m_Types.CountElementWords(pB->getType()) == 2 ? LowWords(b) : b;
    SetNarrow(op, m_Machine.Pairs(row.psz64, nWords / 2, {a, b}));
}

/// Integers of more than 64 bits, which passes create occasionally.
void CSelector::SelectWideBinary(const llvm::BinaryOperator& op)
{
    const Words a = Get(op.getOperand(0));
    const Words b = Get(op.getOperand(1));
    const unsigned nWords = static_cast<unsigned>(a.size());
    const unsigned nOpcode = op.getOpcode();
    const auto* const pAmount = llvm::dyn_cast<llvm::ConstantInt>(op.getOperand(1));
    if (op.getType()->isVectorTy())
    {
        Fail(&op, "vectors of integers of more than 64 bits");
        return;
    }
    Words result;
    if (nOpcode == Instruction::And || nOpcode == Instruction::Or || nOpcode == Instruction::Xor)
    {
        result = m_Machine.Each(FindBinary(nOpcode)->psz32, nWords, {a, b});
    }
    else if (nOpcode == Instruction::Add || nOpcode == Instruction::Sub)
    {
        const bool bAdd = nOpcode == Instruction::Add;
        const char* const pszSum = bAdd ? "iadd" : "isub";
        const char* const pszCarry = bAdd ? "icarry" : "iborrow";
        SWord carry = LiteralWord(0);
        for (unsigned n = 0; n < nWords; ++n)
        {
            const SWord sum = m_Machine.One(pszSum, {a[n], b[n]});
            result.push_back(m_Machine.One(pszSum, {sum, carry}));
            carry =
                m_Machine.One("ior", {m_Machine.One(pszCarry, {a[n], b[n]}), m_Machine.One(pszCarry, {sum, carry})});
        }
    }
    else if (nOpcode == Instruction::Mul)
    {
        result.assign(nWords, LiteralWord(0));
        for (unsigned i = 0; i < nWords; ++i)
        {
            SWord carry = LiteralWord(0);
            for (unsigned j = 0; i + j < nWords; ++j)
            {
                const SWord low = m_Machine.One("imul", {a[i], b[j]});
                const SWord high = m_Machine.One("umul_high", {a[i], b[j]});
                const SWord sum = m_Machine.One("iadd", {low, result[i + j]});
                const SWord first = m_Machine.One("icarry", {low, result[i + j]});
                result[i + j] = m_Machine.One("iadd", {sum, carry});
                const SWord second = m_Machine.One("icarry", {sum, carry});
                carry = m_Machine.One("iadd", {high, m_Machine.One("iadd", {first, second})});
            }
        }
    }
    else if (IsShift(nOpcode) && pAmount != nullptr)
    {
        const unsigned nAmount = static_cast<unsigned>(pAmount->getLimitedValue(nWords * 32));
        const Words source = nOpcode == Instruction::AShr ? SignedSource(op.getOperand(0)) : a;
        const SWord above =
            nOpcode == Instruction::AShr ? m_Machine.One("ishr", {source.back(), LiteralWord(31)}) : LiteralWord(0);
        const auto At = [&](int n) {
            return n < 0 ? LiteralWord(0) : n < static_cast<int>(nWords) ? source[n] : above;
        };
        const int nShift = static_cast<int>(nAmount / 32);
        const SWord bits = LiteralWord(nOpcode == Instruction::Shl ? (32 - nAmount % 32) % 32 : nAmount % 32);
        for (int n = 0; n < static_cast<int>(nWords); ++n)
        {
            const int nLow = nOpcode == Instruction::Shl ? n - nShift - (nAmount % 32 != 0 ? 1 : 0) : n + nShift;
            result.push_back(nAmount % 32 == 0 ? At(nLow) : m_Machine.One("bitalign", {At(nLow + 1), At(nLow), bits}));
        }
    }
    else
    {
        Fail(&op, std::string(op.getOpcodeName()) + " of integers of more than 64 bits");
        return;
    }
    Set(op, Clean(result, op.getType()));
}

/// A product that is only used by one sum is computed together with it; `mad` rounds both like the two instructions.
/// Integers only if they have 32 bits.
bool CSelector::FusesIntoAdd(const Instruction& instruction) const
{
    const bool bFloat = instruction.getOpcode() == Instruction::FMul;
    const bool bWord = instruction.getOpcode() == Instruction::Mul && instruction.getType()->isIntegerTy(s_nWordBits);
    if ((!bFloat && !bWord) || !instruction.hasOneUse())
    {
        return false;
    }
    const auto* const pSum = llvm::cast<Instruction>(*instruction.user_begin());
    if (pSum->getOpcode() != (bFloat ? Instruction::FAdd : Instruction::Add) ||
        pSum->getParent() != instruction.getParent())
    {
        return false;
    }
    const auto* const pFirst = llvm::dyn_cast<Instruction>(pSum->getOperand(0));
    return pFirst == &instruction || pFirst == nullptr || !FusesIntoAdd(*pFirst);
}

/// \return false if it isn't a sum with such a product
bool CSelector::SelectProductAndSum(const llvm::BinaryOperator& op)
{
    if (op.getOpcode() != Instruction::FAdd && op.getOpcode() != Instruction::Add)
    {
        return false;
    }
    for (unsigned n = 0; n < 2; ++n)
    {
        const auto* const pProduct = llvm::dyn_cast<Instruction>(op.getOperand(n));
        if (pProduct == nullptr || !FusesIntoAdd(*pProduct))
        {
            continue;
        }
        const Words a = Get(pProduct->getOperand(0));
        const Words b = Get(pProduct->getOperand(1));
        const Words c = Get(op.getOperand(1 - n));
        const unsigned nWords = static_cast<unsigned>(a.size());
        const bool bDouble = op.getType()->getScalarType()->isDoubleTy();
        const char* const pszWord = op.getOpcode() == Instruction::FAdd ? "mad" : "imad";
        Set(op, bDouble ? m_Machine.Pairs("dmad", nWords / 2, {a, b, c}) : m_Machine.Each(pszWord, nWords, {a, b, c}));
        return true;
    }
    return false;
}

void CSelector::SelectFNeg(const llvm::UnaryOperator& op)
{
    Words words = Get(op.getOperand(0));
    const unsigned nStep = m_Types.CountElementWords(op.getType());
    const SWord sign = LiteralWord(op.getType()->getScalarType()->isHalfTy() ? 0x8000u : 0x80000000u);
    if (nStep == 1)
    {
        Set(op, m_Machine.Each("ixor", static_cast<unsigned>(words.size()), {words, sign}));
        return;
    }
    for (size_t n = nStep - 1; n < words.size(); n += nStep)
    {
        words[n] = m_Machine.One("ixor", {words[n], sign});
    }
    Set(op, words);
}

} // namespace KestrelOpenCL

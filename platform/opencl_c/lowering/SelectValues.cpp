#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"
#include "llvm/IR/GlobalVariable.h"
#include "llvm/IR/Operator.h"

namespace KestrelOpenCL
{
namespace
{

const uint32_t s_nAllOnes = 0xFFFFFFFFu;

Words WordsOf(const llvm::APInt& value)
{
    const llvm::APInt wide = value.zext((value.getBitWidth() + s_nWordBits - 1) / s_nWordBits * s_nWordBits);
    Words words;
    for (unsigned n = 0; n < wide.getBitWidth(); n += s_nWordBits)
    {
        words.push_back(LiteralWord(static_cast<uint32_t>(wide.extractBitsAsZExtValue(s_nWordBits, n))));
    }
    return words;
}

} // namespace

Words CSelector::Get(const Value* pValue)
{
    if (const auto* pConstant = llvm::dyn_cast<llvm::Constant>(pValue))
    {
        return GetConstant(*pConstant);
    }
    const auto it = m_mapValues.find(pValue);
    if (it != m_mapValues.end())
    {
        return it->second;
    }
    // After a reported fault, or for a value that can't occur, any words will do.
    return Words(std::max(1u, m_Types.CountWords(pValue->getType())), SWord());
}

Words CSelector::GetConstant(const llvm::Constant& constant)
{
    const unsigned nWords = m_Types.CountWords(constant.getType());
    if (llvm::isa<llvm::UndefValue>(constant))
    {
        return Words(nWords, SWord());
    }
    if (const auto* pInteger = llvm::dyn_cast<llvm::ConstantInt>(&constant))
    {
        return pInteger->getBitWidth() == 1 ? Words{LiteralWord(pInteger->isOne() ? s_nAllOnes : 0)}
                                            : WordsOf(pInteger->getValue());
    }
    if (const auto* pFloat = llvm::dyn_cast<llvm::ConstantFP>(&constant))
    {
        return WordsOf(pFloat->getValueAPF().bitcastToAPInt());
    }
    if (constant.isNullValue())
    {
        return Words(nWords, LiteralWord(0));
    }
    if (const auto* pVariable = llvm::dyn_cast<llvm::GlobalVariable>(&constant))
    {
        Words words(nWords, LiteralWord(0));
        const bool bLocal = pVariable->getAddressSpace() == SpaceLocal;
        m_bLocal = m_bLocal || bLocal;
        words[0] = LiteralWord(bLocal ? m_Storage.GetLocal(*pVariable) : m_Storage.GetConstant(*pVariable));
        return words;
    }
    if (const auto* pExpression = llvm::dyn_cast<llvm::ConstantExpr>(&constant))
    {
        return GetExpression(*pExpression);
    }
    Words words;
    for (unsigned n = 0; words.size() < nWords; ++n)
    {
        const llvm::Constant* const pElement = constant.getAggregateElement(n);
        const Words element = pElement != nullptr ? GetConstant(*pElement) : Words(nWords, SWord());
        words.append(element.begin(), element.end());
    }
    return words;
}

/// Selects the expression like an instruction; the words are then folded.
Words CSelector::GetExpression(const llvm::ConstantExpr& expression)
{
    Instruction* const pInstruction = expression.getAsInstruction();
    const llvm::DILocation* const pLocation = m_Machine.GetLocation();
    Select(*pInstruction);
    m_Machine.SetLocation(pLocation);
    Words words = Get(pInstruction);
    m_mapValues.erase(pInstruction);
    pInstruction->deleteValue();
    return words;
}

void CSelector::Set(const Instruction& instruction, Words words)
{
    m_mapValues[&instruction] = std::move(words);
}

/// Whether all users of an integer ignore the bits above its own.
bool CSelector::ToleratesHighBits(const Instruction& instruction) const
{
    for (const llvm::Use& use : instruction.uses())
    {
        const auto* const pUser = llvm::cast<Instruction>(use.getUser());
        switch (pUser->getOpcode())
        {
        case Instruction::Trunc:
        case Instruction::SExt:
        case Instruction::Add:
        case Instruction::Sub:
        case Instruction::Mul:
            break;
        case Instruction::Shl:
        case Instruction::Store:
            if (use.getOperandNo() != 0)
            {
                return false;
            }
            break;
        case Instruction::And:
            if (!llvm::isa<llvm::ConstantInt>(pUser->getOperand(1)))
            {
                return false;
            }
            break;
        default:
            return false;
        }
        // A variable in registers must hold what a debugger shows.
        const auto* const pStore = llvm::dyn_cast<llvm::StoreInst>(pUser);
        if (pStore != nullptr && FindVariable(pStore->getPointerOperand()) != nullptr)
        {
            return false;
        }
    }
    return !m_Types.IsNarrow(instruction.getType()) || m_Types.CountBits(instruction.getType()) < s_nWordBits;
}

/// Clears the bits above an integer's own.
Words CSelector::Clean(llvm::ArrayRef<SWord> words, Type* pType)
{
    const unsigned nElementWords = m_Types.CountElementWords(pType);
    const unsigned nBits = m_Types.CountBits(pType) % s_nWordBits;
    if (nBits == 0 || pType->getScalarSizeInBits() == 1)
    {
        return Words(words.begin(), words.end());
    }
    const SWord mask = LiteralWord((1u << nBits) - 1);
    if (nElementWords == 1)
    {
        return m_Machine.Each("iand", static_cast<unsigned>(words.size()), {words, mask});
    }
    Words result(words.begin(), words.end());
    for (size_t n = nElementWords - 1; n < result.size(); n += nElementWords)
    {
        result[n] = m_Machine.One("iand", {result[n], mask});
    }
    return result;
}

/// Extends the sign of an integer to the bits above its own.
Words CSelector::SignExtend(llvm::ArrayRef<SWord> words, Type* pType)
{
    const unsigned nElementWords = m_Types.CountElementWords(pType);
    const unsigned nBits = m_Types.CountBits(pType) % s_nWordBits;
    if (nBits == 0 || pType->getScalarSizeInBits() == 1)
    {
        return Words(words.begin(), words.end());
    }
    Words result(words.begin(), words.end());
    const SWord width = LiteralWord(nBits);
    const SWord start = LiteralWord(0);
    if (nElementWords == 1)
    {
        return m_Machine.Each("ibit_extract", static_cast<unsigned>(words.size()), {width, start, words});
    }
    for (size_t n = nElementWords - 1; n < result.size(); n += nElementWords)
    {
        result[n] = m_Machine.One("ibit_extract", {width, start, result[n]});
    }
    return result;
}

/// A value with its sign in the bits above its own.
Words CSelector::SignedSource(const Value* pValue)
{
    if (const auto* pConstant = llvm::dyn_cast<llvm::ConstantInt>(pValue))
    {
        const unsigned nBits = pConstant->getBitWidth();
        return nBits == 1 ? Get(pValue)
                          : WordsOf(pConstant->getValue().sext((nBits + s_nWordBits - 1) / s_nWordBits * s_nWordBits));
    }
    return m_setSigned.count(pValue) != 0 ? Get(pValue) : SignExtend(Get(pValue), pValue->getType());
}

void CSelector::SetNarrow(const Instruction& instruction, Words words)
{
    if (m_Types.IsNarrow(instruction.getType()) && !ToleratesHighBits(instruction))
    {
        words = Clean(words, instruction.getType());
    }
    Set(instruction, std::move(words));
}

SWord CSelector::ParameterWord(uint32_t nByteOffset)
{
    return m_Machine.FixedWord("cb1[" + std::to_string(nByteOffset / 16) + "]", nByteOffset / 4 % 4);
}

/// Arguments are read where they lie. Small vector elements are unpacked from their words first.
void CSelector::SetArgument(const llvm::Argument& argument)
{
    const SKernelParameter& parameter = m_vParameters[argument.getArgNo()];
    Type* const pType = argument.getType();
    if (argument.hasByValAttr())
    {
        return;
    }
    Words words;
    if (parameter.eKind != SKernelParameter::Value)
    {
        for (unsigned n = 0; n < m_Types.CountWords(pType); ++n)
        {
            words.push_back(parameter.eKind == SKernelParameter::Sampler ? LiteralWord(0)
                                                                         : ParameterWord(parameter.nOffset + n * 4));
        }
        m_mapValues[&argument] = words;
        return;
    }
    for (const SLeaf& leaf : m_Types.GetLeaves(pType))
    {
        const uint32_t nOffset = parameter.nOffset + static_cast<uint32_t>(leaf.nOffset);
        if (leaf.nBytes < 4 && pType->isVectorTy())
        {
            words.push_back(m_Machine.One("ubit_extract", {LiteralWord(static_cast<uint32_t>(leaf.nBytes * 8)),
                                                           LiteralWord(nOffset % 4 * 8), ParameterWord(nOffset)}));
            continue;
        }
        for (unsigned n = 0; n < leaf.nWords; ++n)
        {
            words.push_back(ParameterWord(nOffset + n * 4));
        }
    }
    m_mapValues[&argument] = words;
}

/// A variable that always holds one argument uses the argument's words.
void CSelector::BindVariables()
{
    for (auto& entry : m_mapVariables)
    {
        if (entry.second.pArgument != nullptr)
        {
            entry.second.words = Get(entry.second.pArgument);
            // A vector of three elements is stored like one of four.
            entry.second.words.resize(std::max<size_t>(entry.second.words.size(), 4));
        }
    }
}

/// A struct passed by value stays in the constant buffer if it is only read at constant offsets; otherwise it is copied
/// to private memory.
void CSelector::LoadArguments()
{
    for (const llvm::Argument& argument : m_Kernel.args())
    {
        SetArgument(argument);
        if (!argument.hasByValAttr() || argument.use_empty())
        {
            continue;
        }
        const SKernelParameter& parameter = m_vParameters[argument.getArgNo()];
        const uint64_t nAlignment = argument.getParamAlign().valueOrOne().value();
        SPlace place;
        place.address = {LiteralWord(m_Storage.AddPrivate((parameter.nBytes + 3) / 4 * 4, nAlignment))};
        m_mapValues[&argument] = place.address;
        for (uint32_t n = 0; n < parameter.nBytes; n += 16)
        {
            Words words;
            for (uint32_t i = n; i < std::min(n + 16, parameter.nBytes); i += 4)
            {
                words.push_back(ParameterWord(parameter.nOffset + i));
            }
            StoreWords(place, n, words);
        }
    }
    BindVariables();
}

} // namespace KestrelOpenCL

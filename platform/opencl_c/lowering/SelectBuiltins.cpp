#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"

#include <bit>

namespace KestrelOpenCL
{
namespace
{

/// Flags of barriers and fences, as OpenCL C defines them.
const uint32_t s_nLocalFence = 1;
const uint32_t s_nGlobalFence = 2;

/// Built-in functions whose names differ from those of the instructions.
struct SSpelling
{
    const char* pszFunction;
    const char* pszMnemonic;
};

const SSpelling s_Spellings[] = {{"ffb_lo", "ffb"}, {"ffb_hi", "ffb_ctl(1)"}, {"ffb_shi", "ffb_ctl(2)"}};

/// What a conversion gives for numbers outside of what its type holds.
struct SSaturation
{
    const char* pszMnemonic;
    double fBelow;   ///< numbers below this one give the least value
    double fAbove;   ///< this one and greater ones give the largest value
    uint64_t nLeast; ///< as a word or a pair of words
    uint64_t nLargest;
};

const SSaturation s_Saturations[] = {{"ftoi", -0x1p31, 0x1p31, 0x80000000, 0x7FFFFFFF},
                                     {"ftou", 0, 0x1p32, 0, 0xFFFFFFFF},
                                     {"dtoi", -0x1p31, 0x1p31, 0x80000000, 0x7FFFFFFF},
                                     {"dtou", 0, 0x1p32, 0, 0xFFFFFFFF},
                                     {"dtoi64", -0x1p63, 0x1p63, 0x8000000000000000, 0x7FFFFFFFFFFFFFFF},
                                     {"dtou64", 0, 0x1p64, 0, 0xFFFFFFFFFFFFFFFF}};

const SSaturation* FindSaturation(llvm::StringRef mnemonic)
{
    const auto* const pFound =
        llvm::find_if(s_Saturations, [&](const SSaturation& row) { return mnemonic == row.pszMnemonic; });
    return pFound != std::end(s_Saturations) ? pFound : nullptr;
}

Words Literals(uint64_t nBits, unsigned nWords)
{
    Words words = {LiteralWord(static_cast<uint32_t>(nBits))};
    if (nWords == 2)
    {
        words.push_back(LiteralWord(static_cast<uint32_t>(nBits >> s_nWordBits)));
    }
    return words;
}

/// A number as a float, or as a double of two words.
Words NumberLiterals(double fNumber, unsigned nWords)
{
    return Literals(
        nWords == 2 ? std::bit_cast<uint64_t>(fNumber) : std::bit_cast<uint32_t>(static_cast<float>(fNumber)), nWords);
}

/// Parses names like `reg_vTidInGrp_x` and `cb0_6_x`.
bool ReadRegisterName(llvm::StringRef name, std::string& strRegister, unsigned& nComponent)
{
    const size_t nComponentAt = name.size() - 1;
    const size_t nLetter = llvm::StringRef("xyzw").find(name.back());
    if (name.size() < 4 || nLetter == llvm::StringRef::npos || name[nComponentAt - 1] != '_')
    {
        return false;
    }
    nComponent = static_cast<unsigned>(nLetter);
    const llvm::StringRef front = name.drop_back(2);
    if (front.startswith("reg_"))
    {
        strRegister = front.drop_front(4).str();
        return true;
    }
    const auto parts = front.split('_');
    if (!front.startswith("cb") || parts.second.empty())
    {
        return false;
    }
    strRegister = parts.first.str() + "[" + parts.second.str() + "]";
    return true;
}

} // namespace

bool CSelector::SelectBuiltin(const llvm::CallInst& call, llvm::StringRef name)
{
    if (!name.consume_front("__il_"))
    {
        return SelectTranslated(call, name);
    }
    std::string strRegister;
    unsigned nComponent = 0;
    if (name == "barrier" || name == "fence")
    {
        SelectFence(call, name == "barrier");
        return true;
    }
    if (ReadRegisterName(name, strRegister, nComponent))
    {
        Set(call, {m_Machine.FixedWord(strRegister, nComponent)});
        return true;
    }
    return SelectImage(call, name) || SelectInstruction(call, name.take_front(name.find("__")));
}

/// Calls that clang inserts itself.
bool CSelector::SelectTranslated(const llvm::CallInst& call, llvm::StringRef name)
{
    if (name != "__translate_sampler_initializer")
    {
        return false;
    }
    Set(call, Words(m_Types.CountWords(call.getType()), LiteralWord(0))); // the number is looked up at its use
    return true;
}

void CSelector::SelectFence(const llvm::CallInst& call, bool bBarrier)
{
    const auto* const pFlags = llvm::dyn_cast<llvm::ConstantInt>(call.getArgOperand(0));
    // Flags that aren't constant fence everything.
    const uint64_t nFlags = pFlags != nullptr ? pFlags->getZExtValue() : s_nLocalFence | s_nGlobalFence;
    std::string strMnemonic = "fence";
    strMnemonic += bBarrier ? "_threads" : "";
    strMnemonic += (nFlags & s_nLocalFence) != 0 || (nFlags & s_nGlobalFence) == 0 ? "_lds" : "";
    strMnemonic += (nFlags & s_nGlobalFence) != 0 ? "_memory" : "";
    SInstruction fence = m_Machine.Make(strMnemonic);
    fence.bKeep = true;
    m_Machine.Add(fence);
}

/// A conversion of a number that the type may not hold. The instruction itself saturates, but checks tell of numbers
/// that it can't convert, so where nothing is optimised it gets 0 in place of them. \return nothing for other
/// instructions
Words CSelector::ConvertSaturating(llvm::StringRef mnemonic, const Words& source, unsigned nResultWords)
{
    const SSaturation* const pRow = FindSaturation(mnemonic);
    if (pRow == nullptr)
    {
        return {};
    }
    const SSaturation& row = *pRow;
    const unsigned nWords = static_cast<unsigned>(source.size());
    const auto compare = [&](const char* pszFloat, const char* pszDouble, double fLimit)
    {
        const Words limit = NumberLiterals(fLimit, nWords);
        return nWords == 2 ? m_Machine.Pairs(pszDouble, 1, {source, limit})[0]
                           : m_Machine.One(pszFloat, {source[0], limit[0]});
    };
    const SWord isBelow = compare("lt", "dlt", row.fBelow);
    const SWord isAbove = compare("ge", "dge", row.fAbove);
    const SWord isOutside = m_Machine.One("ior", {isBelow, isAbove});
    const Words inside = m_Machine.Each("cmov_logical", nWords, {isOutside, LiteralWord(0), source});
    Words result;
    if (nWords == nResultWords)
    {
        result =
            nWords == 2 ? m_Machine.Pairs(row.pszMnemonic, 1, {inside}) : m_Machine.Each(row.pszMnemonic, 1, {inside});
    }
    else
    {
        result = {m_Machine.FromPair(row.pszMnemonic, inside)};
    }
    const Words least = Literals(row.nLeast, nResultWords);
    const Words largest = Literals(row.nLargest, nResultWords);
    result = m_Machine.Each("cmov_logical", nResultWords, {isBelow, least, result});
    return m_Machine.Each("cmov_logical", nResultWords, {isAbove, largest, result});
}

/// A function that stands for an instruction: its arguments are the sources, its result is the destination.
bool CSelector::SelectInstruction(const llvm::CallInst& call, llvm::StringRef mnemonic)
{
    for (const SSpelling& spelling : s_Spellings)
    {
        mnemonic = mnemonic == spelling.pszFunction ? spelling.pszMnemonic : mnemonic;
    }
    Type* const pType = call.getType();
    if (pType->isVoidTy() || pType->isAggregateType() || call.arg_empty() ||
        call.arg_size() > SInstruction::s_nMaxSources)
    {
        return false;
    }
    const bool bToPair = m_Types.CountElementWords(pType) == 2;
    const bool bFromPair = m_Types.CountElementWords(call.getArgOperand(0)->getType()) == 2;
    llvm::SmallVector<Words, 4> vSources;
    for (const llvm::Use& argument : call.args())
    {
        vSources.push_back(Get(argument.get()));
    }
    const Words saturated = m_bDebug ? ConvertSaturating(mnemonic, vSources[0], m_Types.CountWords(pType)) : Words();
    if (!saturated.empty())
    {
        Set(call, saturated);
        return true;
    }
    if (bFromPair != bToPair)
    {
        Set(call,
            bToPair ? m_Machine.ToPair(mnemonic, vSources[0][0]) : Words{m_Machine.FromPair(mnemonic, vSources[0])});
        return vSources.size() == 1;
    }
    const unsigned nCount = m_Types.CountWords(pType);
    const auto Emit = [&](auto... operands)
    {
        return bToPair ? m_Machine.Pairs(mnemonic, nCount / 2, {operands...})
                       : m_Machine.Each(mnemonic, nCount, {operands...});
    };
    const auto At = [&](size_t n) { return llvm::ArrayRef<SWord>(vSources[n]); };
    switch (vSources.size())
    {
    case 1:
        Set(call, Emit(At(0)));
        return true;
    case 2:
        Set(call, Emit(At(0), At(1)));
        return true;
    case 3:
        Set(call, Emit(At(0), At(1), At(2)));
        return true;
    default:
        Set(call, Emit(At(0), At(1), At(2), At(3)));
        return true;
    }
}

} // namespace KestrelOpenCL

#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"

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

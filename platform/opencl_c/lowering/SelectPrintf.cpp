#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"
#include "llvm/IR/GlobalVariable.h"

namespace KestrelOpenCL
{
namespace
{

const unsigned s_nHeaderWords = 4;
const uint32_t s_nBytesOffset = 4; ///< in the buffer: how many bytes it has

/// The text of a string constant. \return false for what isn't one
bool ReadString(const llvm::Value* pBase, std::string& strText)
{
    const auto* const pVariable = llvm::dyn_cast<llvm::GlobalVariable>(pBase);
    if (pVariable == nullptr || !pVariable->hasInitializer())
    {
        return false;
    }
    const auto* const pData = llvm::dyn_cast<llvm::ConstantDataArray>(pVariable->getInitializer());
    strText = pData != nullptr && pData->isString() ? pData->getAsString().str() : std::string();
    strText = strText.substr(0, strText.find('\0'));
    return pData != nullptr ? pData->isString() : pVariable->getInitializer()->isNullValue();
}

std::string Hex(const std::string& strText)
{
    static const char s_szDigits[] = "0123456789abcdef";
    std::string strHex;
    for (const char c : strText)
    {
        strHex += {s_szDigits[static_cast<uint8_t>(c) >> 4], s_szDigits[static_cast<uint8_t>(c) & 15]};
    }
    return strHex;
}

} // namespace

/// How an argument is stored, in the letters of the kernel's metadata, and its words.
std::string CSelector::PrintfArgument(const Value* pArgument, Words& words)
{
    Type* const pType = pArgument->getType();
    const auto* const pVector = llvm::dyn_cast<llvm::FixedVectorType>(pType);
    Type* const pScalar = pType->getScalarType();
    std::string strText;
    if (pType->isPointerTy() && ReadString(FindBase(pArgument), strText))
    {
        m_vPrintf.push_back(";printfstring:" + std::to_string(++m_nPrintfIds) + ":" + Hex(strText) + "\n");
        words = {LiteralWord(m_nPrintfIds)};
        return "s";
    }
    // Smaller integers come as elements of vectors only; which sign they have, the format says.
    words = Get(pArgument);
    std::string strLetter = pScalar->isDoubleTy()                                                 ? "d"
                            : pScalar->isFloatTy()                                                ? "f"
                            : pScalar->isPointerTy()                                              ? "p"
                            : words.size() > (pVector != nullptr ? pVector->getNumElements() : 1) ? "l"
                                                                                                  : "i";
    if (pType->isPointerTy() && m_Target.b64BitAddresses)
    {
        words.resize(2, LiteralWord(0));
    }
    if (pVector != nullptr)
    {
        const unsigned nElements = pVector->getNumElements();
        words.resize(words.size() / nElements * (nElements == 3 ? 4 : nElements), LiteralWord(0));
        strLetter = "v" + std::to_string(nElements == 3 ? 4 : nElements) + strLetter;
    }
    return strLetter;
}

/// A call takes room for its record in the buffer that the runtime gives, and writes it there if the buffer is large
/// enough; docs/kernel-binary.md has the forms of both. Without a buffer it does nothing.
void CSelector::SelectPrintf(const llvm::CallInst& call)
{
    std::string strFormat;
    if (!ReadString(FindBase(call.getArgOperand(0)), strFormat))
    {
        Fail(&call, "a format of printf that isn't a string constant");
        return;
    }
    const uint32_t nId = ++m_nPrintfIds;
    Words record(s_nHeaderWords);
    std::string strArguments;
    for (unsigned n = 1; n < call.arg_size(); ++n)
    {
        Words words;
        strArguments += PrintfArgument(call.getArgOperand(n), words);
        record.append(words.begin(), words.end());
    }
    m_vPrintf.push_back(";printf:" + std::to_string(nId) + ":" + (strArguments.empty() ? "-" : strArguments) + ":" +
                        Hex(strFormat) + "\n");
    m_Storage.KeepConstantNull();
    const SWord size = LiteralWord(static_cast<uint32_t>(record.size() * 4));
    record[0] = LiteralWord(nId);
    record[1] = size;
    record[2] = m_Machine.FixedWord("vThreadGrpIdFlat", 0);
    record[3] = m_Machine.FixedWord("vTidInGrpFlat", 0);

    SPlace buffer;
    buffer.nSpace = SpaceGlobal;
    buffer.nUav = m_nAnyUav;
    const std::string strElement = "cb" + std::to_string(KestrelPlatform::s_nConstantsBuffer) + "[0]";
    for (unsigned n = 0; n < m_Types.CountPointerWords(SpaceGlobal); ++n)
    {
        buffer.address.push_back(m_Machine.FixedWord(strElement, n));
    }
    const Words result = m_Machine.NewWords(1);
    m_Machine.Move(result, LiteralWord(0));
    const SWord isThere =
        buffer.address.size() == 1 ? buffer.address[0] : m_Machine.One("ior", {buffer.address[0], buffer.address[1]});
    Control("if_logicalnz", &isThere);
    const SWord old = EmitAtomic(buffer, "add", size, true);
    const SWord fits =
        m_Machine.One("uge", {LoadWords(buffer, s_nBytesOffset, 1)[0], m_Machine.One("iadd", {old, size})});
    m_Machine.Move(result, m_Machine.One("inot", {fits}));
    Control("if_logicalnz", &fits);
    StoreWords(AdvanceBy(buffer, old), 0, record);
    Control("endif");
    Control("endif");
    Set(call, result);
}

} // namespace KestrelOpenCL

#include "platform/opencl_c/driver/ExpandPrintf.h"

#include <llvm/Analysis/ValueTracking.h>
#include <llvm/IR/Constants.h>
#include <llvm/IR/DebugInfoMetadata.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/Module.h>
#include <llvm/Transforms/Utils/BasicBlockUtils.h>

#include <optional>

namespace KestrelOpenCL
{
namespace
{

const uint64_t s_nRecordWord = 4;
const uint64_t s_nBufferHeader = 2 * s_nRecordWord;
const uint64_t s_nRecordHeader = 3 * s_nRecordWord;
const unsigned int s_nGlobalSpace = 1;
const uint32_t s_nNoString = 0xFFFFFFFF;

/// Looks through a variable that only ever has one value: with "-g" a pointer to a literal goes through memory.
llvm::Value* LookThrough(llvm::Value* pValue)
{
    auto* const pLoad = llvm::dyn_cast<llvm::LoadInst>(pValue);
    if (pLoad == nullptr || !llvm::isa<llvm::AllocaInst>(pLoad->getPointerOperand()))
    {
        return pValue;
    }
    llvm::Value* pStored = nullptr;
    for (llvm::User* const pUser : pLoad->getPointerOperand()->users())
    {
        if (auto* const pStore = llvm::dyn_cast<llvm::StoreInst>(pUser))
        {
            if (pStored != nullptr || pStore->getValueOperand() == pLoad->getPointerOperand())
            {
                return pValue;
            }
            pStored = pStore->getValueOperand();
        }
        else if (!llvm::isa<llvm::LoadInst>(pUser) && !llvm::cast<llvm::Instruction>(pUser)->isDebugOrPseudoInst() &&
                 !llvm::cast<llvm::Instruction>(pUser)->isLifetimeStartOrEnd())
        {
            return pValue;
        }
    }
    return pStored != nullptr ? pStored : pValue;
}

std::optional<std::string> Literal(llvm::Value* pPointer)
{
    llvm::StringRef text;
    if (!llvm::getConstantStringInfo(LookThrough(pPointer), text))
    {
        return std::nullopt;
    }
    return text.str();
}

/// The expansion of one call.
class CExpansion
{
public:
    CExpansion(llvm::CallInst& call, std::string& strLog)
        : m_Call(call), m_Module(*call.getModule()), m_Builder(&call), m_strLog(strLog)
    {
    }

    /// Replaces the call. \return the format's node, null with an error in the log
    llvm::MDNode* Run(uint32_t nFormat);

private:
    void TakeArgument(llvm::Value* pArgument);
    void TakeElement(llvm::Value* pElement);
    void TakeString(llvm::Value* pArgument);
    llvm::Value* StringNumber(llvm::Value* pPointer);
    llvm::Value* Hidden(const char* pszRegister);
    llvm::Value* BufferAddress();
    void Replace(uint32_t nFormat);
    llvm::Value* Record(llvm::Value* pAddress, llvm::Value* pOffset);
    void WriteRecord(uint32_t nFormat, llvm::Value* pRecord);
    llvm::Value* Pointer(llvm::Value* pAddress, uint64_t nOffset);

    llvm::CallInst& m_Call;
    llvm::Module& m_Module;
    llvm::IRBuilder<> m_Builder;
    std::string& m_strLog;
    std::string m_strTypes;
    std::vector<std::string> m_vStrings;
    std::vector<llvm::Value*> m_vWords;
};

/// The value of a register that the launch sets, named as in "cb0_3_x".
llvm::Value* CExpansion::Hidden(const char* pszRegister)
{
    llvm::FunctionCallee callee = m_Module.getOrInsertFunction(std::string("__il_") + pszRegister,
                                                               llvm::FunctionType::get(m_Builder.getInt32Ty(), false));
    auto* const pFunction = llvm::cast<llvm::Function>(callee.getCallee());
    pFunction->setDoesNotAccessMemory();
    pFunction->setDoesNotThrow();
    pFunction->setWillReturn();
    pFunction->setCallingConv(llvm::CallingConv::SPIR_FUNC);
    llvm::CallInst* const pCall = m_Builder.CreateCall(callee);
    pCall->setCallingConv(llvm::CallingConv::SPIR_FUNC);
    return pCall;
}

llvm::Value* CExpansion::BufferAddress()
{
    llvm::Value* const pLow = Hidden("cb0_3_x");
    llvm::Type* const pType = m_Module.getDataLayout().getIntPtrType(m_Builder.getContext(), s_nGlobalSpace);
    if (pType->getIntegerBitWidth() == 32)
    {
        return pLow;
    }
    llvm::Value* const pHigh = m_Builder.CreateShl(m_Builder.CreateZExt(Hidden("cb0_3_y"), pType), 32);
    return m_Builder.CreateOr(m_Builder.CreateZExt(pLow, pType), pHigh);
}

llvm::Value* CExpansion::Pointer(llvm::Value* pAddress, uint64_t nOffset)
{
    llvm::Value* const pPlace = m_Builder.CreateAdd(pAddress, llvm::ConstantInt::get(pAddress->getType(), nOffset));
    return m_Builder.CreateIntToPtr(pPlace, llvm::PointerType::get(m_Builder.getContext(), s_nGlobalSpace));
}

void CExpansion::TakeElement(llvm::Value* pElement)
{
    llvm::Type* const pType = pElement->getType();
    const unsigned int nBits = static_cast<unsigned int>(m_Module.getDataLayout().getTypeSizeInBits(pType));
    if (pType->isPointerTy())
    {
        pElement = m_Builder.CreatePtrToInt(pElement, m_Builder.getIntNTy(nBits));
    }
    else if (!pType->isIntegerTy())
    {
        pElement = m_Builder.CreateBitCast(pElement, m_Builder.getIntNTy(nBits));
    }
    if (nBits <= 32)
    {
        m_vWords.push_back(m_Builder.CreateZExt(pElement, m_Builder.getInt32Ty()));
        return;
    }
    m_vWords.push_back(m_Builder.CreateTrunc(pElement, m_Builder.getInt32Ty()));
    m_vWords.push_back(m_Builder.CreateTrunc(m_Builder.CreateLShr(pElement, 32), m_Builder.getInt32Ty()));
}

/// The number of a literal among the call's strings, selected at run time if necessary.
llvm::Value* CExpansion::StringNumber(llvm::Value* pPointer)
{
    pPointer = LookThrough(pPointer);
    if (auto* const pSelect = llvm::dyn_cast<llvm::SelectInst>(pPointer))
    {
        llvm::Value* const pTrue = StringNumber(pSelect->getTrueValue());
        return m_Builder.CreateSelect(pSelect->getCondition(), pTrue, StringNumber(pSelect->getFalseValue()));
    }
    const std::optional<std::string> text = Literal(pPointer);
    if (!text)
    {
        return m_Builder.getInt32(s_nNoString);
    }
    m_vStrings.push_back(*text);
    return m_Builder.getInt32(static_cast<uint32_t>(m_vStrings.size() - 1));
}

void CExpansion::TakeString(llvm::Value* pArgument)
{
    m_strTypes += "s";
    m_vWords.push_back(StringNumber(pArgument));
}

/// Adds an argument's words, and adds its type to the list: a letter (i, f or p), the number of bits, and for a vector
/// "x" and its length.
void CExpansion::TakeArgument(llvm::Value* pArgument)
{
    m_strTypes += m_strTypes.empty() ? "" : ",";
    llvm::Type* const pType = pArgument->getType();
    llvm::Type* const pScalar = pType->getScalarType();
    if (pType->isPointerTy() && pType->getPointerAddressSpace() == 2)
    {
        TakeString(pArgument);
        return;
    }
    m_strTypes += pScalar->isFloatingPointTy() ? "f" : pScalar->isPointerTy() ? "p" : "i";
    m_strTypes += std::to_string(m_Module.getDataLayout().getTypeSizeInBits(pScalar));
    auto* const pVector = llvm::dyn_cast<llvm::FixedVectorType>(pType);
    if (pVector == nullptr)
    {
        TakeElement(pArgument);
        return;
    }
    m_strTypes += "x" + std::to_string(pVector->getNumElements());
    for (unsigned int i = 0; i < pVector->getNumElements(); ++i)
    {
        TakeElement(m_Builder.CreateExtractElement(pArgument, i));
    }
}

void CExpansion::WriteRecord(uint32_t nFormat, llvm::Value* pRecord)
{
    m_vWords.insert(m_vWords.begin(), {m_Builder.getInt32(static_cast<uint32_t>((m_vWords.size() + 3) * s_nRecordWord)),
                                       m_Builder.getInt32(nFormat), Hidden("reg_vThreadGrpIdFlat_x")});
    for (size_t i = 0; i < m_vWords.size(); ++i)
    {
        m_Builder.CreateAlignedStore(m_vWords[i], Pointer(pRecord, i * s_nRecordWord), llvm::Align(s_nRecordWord));
    }
}

/// if (address) { offset = atomic_add(used, bytes); if (it fits) write; else { atomic_sub(used, bytes); ++lost; } }
void CExpansion::Replace(uint32_t nFormat)
{
    const uint64_t nBytes = s_nRecordHeader + m_vWords.size() * s_nRecordWord;
    const auto Atomic = [&](llvm::AtomicRMWInst::BinOp eOperation, llvm::Value* pPointer, uint64_t nValue)
    {
        return m_Builder.CreateAtomicRMW(eOperation, pPointer, m_Builder.getInt32(static_cast<uint32_t>(nValue)),
                                         llvm::Align(s_nRecordWord), llvm::AtomicOrdering::Monotonic);
    };
    llvm::Value* const pAddress = BufferAddress();
    llvm::Value* const pListens = m_Builder.CreateIsNotNull(pAddress);
    llvm::Instruction* const pThen = llvm::SplitBlockAndInsertIfThen(pListens, &m_Call, false);
    m_Builder.SetInsertPoint(pThen);
    m_Builder.SetCurrentDebugLocation(m_Call.getDebugLoc());
    llvm::Value* const pOffset = Atomic(llvm::AtomicRMWInst::Add, Pointer(pAddress, 0), nBytes);
    llvm::Value* const pEnd = m_Builder.CreateAdd(pOffset, m_Builder.getInt32(static_cast<uint32_t>(nBytes)));
    llvm::Value* const pFits = m_Builder.CreateICmpULE(pEnd, Hidden("cb0_3_z"));
    llvm::Instruction* pWrite = nullptr;
    llvm::Instruction* pLost = nullptr;
    llvm::SplitBlockAndInsertIfThenElse(pFits, pThen, &pWrite, &pLost);
    m_Builder.SetInsertPoint(pWrite);
    llvm::Value* const pStart = m_Builder.CreateAdd(pAddress, m_Builder.CreateZExt(pOffset, pAddress->getType()));
    WriteRecord(nFormat, m_Builder.CreateAdd(pStart, llvm::ConstantInt::get(pStart->getType(), s_nBufferHeader)));
    m_Builder.SetInsertPoint(pLost);
    Atomic(llvm::AtomicRMWInst::Sub, Pointer(pAddress, 0), nBytes);
    Atomic(llvm::AtomicRMWInst::Add, Pointer(pAddress, s_nRecordWord), 1);

    llvm::BasicBlock* const pJoin = pThen->getParent();
    m_Builder.SetInsertPoint(&pJoin->front());
    llvm::PHINode* const pLostHere = m_Builder.CreatePHI(m_Builder.getInt32Ty(), 2);
    pLostHere->addIncoming(m_Builder.getInt32(0), pWrite->getParent());
    pLostHere->addIncoming(m_Builder.getInt32(s_nNoString), pLost->getParent());
    llvm::BasicBlock* const pTail = m_Call.getParent();
    m_Builder.SetInsertPoint(&pTail->front());
    llvm::PHINode* const pResult = m_Builder.CreatePHI(m_Builder.getInt32Ty(), 2);
    for (llvm::BasicBlock* const pFrom : llvm::predecessors(pTail))
    {
        pResult->addIncoming(pFrom == pJoin ? static_cast<llvm::Value*>(pLostHere) : m_Builder.getInt32(0), pFrom);
    }
    m_Call.replaceAllUsesWith(pResult);
    m_Call.eraseFromParent();
}

llvm::MDNode* CExpansion::Run(uint32_t nFormat)
{
    const std::optional<std::string> format = Literal(m_Call.getArgOperand(0));
    if (!format)
    {
        const llvm::DILocation* const pPlace = m_Call.getDebugLoc().get();
        m_strLog += (pPlace != nullptr ? pPlace->getFilename().str() + ":" + std::to_string(pPlace->getLine()) + ":" +
                                             std::to_string(pPlace->getColumn()) + ": "
                                       : std::string()) +
                    "error: the format of printf isn't a string literal\n";
        return nullptr;
    }
    for (unsigned int i = 1; i < m_Call.arg_size(); ++i)
    {
        TakeArgument(m_Call.getArgOperand(i));
    }
    llvm::LLVMContext& context = m_Builder.getContext();
    std::vector<llvm::Metadata*> vTexts = {llvm::MDString::get(context, m_strTypes),
                                           llvm::MDString::get(context, *format)};
    for (const std::string& strText : m_vStrings)
    {
        vTexts.push_back(llvm::MDString::get(context, strText));
    }
    Replace(nFormat);
    return llvm::MDNode::get(context, vTexts);
}

} // namespace

bool ExpandPrintf(llvm::Function& kernel, std::string& strLog)
{
    std::vector<llvm::CallInst*> vCalls;
    for (llvm::BasicBlock& block : kernel)
    {
        for (llvm::Instruction& instruction : block)
        {
            auto* const pCall = llvm::dyn_cast<llvm::CallInst>(&instruction);
            const llvm::Function* const pCallee = pCall != nullptr ? pCall->getCalledFunction() : nullptr;
            if (pCallee != nullptr && pCallee->getName() == "printf")
            {
                vCalls.push_back(pCall);
            }
        }
    }
    std::vector<llvm::Metadata*> vFormats;
    for (llvm::CallInst* const pCall : vCalls)
    {
        llvm::MDNode* const pFormat = CExpansion(*pCall, strLog).Run(static_cast<uint32_t>(vFormats.size()));
        if (pFormat == nullptr)
        {
            return false;
        }
        vFormats.push_back(pFormat);
    }
    if (!vFormats.empty())
    {
        kernel.setMetadata("kestrel.printf", llvm::MDNode::get(kernel.getContext(), vFormats));
    }
    return true;
}

} // namespace KestrelOpenCL

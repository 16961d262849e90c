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

const uint64_t s_nWord = 4;
const uint64_t s_nBufferHeader = 2 * s_nWord;
const uint64_t s_nRecordHeader = 3 * s_nWord;
const unsigned int s_nGlobalSpace = 1;
const uint32_t s_nNoString = 0xFFFFFFFF;

/// A variable that only ever has one value: at "-g" a pointer to a literal goes through memory.
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

/// One call on its way.
class CExpansion
{
public:
    CExpansion(llvm::CallInst& call, std::string& strLog)
        : m_call(call), m_module(*call.getModule()), m_builder(&call), m_strLog(strLog)
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

    llvm::CallInst& m_call;
    llvm::Module& m_module;
    llvm::IRBuilder<> m_builder;
    std::string& m_strLog;
    std::string m_strTypes;
    std::vector<std::string> m_vStrings;
    std::vector<llvm::Value*> m_vWords;
};

/// A value of a register that the launch sets: "cb0_3_x".
llvm::Value* CExpansion::Hidden(const char* pszRegister)
{
    llvm::FunctionCallee callee = m_module.getOrInsertFunction(std::string("__il_") + pszRegister,
                                                               llvm::FunctionType::get(m_builder.getInt32Ty(), false));
    auto* const pFunction = llvm::cast<llvm::Function>(callee.getCallee());
    pFunction->setDoesNotAccessMemory();
    pFunction->setDoesNotThrow();
    pFunction->setWillReturn();
    pFunction->setCallingConv(llvm::CallingConv::SPIR_FUNC);
    llvm::CallInst* const pCall = m_builder.CreateCall(callee);
    pCall->setCallingConv(llvm::CallingConv::SPIR_FUNC);
    return pCall;
}

llvm::Value* CExpansion::BufferAddress()
{
    llvm::Value* const pLow = Hidden("cb0_3_x");
    llvm::Type* const pType = m_module.getDataLayout().getIntPtrType(m_builder.getContext(), s_nGlobalSpace);
    if (pType->getIntegerBitWidth() == 32)
    {
        return pLow;
    }
    llvm::Value* const pHigh = m_builder.CreateShl(m_builder.CreateZExt(Hidden("cb0_3_y"), pType), 32);
    return m_builder.CreateOr(m_builder.CreateZExt(pLow, pType), pHigh);
}

llvm::Value* CExpansion::Pointer(llvm::Value* pAddress, uint64_t nOffset)
{
    llvm::Value* const pPlace = m_builder.CreateAdd(pAddress, llvm::ConstantInt::get(pAddress->getType(), nOffset));
    return m_builder.CreateIntToPtr(pPlace, llvm::PointerType::get(m_builder.getContext(), s_nGlobalSpace));
}

void CExpansion::TakeElement(llvm::Value* pElement)
{
    llvm::Type* const pType = pElement->getType();
    const unsigned int nBits = static_cast<unsigned int>(m_module.getDataLayout().getTypeSizeInBits(pType));
    if (pType->isPointerTy())
    {
        pElement = m_builder.CreatePtrToInt(pElement, m_builder.getIntNTy(nBits));
    }
    else if (!pType->isIntegerTy())
    {
        pElement = m_builder.CreateBitCast(pElement, m_builder.getIntNTy(nBits));
    }
    if (nBits <= 32)
    {
        m_vWords.push_back(m_builder.CreateZExt(pElement, m_builder.getInt32Ty()));
        return;
    }
    m_vWords.push_back(m_builder.CreateTrunc(pElement, m_builder.getInt32Ty()));
    m_vWords.push_back(m_builder.CreateTrunc(m_builder.CreateLShr(pElement, 32), m_builder.getInt32Ty()));
}

/// The number of a literal among the call's strings, chosen at run time if need be.
llvm::Value* CExpansion::StringNumber(llvm::Value* pPointer)
{
    pPointer = LookThrough(pPointer);
    if (auto* const pSelect = llvm::dyn_cast<llvm::SelectInst>(pPointer))
    {
        llvm::Value* const pTrue = StringNumber(pSelect->getTrueValue());
        return m_builder.CreateSelect(pSelect->getCondition(), pTrue, StringNumber(pSelect->getFalseValue()));
    }
    const std::optional<std::string> text = Literal(pPointer);
    if (!text)
    {
        return m_builder.getInt32(s_nNoString);
    }
    m_vStrings.push_back(*text);
    return m_builder.getInt32(static_cast<uint32_t>(m_vStrings.size() - 1));
}

void CExpansion::TakeString(llvm::Value* pArgument)
{
    m_strTypes += "s";
    m_vWords.push_back(StringNumber(pArgument));
}

/// Takes an argument's words, and adds its type to the list: a letter (i, f or p), the bits, and for a vector "x" and
/// its length.
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
    m_strTypes += std::to_string(m_module.getDataLayout().getTypeSizeInBits(pScalar));
    auto* const pVector = llvm::dyn_cast<llvm::FixedVectorType>(pType);
    if (pVector == nullptr)
    {
        TakeElement(pArgument);
        return;
    }
    m_strTypes += "x" + std::to_string(pVector->getNumElements());
    for (unsigned int i = 0; i < pVector->getNumElements(); ++i)
    {
        TakeElement(m_builder.CreateExtractElement(pArgument, i));
    }
}

void CExpansion::WriteRecord(uint32_t nFormat, llvm::Value* pRecord)
{
    m_vWords.insert(m_vWords.begin(), {m_builder.getInt32(static_cast<uint32_t>((m_vWords.size() + 3) * s_nWord)),
                                       m_builder.getInt32(nFormat), Hidden("reg_vThreadGrpIdFlat_x")});
    for (size_t i = 0; i < m_vWords.size(); ++i)
    {
        m_builder.CreateAlignedStore(m_vWords[i], Pointer(pRecord, i * s_nWord), llvm::Align(s_nWord));
    }
}

/// if (address) { offset = atomic_add(used, bytes); if (it fits) write; else { atomic_sub(used, bytes); ++lost; } }
void CExpansion::Replace(uint32_t nFormat)
{
    const uint64_t nBytes = s_nRecordHeader + m_vWords.size() * s_nWord;
    const auto Atomic = [&](llvm::AtomicRMWInst::BinOp eOperation, llvm::Value* pPointer, uint64_t nValue)
    {
        return m_builder.CreateAtomicRMW(eOperation, pPointer, m_builder.getInt32(static_cast<uint32_t>(nValue)),
                                         llvm::Align(s_nWord), llvm::AtomicOrdering::Monotonic);
    };
    llvm::Value* const pAddress = BufferAddress();
    llvm::Value* const pListens = m_builder.CreateIsNotNull(pAddress);
    llvm::Instruction* const pThen = llvm::SplitBlockAndInsertIfThen(pListens, &m_call, false);
    m_builder.SetInsertPoint(pThen);
    m_builder.SetCurrentDebugLocation(m_call.getDebugLoc());
    llvm::Value* const pOffset = Atomic(llvm::AtomicRMWInst::Add, Pointer(pAddress, 0), nBytes);
    llvm::Value* const pEnd = m_builder.CreateAdd(pOffset, m_builder.getInt32(static_cast<uint32_t>(nBytes)));
    llvm::Value* const pFits = m_builder.CreateICmpULE(pEnd, Hidden("cb0_3_z"));
    llvm::Instruction* pWrite = nullptr;
    llvm::Instruction* pLost = nullptr;
    llvm::SplitBlockAndInsertIfThenElse(pFits, pThen, &pWrite, &pLost);
    m_builder.SetInsertPoint(pWrite);
    llvm::Value* const pStart = m_builder.CreateAdd(pAddress, m_builder.CreateZExt(pOffset, pAddress->getType()));
    WriteRecord(nFormat, m_builder.CreateAdd(pStart, llvm::ConstantInt::get(pStart->getType(), s_nBufferHeader)));
    m_builder.SetInsertPoint(pLost);
    Atomic(llvm::AtomicRMWInst::Sub, Pointer(pAddress, 0), nBytes);
    Atomic(llvm::AtomicRMWInst::Add, Pointer(pAddress, s_nWord), 1);

    llvm::BasicBlock* const pJoin = pThen->getParent();
    m_builder.SetInsertPoint(&pJoin->front());
    llvm::PHINode* const pLostHere = m_builder.CreatePHI(m_builder.getInt32Ty(), 2);
    pLostHere->addIncoming(m_builder.getInt32(0), pWrite->getParent());
    pLostHere->addIncoming(m_builder.getInt32(s_nNoString), pLost->getParent());
    llvm::BasicBlock* const pTail = m_call.getParent();
    m_builder.SetInsertPoint(&pTail->front());
    llvm::PHINode* const pResult = m_builder.CreatePHI(m_builder.getInt32Ty(), 2);
    for (llvm::BasicBlock* const pFrom : llvm::predecessors(pTail))
    {
        pResult->addIncoming(pFrom == pJoin ? static_cast<llvm::Value*>(pLostHere) : m_builder.getInt32(0), pFrom);
    }
    m_call.replaceAllUsesWith(pResult);
    m_call.eraseFromParent();
}

llvm::MDNode* CExpansion::Run(uint32_t nFormat)
{
    const std::optional<std::string> format = Literal(m_call.getArgOperand(0));
    if (!format)
    {
        const llvm::DILocation* const pPlace = m_call.getDebugLoc().get();
        m_strLog += (pPlace != nullptr ? pPlace->getFilename().str() + ":" + std::to_string(pPlace->getLine()) + ":" +
                                             std::to_string(pPlace->getColumn()) + ": "
                                       : std::string()) +
                    "error: the format of printf isn't a string literal\n";
        return nullptr;
    }
    for (unsigned int i = 1; i < m_call.arg_size(); ++i)
    {
        TakeArgument(m_call.getArgOperand(i));
    }
    llvm::LLVMContext& context = m_builder.getContext();
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

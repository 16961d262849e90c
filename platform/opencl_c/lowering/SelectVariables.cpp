#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"
#include "llvm/IR/GlobalVariable.h"
#include "llvm/IR/InstIterator.h"
#include "llvm/IR/Operator.h"

namespace KestrelOpenCL
{
namespace
{

const unsigned s_nMaxVariableWords = 16; ///< a vector of 16 floats, or of 8 doubles

/// Whether a constant is the address of one of the program's constants, or is computed from one.
bool NamesConstant(const llvm::Constant& constant)
{
    if (const auto* pVariable = llvm::dyn_cast<llvm::GlobalVariable>(&constant))
    {
        return pVariable->getAddressSpace() != SpaceLocal;
    }
    return llvm::isa<llvm::ConstantExpr>(constant) &&
           llvm::any_of(constant.operands(),
                        [](const llvm::Use& use) { return NamesConstant(*llvm::cast<llvm::Constant>(use.get())); });
}

/// Whether a constant holds such an address, by itself or in one of its elements.
bool HoldsNames(const llvm::Constant& constant)
{
    return NamesConstant(constant) || (llvm::isa<llvm::ConstantAggregate>(constant) &&
                                       llvm::any_of(constant.operands(), [](const llvm::Use& use)
                                                    { return HoldsNames(*llvm::cast<llvm::Constant>(use.get())); }));
}

/// Whether reading through this pointer could give pointers to the program's constants.
bool LeadsToNames(const llvm::Value* pBase)
{
    const auto* const pVariable = llvm::dyn_cast<llvm::GlobalVariable>(pBase);
    return pVariable != nullptr && pVariable->hasInitializer() && HoldsNames(*pVariable->getInitializer());
}

/// Whether the instruction could observe the number of a local memory address.
bool ComparesLocal(const llvm::User& user)
{
    const unsigned nOpcode = llvm::Operator::getOpcode(&user);
    if (nOpcode == llvm::Instruction::ICmp || nOpcode == llvm::Instruction::PtrToInt)
    {
        const llvm::Type* const pType = user.getOperand(0)->getType();
        if (pType->isPointerTy() && pType->getPointerAddressSpace() == SpaceLocal)
        {
            return true;
        }
    }
    return llvm::any_of(user.operands(),
                        [](const llvm::Use& operand)
                        {
                            const auto* const pExpression = llvm::dyn_cast<llvm::ConstantExpr>(operand.get());
                            return pExpression != nullptr && ComparesLocal(*pExpression);
                        });
}

} // namespace

/// A variable fits in registers if it is only read and written as a whole.
bool CSelector::FitsVariable(Type* pAccess, Type* pVariable) const
{
    Type* const pA = pAccess->getScalarType();
    Type* const pB = pVariable->getScalarType();
    if (pAccess->isAggregateType() || m_Types.CountWords(pAccess) > s_nMaxVariableWords)
    {
        return false;
    }
    return pA == pB ||
           (m_Types.CountBits(pA) % 32 == 0 && m_Types.CountBits(pB) % 32 == 0 &&
            m_Types.CountBits(pA) * (m_Types.CountWords(pAccess) / m_Types.CountElementWords(pAccess)) ==
                m_Types.CountBits(pB) * (m_Types.CountWords(pVariable) / m_Types.CountElementWords(pVariable)));
}

bool CSelector::IsRegisterVariable(const llvm::AllocaInst& variable, unsigned& nWords, SRegisterVariable& found) const
{
    Type* const pType = variable.getAllocatedType();
    if (pType->isAggregateType() || variable.isArrayAllocation() || m_Types.CountWords(pType) > s_nMaxVariableWords)
    {
        return false;
    }
    nWords = m_Types.CountWords(pType);
    unsigned nStores = 0;
    for (const llvm::User* const pUser : variable.users())
    {
        Type* pAccess = nullptr;
        if (const auto* pLoad = llvm::dyn_cast<llvm::LoadInst>(pUser))
        {
            pAccess = pLoad->getType();
        }
        else if (const auto* pStore = llvm::dyn_cast<llvm::StoreInst>(pUser))
        {
            if (pStore->getValueOperand() == &variable)
            {
                return false;
            }
            pAccess = pStore->getValueOperand()->getType();
            ++nStores;
            found.pOnlyValue = nStores == 1 ? pStore->getValueOperand() : nullptr;
        }
        else if (const auto* pIntrinsic = llvm::dyn_cast<llvm::IntrinsicInst>(pUser))
        {
            if (!pIntrinsic->isLifetimeStartOrEnd())
            {
                return false;
            }
            continue;
        }
        if (pAccess == nullptr || !FitsVariable(pAccess, pType))
        {
            return false;
        }
        nWords = std::max(nWords, m_Types.CountWords(pAccess));
    }
    // A single store in a loop may store different values; a stored constant or argument is always the same.
    found.pArgument = llvm::dyn_cast_or_null<llvm::Argument>(found.pOnlyValue);
    if (found.pOnlyValue != nullptr && found.pArgument == nullptr && !llvm::isa<llvm::Constant>(found.pOnlyValue) &&
        !pType->isPointerTy())
    {
        found.pOnlyValue = nullptr;
    }
    return true;
}

const SRegisterVariable* CSelector::FindVariable(const Value* pPointer) const
{
    const auto* const pVariable = llvm::dyn_cast<llvm::AllocaInst>(pPointer);
    const auto it = pVariable != nullptr ? m_mapVariables.find(pVariable) : m_mapVariables.end();
    return it == m_mapVariables.end() ? nullptr : &it->second;
}

bool CSelector::FindPrivate(const Value* pVariable, uint32_t& nOffset) const
{
    const auto it = m_mapValues.find(pVariable);
    if (it == m_mapValues.end() || it->second.size() != 1 || it->second[0].eKind != SWord::Literal)
    {
        return false;
    }
    nOffset = it->second[0].nId;
    return true;
}

/// Notes whether pointers to the program's constants may turn up where their origin isn't known any more: after they
/// were stored in a variable, selected, or held in a constant of the program.
void CSelector::NoteConstants(const Instruction& instruction)
{
    m_bInlineConstants =
        m_bInlineConstants ||
        llvm::any_of(instruction.operands(), [this](const Value* pOperand)
                     { return pOperand->getType()->isPointerTy() && LeadsToNames(FindBase(pOperand)); });
    const bool bKnown = llvm::isa<llvm::LoadInst>(instruction) || llvm::isa<llvm::GetElementPtrInst>(instruction) ||
                        llvm::isa<llvm::MemIntrinsic>(instruction);
    if (bKnown)
    {
        return;
    }
    const auto* const pStore = llvm::dyn_cast<llvm::StoreInst>(&instruction);
    const Value* const pStored = pStore != nullptr ? pStore->getValueOperand() : nullptr;
    for (const Value* const pOperand : instruction.operands())
    {
        const auto* const pConstant = llvm::dyn_cast<llvm::Constant>(pOperand);
        const bool bNames = pConstant != nullptr ? NamesConstant(*pConstant)
                                                 : pOperand->getType()->isPointerTy() &&
                                                       llvm::isa<llvm::GlobalVariable>(FindBase(pOperand)) &&
                                                       pOperand->getType()->getPointerAddressSpace() != SpaceLocal;
        m_bInlineConstants = m_bInlineConstants || (bNames && (pStored == nullptr || pOperand == pStored));
    }
}

void CSelector::FindVariables()
{
    bool bComparesLocal = false;
    for (const Instruction& instruction : llvm::instructions(m_Kernel))
    {
        const auto* const pVariable = llvm::dyn_cast<llvm::AllocaInst>(&instruction);
        SRegisterVariable found;
        unsigned nWords = 0;
        if (pVariable != nullptr && FindArrayPointer(pVariable) == nullptr &&
            IsRegisterVariable(*pVariable, nWords, found))
        {
            found.pVariable = pVariable;
            m_mapVariables[pVariable] = found;
        }
        bComparesLocal = bComparesLocal || ComparesLocal(instruction);
    }
    for (auto& entry : m_mapVariables)
    {
        unsigned nWords = 0;
        SRegisterVariable again;
        IsRegisterVariable(*entry.first, nWords, again);
        if (entry.second.pArgument != nullptr)
        {
            continue;
        }
        entry.second.words = m_Machine.NewWords(nWords);
        for (const SWord& word : entry.second.words)
        {
            m_Machine.Registers()[word.nId].bPinned = true;
        }
    }
    for (const Instruction& instruction : llvm::instructions(m_Kernel))
    {
        NoteConstants(instruction);
    }
    if (bComparesLocal)
    {
        m_Storage.KeepLocalNull();
    }
    m_nAnyUav = s_nRawUav;
    for (const SKernelParameter& parameter : m_vParameters)
    {
        const bool bBuffer = parameter.eKind == SKernelParameter::Pointer && parameter.nSpace != SpaceLocal;
        m_nAnyUav = bBuffer && m_nAnyUav == s_nRawUav ? parameter.nNumber : m_nAnyUav;
    }
}

} // namespace KestrelOpenCL

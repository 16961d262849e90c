#include "platform/opencl_c/lowering/Selector.h"

#include "llvm/IR/Constants.h"
#include "llvm/IR/DataLayout.h"
#include "llvm/IR/GetElementPtrTypeIterator.h"
#include "llvm/IR/GlobalVariable.h"
#include "llvm/IR/Operator.h"
#include "llvm/Support/MathExtras.h"

namespace KestrelOpenCL
{
namespace
{

const unsigned s_nMaxSteps = 64; ///< backwards, when looking for a pointer's origin

} // namespace

/// An address plus a constant offset.
Words CSelector::AddOffset(llvm::ArrayRef<SWord> address, uint64_t nOffset)
{
    const SWord low = LiteralWord(static_cast<uint32_t>(nOffset));
    if (nOffset == 0)
    {
        return Words(address.begin(), address.end());
    }
    if (address.size() == 1)
    {
        return {m_Machine.One("iadd", {address[0], low})};
    }
    if (address[0].eKind == SWord::Literal && address[1].eKind == SWord::Literal)
    {
        const uint64_t nSum = ((static_cast<uint64_t>(address[1].nId) << 32) | address[0].nId) + nOffset;
        return {LiteralWord(static_cast<uint32_t>(nSum)), LiteralWord(static_cast<uint32_t>(nSum >> 32))};
    }
    const SWord high = LiteralWord(static_cast<uint32_t>(nOffset >> 32));
    return m_Machine.Pairs("i64add", 1, {address, llvm::ArrayRef<SWord>({low, high})});
}

/// An address plus an index times a constant; one instruction if the index has 32 bits.
Words CSelector::AddIndex(Words address, const Value* pIndex, uint64_t nStride)
{
    const auto* const pInstruction = llvm::dyn_cast<Instruction>(pIndex);
    const SWord stride = LiteralWord(static_cast<uint32_t>(nStride));
    if (address.size() == 1)
    {
        const SWord index = SignedSource(pIndex)[0];
        const bool bZero = address[0].IsLiteral(0);
        const bool bPower = llvm::isPowerOf2_64(nStride);
        return {nStride == 1      ? m_Machine.One("iadd", {index, address[0]})
                : bZero && bPower ? m_Machine.One("ishl", {index, LiteralWord(llvm::Log2_64(nStride))})
                : bZero           ? m_Machine.One("imul", {index, stride})
                                  : m_Machine.One("imad", {index, stride, address[0]})};
    }
    const bool bSmallStride = nStride < 0x80000000u;
    const unsigned nIndexWords = m_Types.CountElementWords(pIndex->getType());
    if (nIndexWords == 1 && bSmallStride)
    {
        return m_Machine.Pairs("vmad_i64_i32", 1, {SignedSource(pIndex), stride, address});
    }
    if (pInstruction != nullptr && bSmallStride && llvm::isa<llvm::CastInst>(pInstruction) &&
        m_Types.CountElementWords(pInstruction->getOperand(0)->getType()) == 1)
    {
        if (pInstruction->getOpcode() == Instruction::SExt)
        {
            return m_Machine.Pairs("vmad_i64_i32", 1, {SignedSource(pInstruction->getOperand(0)), stride, address});
        }
        if (pInstruction->getOpcode() == Instruction::ZExt)
        {
            const SWord index = Get(pIndex)[0];
            return m_Machine.Pairs("vmad_u64_u32", 1, {index, stride, address});
        }
    }
    const Words index = nIndexWords == 1 ? Words{SignedSource(pIndex)[0], LiteralWord(0)} : Get(pIndex);
    if (nStride == 1)
    {
        return m_Machine.Pairs("i64add", 1, {address, index});
    }
    const SWord high = LiteralWord(static_cast<uint32_t>(nStride >> 32));
    return m_Machine.Pairs("i64mad", 1, {index, llvm::ArrayRef<SWord>({stride, high}), address});
}

void CSelector::SelectGetElementPtr(const llvm::GetElementPtrInst& gep)
{
    if (gep.getType()->isVectorTy())
    {
        Fail(&gep, "a vector of pointers");
        return;
    }
    if (FindArrayPointer(gep.getPointerOperand()) != nullptr)
    {
        SelectArrayAddress(gep);
        return;
    }
    Words address = Get(gep.getPointerOperand());
    // Addresses of the program's constants have 32 bits.
    const bool bInline = address.size() == 2 && llvm::isa<llvm::GlobalVariable>(FindBase(gep.getPointerOperand()));
    address.resize(bInline ? 1 : address.size());
    // The program's index may be any number: the sum wraps around.
    uint64_t nOffset = 0;
    for (auto it = llvm::gep_type_begin(gep); it != llvm::gep_type_end(gep); ++it)
    {
        if (llvm::StructType* const pStruct = it.getStructTypeOrNull())
        {
            const auto nField = static_cast<unsigned>(llvm::cast<llvm::ConstantInt>(it.getOperand())->getZExtValue());
            nOffset += m_Types.GetLayout().getStructLayout(pStruct)->getElementOffset(nField);
            continue;
        }
        const uint64_t nStride = m_Types.GetLayout().getTypeAllocSize(it.getIndexedType());
        const Value* pIndex = it.getOperand();
        // The constant part of the index is added to the constant part of the address.
        const auto* const pSum = llvm::dyn_cast<llvm::BinaryOperator>(pIndex);
        const auto* const pPart =
            pSum != nullptr && pSum->getOpcode() == Instruction::Add && pSum->getType()->isIntegerTy(64)
                ? llvm::dyn_cast<llvm::ConstantInt>(pSum->getOperand(1))
                : nullptr;
        if (pPart != nullptr)
        {
            nOffset += static_cast<uint64_t>(pPart->getSExtValue()) * nStride;
            pIndex = pSum->getOperand(0);
        }
        if (const auto* pNumber = llvm::dyn_cast<llvm::ConstantInt>(pIndex))
        {
            nOffset += static_cast<uint64_t>(pNumber->getSExtValue()) * nStride;
            continue;
        }
        address = AddIndex(address, pIndex, nStride);
    }
    address = AddOffset(address, nOffset);
    if (bInline)
    {
        address.push_back(LiteralWord(0));
    }
    Set(gep, address);
}

/// The variable or argument that a pointer points into, or else the first value whose origin is unknown.
const llvm::Value* CSelector::FindBase(const Value* pPointer) const
{
    for (unsigned n = 0; n < s_nMaxSteps; ++n)
    {
        if (const auto* pGep = llvm::dyn_cast<llvm::GEPOperator>(pPointer))
        {
            pPointer = pGep->getPointerOperand();
        }
        else if (llvm::isa<llvm::BitCastOperator>(pPointer) || llvm::isa<llvm::AddrSpaceCastOperator>(pPointer))
        {
            pPointer = llvm::cast<llvm::Operator>(pPointer)->getOperand(0);
        }
        else if (const auto* pLoad = llvm::dyn_cast<llvm::LoadInst>(pPointer))
        {
            // A variable that is stored to once stands for the stored value.
            const SRegisterVariable* const pVariable = FindVariable(pLoad->getPointerOperand());
            const Value* const pOnly = pVariable != nullptr ? pVariable->pOnlyValue : nullptr;
            if (pOnly == nullptr)
            {
                return pPointer;
            }
            pPointer = pOnly;
        }
        else
        {
            return pPointer;
        }
    }
    return pPointer;
}

SPlace CSelector::GetPlace(const Value* pPointer)
{
    SPlace place;
    place.nSpace = pPointer->getType()->getPointerAddressSpace();
    if (const SArrayPointer* const pInto = FindArrayPointer(pPointer))
    {
        place.pArray = pInto->pArray;
        place.address = {pInto->index};
        place.nArrayOffset = pInto->nOffset;
        return place;
    }
    place.address = Get(pPointer);
    place.nUav = m_nAnyUav;
    const Value* const pBase = FindBase(pPointer);
    if (const auto* pArgument = llvm::dyn_cast<llvm::Argument>(pBase))
    {
        place.nUav = place.nSpace == SpaceGlobal || place.nSpace == SpaceConstant
                         ? m_vParameters[pArgument->getArgNo()].nNumber
                         : place.nUav;
        return place;
    }
    // Constants may be in every address space but local; those in private and global space are never written.
    place.bInline = llvm::isa<llvm::GlobalVariable>(pBase) && place.nSpace != SpaceLocal;
    place.bUnknown = !place.bInline && place.nSpace == SpaceConstant && m_bInlineConstants;
    return place;
}

SPlace CSelector::Advance(const SPlace& place, uint64_t nOffset)
{
    SPlace next = place;
    if (place.pArray != nullptr)
    {
        next.nArrayOffset += nOffset;
        return next;
    }
    next.address = AddOffset(place.address, nOffset);
    next.nAlignment = nOffset % 2 != 0 ? 1 : nOffset % 4 != 0 ? std::min(place.nAlignment, 2u) : place.nAlignment;
    return next;
}

} // namespace KestrelOpenCL

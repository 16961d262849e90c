#include "fuzz/LlvmMaker.h"

#include "fuzz/Targets.h"

#include "llvm/Bitcode/BitcodeWriter.h"
#include "llvm/IR/CFG.h"
#include "llvm/IR/IRBuilder.h"
#include "llvm/IR/LLVMContext.h"
#include "llvm/IR/Module.h"
#include "llvm/IR/Verifier.h"
#include "llvm/Support/raw_ostream.h"

#include <map>
#include <vector>

namespace KestrelFuzz
{

using namespace llvm;

namespace
{

const unsigned s_nMaxBlocks = 16;
const unsigned s_nMaxInstructions = 200;
const unsigned s_nIntegerBits[] = {1, 3, 8, 16, 24, 32, 33, 48, 64};
const unsigned s_nVectorSizes[] = {2, 3, 4, 8, 16};

/// Intrinsics with one, two and three operands, all of one integer type.
const Intrinsic::ID s_Unary[] = {Intrinsic::ctpop, Intrinsic::ctlz, Intrinsic::cttz, Intrinsic::abs};
const Intrinsic::ID s_Binary[] = {Intrinsic::smax,     Intrinsic::umin,     Intrinsic::smin,    Intrinsic::umax,
                                  Intrinsic::uadd_sat, Intrinsic::ssub_sat, Intrinsic::sadd_sat};
const Intrinsic::ID s_Overflow[] = {Intrinsic::uadd_with_overflow, Intrinsic::ssub_with_overflow,
                                    Intrinsic::umul_with_overflow};

/// One program under construction.
class CLlvmMaker
{
public:
    CLlvmMaker(const uint8_t* pData, size_t nSize, bool b64BitAddresses)
        : m_pData(pData), m_nSize(nSize), m_Module("made", m_Context), m_Builder(m_Context)
    {
        m_Module.setTargetTriple(b64BitAddresses ? "spir64-unknown-unknown" : "spir-unknown-unknown");
        m_Module.setDataLayout(std::string("e-") + (b64BitAddresses ? "" : "p:32:32-") +
                               "i64:64-v16:16-v24:32-v32:32-v48:64-v96:128-v192:256-v256:256-v512:512-v1024:1024");
    }

    std::string Make()
    {
        StartKernel();
        for (size_t n = 1; n < m_vBlocks.size(); ++n)
        {
            FillBlock(*m_vBlocks[n]);
        }
        for (BasicBlock* const pBlock : m_vBlocks)
        {
            FillPhis(*pBlock);
        }
        for (BasicBlock* const pBlock : m_vBlocks)
        {
            if (pred_empty(pBlock))
            {
                DropPhis(*pBlock);
            }
        }
        std::string strFault;
        raw_string_ostream fault(strFault);
        Require(!verifyModule(m_Module, &fault), "what is made is valid", strFault);
        std::string strObject;
        raw_string_ostream stream(strObject);
        WriteBitcodeToFile(m_Module, stream);
        return stream.str();
    }

private:
    /// A number below n, taken from the bytes; 0 when they are used up.
    unsigned Below(unsigned n)
    {
        const unsigned nByte = m_nSize > 0 ? *m_pData : 0;
        m_pData += m_nSize > 0 ? 1 : 0;
        m_nSize -= m_nSize > 0 ? 1 : 0;
        return nByte % n;
    }
    template <class T, size_t N>
    T PickFrom(const T (&items)[N])
    {
        return items[Below(N)];
    }

    Type* PickScalar()
    {
        const unsigned n = Below(11);
        return n == 0   ? m_Builder.getFloatTy()
               : n == 1 ? m_Builder.getDoubleTy()
                        : static_cast<Type*>(m_Builder.getIntNTy(s_nIntegerBits[n - 2]));
    }

    Type* PickType()
    {
        Type* const pScalar = PickScalar();
        return Below(3) != 0 ? pScalar : FixedVectorType::get(pScalar, PickFrom(s_nVectorSizes));
    }

    Constant* PickConstant(Type* pType)
    {
        if (auto* const pVector = dyn_cast<FixedVectorType>(pType))
        {
            std::vector<Constant*> vElements;
            for (unsigned n = 0; n < pVector->getNumElements(); ++n)
            {
                vElements.push_back(PickConstant(pVector->getElementType()));
            }
            return ConstantVector::get(vElements);
        }
        const unsigned n = Below(20);
        if (n == 0)
        {
            return UndefValue::get(pType);
        }
        if (pType->isIntegerTy())
        {
            static const int64_t s_numbers[] = {0, 1, -1, 2, 3, 31, 32, 63, 255, -128, 65535, INT32_MIN, INT64_MIN};
            return ConstantInt::getSigned(cast<IntegerType>(pType), PickFrom(s_numbers));
        }
        static const double s_numbers[] = {0.0, -0.0, 1.0, -1.5, 3e9, 1e-40, 1e300};
        return pType->isFloatingPointTy() ? ConstantFP::get(pType, PickFrom(s_numbers)) : Constant::getNullValue(pType);
    }

    /// Some value of a type: from this block, an argument or a constant.
    Value* PickValue(Type* pType)
    {
        std::vector<Value*> vFitting;
        for (Value* const pValue : m_vValues)
        {
            if (pValue->getType() == pType)
            {
                vFitting.push_back(pValue);
            }
        }
        return vFitting.empty() || Below(8) == 0 ? PickConstant(pType)
                                                 : vFitting[Below(static_cast<unsigned>(vFitting.size()))];
    }

    /// Any value of the block except structs.
    Value* PickAny() { return m_vValues[Below(static_cast<unsigned>(m_vValues.size()))]; }

    void StartKernel()
    {
        Type* const pGlobal = PointerType::get(m_Context, 1);
        auto* const pFunctionType =
            FunctionType::get(m_Builder.getVoidTy(), {pGlobal, pGlobal, m_Builder.getInt32Ty()}, false);
        m_pKernel = Function::Create(pFunctionType, Function::ExternalLinkage, "k", m_Module);
        m_pKernel->setCallingConv(CallingConv::SPIR_KERNEL);
        for (unsigned n = 2 + Below(s_nMaxBlocks); n > 0; --n)
        {
            m_vBlocks.push_back(BasicBlock::Create(m_Context, "", m_pKernel));
        }
        m_Builder.SetInsertPoint(m_vBlocks[0]);
        for (unsigned n = 1 + Below(6); n > 0; --n)
        {
            m_vCells.push_back(m_Builder.CreateAlloca(PickType()));
            m_Builder.CreateStore(PickConstant(m_vCells.back()->getAllocatedType()), m_vCells.back());
        }
        m_Builder.CreateBr(m_vBlocks[1]);
    }

    void FillBlock(BasicBlock& block)
    {
        m_Builder.SetInsertPoint(&block);
        m_vValues = {m_pKernel->getArg(2)};
        for (unsigned n = Below(3); n > 0; --n)
        {
            m_vValues.push_back(m_Builder.CreatePHI(PickScalar(), 2));
        }
        for (unsigned n = Below(8); n > 0 && m_nInstructions < s_nMaxInstructions; --n, ++m_nInstructions)
        {
            if (Value* const pValue = AddInstruction())
            {
                m_vValues.push_back(pValue);
            }
        }
        AddTerminator();
        m_mapValues[&block] = m_vValues;
    }

    /// A phi takes values that its predecessors have at their ends.
    void FillPhis(BasicBlock& block)
    {
        for (PHINode& phi : block.phis())
        {
            std::map<BasicBlock*, Value*> mapChosen; // several edges from one block must bring the same value
            for (BasicBlock* const pPred : predecessors(&block))
            {
                m_vValues = m_mapValues[pPred];
                Value*& pChosen = mapChosen[pPred];
                pChosen = pChosen != nullptr ? pChosen : PickValue(phi.getType());
                phi.addIncoming(pChosen, pPred);
            }
        }
    }

    /// Unreachable blocks would have phis without values, which LLVM doesn't accept.
    static void DropPhis(BasicBlock& block)
    {
        while (auto* const pPhi = dyn_cast<PHINode>(&block.front()))
        {
            pPhi->replaceAllUsesWith(UndefValue::get(pPhi->getType()));
            pPhi->eraseFromParent();
        }
    }

    void AddTerminator()
    {
        const auto Target = [this] { return m_vBlocks[1 + Below(static_cast<unsigned>(m_vBlocks.size()) - 1)]; };
        switch (Below(8))
        {
        case 0:
            m_Builder.CreateRetVoid();
            return;
        case 1:
            Below(4) == 0 ? m_Builder.CreateUnreachable() : static_cast<Instruction*>(m_Builder.CreateBr(Target()));
            return;
        case 2:
        case 3:
        {
            IntegerType* const pType = m_Builder.getIntNTy(PickFrom(s_nIntegerBits));
            SwitchInst* const pSwitch = m_Builder.CreateSwitch(PickValue(pType), Target());
            for (unsigned n = Below(6); n > 0; --n)
            {
                auto* const pCase = dyn_cast<ConstantInt>(PickConstant(pType));
                if (pCase != nullptr && pSwitch->findCaseValue(pCase) == pSwitch->case_default())
                {
                    pSwitch->addCase(pCase, Target());
                }
            }
            return;
        }
        default:
            m_Builder.CreateCondBr(PickValue(m_Builder.getInt1Ty()), Target(), Target());
            return;
        }
    }

    /// \return the new value; null for none
    Value* AddInstruction()
    {
        Value* const pA = PickAny();
        Type* const pType = pA->getType();
        switch (Below(12))
        {
        case 0:
        case 1:
        {
            AllocaInst* const pCell = m_vCells[Below(static_cast<unsigned>(m_vCells.size()))];
            return m_Builder.CreateLoad(pCell->getAllocatedType(), pCell);
        }
        case 2:
        {
            AllocaInst* const pCell = m_vCells[Below(static_cast<unsigned>(m_vCells.size()))];
            m_Builder.CreateStore(PickValue(pCell->getAllocatedType()), pCell);
            return nullptr;
        }
        case 3:
            return AddMemoryAccess();
        case 4:
        case 5:
            return AddArithmetic(pA, PickValue(pType));
        case 6:
            return AddComparison(pA, PickValue(pType));
        case 7:
            return m_Builder.CreateSelect(PickValue(m_Builder.getInt1Ty()), pA, PickValue(pType));
        case 8:
        case 9:
            return AddCast(pA);
        case 10:
            return AddOfVector(pA);
        default:
            return AddIntrinsic(pA);
        }
    }

    Value* AddMemoryAccess()
    {
        Type* const pType = PickType();
        Value* const pIndex = PickValue(Below(2) == 0 ? m_Builder.getInt32Ty() : m_Builder.getInt64Ty());
        Value* const pPlace = m_Builder.CreateGEP(pType, m_pKernel->getArg(Below(2)), pIndex);
        if (Below(2) == 0)
        {
            return m_Builder.CreateLoad(pType, pPlace);
        }
        m_Builder.CreateStore(PickValue(pType), pPlace);
        return nullptr;
    }

    Value* AddArithmetic(Value* pA, Value* pB)
    {
        static const Instruction::BinaryOps s_integer[] = {
            Instruction::Add,  Instruction::Sub,  Instruction::Mul,  Instruction::And,  Instruction::Or,
            Instruction::Xor,  Instruction::Shl,  Instruction::LShr, Instruction::AShr, Instruction::UDiv,
            Instruction::SDiv, Instruction::URem, Instruction::SRem};
        static const Instruction::BinaryOps s_float[] = {Instruction::FAdd, Instruction::FSub, Instruction::FMul,
                                                         Instruction::FDiv};
        return m_Builder.CreateBinOp(pA->getType()->isIntOrIntVectorTy() ? PickFrom(s_integer) : PickFrom(s_float), pA,
                                     pB);
    }

    Value* AddComparison(Value* pA, Value* pB)
    {
        const bool bInteger = pA->getType()->isIntOrIntVectorTy();
        const unsigned nFirst = bInteger ? CmpInst::FIRST_ICMP_PREDICATE : CmpInst::FIRST_FCMP_PREDICATE;
        const unsigned nLast = bInteger ? CmpInst::LAST_ICMP_PREDICATE : CmpInst::LAST_FCMP_PREDICATE;
        return m_Builder.CreateCmp(static_cast<CmpInst::Predicate>(nFirst + Below(nLast - nFirst + 1)), pA, pB);
    }

    Value* AddCast(Value* pA)
    {
        Type* const pFrom = pA->getType();
        Type* pTo = PickScalar();
        if (auto* const pVector = dyn_cast<FixedVectorType>(pFrom))
        {
            pTo = FixedVectorType::get(pTo, pVector->getNumElements());
        }
        static const Instruction::CastOps s_casts[] = {
            Instruction::Trunc,  Instruction::ZExt,   Instruction::SExt,    Instruction::FPToSI, Instruction::FPToUI,
            Instruction::SIToFP, Instruction::UIToFP, Instruction::FPTrunc, Instruction::FPExt,  Instruction::BitCast};
        const unsigned nFirst = Below(10);
        for (unsigned n = 0; n < 10; ++n)
        {
            const Instruction::CastOps eCast = s_casts[(nFirst + n) % 10];
            if (CastInst::castIsValid(eCast, pFrom, pTo))
            {
                return m_Builder.CreateCast(eCast, pA, pTo);
            }
        }
        return nullptr;
    }

    Value* AddOfVector(Value* pA)
    {
        auto* const pVector = dyn_cast<FixedVectorType>(pA->getType());
        if (pVector == nullptr)
        {
            return m_Builder.CreateVectorSplat(PickFrom(s_nVectorSizes), pA);
        }
        const unsigned nCount = pVector->getNumElements();
        Value* const pIndex = Below(2) == 0 ? PickValue(m_Builder.getInt32Ty()) : m_Builder.getInt32(Below(nCount));
        switch (Below(3))
        {
        case 0:
            return m_Builder.CreateExtractElement(pA, pIndex);
        case 1:
            return m_Builder.CreateInsertElement(pA, PickValue(pVector->getElementType()), pIndex);
        default:
        {
            std::vector<int> vMask(PickFrom(s_nVectorSizes));
            for (int& nElement : vMask)
            {
                nElement = static_cast<int>(Below(2 * nCount + 1)) - 1;
            }
            return m_Builder.CreateShuffleVector(pA, PickValue(pVector), vMask);
        }
        }
    }

    Value* AddIntrinsic(Value* pA)
    {
        Type* const pType = pA->getType();
        if (!pType->isIntOrIntVectorTy())
        {
            return m_Builder.CreateFNeg(pA);
        }
        Value* const pB = PickValue(pType);
        switch (Below(5))
        {
        case 0:
        {
            const Intrinsic::ID nId = PickFrom(s_Unary);
            return nId == Intrinsic::ctpop
                       ? m_Builder.CreateUnaryIntrinsic(nId, pA)
                       : m_Builder.CreateIntrinsic(nId, {pType}, {pA, m_Builder.getInt1(Below(2) != 0)});
        }
        case 1:
            return m_Builder.CreateBinaryIntrinsic(PickFrom(s_Binary), pA, pB);
        case 2:
            return m_Builder.CreateIntrinsic(Below(2) == 0 ? Intrinsic::fshl : Intrinsic::fshr, {pType},
                                             {pA, pB, PickValue(pType)});
        case 3:
            return m_Builder.CreateExtractValue(m_Builder.CreateBinaryIntrinsic(PickFrom(s_Overflow), pA, pB),
                                                {Below(2)});
        default:
            return m_Builder.CreateFreeze(pA);
        }
    }

    const uint8_t* m_pData;
    size_t m_nSize;
    LLVMContext m_Context;
    Module m_Module;
    IRBuilder<> m_Builder;
    Function* m_pKernel = nullptr;
    std::vector<BasicBlock*> m_vBlocks; ///< the entry comes first; nothing jumps there
    std::vector<AllocaInst*> m_vCells;
    std::vector<Value*> m_vValues; ///< usable in the current block
    std::map<BasicBlock*, std::vector<Value*>> m_mapValues;
    unsigned m_nInstructions = 0;
};

} // namespace

std::string MakeLlvmObject(const uint8_t* pData, size_t nSize, bool b64BitAddresses)
{
    return CLlvmMaker(pData, nSize, b64BitAddresses).Make();
}

} // namespace KestrelFuzz

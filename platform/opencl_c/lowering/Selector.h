#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_SELECTOR_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_SELECTOR_H

#include "platform/opencl_c/lowering/KernelParameters.h"
#include "platform/opencl_c/lowering/MachineCode.h"
#include "platform/opencl_c/lowering/Storage.h"
#include "platform/opencl_c/lowering/TempArrays.h"
#include "platform/opencl_c/lowering/ValueTypes.h"

#include "llvm/ADT/DenseMap.h"
#include "llvm/ADT/DenseSet.h"
#include "llvm/ADT/MapVector.h"
#include "llvm/IR/Instructions.h"
#include "llvm/IR/IntrinsicInst.h"

#include <map>
#include <string>
#include <vector>

namespace KestrelOpenCL
{

/// A source variable that is in registers throughout the function.
struct SRegisterVariable
{
    const llvm::AllocaInst* pVariable = nullptr;
    Words words;
    /// The only value that is ever stored to it, if there is just one.
    const llvm::Value* pOnlyValue = nullptr;
    /// The same if it is an argument: the variable then uses the argument's words and has no registers of its own.
    const llvm::Argument* pArgument = nullptr;
};

/// A pointer's words, and what is known about its target.
struct SPlace
{
    unsigned nSpace = 0;
    Words address;
    bool bInline = false;  ///< certainly among the program's constants
    bool bUnknown = false; ///< a constant pointer, to the program's constants or to a buffer
    uint32_t nUav = 0;
    unsigned nAlignment = 4; ///< known alignment of the address: 1, 2 or 4
    /// In an array of temps, the address is a register's index; nArrayOffset is a distance in bytes from there.
    const STempArray* pArray = nullptr;
    uint64_t nArrayOffset = 0;
};

/// Translates the instructions of one kernel into IL instructions over virtual registers. The region tree handles the
/// flow between blocks; copies into phis are kept for each edge.
class CSelector
{
public:
    CSelector(llvm::Function& kernel, const KestrelPlatform::SDeviceTarget& target, bool bDebug);

    /// \param vBlocks the blocks to translate, each before those that it dominates
    bool Run(const std::vector<llvm::BasicBlock*>& vBlocks);

    SKernelCode& GetCode() { return m_Code; }
    const CStorage& GetStorage() const { return m_Storage; }
    const std::vector<SKernelParameter>& GetParameters() const { return m_vParameters; }
    const std::vector<SSourceSampler>& GetSamplers() const { return m_vSamplers; }
    const std::string& GetFaults() const { return m_strFaults; }
    unsigned GetBlockNumber(const llvm::BasicBlock* pBlock) const { return m_mapBlocks.lookup(pBlock); }

    const llvm::MapVector<const llvm::AllocaInst*, SRegisterVariable>& GetVariables() const { return m_mapVariables; }
    const TempArrays& GetArrays() const { return m_mapArrays; }
    bool UsesLocal() const { return m_bLocal; }
    /// The offset of a variable or of a struct passed by value in private memory. \return false if it isn't there
    bool FindPrivate(const llvm::Value* pVariable, uint32_t& nOffset) const;

private:
    using Instruction = llvm::Instruction;
    using Value = llvm::Value;
    using Type = llvm::Type;

    // Values, in SelectValues.cpp
    Words Get(const Value* pValue);
    Words GetConstant(const llvm::Constant& constant);
    Words GetExpression(const llvm::ConstantExpr& expression);
    SWord GetWord(const Value* pValue) { return Get(pValue)[0]; }
    void Set(const Instruction& instruction, Words words);
    void SetArgument(const llvm::Argument& argument);
    void LoadArguments();
    void BindVariables();
    bool ToleratesHighBits(const Instruction& instruction) const;
    Words Clean(llvm::ArrayRef<SWord> words, Type* pType);
    Words SignExtend(llvm::ArrayRef<SWord> words, Type* pType);
    Words SignedSource(const Value* pValue);
    void SetNarrow(const Instruction& instruction, Words words);
    SWord ParameterWord(uint32_t nByteOffset);

    bool Fail(const Instruction* pInstruction, const std::string& strWhat);
    void Select(const Instruction& instruction);
    void SelectTerminator(const llvm::BasicBlock& block);
    SCondition MakeCondition(const Value* pCondition);
    void CollectCopies(const llvm::BasicBlock& block);

    // SelectArithmetic.cpp
    void SelectBinary(const llvm::BinaryOperator& op);
    void SelectWideBinary(const llvm::BinaryOperator& op);
    bool FusesIntoAdd(const Instruction& instruction) const;
    bool SelectProductAndSum(const llvm::BinaryOperator& op);
    void SelectFNeg(const llvm::UnaryOperator& op);

    // SelectCompares.cpp
    void SelectICmp(const llvm::ICmpInst& compare);
    void SelectFCmp(const llvm::FCmpInst& compare);
    Words CompareIntegers(llvm::CmpInst::Predicate ePredicate, Words a, Words b, unsigned nElementWords);
    Words CompareFloats(llvm::CmpInst::Predicate ePredicate, Words a, Words b, Type* pType);
    void SelectSelect(const llvm::SelectInst& select);

    // SelectCasts.cpp
    void SelectCast(const llvm::CastInst& cast);
    void SelectBitCast(const llvm::CastInst& cast);
    void SelectTrunc(const llvm::CastInst& cast);
    void SelectExtend(const llvm::CastInst& cast);
    void SelectFloatToInteger(const llvm::CastInst& cast);
    void SelectConditionToFloat(const llvm::CastInst& cast);
    void SelectIntegerToFloat(const llvm::CastInst& cast);
    void SelectFloatResize(const llvm::CastInst& cast);
    Words LongToFloat(llvm::ArrayRef<SWord> pair, bool bSigned);
    Words Reinterpret(llvm::ArrayRef<SWord> words, Type* pFrom, Type* pTo);

    // SelectAggregates.cpp
    void SelectExtractElement(const llvm::ExtractElementInst& extract);
    void SelectInsertElement(const llvm::InsertElementInst& insert);
    void SelectShuffle(const llvm::ShuffleVectorInst& shuffle);
    void SelectExtractValue(const llvm::ExtractValueInst& extract);
    void SelectInsertValue(const llvm::InsertValueInst& insert);
    unsigned FirstWord(Type* pType, llvm::ArrayRef<unsigned> indices, Type*& pElement) const;

    // SelectAddresses.cpp
    void SelectGetElementPtr(const llvm::GetElementPtrInst& gep);
    Words AddIndex(Words address, const Value* pIndex, uint64_t nStride);
    Words AddOffset(llvm::ArrayRef<SWord> address, uint64_t nOffset);
    const Value* FindBase(const Value* pPointer) const;
    SPlace GetPlace(const Value* pPointer);
    SPlace Advance(const SPlace& place, uint64_t nOffset);

    // SelectArrays.cpp
    struct SArrayPointer
    {
        const STempArray* pArray = nullptr;
        SWord index;
        uint64_t nOffset = 0;
    };
    void FindArrays();
    const SArrayPointer* FindArrayPointer(const Value* pPointer) const;
    void SelectArrayAddress(const llvm::GetElementPtrInst& gep);
    static int64_t FindArrayRegister(const SPlace& place, uint64_t nWord, unsigned& nComponent);
    uint32_t NameArray(const SPlace& place, int64_t nDistance);
    Words LoadArray(const SPlace& place, unsigned nCount);
    void StoreArray(const SPlace& place, llvm::ArrayRef<SWord> words);

    // SelectVariables.cpp
    void FindVariables();
    void NoteConstants(const Instruction& instruction);
    bool IsRegisterVariable(const llvm::AllocaInst& variable, unsigned& nWords, SRegisterVariable& found) const;
    bool FitsVariable(Type* pAccess, Type* pVariable) const;
    const SRegisterVariable* FindVariable(const Value* pPointer) const;

    // SelectMemory.cpp
    void SelectLoad(const llvm::LoadInst& load);
    void SelectStore(const llvm::StoreInst& store);
    Words LoadValue(const SPlace& place, Type* pType, bool bSigned);
    void StoreValue(const SPlace& place, Type* pType, llvm::ArrayRef<SWord> words);
    Words LoadBytes(const SPlace& place, uint64_t nBytes);
    SWord LoadSmall(const SPlace& place, uint64_t nOffset, unsigned nBytes, bool bSigned);
    Words LoadWords(const SPlace& place, uint64_t nOffset, unsigned nCount);
    void StoreSmall(const SPlace& place, uint64_t nOffset, unsigned nBytes, SWord word);
    void StoreWords(const SPlace& place, uint64_t nOffset, llvm::ArrayRef<SWord> words);
    Words LoadRaw(const SPlace& place, unsigned nCount);
    Words LoadInline(const SPlace& place, unsigned nCount);
    Words LoadInlineBetween(const SPlace& place, unsigned nCount);
    Words LoadEither(const SPlace& place, unsigned nCount, llvm::function_ref<Words(const SPlace&)> load);
    std::string Mnemonic(const SPlace& place, const char* pszUav, const char* pszLocal) const;

    // SelectBlocks.cpp
    void SelectMemTransfer(const llvm::MemTransferInst& copy);
    void SelectMemSet(const llvm::MemSetInst& set);
    template <class TBody>
    void Repeat(SWord end, uint32_t nStep, std::initializer_list<llvm::ArrayRef<SWord>> kept, TBody body);
    SPlace AdvanceBy(const SPlace& place, SWord offset);
    void Control(const char* pszMnemonic, const SWord* pCondition = nullptr);

    // SelectAtomics.cpp
    void SelectAtomic(const llvm::AtomicRMWInst& atomic);
    void SelectCompareExchange(const llvm::AtomicCmpXchgInst& exchange);
    SWord EmitAtomic(const SPlace& place, const char* pszOperation, llvm::ArrayRef<SWord> values, bool bResult);

    // SelectIntrinsics.cpp, SelectOverflow.cpp
    void SelectCall(const llvm::CallInst& call);
    bool SelectIntrinsic(const llvm::IntrinsicInst& call);
    Words CountZeros(Words words, Type* pType, bool bLeading);
    Words ByteSwap(Words words, Type* pType);
    Words FunnelShiftPair(const Words& high, const Words& low, const SWord& amount, bool bLeft);
    Words FunnelShift(const llvm::IntrinsicInst& call, bool bLeft);
    Words Saturating(const llvm::IntrinsicInst& call);
    Words WithOverflow(const llvm::IntrinsicInst& call);
    Words MinMax(const llvm::IntrinsicInst& call);

    // SelectBuiltins.cpp
    bool SelectBuiltin(const llvm::CallInst& call, llvm::StringRef name);
    bool SelectTranslated(const llvm::CallInst& call, llvm::StringRef name);
    Words ConvertSaturating(llvm::StringRef mnemonic, const Words& source, unsigned nResultWords);
    bool SelectInstruction(const llvm::CallInst& call, llvm::StringRef mnemonic);
    void SelectFence(const llvm::CallInst& call, bool bBarrier);

    // SelectImages.cpp
    bool SelectImage(const llvm::CallInst& call, llvm::StringRef name);
    const SKernelParameter* FindParameter(const Value* pValue) const;
    int FindSampler(const Value* pValue);

    llvm::Function& m_Kernel;
    const KestrelPlatform::SDeviceTarget& m_Target;
    bool m_bDebug;
    CValueTypes m_Types;
    SKernelCode m_Code;
    CMachine& m_Machine = m_Code.machine;
    CStorage m_Storage;
    std::vector<SKernelParameter> m_vParameters;
    std::vector<SSourceSampler> m_vSamplers;
    uint32_t m_nSamplerArguments = 0;
    llvm::DenseMap<const llvm::BasicBlock*, unsigned> m_mapBlocks;
    llvm::DenseMap<const Value*, Words> m_mapValues;
    llvm::MapVector<const llvm::AllocaInst*, SRegisterVariable> m_mapVariables;
    TempArrays m_mapArrays;
    llvm::DenseMap<const Value*, SArrayPointer> m_mapArrayPointers;
    llvm::DenseSet<const Value*> m_setSigned; ///< loaded with sign extension
    uint32_t m_nAnyUav = 0;                   ///< for pointers of unknown origin
    bool m_bInlineConstants = false;          ///< pointers to the program's constants may be anywhere
    bool m_bLocal = false;
    std::string m_strFaults;
};

} // namespace KestrelOpenCL

#endif

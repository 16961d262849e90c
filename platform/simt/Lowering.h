#ifndef KESTREL_PLATFORM_SIMT_LOWERING_H
#define KESTREL_PLATFORM_SIMT_LOWERING_H

#include "platform/simt/LaneRules.h"
#include "platform/simt/Program.h"

#include <bit>
#include <initializer_list>
#include <map>
#include <memory_resource>
#include <string>
#include <unordered_map>
#include <vector>

#include <boost/container/static_vector.hpp>

namespace KestrelPlatform
{

constexpr uint32_t s_nSignBit = 0x80000000; ///< of a float

/// The bits of a float.
constexpr uint32_t FloatBits(float f)
{
    return std::bit_cast<uint32_t>(f);
}

/// The bits of a double's high word.
constexpr uint32_t HighDoubleBits(double f)
{
    return static_cast<uint32_t>(std::bit_cast<uint64_t>(f) >> 32);
}

/// Lowers bodies to steps. Each object makes one SCode.
///
/// Registers become rows. Literals and constant buffer words become rows that a launch fills once. So
/// nearly every step is one operation on whole rows. Operand modifiers use scratch rows, which are valid
/// for one instruction.
class CLowering
{
public:
    CLowering(const SDecodedStream& stream, const SStructure& structure, bool bTrace, SCode& code, SDecodeError& error);

    bool Run();

private:
    typedef ELaneType T;
    static constexpr uint32_t s_nOne = 0x3F800000; ///< 1.0f
    static constexpr size_t s_nBufferBytes = 16384;

    /// The work for one component, collected until it is known whether the destination can be written directly.
    struct SPart
    {
        uint32_t nOp;
        SLaneRows rows;
    };
    typedef boost::container::static_vector<SPart, 4> CParts;

    /// An open if, loop, switch or body.
    struct SOpenBlock
    {
        uint32_t nRows[3] = {0, 0, 0}; ///< as in the step that opens it
        uint32_t nStep = 0;
        uint32_t nDefault = 0;             ///< switch: the step of its default; 0 before that is reached
        std::vector<uint32_t> vPending;    ///< steps that jump to the next join of this block
        std::vector<uint32_t> vLaterCases; ///< switch: the values of cases after the default
    };

    struct SLiteral
    {
        uint32_t nItem;
        uint32_t nValues[4];
        uint32_t nRows[4]; ///< rows of the values; 0 for values not used yet
    };

    bool Fail(const std::string& strReason);

    // Declarations, in Lowering.cpp
    void CollectDeclarations();
    void DeclareUav(const SItem& item);
    void DeclareLiteral(uint32_t nItem);
    void DeclareLocal();
    void Declare(const SItem& item);
    void PlacePrivate();
    void DeclareBuffer(const SItem& item);

    // Bodies and flow control, in LoweringFlow.cpp
    bool LowerBody(uint32_t nBody);
    bool LowerItem(uint32_t nIndex);
    bool LowerFlow();
    void LowerSwitch();
    void LowerCase();
    bool EndsBody(ILOpCode eOpCode) const;
    void LowerLeave(ILOpCode eOpCode);
    bool LowerCall();
    void CloseBlock(EMicroKind eKind);
    uint32_t ConditionRow(ILOpCode eOpCode, bool& bInvert);
    uint32_t RelationRow(const SOperand& a, const SOperand& b);
    SMicroOp& EmitFlow(EMicroKind eKind);
    void Pend(uint32_t nStep);
    void ResolvePending();

    // Operands, in LoweringOperands.cpp
    uint32_t NewRows(uint32_t nCount);
    uint32_t MaskRows(uint32_t nCount);
    uint32_t Scratch();
    uint32_t ConstantRow(uint32_t nValue);
    uint32_t RegisterRow(const SOperand& operand);
    uint32_t RegisterRow(uint32_t nType, int32_t nNumber, uint32_t nBody);
    uint32_t NewRegister();
    uint32_t IdRow(uint32_t nType, uint32_t nComponent);
    uint32_t LiteralRow(const SOperand& operand, uint32_t nComponent);
    uint32_t BufferRow(const SOperand& operand, uint32_t nComponent);
    uint32_t ArrayRow(const SOperand& operand, uint32_t nComponent);
    uint32_t IndexRow(const SOperand& operand);
    uint32_t IndexedLoad(const SOperand& operand, bool bConstant, uint32_t nArray, uint32_t nComponent);
    void Outside(uint32_t nIndex, bool bWrite);
    uint32_t Component(const SOperand& operand, uint32_t nComponent);
    uint32_t Source(const SOperand& operand, uint32_t nComponent, T eType);
    uint32_t ModifiedFloat(const SOperand& operand, uint32_t nComponent, uint32_t nRow);
    void SourcePair(const SOperand& operand, uint32_t nPair, T eType, uint16_t* pRows);
    uint32_t Unary(ELaneOp eOp, uint32_t nRow);
    uint32_t Binary(ELaneOp eOp, uint32_t nA, uint32_t nB);
    uint32_t Ternary(ELaneOp eOp, uint32_t nA, uint32_t nB, uint32_t nC);
    void EmitLane(uint32_t nOp, const SLaneRows& rows);
    void EmitMove(uint32_t nTo, uint32_t nFrom);
    SMicroOp& EmitStep(EMicroKind eKind);

    /// Of the item that is being lowered.
    const SOperand& Destination() const { return m_vOperands[0]; }
    const SOperand& Operand(uint32_t nSource) const { return m_vOperands[(m_pItem->bDestination ? 1 : 0) + nSource]; }

    // Destinations, in LoweringDestinations.cpp
    bool Writes(uint32_t nComponent) const;
    bool IsPlainDestination(const SOperand& operand) const;
    bool BeginDestination(T eType, const CParts& parts);
    uint32_t Target(uint32_t nComponent) const { return m_nTargets[nComponent]; }
    void FinishDestination();
    void Scale(uint32_t nRow, uint32_t nHighRow);
    void StoreComponent(uint32_t nComponent, uint32_t nRow);

    // Rules, in LoweringRules.cpp
    bool LowerRule(uint32_t nOp);
    void AddParts(uint32_t nOp, const SLaneRule& rule, CParts& parts);
    bool WriteParts(T eType, CParts& parts);
    bool ClearsAtStart();
    bool WriteRows(T eType, const uint32_t* pRows);
    bool WriteAll(T eType, uint32_t nRow);
    bool LowerSpecial();
    bool LowerVectorProduct();
    bool LowerNormalize(bool bHalf);
    bool LowerReflect();
    bool LowerCompareSelect();
    bool LowerBitInsert();
    bool LowerSinCos();
    bool LowerQuadSad();

    // Waves, in LoweringWaves.cpp
    bool LowerWave();
    void EmitWave(EWave eWave, uint32_t nLow, uint32_t nHigh, uint32_t nA, uint32_t nB);
    uint32_t Dot(const SOperand& a, const SOperand& b, uint32_t nCount, bool bHalf);

    // Memory, in LoweringMemory.cpp
    bool LowerAccess();
    bool LowerAtomic();
    bool SetSpace(SAccess& access);
    void SetAddress(SAccess& access, const SOperand& operand);
    void SetSum(SAccess& access, const SOperand& operand, const SOperand& offset);
    bool SetStructAddress(SAccess& access);
    bool EmitLoad(SAccess& access);
    bool EmitStore(SAccess& access, const SOperand& value, bool bMask);
    bool EmitAccess(const SAccess& access);
    bool IsFixedPlace(const SAccess& access) const;

    // Images, in LoweringImages.cpp
    bool LowerImage();
    void DeclareTypedUav(const SItem& item);
    bool LowerFixedAnswer();
    void BindImage(SImageAccess& image);
    void AddFlatAccesses(SImageAccess& image);
    void EmitImage(SImageAccess& image);

    void EmitTrace();
    void AddTrace();

    const SDecodedStream& m_Stream;
    const SStructure& m_Structure;
    const bool m_bTrace;
    SCode& m_Code;
    SDecodeError& m_Error;
    bool m_bFailed = false;

    // Everything that is needed only while lowering is allocated here and freed at once.
    char m_Buffer[s_nBufferBytes];
    std::pmr::monotonic_buffer_resource m_Memory{m_Buffer, sizeof m_Buffer};
    std::pmr::vector<std::pmr::vector<SLiteral>> m_vLiterals{&m_Memory}; ///< by number, in the order of the stream
    std::pmr::unordered_map<uint32_t, uint32_t> m_mapArrays{&m_Memory};  ///< number to index in vArrays
    std::pmr::unordered_map<uint32_t, uint32_t> m_mapBuffers{&m_Memory}; ///< number to index in vBuffers
    std::pmr::unordered_map<uint32_t, uint32_t> m_mapPrivate{&m_Memory}; ///< UAV number to index in vPrivate
    std::pmr::unordered_map<uint32_t, uint32_t> m_mapStrides{&m_Memory}; ///< UAV number to stride
    std::pmr::map<uint32_t, uint32_t> m_mapLocalSizes{&m_Memory};        ///< id to bytes
    std::pmr::map<uint32_t, uint32_t> m_mapPrivateSizes{&m_Memory};      ///< UAV number to bytes
    std::pmr::map<uint32_t, uint32_t> m_mapArraySizes{&m_Memory};        ///< number to elements
    std::pmr::unordered_map<uint32_t, uint32_t> m_mapLocalAreas{&m_Memory};
    std::pmr::unordered_map<uint32_t, bool> m_mapUnnormalized{&m_Memory};  ///< resource number
    std::pmr::unordered_map<uint32_t, bool> m_mapTypedBuffers{&m_Memory};  ///< UAV number
    std::pmr::vector<uint32_t> m_vTempRows{&m_Memory};                     ///< by number; 0 for a temp not used yet
    std::pmr::unordered_map<uint64_t, uint32_t> m_mapRegisters{&m_Memory}; ///< of other types
    std::pmr::unordered_map<uint32_t, uint32_t> m_mapConstants{&m_Memory};
    std::pmr::unordered_map<uint64_t, uint32_t> m_mapBufferRows{&m_Memory};
    std::pmr::unordered_map<uint32_t, uint32_t> m_mapIdRows{&m_Memory};
    std::pmr::unordered_map<uint32_t, uint32_t> m_mapRowValues{&m_Memory}; ///< literal bits, by row
    std::pmr::map<uint32_t, uint32_t> m_mapResources{&m_Memory};
    std::pmr::map<uint32_t, uint32_t> m_mapUavs{&m_Memory};
    std::pmr::map<uint32_t, uint32_t> m_mapSamplers{&m_Memory};
    int32_t m_nInlineBuffer = -1;

    std::pmr::vector<uint32_t> m_vScratch{&m_Memory};
    size_t m_nScratchUsed = 0;
    std::pmr::vector<uint32_t> m_vMaskRows{&m_Memory}; ///< of the body, by nesting depth
    size_t m_nMaskRowsUsed = 0;
    std::pmr::vector<uint32_t> m_vReturnRows{&m_Memory}; ///< by body; 0 for a body without a return

    uint32_t m_nBody = 0;
    bool m_bReturns = false; ///< whether the body can be left before its end
    uint32_t m_nItem = 0;    ///< in the stream
    const SItem* m_pItem = nullptr;
    std::vector<SOperand> m_vOperands; ///< its own
    uint32_t m_nInstruction = 0;
    std::vector<SOpenBlock> m_vBlocks;
    std::vector<size_t> m_vLoops;      ///< open loops, as indices into m_vBlocks
    std::vector<size_t> m_vBreakables; ///< open loops and switches
    uint32_t m_nLastFlow = 0;
    uint32_t m_nSinceFlow = 0;

    uint32_t m_nTargets[4] = {0, 0, 0, 0};
    bool m_bInPlace = false;
    T m_eDestinationType = T::U;
    STraceInfo m_Trace;
};

} // namespace KestrelPlatform

#endif

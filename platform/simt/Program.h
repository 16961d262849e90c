#ifndef KESTREL_PLATFORM_SIMT_PROGRAM_H
#define KESTREL_PLATFORM_SIMT_PROGRAM_H

#include "platform/simt/LaneOps.h"
#include "platform/simt/Structure.h"
#include "platform/simt/WideLaunch.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace KestrelPlatform
{

/// Row 0 of a block is the execution mask, row 1 holds zeros.
const uint32_t s_nMaskRow = 0;
const uint32_t s_nZeroRow = 1;
/// The most rows of a block: 64 MiB of registers and private memory for 256 work-items.
const uint32_t s_nMaxRows = 65536;
static_assert(s_nMaxRows <= 0x10000, "SLaneRows numbers rows in 16 bits");

/// A row's number as stored in steps. A program with more rows is refused after lowering.
constexpr uint16_t ToRow(uint32_t nRow)
{
    return static_cast<uint16_t>(nRow);
}

/// The kinds of steps of the compact form, with the fields that they use.
enum EMicroKind : uint16_t
{
    MICRO_LANE_FAST, ///< nOp, rows
    MICRO_LANE_SLOW,
    MICRO_LANE_UNIFORM, ///< as either, of the first granule for all work-items; with s_nFlagSpread the whole row gets
                        ///< it
    MICRO_ENTER,        ///< start of body nAux, d[0] row of those who return early (0: none)
    MICRO_IF,           ///< s[0] condition, d[0] row of the else-part, nFlags inverts, nTarget when none is left
    MICRO_ELSE,         ///< d[0]
    MICRO_END_IF,       ///< d[0]
    MICRO_LOOP,         ///< d[0] row of those who broke out, d[1] row of those who continued (0: no continue)
    MICRO_LEAVE,        ///< break, continue, return without a condition: d[0] row that takes the work-items
    MICRO_LEAVE_IF,     ///< the same with the condition s[0], nFlags inverts
    MICRO_END_LOOP,     ///< d as the loop; nAux the loop's step; nTarget when none came out
    MICRO_SWITCH,       ///< s[0] selector, d[0] out row, d[1] pending row, s[1] row that keeps the selector
    MICRO_CASE,         ///< d[1] pending row, s[1] selector, nAux the value
    MICRO_DEFAULT,      ///< d[1], s[1]; nAux the number of later case values, which stand after it
    MICRO_END_SWITCH,   ///< d[0], d[1]
    MICRO_CALL,       ///< nAux body, d[0] row of those who don't call, s[0] condition, nFlags: 1 inverts, 2 conditional
    MICRO_AFTER_CALL, ///< as the call
    MICRO_END_BODY,   ///< nAux body, d[0] return row (0: none)
    MICRO_BARRIER,
    MICRO_FENCE,       ///< of global memory
    MICRO_ACCESS,      ///< nAux into vAccesses
    MICRO_IMAGE,       ///< nAux into vImages
    MICRO_WAVE,        ///< nOp an EWave, d[0] and d[1] the result, s[0] and s[1] the sources
    MICRO_INDEX_LOAD,  ///< nAux into vIndexed, d[0]
    MICRO_INDEX_STORE, ///< nAux into vIndexed, s[0..3] values, d[0] component set
    MICRO_OUTSIDE,     ///< a constant index past its array or buffer: counts; nFlags 1 if a write, nAux the index
    MICRO_TRACE        ///< nAux into vTraces
};

const uint16_t s_nFlagInvert = 1;
const uint16_t s_nFlagConditional = 2;
/// For if, else, endif, and a leave with a condition: the condition is the same for all work-items.
const uint16_t s_nFlagUniform = 4;
const uint16_t s_nFlagSpread = 8;

struct SMicroOp
{
    EMicroKind eKind = MICRO_LANE_FAST;
    uint16_t nOp = 0; ///< lane operation
    uint16_t nFlags = 0;
    SLaneRows rows;
    uint32_t nInstruction = 0;
    uint32_t nTarget = 0; ///< step to continue with when no work-item is left
    uint32_t nFollow = 0; ///< instructions from here to the next step that counts them
    uint32_t nAux = 0;
};

enum EAtomic : uint8_t
{
    ATOMIC_ADD,
    ATOMIC_SUB,
    ATOMIC_RSUB,
    ATOMIC_INC,
    ATOMIC_DEC,
    ATOMIC_MIN,
    ATOMIC_MAX,
    ATOMIC_UMIN,
    ATOMIC_UMAX,
    ATOMIC_AND,
    ATOMIC_OR,
    ATOMIC_XOR,
    ATOMIC_MSKOR,
    ATOMIC_XCHG,
    ATOMIC_CMP_XCHG,
    ATOMIC_FMIN,
    ATOMIC_FMAX,
    ATOMIC_FCMP_XCHG,
    ATOMIC_WRAP,
    ATOMIC_CONDXCHG
};

/// Consecutive work-items of a group on which wave instructions operate.
const uint32_t s_nWaveSize = 64;

enum EWave : uint16_t
{
    WAVE_BALLOT, ///< a bit for each active lane whose source isn't 0
    WAVE_FIRST,  ///< the source of the first active lane
    WAVE_READ,   ///< the source of the lane given by the second source
    WAVE_COUNT,  ///< number of set bits of the 64-bit source that belong to lower lanes
    WAVE_LANE,   ///< the lane's number
    WAVE_INDEX   ///< the wave's number in its group
};

const uint32_t s_nAllComponents = 0xF;

/// A load, store or atomic on byte-addressed memory.
struct SAccess
{
    enum ESpace : uint8_t
    {
        Global,
        Local,
        Private
    };
    enum EOperation : uint8_t
    {
        Load,
        Store,
        Atomic
    };
    ESpace eSpace = Global;
    EOperation eOperation = Load;
    EAtomic eAtomic = ATOMIC_ADD;
    bool b64BitAddress = false;
    bool bSigned = false;      ///< narrow loads are sign-extended
    uint8_t nElementBytes = 4; ///< 1, 2 or 4 for loads and stores; 4 or 8 for atomics
    uint8_t nWords = 1;        ///< consecutive elements
    bool bReturns = false;     ///< an atomic with a destination
    bool bUniform = false;     ///< a load whose address is the same for all work-items
    uint8_t nUniformWords = 0; ///< for such a load: a bit for each result that is written for all lanes, active or not
    bool bScaled = false;      ///< 64-bit addresses that are a base plus an index times a scale
    bool bIndexSigned = false; ///< for such an address
    bool bSameIndex = false;   ///< the index is that of the previous scaled access, for the same work-items
    uint32_t nAddressRows[2] = {0, 0}; ///< with bScaled, only written if they turn out to be needed
    uint32_t nIndexRow = 0;
    uint32_t nScaleRow = 0; ///< like the base, the same for all work-items
    uint32_t nBaseRows[2] = {0, 0};
    uint32_t nRows[4] = {0, 0, 0, 0};      ///< load: results; store: values; atomic: result pair
    uint32_t nValueRows[4] = {0, 0, 0, 0}; ///< atomic: first operand pair, second operand pair
    uint32_t nArea = 0;                    ///< Local: index into vLocalAreas; Private: index into vPrivate
};

/// An image instruction.
struct SImageAccess
{
    enum EOperation : uint8_t
    {
        Sample,
        Gather,
        LoadTexel,
        UavLoad,
        UavStore,
        Info
    };
    EOperation eOperation = Sample;
    uint32_t nResource = 0;
    uint32_t nSampler = 0;
    uint32_t nBinding = 0;      ///< index into vResources or vUavs of the code
    uint32_t nSamplerSlot = 0;  ///< index into vSamplers of the code
    bool bUnnormalized = false; ///< by the resource's declaration
    bool bCompare = false;      ///< Sample, Gather: with the row nReference
    uint32_t nReference = s_nZeroRow;
    uint32_t nOffsets[2] = {s_nZeroRow, s_nZeroRow}; ///< Gather: texels added in x and y
    uint32_t nComponent = 0;                         ///< Gather: of each texel
    uint32_t nMask = s_nAllComponents;               ///< UavStore: components that change
    uint32_t nCoordinates[4] = {0, 0, 0, 0};
    uint32_t nRows[4] = {0, 0, 0, 0}; ///< result or value
    uint32_t nFirstFlatAccess = 0;    ///< typed buffers, if the launch binds no image: into vAccesses
    uint32_t nFlatAccesses = 0;
};

/// An array of registers or a constant buffer with an index computed at run time.
struct SIndexed
{
    bool bConstant = false;
    uint32_t nArray = 0; ///< index into vArrays or vBuffers
    uint32_t nIndexRow = 0;
    uint32_t nImmediate = 0; ///< added to the index, modulo 2^32
    uint32_t nComponent = 0;
};

/// What a traced instruction has written.
struct STraceInfo
{
    enum EKind : uint8_t
    {
        Nothing,
        Register,
        Array,
        PrivateMemory,
        Memory
    };
    EKind eKind = Nothing;
    uint32_t nType = 0xFFFFFFFF;
    uint32_t nNumber = 0;
    uint32_t nComponents = 0;
    uint32_t nRow = 0;     ///< Register: first of four rows
    uint32_t nIndexed = 0; ///< Array: into vIndexed
    bool bConstantIndex = false;
    uint32_t nAddressRow = 0; ///< PrivateMemory
    uint32_t nArea = 0;       ///< PrivateMemory: into vPrivate
};

/// The compact form of a program.
struct SCode
{
    struct SConstant
    {
        uint32_t nRow;
        int32_t nBuffer; ///< index into vBuffers, or -1 for a literal
        uint32_t nValue; ///< the literal's bits, or the word in the buffer
    };
    struct SId
    {
        uint32_t nRow;
        uint32_t nType;
        uint32_t nComponent;
    };
    struct SArray
    {
        uint32_t nRow;
        uint32_t nElements;

        /// Ordered by component, so that elements of which one component is used are close together.
        uint32_t Row(uint32_t nElement, uint32_t nComponent) const { return nRow + nComponent * nElements + nElement; }
    };
    struct SBuffer
    {
        uint32_t nNumber;
        uint32_t nElements;
        std::vector<uint32_t> vWords; ///< of a buffer whose words are in the stream
        bool bInline = false;
    };
    struct SPrivate
    {
        uint32_t nUav;
        uint32_t nRow;
        uint32_t nBytes;
    };
    struct SLocalArea
    {
        uint32_t nId;
        uint32_t nOffset;
        uint32_t nBytes;
    };

    std::vector<SMicroOp> vSteps;
    std::vector<SMicroOp> vSteadySteps; ///< lane operations to rerun for groups with another y or z than the last one
    std::vector<uint32_t> vBodyEntries; ///< step of each body's entry
    std::vector<SAccess> vAccesses;
    std::vector<SImageAccess> vImages;
    std::vector<SIndexed> vIndexed;
    std::vector<uint32_t> vCaseValues;
    std::vector<STraceInfo> vTraces;
    std::vector<SConstant> vConstants;
    std::vector<SId> vIds;
    std::vector<SArray> vArrays;
    std::vector<SBuffer> vBuffers;
    std::vector<SPrivate> vPrivate;
    std::vector<SLocalArea> vLocalAreas;
    std::vector<uint32_t> vResources; ///< numbers of the images read
    std::vector<uint32_t> vUavs;      ///< numbers of the UAVs used as images
    std::vector<uint32_t> vSamplers;
    std::vector<uint32_t> vClearRows;     ///< rows that must be 0 when a group starts
    std::vector<uint32_t> vUnwrittenRows; ///< rows that are read but never written, so always 0
    uint32_t nRows = 2;
    uint32_t nLocalBytes = 0; ///< declared
    bool bBarriers = false;
};

/// Lowers decoded bodies to the compact form; with bTrace, a step after each instruction records it. Replaces what code
/// held before, reusing the memory of its steps.
/// \return false for an invalid operand, or more registers than a block can hold
bool LowerProgram(const SDecodedStream& stream, const SStructure& structure, bool bTrace, SCode& code,
                  SDecodeError& error);

class CProgram
{
public:
    CProgram(const SDecodedStream& stream, SCode&& code);

    const SCode& GetCode() const { return m_Code; }
    const std::vector<uint32_t>& GetTokens() const { return m_vTokens; }
    /// Made from the tokens on first use. Any thread. If a kernel has so many rows that the trace's don't fit in a
    /// block, this gives its plain code, of which only control flow is recorded.
    const SCode& GetTracedCode() const;
    /// For users of the traced code: whether it records every instruction.
    bool IsTraceable() const { return m_bTraceable; }
    /// For users of the traced code.
    ILOpCode GetOpCode(uint32_t nInstruction) const { return m_vOpCodes[nInstruction]; }

private:
    std::vector<uint32_t> m_vTokens;
    SCode m_Code;
    mutable std::once_flag m_TraceOnce;
    mutable SCode m_TracedCode;
    mutable std::vector<ILOpCode> m_vOpCodes; ///< by instruction
    mutable bool m_bTraceable = false;
};

} // namespace KestrelPlatform

#endif

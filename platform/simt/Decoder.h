#ifndef KESTREL_PLATFORM_SIMT_DECODER_H
#define KESTREL_PLATFORM_SIMT_DECODER_H

#include "platform/il/InstructionShape.h"
#include "platform/simt/WideLaunch.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace KestrelPlatform
{

/// One decoded operand, destination or source.
struct SOperand
{
    enum ESelect : uint8_t
    {
        SelectZero = 4,
        SelectOne = 5
    };
    enum EWrite : uint8_t
    {
        WriteNot = 0,
        WriteResult = 1,
        WriteZero = 2,
        WriteOne = 3
    };

    uint32_t nType = 0;
    int32_t nNumber = 0;
    uint32_t nImmediate = 0;
    bool bImmediate = false;
    bool bIndexed = false; ///< the index register is added to the immediate
    uint32_t nIndexType = 0;
    int32_t nIndexNumber = 0;
    uint8_t nIndexComponent = 0;
    uint8_t select[4] = {0, 1, 2, 3}; ///< source: register component, or SelectZero, SelectOne
    bool bNegate[4] = {false, false, false, false};
    bool bInvert = false;
    bool bBias = false;
    bool bTimes2 = false;
    bool bSign = false;
    bool bAbs = false;
    bool bClamp = false;
    uint8_t write[4] = {WriteResult, WriteResult, WriteResult, WriteResult}; ///< destination
    uint8_t nShift = 0;                                                      ///< destination: shift_scale

    bool HasFloatModifiers() const { return bInvert || bBias || bTimes2 || bSign || bAbs || bClamp; }
};

/// One decoded item of the stream.
struct SItem
{
    static const uint32_t NoInstruction = 0xFFFFFFFF;

    uint32_t nToken = 0; ///< the opcode token
    ILOpCode eOpCode = IL_OP_UNKNOWN;
    uint32_t nInstruction = NoInstruction; ///< index among the instructions
    uint32_t nModifier = 0;                ///< instruction modifier or primary modifier word
    bool bDestination = false;
    uint32_t nFirstOperand = 0; ///< index of its token: destination first, then the sources
    uint32_t nSources = 0;
    uint32_t nFirstWord = 0; ///< trailing or data words: index into the tokens
    uint32_t nWords = 0;

    uint32_t Controls() const { return (nToken >> 16) & 0x3FFF; }
    uint32_t UavId() const { return (nToken >> 16) & 0x3FF; }
};

/// A decoded token stream.
struct SDecodedStream
{
    std::vector<SItem> vItems;
    const uint32_t* pTokens = nullptr; ///< not owned
    size_t nTokens = 0;
    uint32_t nInstructions = 0;

    uint32_t Word(const SItem& item, uint32_t n) const { return pTokens[item.nFirstWord + n]; }
};

/// Decodes a token stream in one pass, up to `end`. Never reads past nCount. Replaces what the stream held before,
/// reusing its memory. The tokens must outlive it. \return false, with the place and reason, for an unknown opcode, a
/// bad header or a stream cut short
bool DecodeStream(const uint32_t* pTokens, size_t nCount, SDecodedStream& stream, SDecodeError& error);

/// Decodes the operands of one item: the destination, if it has one, then the sources. They are several times as large
/// as their tokens, so those of a whole stream are never kept.
void ReadOperands(const SDecodedStream& stream, const SItem& item, std::vector<SOperand>& vOperands);

} // namespace KestrelPlatform

#endif

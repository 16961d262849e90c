#ifndef KESTREL_PLATFORM_IL_TOKENBITS_H
#define KESTREL_PLATFORM_IL_TOKENBITS_H

#include <cstdint>

namespace KestrelPlatform
{

/// Bits of the opcode token.
const uint32_t s_nOpcodeMask = 0xFFFF;
const uint32_t s_nControlsMask = 0x3FFF;
const uint32_t s_nSecondaryBit = 1u << 30;
const uint32_t s_nPrimaryBit = 1u << 31;

/// Bits and fields of a register token.
const uint32_t s_nOperandModifier = 1u << 22;
const uint32_t s_nOperandRelativeShift = 23;
const uint32_t s_nOperandDimension = 1u << 25;
const uint32_t s_nOperandImmediate = 1u << 26;
const uint32_t s_nOperandNegative = 1u << 27;
const uint32_t s_nOperandExtended = 1u << 31;

/// The register type of a token, as numbered in ILRegisterTypes.def.
inline uint32_t OperandType(uint32_t nToken)
{
    return (nToken >> 16) & 0x3F;
}

/// A token has 16 bits for a register's number. A temp's number may be negative: two's complement, with
/// s_nOperandNegative set.
const uint32_t s_nOperandNumbers = 1u << 16;

/// Whether an operand is a register with at most a modifier word: none of the bits from s_nOperandRelativeShift up is
/// set.
inline bool IsPlainOperand(uint32_t nToken)
{
    return nToken < 1u << s_nOperandRelativeShift;
}

/// How a register is addressed (`relative_address` of its token).
enum EAddressing : uint32_t
{
    AddressAbsolute = 0,
    AddressRelative = 1,
    AddressRegister = 2,
    AddressOther = 3
};

} // namespace KestrelPlatform

#endif

#ifndef KESTREL_PLATFORM_COMPILER_MODIFIERS_H
#define KESTREL_PLATFORM_COMPILER_MODIFIERS_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KestrelPlatform
{

/// As a mask: all components are written. As a swizzle: x y z w, so nothing changes.
const uint32_t s_nMaskAll = 0x55;
const uint32_t s_nSwizzleIdentity = 0x3210;

/// The mask bits of a destination's modifier word, and the bits of its other named fields.
const uint32_t s_nMaskBits = 0xFF;
const uint32_t s_nDestinationReserved = 0xFFC00000u;
const uint32_t s_nShiftScaleShift = 9;
const uint32_t s_nShiftScaleMask = 0xF;

/// Bits of a source's modifier word: the selectors, one negate bit after each, reserved bits.
const uint32_t s_nSwizzleBits = 0x7777;
const uint32_t s_nNegateBits = 0x8888;
const uint32_t s_nSourceReserved = 0xF0000000u;

/// A named field of a modifier word. A field of one bit is a flag; others are printed with their number.
struct SModifierField
{
    std::string_view name;
    uint8_t nShift;
    uint8_t nWidth;

    uint32_t Mask() const { return ((1u << nWidth) - 1u) << nShift; }
};

constexpr SModifierField s_SourceFields[] = {{"invert", 16, 1}, {"bias", 17, 1},    {"x2", 18, 1},    {"sign", 19, 1},
                                             {"abs", 20, 1},    {"divcomp", 21, 3}, {"clamp", 24, 1}, {"size", 25, 3}};

/// These stand after the mnemonic. The shift field comes last: its first six values have names.
constexpr SModifierField s_DestinationFields[] = {
    {"sat", 8, 1}, {"round", 13, 3}, {"denorm", 16, 3}, {"dstsize", 19, 3}, {"shift", s_nShiftScaleShift, 4}};

/// The names of the shift field's values, from 1 on.
constexpr std::string_view s_ShiftNames[] = {"x2", "x4", "x8", "d2", "d4", "d8"};
const uint32_t s_nShiftNames = 6;

} // namespace KestrelPlatform

#endif

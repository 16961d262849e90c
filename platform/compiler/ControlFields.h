#ifndef KESTREL_PLATFORM_COMPILER_CONTROLFIELDS_H
#define KESTREL_PLATFORM_COMPILER_CONTROLFIELDS_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KestrelPlatform
{

/// What the `controls` bits of `fence` mean.
enum EFenceControls : uint32_t
{
    FenceThreads = 1, ///< the work-group barrier
    FenceLds = 2,     ///< local memory operations are done
    FenceMemory = 4,  ///< global memory operations are done
    FenceGds = 8      ///< global data share operations are done
};

/// What the low three `controls` bits of `ifc`, `breakc`, `continuec`, `cmp` and `set` mean.
enum ERelationControls : uint32_t
{
    RelationEqual,
    RelationNotEqual,
    RelationGreater,
    RelationGreaterEqual,
    RelationLess,
    RelationLessEqual
};

/// How a field of the opcode token's upper half is spelled.
enum EFieldForm : uint8_t
{
    FieldValue,        ///< _name, if the field has the one value
    FieldNumber,       ///< _name(N), if it isn't 0
    FieldNumberAlways, ///< _name(N)
    FieldEnum,         ///< _name(word), if it isn't 0
    FieldEnumAlways    ///< _name(word)
};

/// One spelled field of the opcode token.
struct SControlField
{
    std::string_view name;
    uint8_t nShift; ///< lowest bit in the opcode token
    uint8_t nWidth;
    EFieldForm eForm;
    uint32_t nValue;                ///< of a FieldValue
    const std::string_view* pNames; ///< of a FieldEnum, indexed by value
    size_t nNames;

    uint32_t Mask() const { return ((1u << nWidth) - 1u) << nShift; }
};

/// The fields of an opcode, in the order in which they are printed.
struct SControlFields
{
    const SControlField* pFields = nullptr;
    size_t nFields = 0;
    bool bOperand = false; ///< `controls` is written as an operand: `dcl_wavesize 64`

    const SControlField* begin() const { return pFields; }
    const SControlField* end() const { return pFields + nFields; }
};

/// \return the spelled fields of an opcode; none for an opcode whose `controls` have no names
const SControlFields& GetControlFields(uint32_t nOpcode);

/// \return the value of a name of a FieldEnum, or -1
int FindFieldValue(const SControlField& field, std::string_view name);

} // namespace KestrelPlatform

#endif

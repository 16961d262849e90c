#include "platform/compiler/ControlFields.h"

#include "platform/il/InstructionShape.h"

namespace KestrelPlatform
{
namespace
{

constexpr std::string_view s_AccessNames[] = {"rw", "ro", "wo", "private"};
constexpr std::string_view s_RelationNames[] = {"eq", "ne", "gt", "ge", "lt", "le"};
constexpr std::string_view s_ResourceTypeNames[] = {"unknown", "1d",        "2d",     "3d",   "1darray",  "2darray",
                                                    "cube",    "cubearray", "buffer", "2dms", "2dmsarray"};

template <size_t N>
constexpr SControlField Names(std::string_view name, uint8_t nShift, uint8_t nWidth, EFieldForm eForm,
                              const std::string_view (&names)[N])
{
    return {name, nShift, nWidth, eForm, 0, names, N};
}

constexpr SControlField Number(std::string_view name, uint8_t nShift, uint8_t nWidth,
                               EFieldForm eForm = FieldNumberAlways)
{
    return {name, nShift, nWidth, eForm, 0, nullptr, 0};
}

constexpr SControlField Value(std::string_view name, uint8_t nShift, uint8_t nWidth, uint32_t nValue)
{
    return {name, nShift, nWidth, FieldValue, nValue, nullptr, 0};
}

constexpr SControlField s_Uav[] = {Number("id", 16, 10),       Value("cached", 26, 2, 1), Value("uncached", 26, 2, 2),
                                   Value("indexed", 28, 1, 1), Value("addr64", 29, 1, 1), Value("aligned", 30, 1, 1),
                                   Value("arena", 31, 1, 1)};
constexpr SControlField s_Id[] = {Number("id", 16, 14)};
constexpr SControlField s_TypedUav[] = {Number("id", 16, 10), Names("access", 26, 2, FieldEnum, s_AccessNames)};
constexpr SControlField s_Resource[] = {Number("id", 16, 8), Names("type", 24, 4, FieldEnumAlways, s_ResourceTypeNames),
                                        Value("unnorm", 31, 1, 1)};
constexpr SControlField s_Sample[] = {Number("resource", 16, 8), Number("sampler", 24, 4), Value("indexed", 28, 1, 1),
                                      Value("addroff", 29, 1, 1)};
constexpr SControlField s_Load[] = {Number("resource", 16, 8), Number("sampler", 24, 4, FieldNumber),
                                    Value("indexed", 28, 1, 1), Value("addroff", 29, 1, 1)};
constexpr SControlField s_Fence[] = {Value("threads", 16, 1, 1), Value("lds", 17, 1, 1), Value("memory", 18, 1, 1),
                                     Value("gds", 19, 1, 1)};
constexpr SControlField s_Relation[] = {Names("relop", 16, 3, FieldEnumAlways, s_RelationNames)};

template <size_t N>
constexpr SControlFields Fields(const SControlField (&fields)[N])
{
    return {fields, N, false};
}

struct SRow
{
    uint32_t nFirst;
    uint32_t nLast;
    SControlFields fields;
};

constexpr SControlFields s_Operand = {nullptr, 0, true};

constexpr SRow s_Rows[] = {{IL_OP_BREAKC, IL_OP_BREAKC, Fields(s_Relation)},
                           {13, 13, Fields(s_Relation)},
                           {17, 17, Fields(s_Relation)},
                           {IL_OP_IFC, IL_OP_IFC, Fields(s_Relation)},
                           {86, 86, Fields(s_Relation)},
                           {IL_DCL_RESOURCE, IL_DCL_RESOURCE, Fields(s_Resource)},
                           {134, 135, Fields(s_Load)},
                           {136, 141, Fields(s_Sample)},
                           {199, 199, Fields(s_Sample)},
                           {200, 200, Fields(s_Load)},
                           {201, 201, Fields(s_Sample)},
                           {207, 207, Fields(s_Load)},
                           {214, 214, s_Operand},
                           {218, 218, Fields(s_Fence)},
                           {219, 223, Fields(s_Id)},
                           {224, 229, Fields(s_Uav)},
                           {230, 230, Fields(s_Id)},
                           {231, 257, Fields(s_Uav)},
                           {258, 259, Fields(s_Id)},
                           {260, 261, Fields(s_Uav)},
                           {262, 288, Fields(s_Id)},
                           {289, 291, s_Operand},
                           {292, 294, Fields(s_Sample)},
                           {304, 304, s_Operand},
                           {306, 307, s_Operand},
                           {318, 318, Fields(s_Load)},
                           {319, 321, Fields(s_Sample)},
                           {348, 348, s_Operand},
                           {351, 351, Fields(s_Load)},
                           {354, 386, Fields(s_Id)},
                           {390, 391, Fields(s_Uav)},
                           {394, 395, Fields(s_Uav)},
                           {396, 401, Fields(s_Id)},
                           {402, 407, Fields(s_Uav)},
                           {423, 424, Fields(s_TypedUav)},
                           {427, 432, Fields(s_Id)},
                           {486, 547, Fields(s_Id)},
                           {564, 567, Fields(s_Id)},
                           {572, 577, Fields(s_Id)},
                           {664, 669, Fields(s_Sample)},
                           {675, 675, Fields(s_Uav)},
                           {699, 700, Fields(s_Uav)},
                           {703, 703, s_Operand},
                           {705, 709, Fields(s_Uav)},
                           {712, 735, Fields(s_Id)},
                           {736, 736, s_Operand}};

struct SFieldTable
{
    SControlFields fields[IL_OP_LAST] = {};

    constexpr SFieldTable()
    {
        for (const SRow& row : s_Rows)
        {
            for (uint32_t nOpcode = row.nFirst; nOpcode <= row.nLast; ++nOpcode)
            {
                fields[nOpcode] = row.fields;
            }
        }
    }
};

constexpr SFieldTable s_Fields;
constexpr SControlFields s_NoFields;

} // namespace

const SControlFields& GetControlFields(uint32_t nOpcode)
{
    return nOpcode < IL_OP_LAST ? s_Fields.fields[nOpcode] : s_NoFields;
}

int FindFieldValue(const SControlField& field, std::string_view name)
{
    for (size_t i = 0; i < field.nNames; ++i)
    {
        if (name == field.pNames[i])
        {
            return static_cast<int>(i);
        }
    }
    return -1;
}

} // namespace KestrelPlatform

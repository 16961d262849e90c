// Work-item functions. Element 0 of constant buffer 0 is the global size with the number of
// dimensions in w, 1 the local size, 2 the number of groups, 6 the global offset.

#include "Builtins.h"

INSTRUCTION uint __il_cb0_0_w(void);

#define ELEMENT(NAME, REGISTER, otherwise)                                                                             \
    INSTRUCTION uint REGISTER##_x(void);                                                                               \
    INSTRUCTION uint REGISTER##_y(void);                                                                               \
    INSTRUCTION uint REGISTER##_z(void);                                                                               \
    HELPER uint NAME(uint nDimension)                                                                                  \
    {                                                                                                                  \
        return nDimension == 0   ? REGISTER##_x()                                                                      \
               : nDimension == 1 ? REGISTER##_y()                                                                      \
               : nDimension == 2 ? REGISTER##_z()                                                                      \
                                 : otherwise;                                                                          \
    }
ELEMENT(GlobalSize, __il_cb0_0, 1)
ELEMENT(LocalSize, __il_cb0_1, 1)
ELEMENT(NumGroups, __il_cb0_2, 1)
ELEMENT(GlobalOffset, __il_cb0_6, 0)
ELEMENT(LocalId, __il_reg_vTidInGrp, 0)
ELEMENT(GroupId, __il_reg_vThreadGrpId, 0)
ELEMENT(IdWithoutOffset, __il_reg_vAbsTid, 0)

FUNCTION uint get_work_dim(void)
{
    return __il_cb0_0_w();
}

FUNCTION size_t get_global_size(uint nDimension)
{
    return GlobalSize(nDimension);
}

FUNCTION size_t get_local_size(uint nDimension)
{
    return LocalSize(nDimension);
}

FUNCTION size_t get_num_groups(uint nDimension)
{
    return NumGroups(nDimension);
}

FUNCTION size_t get_global_offset(uint nDimension)
{
    return GlobalOffset(nDimension);
}

FUNCTION size_t get_local_id(uint nDimension)
{
    return LocalId(nDimension);
}

FUNCTION size_t get_group_id(uint nDimension)
{
    return GroupId(nDimension);
}

FUNCTION size_t get_global_id(uint nDimension)
{
    return IdWithoutOffset(nDimension) + GlobalOffset(nDimension);
}

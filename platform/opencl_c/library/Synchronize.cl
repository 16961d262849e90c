// Barriers, fences, prefetches, and copies by all work-items of a group.

#include "Builtins.h"

typedef uint cl_mem_fence_flags;
#define LOCAL_AND_GLOBAL 3

void __attribute__((convergent, noduplicate)) __il_barrier(uint nFlags);
void __il_fence(uint nFlags);
INSTRUCTION uint __il_reg_vTidInGrpFlat_x(void);
INSTRUCTION uint __il_cb0_1_x(void);
INSTRUCTION uint __il_cb0_1_y(void);
INSTRUCTION uint __il_cb0_1_z(void);

EFFECT __attribute__((convergent)) void barrier(cl_mem_fence_flags nFlags)
{
    __il_barrier(nFlags);
}

EFFECT void mem_fence(cl_mem_fence_flags nFlags)
{
    __il_fence(nFlags);
}

EFFECT void read_mem_fence(cl_mem_fence_flags nFlags)
{
    __il_fence(nFlags);
}

EFFECT void write_mem_fence(cl_mem_fence_flags nFlags)
{
    __il_fence(nFlags);
}

// Each work-item copies every n-th element, where n is the group's size. The barrier of wait_group_events
// completes the copy for all. The event carries no information, so the one passed in is returned.
HELPER uint GroupSize(void)
{
    return __il_cb0_1_x() * __il_cb0_1_y() * __il_cb0_1_z();
}

#define COPY_OF(TYPE, TO, FROM)                                                                                        \
    EFFECT event_t async_work_group_copy(TO TYPE* pTo, const FROM TYPE* pFrom, size_t nCount, event_t event)           \
    {                                                                                                                  \
        const size_t nStep = GroupSize();                                                                              \
        for (size_t i = __il_reg_vTidInGrpFlat_x(); i < nCount; i += nStep)                                            \
        {                                                                                                              \
            pTo[i] = pFrom[i];                                                                                         \
        }                                                                                                              \
        return event;                                                                                                  \
    }
#define STRIDED_COPIES_OF(TYPE)                                                                                        \
    EFFECT event_t async_work_group_strided_copy(__local TYPE* pTo, const __global TYPE* pFrom, size_t nCount,         \
                                                 size_t nStride, event_t event)                                        \
    {                                                                                                                  \
        const size_t nStep = GroupSize();                                                                              \
        for (size_t i = __il_reg_vTidInGrpFlat_x(); i < nCount; i += nStep)                                            \
        {                                                                                                              \
            pTo[i] = pFrom[i * nStride];                                                                               \
        }                                                                                                              \
        return event;                                                                                                  \
    }                                                                                                                  \
    EFFECT event_t async_work_group_strided_copy(__global TYPE* pTo, const __local TYPE* pFrom, size_t nCount,         \
                                                 size_t nStride, event_t event)                                        \
    {                                                                                                                  \
        const size_t nStep = GroupSize();                                                                              \
        for (size_t i = __il_reg_vTidInGrpFlat_x(); i < nCount; i += nStep)                                            \
        {                                                                                                              \
            pTo[i * nStride] = pFrom[i];                                                                               \
        }                                                                                                              \
        return event;                                                                                                  \
    }
#define COPIES_OF(N, T)                                                                                                \
    COPY_OF(T##N, __local, __global)                                                                                   \
    COPY_OF(T##N, __global, __local)                                                                                   \
    STRIDED_COPIES_OF(T##N)                                                                                            \
    EFFECT void prefetch(const __global T##N* pFrom, size_t nCount) {}
#define COPIES(T) SIZES(COPIES_OF, T)
ALL_TYPES(COPIES)

// The compiler passes events by pointers to the generic address space, which has no name in this version of the
// language.
EFFECT __attribute__((convergent)) void wait_group_events(int nCount, __attribute__((address_space(4))) event_t* pEvents)
{
    __il_barrier(LOCAL_AND_GLOBAL);
}

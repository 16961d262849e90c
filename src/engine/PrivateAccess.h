#ifndef KESTREL_ENGINE_PRIVATEACCESS_H
#define KESTREL_ENGINE_PRIVATEACCESS_H

#include "core/ShaderDebuggerCommon.h"

namespace OVK_ShaderDebugger
{

/// Bytes of private memory that one result holds, as four components.
constexpr unsigned int s_nPrivateSlotSize = 16;

/// The components of a register's result that a run delivers. Of plain registers these are all; an access to private
/// memory covers part of a 16-byte slot, of which the value's first component is the first accessed.
struct SPrivateAccess
{
    unsigned int nFirstComponent = 0;
    unsigned int nComponents = 4;
};

inline SPrivateAccess GetAccess(const Register& reg)
{
    SPrivateAccess access;
    if (reg.reg.type != RT_PrivateUAVAccess)
    {
        return access;
    }
    access.nFirstComponent = reg.reg.index % s_nPrivateSlotSize / 4;
    access.nComponents = 0;
    for (unsigned int i = 0; i < 4; ++i)
    {
        access.nComponents += (reg.mask & GetComponent(i)) != 0 ? 1 : 0;
    }
    return access;
}

} // namespace OVK_ShaderDebugger

#endif

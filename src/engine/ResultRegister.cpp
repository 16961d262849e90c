#include "engine/ResultRegister.h"

#include "engine/PrivateAccess.h"

#include <algorithm>

namespace OVK_ShaderDebugger
{

Register ResultRegisterOf(const Register& reg)
{
    if (reg.reg.type != RT_PrivateUAVAccess)
    {
        return reg;
    }
    return Register(reg.reg.type, reg.reg.number, reg.mask, reg.reg.index / s_nPrivateSlotSize);
}

Register WholeRegister(const Register& reg)
{
    Register whole = ResultRegisterOf(reg);
    whole.mask = COMP_All;
    whole.reg.index = reg.reg.index;
    if (reg.reg.type == RT_PrivateUAVAccess)
    {
        whole.reg.index -= reg.reg.index % s_nPrivateSlotSize;
    }
    return whole;
}

bool HaveSameResult(const Register& lhs, const Register& rhs)
{
    return ResultRegisterOf(lhs).reg == ResultRegisterOf(rhs).reg;
}

bool ContainsResult(const std::vector<Register>& vRegisters, const Register& reg)
{
    return std::any_of(vRegisters.begin(), vRegisters.end(),
                       [&](const Register& entry) { return HaveSameResult(entry, reg); });
}

} // namespace OVK_ShaderDebugger

#include "platform/simt/LaneRules.h"

#include <vector>

namespace KestrelPlatform
{

namespace
{

const SLaneRule s_Rules[] = {
#define KESTREL_RULE_ROW(form, out, a, b, c)                                                                           \
    {ELaneForm::form, ELaneType::out, {ELaneType::a, ELaneType::b, ELaneType::c}},
#define LANE(opcode, form, out, a, b, c, expression) KESTREL_RULE_ROW(form, out, a, b, c)
#define HELPER(name, form, out, a, b, c, expression) KESTREL_RULE_ROW(form, out, a, b, c)
#include "platform/simt/LaneOpsFast.def"
#define LANE(opcode, form, out, a, b, c, expression) KESTREL_RULE_ROW(form, out, a, b, c)
#define HELPER(name, form, out, a, b, c, expression) KESTREL_RULE_ROW(form, out, a, b, c)
#include "platform/simt/LaneOpsSlow.def"
};

std::vector<uint16_t> MakeOps()
{
    std::vector<uint16_t> vOps(IL_OP_LAST, 0);
#define LANE(opcode, form, out, a, b, c, expression) vOps[opcode] = LANE_##opcode;
#include "platform/simt/LaneOpsFast.def"
#define LANE(opcode, form, out, a, b, c, expression) vOps[opcode] = LANE_##opcode;
#include "platform/simt/LaneOpsSlow.def"
    return vOps;
}

} // namespace

const SLaneRule& GetLaneRule(uint32_t nOp)
{
    return s_Rules[nOp];
}

uint32_t FindLaneOp(ILOpCode eOpCode)
{
    static const std::vector<uint16_t> s_vOps = MakeOps();
    return s_vOps[eOpCode];
}

} // namespace KestrelPlatform

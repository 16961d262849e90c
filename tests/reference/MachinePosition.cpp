#include "tests/reference/MachinePosition.h"

namespace KestrelTest
{

namespace
{

std::string ToText(uint32_t nInstruction, const Loops& loops)
{
    std::string strText = std::to_string(nInstruction);
    for (const auto& loop : loops)
    {
        strText += " [" + std::to_string(loop.first) + " pass " + std::to_string(loop.second) + "]";
    }
    return strText;
}

} // namespace

std::string SPosition::ToString() const
{
    std::string strText;
    for (const auto& call : vCalls)
    {
        strText += ToText(call.first, call.second) + " > ";
    }
    return strText + ToText(nInstruction, vLoops);
}

} // namespace KestrelTest

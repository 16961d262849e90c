#include "engine/Position.h"

namespace OVK_ShaderDebugger
{

bool IsBefore(const SPosition& lhs, const SPosition& rhs)
{
    const size_t nLeft = lhs.callStack.size();
    const size_t nRight = rhs.callStack.size();
    const ProgramCounter* pLeft = &lhs.pc;
    const ProgramCounter* pRight = &rhs.pc;
    auto itLeft = lhs.callStack.begin();
    auto itRight = rhs.callStack.begin();
    for (size_t n = nLeft; n > nRight; --n)
    {
        pLeft = &*itLeft++;
    }
    for (size_t n = nRight; n > nLeft; --n)
    {
        pRight = &*itRight++;
    }
    // From the inside out, up to what both share: the outermost difference decides.
    bool bBefore = nLeft > nRight;
    while (true)
    {
        if (*pLeft < *pRight || *pRight < *pLeft)
        {
            bBefore = *pLeft < *pRight;
        }
        if (itLeft == itRight)
        {
            return bBefore;
        }
        pLeft = &*itLeft++;
        pRight = &*itRight++;
    }
}

} // namespace OVK_ShaderDebugger

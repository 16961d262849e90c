#ifndef KESTREL_TOOLS_DEBUG_BUILTINS_H
#define KESTREL_TOOLS_DEBUG_BUILTINS_H

#include "tools/session/debug/ExpressionNode.h"

namespace KestrelTool
{

/// A built-in function that expressions may call.
struct SBuiltIn
{
    enum EKind
    {
        WorkItem,  ///< nWhich says which
        Float,     ///< on floats, component by component
        Number,    ///< on integers and floats
        Bits,      ///< on the bits of integers
        Test,      ///< on floats; the result is like a comparison's
        Geometric, ///< on whole vectors
    };

    enum EItem
    {
        GlobalId,
        LocalId,
        GroupId,
        GlobalSize,
        LocalSize,
        Groups,
        GlobalOffset,
        Dimensions,
        LinearGlobalId,
        LinearLocalId
    };

    enum EGeometry
    {
        Dot,
        Length,
        Distance,
        Normalize,
        Cross
    };

    const char* pszName;
    EKind eKind;
    size_t nArguments;
    unsigned int nWhich = 0; ///< for work-items and geometry
    float (*pFloat)(float, float, float) = nullptr;
    double (*pDouble)(double, double, double) = nullptr;
    int64_t (*pSigned)(int64_t, int64_t, int64_t) = nullptr;
    uint64_t (*pUnsigned)(uint64_t, uint64_t, uint64_t) = nullptr;
    uint64_t (*pBits)(uint64_t, uint64_t, unsigned int) = nullptr; ///< takes the number of bits too
    bool (*pTest)(double) = nullptr;
};

/// Null if there is none with this name.
const SBuiltIn* FindBuiltIn(const std::string& strName);
/// The names of all built-in functions, in one text.
std::string ListBuiltIns();

/// Takes nCount work-items' arguments, converted to a common type except for geometric functions.
void CallBuiltIn(const SBuiltIn& builtIn, const SSourceType& argument, const unsigned char* const pArguments[3],
                 const SSourceType& result, unsigned char* pResults, size_t nCount);
uint64_t CallWorkItem(const SBuiltIn& builtIn, const SExtent& extent, size_t nItem, uint64_t nDimension);
bool NeedsLocalSize(const SBuiltIn& builtIn);

} // namespace KestrelTool

#endif

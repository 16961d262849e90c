#ifndef KESTREL_TOOLS_DEBUG_BUILTINS_H
#define KESTREL_TOOLS_DEBUG_BUILTINS_H

#include "tools/session/debug/ExpressionNode.h"

namespace KestrelTool
{

/// A function of the language that expressions may call.
struct SBuiltIn
{
    enum EKind
    {
        WorkItem,  ///< eItem says which
        Float,     ///< of floats, component by component
        Number,    ///< of integers and of floats
        Bits,      ///< of the bits of integers
        Test,      ///< of a float; as a comparison's result
        Geometric, ///< of whole vectors
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
    unsigned int nWhich = 0; ///< of work-items and of geometry
    float (*pFloat)(float, float, float) = nullptr;
    double (*pDouble)(double, double, double) = nullptr;
    int64_t (*pSigned)(int64_t, int64_t, int64_t) = nullptr;
    uint64_t (*pUnsigned)(uint64_t, uint64_t, uint64_t) = nullptr;
    uint64_t (*pBits)(uint64_t, uint64_t, unsigned int) = nullptr; ///< with the number of bits
    bool (*pTest)(double) = nullptr;
};

/// Null if there is none of that name.
const SBuiltIn* FindBuiltIn(const std::string& strName);
/// The names of all, one after the other.
std::string ListBuiltIns();

/// Values of the arguments, converted to the same type unless that is a geometric function's, of nCount work-items.
void CallBuiltIn(const SBuiltIn& builtIn, const SSourceType& argument, const unsigned char* const pArguments[3],
                 const SSourceType& result, unsigned char* pResults, size_t nCount);
uint64_t CallWorkItem(const SBuiltIn& builtIn, const SExtent& extent, size_t nItem, uint64_t nDimension);
bool NeedsLocalSize(const SBuiltIn& builtIn);

} // namespace KestrelTool

#endif

#ifndef KESTREL_TOOLS_DEBUG_ARITHMETIC_H
#define KESTREL_TOOLS_DEBUG_ARITHMETIC_H

#include "tools/session/debug/ExpressionNode.h"

namespace KestrelTool
{

/// An operator on numbers of nCount work-items, both of the operands' type.
void CombineNumbers(const SExpressionNode& node, const SSourceType& operand, const unsigned char* pLeft,
                    const unsigned char* pRight, unsigned char* pResults, size_t nCount);
void ChangeNumbers(const SExpressionNode& node, const SSourceType& operand, const unsigned char* pValues,
                   unsigned char* pResults, size_t nCount);
/// Numbers or vectors of nCount work-items as another type; a number becomes all components of a vector.
void ConvertValues(const SSourceType& from, const unsigned char* pFrom, const SSourceType& to, unsigned char* pTo,
                   size_t nCount);

} // namespace KestrelTool

#endif

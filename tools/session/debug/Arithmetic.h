#ifndef KESTREL_TOOLS_DEBUG_ARITHMETIC_H
#define KESTREL_TOOLS_DEBUG_ARITHMETIC_H

#include "tools/session/debug/ExpressionNode.h"

namespace KestrelTool
{

/// Applies an operator to numbers of nCount work-items; both operands have this type.
void CombineNumbers(const SExpressionNode& node, const SSourceType& operand, const unsigned char* pLeft,
                    const unsigned char* pRight, unsigned char* pResults, size_t nCount);
void ChangeNumbers(const SExpressionNode& node, const SSourceType& operand, const unsigned char* pValues,
                   unsigned char* pResults, size_t nCount);
/// Converts numbers or vectors of nCount work-items to another type; a number becomes all components of a vector.
void ConvertValues(const SSourceType& from, const unsigned char* pFrom, const SSourceType& to, unsigned char* pTo,
                   size_t nCount);

} // namespace KestrelTool

#endif

#ifndef KESTREL_TOOLS_DEBUG_VIEWS_H
#define KESTREL_TOOLS_DEBUG_VIEWS_H

#include "tools/session/debug/Debugger.h"
#include "tools/session/debug/Picture.h"

namespace KestrelTool
{

// Views of the whole dispatch, as structured answers. They hold what is shown and no more. With bAll
// they look at all work-items, otherwise at the active ones. Numbers that JSON can't say are null.

/// The active work-items, a cell each or a block of them; cells hold counts.
nlohmann::json ViewMask(CDebugger& debugger, size_t nWidth, size_t nHeight);
/// An expression's values, averaged over a cell; null where nobody is, "nan" where one is a NaN.
nlohmann::json ViewGrid(CDebugger& debugger, CExpression& expression, bool bAll, size_t nWidth, size_t nHeight);
/// An expression's values for the work-items of the row in x that the one in focus is in, at most so many around it;
/// null where there is none.
nlohmann::json ViewRow(CDebugger& debugger, CExpression& expression, size_t nMost);
nlohmann::json ViewStatistics(CDebugger& debugger, CExpression& expression, bool bAll);
/// The work-items for which an expression holds, neighbours in x made one range.
nlohmann::json ViewWhere(CDebugger& debugger, CExpression& expression, bool bAll);
/// What has become of a register since the last stop.
nlohmann::json ViewDifference(CDebugger& debugger, const SOperand& operand, EFormat eFormat);
/// Of an expression over what is in registers.
nlohmann::json ViewDifference(CDebugger& debugger, const std::string& strExpression, EFormat eFormat);
/// Where a work-item stands.
nlohmann::json ViewItem(CDebugger& debugger, size_t nItem);

/// Settles an expression that is nothing but components by the looks of most of its values.
void GuessType(CDebugger& debugger, CExpression& expression, EFormat eFormat);

} // namespace KestrelTool

#endif

#ifndef KESTREL_TOOLS_DEBUG_VIEWS_H
#define KESTREL_TOOLS_DEBUG_VIEWS_H

#include "tools/session/debug/Debugger.h"
#include "tools/session/debug/Picture.h"

namespace KestrelTool
{

// Views of the whole dispatch, as structured answers with exactly what is shown. With bAll they include all work-items,
// otherwise the active ones. Numbers that JSON can't represent are null.

/// The active work-items; a cell is one work-item or a block of them, and holds a count.
nlohmann::json ViewMask(CDebugger& debugger, size_t nWidth, size_t nHeight);
/// An expression's values, averaged over each cell; null if a cell has no work-items, "nan" if one value is a NaN.
nlohmann::json ViewGrid(CDebugger& debugger, CExpression& expression, bool bAll, size_t nWidth, size_t nHeight);
/// The values of an expression for the focused work-item's row in x, at most nMost of them around it; null for
/// work-items without a value.
nlohmann::json ViewRow(CDebugger& debugger, CExpression& expression, size_t nMost);
nlohmann::json ViewStatistics(CDebugger& debugger, CExpression& expression, bool bAll);
/// The work-items for which an expression is true, with neighbours in x as ranges.
nlohmann::json ViewWhere(CDebugger& debugger, CExpression& expression, bool bAll);
/// How a register has changed since the last stop.
nlohmann::json ViewDifference(CDebugger& debugger, const SOperand& operand, EFormat eFormat);
/// The same for an expression over registers.
nlohmann::json ViewDifference(CDebugger& debugger, const std::string& strExpression, EFormat eFormat);
/// The position of a work-item.
nlohmann::json ViewItem(CDebugger& debugger, size_t nItem);

/// Decides the type of an expression that consists of components only, by the look of most values.
void GuessType(CDebugger& debugger, CExpression& expression, EFormat eFormat);

} // namespace KestrelTool

#endif

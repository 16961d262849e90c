#ifndef KESTREL_TOOLS_DAP_FORMATTING_H
#define KESTREL_TOOLS_DAP_FORMATTING_H

#include "tools/session/debug/Debugger.h"

namespace KestrelTool
{

/// An expression's value for a work-item; it has to be bound to the stop.
std::string FormatFor(CDebugger& debugger, CExpression& expression, size_t nItem, EFormat eFormat);
/// The same for the work-item in focus and an expression's text. \throws CCommandError
std::string FormatExpression(CDebugger& debugger, const std::string& strText);

/// A text without the blanks and line ends around it.
std::string TrimText(const std::string& strText);

/// A work-item's place in the dispatch: "5", or "(1, 2)".
std::string NameItem(const SExtent& extent, size_t nItem);

} // namespace KestrelTool

#endif

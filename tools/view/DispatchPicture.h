#ifndef KESTREL_TOOLS_VIEW_DISPATCHPICTURE_H
#define KESTREL_TOOLS_VIEW_DISPATCHPICTURE_H

#include "tools/session/debug/Debugger.h"

#include <nlohmann/json.hpp>

namespace KestrelTool
{

// Pictures of the whole dispatch for a page, as objects with "shades", a byte for each cell: as text a million cells
// would take longer than their values do. 0 is for a cell with nothing in it, 1 for the lowest value, 255 for the
// highest.

/// An expression's values at a stop.
struct SDispatchValues
{
    std::string strExpression;
    std::vector<double> vValues;
    std::vector<unsigned char> vThere; ///< not 0 for work-items that are looked at and have a value
};

/// \param bAll  all work-items are looked at, otherwise those that are active
/// \throws CCommandError
SDispatchValues ReadValues(CDebugger& debugger, const std::string& strExpression, bool bAll);

/// The share of active work-items.
nlohmann::json DrawMask(CDebugger& debugger, size_t nWidth, size_t nHeight);
/// An expression's mean over each cell.
nlohmann::json DrawValues(CDebugger& debugger, const SDispatchValues& values, size_t nWidth, size_t nHeight);
/// Its "statistics", and as "row" its values along the row in x of the work-item in focus.
nlohmann::json DescribeValues(const CDebugger& debugger, const SDispatchValues& values);
/// By how much values differ from earlier ones: the mean over those in a cell that do; with those that do as "changes".
/// \param before, after  of the same expression; who is in one of them only has changed too, and is in no cell
nlohmann::json DrawChanges(CDebugger& debugger, const SDispatchValues& before, const SDispatchValues& after,
                           size_t nWidth, size_t nHeight);
/// Which of some classes the first work-item of each cell is in.
/// \param vClasses  by work-item, from 1 to 255; 0 for none. Shades are these numbers
nlohmann::json DrawClasses(CDebugger& debugger, const std::vector<unsigned char>& vClasses, size_t nWidth,
                           size_t nHeight);

} // namespace KestrelTool

#endif

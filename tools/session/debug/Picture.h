#ifndef KESTREL_TOOLS_DEBUG_PICTURE_H
#define KESTREL_TOOLS_DEBUG_PICTURE_H

#include "tools/session/debug/Expression.h"

#include <nlohmann/json_fwd.hpp>

namespace KestrelTool
{

/// How a dispatch is arranged in rows of cells to fit a terminal. A cell is one work-item, or a block of them if the
/// dispatch is larger than the picture.
struct SLayout
{
    size_t nColumns = 1; ///< cells in a row
    size_t nRows = 1;    ///< rows in a slice
    size_t nSlices = 1;
    size_t cell[3] = {1, 1, 1}; ///< work-items in a cell along x, y, z
    bool bWrapped = false;      ///< one dimension, wrapped into rows

    size_t Count() const { return nColumns * nRows * nSlices; }
};

/// \param nWidth, nHeight  available cells
SLayout MakeLayout(const SExtent& extent, size_t nWidth, size_t nHeight);

/// Calls visit(cell, first, count) for each run of consecutive work-items in one cell.
template <typename Visitor>
void ForEachRun(const SExtent& extent, const SLayout& layout, const Visitor& visit)
{
    for (size_t z = 0; z < extent.nGlobal[2]; ++z)
    {
        for (size_t y = 0; y < extent.nGlobal[1]; ++y)
        {
            const size_t nRow = (z / layout.cell[2] * layout.nRows + y / layout.cell[1]) * layout.nColumns;
            const size_t nStart = (z * extent.nGlobal[1] + y) * extent.nGlobal[0];
            for (size_t x = 0; x < extent.nGlobal[0]; x += layout.cell[0])
            {
                visit(nRow + x / layout.cell[0], nStart + x, std::min(layout.cell[0], extent.nGlobal[0] - x));
            }
        }
    }
}

/// The layout without the cells, as front ends need it to draw the picture.
nlohmann::json DescribeLayout(const SExtent& extent, const SLayout& layout);

} // namespace KestrelTool

#endif

#ifndef KESTREL_TOOLS_DEBUG_PICTURE_H
#define KESTREL_TOOLS_DEBUG_PICTURE_H

#include "tools/session/debug/Expression.h"

#include <nlohmann/json_fwd.hpp>

namespace KestrelTool
{

/// How a dispatch is laid out in rows of cells so that it fits a terminal. A cell stands for one
/// work-item, or for a block of them in a dispatch that is larger than the picture.
struct SLayout
{
    size_t nColumns = 1; ///< cells of a row
    size_t nRows = 1;    ///< rows of a slice
    size_t nSlices = 1;
    size_t cell[3] = {1, 1, 1}; ///< work-items of a cell along x, y, z
    bool bWrapped = false;      ///< one dimension, folded into rows

    size_t Count() const { return nColumns * nRows * nSlices; }
};

/// \param nWidth, nHeight  the cells that there is room for
SLayout MakeLayout(const SExtent& extent, size_t nWidth, size_t nHeight);

/// Calls visit(cell, first, count) for each run of work-items that lie in one cell, in linear order.
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

/// The layout for whoever draws it, without the cells.
nlohmann::json DescribeLayout(const SExtent& extent, const SLayout& layout);

} // namespace KestrelTool

#endif

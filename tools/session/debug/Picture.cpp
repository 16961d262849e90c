#include "tools/session/debug/Picture.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

namespace
{

size_t DivideUp(size_t nValue, size_t nDivisor)
{
    return (nValue + nDivisor - 1) / nDivisor;
}

/// The smallest cell size, a power of two, with which a length fits.
size_t ChooseCell(size_t nLength, size_t nRoom)
{
    size_t nCell = 1;
    while (DivideUp(nLength, nCell) > std::max<size_t>(nRoom, 1))
    {
        nCell *= 2;
    }
    return nCell;
}

size_t PowerOfTwoBelow(size_t nValue)
{
    size_t nPower = 1;
    while (nPower * 2 <= nValue)
    {
        nPower *= 2;
    }
    return nPower;
}

} // namespace

SLayout MakeLayout(const SExtent& extent, size_t nWidth, size_t nHeight)
{
    SLayout layout;
    nWidth = std::max<size_t>(nWidth, 1);
    nHeight = std::max<size_t>(nHeight, 1);
    if (extent.nGlobal[1] == 1 && extent.nGlobal[2] == 1)
    {
        const size_t nItems = extent.nGlobal[0];
        layout.nColumns = nItems <= nWidth ? nItems : PowerOfTwoBelow(nWidth);
        layout.cell[0] = ChooseCell(nItems, layout.nColumns * nHeight);
        layout.nColumns = std::min(layout.nColumns, DivideUp(nItems, layout.cell[0]));
        layout.nRows = DivideUp(DivideUp(nItems, layout.cell[0]), layout.nColumns);
        layout.bWrapped = true;
        return layout;
    }
    layout.cell[0] = ChooseCell(extent.nGlobal[0], nWidth);
    layout.cell[1] = ChooseCell(extent.nGlobal[1], extent.nGlobal[2] == 1 ? nHeight : std::max<size_t>(nHeight / 4, 4));
    layout.nColumns = DivideUp(extent.nGlobal[0], layout.cell[0]);
    layout.nRows = DivideUp(extent.nGlobal[1], layout.cell[1]);
    layout.cell[2] = ChooseCell(extent.nGlobal[2], nHeight / (layout.nRows + 1));
    layout.nSlices = DivideUp(extent.nGlobal[2], layout.cell[2]);
    return layout;
}

nlohmann::json DescribeLayout(const SExtent& extent, const SLayout& layout)
{
    return {{"columns", layout.nColumns}, {"rows", layout.nRows},
            {"slices", layout.nSlices},   {"cell", {layout.cell[0], layout.cell[1], layout.cell[2]}},
            {"wrapped", layout.bWrapped}, {"items", extent.Count()}};
}

} // namespace KestrelTool

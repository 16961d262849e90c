#include "tools/view/DispatchPicture.h"

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Picture.h"
#include "tools/session/debug/Statistics.h"
#include "tools/session/debug/Views.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// Changes that are listed one by one, and values of a row.
const size_t s_nMostChanges = 200;
const size_t s_nMostOfRow = 4096;

json ToJson(double fValue)
{
    if (std::isfinite(fValue))
    {
        return fValue;
    }
    return std::isnan(fValue) ? "nan" : fValue < 0 ? "-inf" : "inf";
}

/// The values in each cell.
struct SCell
{
    double fSum = 0;
    size_t nCount = 0;
    bool bNaN = false;

    void Add(double fValue)
    {
        bNaN = bNaN || std::isnan(fValue);
        fSum += std::isfinite(fValue) ? fValue : 0;
        ++nCount;
    }
    bool HasMean() const { return nCount != 0 && !bNaN; }
    double GetMean() const { return fSum / static_cast<double>(nCount); }
};

/// \param visit  adds a work-item's value, if it has one, to a cell
template <typename Visitor>
std::vector<SCell> FillCells(const SExtent& extent, const SLayout& layout, const Visitor& visit)
{
    std::vector<SCell> vCells(layout.Count());
    ForEachRun(extent, layout,
               [&](size_t nCell, size_t nFirst, size_t nCount)
               {
                   for (size_t n = nFirst; n < nFirst + nCount; ++n)
                   {
                       visit(vCells[nCell], n);
                   }
               });
    return vCells;
}

/// A byte for each cell, between two values.
std::string MakeShades(const std::vector<SCell>& vCells, double fLow, double fHigh)
{
    const double fFactor = fHigh > fLow ? 254 / (fHigh - fLow) : 0;
    std::string strShades(vCells.size(), '\0');
    for (size_t n = 0; n < vCells.size(); ++n)
    {
        if (vCells[n].HasMean())
        {
            const double fShade = fFactor == 0 ? 127 : (vCells[n].GetMean() - fLow) * fFactor;
            strShades[n] = static_cast<char>(1 + static_cast<int>(std::clamp(fShade, 0.0, 254.0)));
        }
    }
    return strShades;
}

/// Adds "shades", and as "low" and "high" what these lie between.
void AddShades(json& picture, const std::vector<SCell>& vCells)
{
    double fLow = std::numeric_limits<double>::infinity();
    double fHigh = -fLow;
    for (const SCell& cell : vCells)
    {
        if (cell.HasMean())
        {
            fLow = std::min(fLow, cell.GetMean());
            fHigh = std::max(fHigh, cell.GetMean());
        }
    }
    const bool bAny = fLow <= fHigh;
    picture["low"] = bAny ? json(fLow) : json();
    picture["high"] = bAny ? json(fHigh) : json();
    picture["shades"] = MakeShades(vCells, fLow, fHigh);
}

json DescribeStatistics(const SDispatchValues& values)
{
    std::vector<double> vThere;
    vThere.reserve(values.vValues.size());
    for (size_t n = 0; n < values.vValues.size(); ++n)
    {
        if (values.vThere[n] != 0)
        {
            vThere.push_back(values.vValues[n]);
        }
    }
    const SStatistics statistics = WorkOutStatistics(vThere);
    return {{"count", statistics.nCount},         {"nan", statistics.nNaN},
            {"distinct", statistics.nDistinct},   {"min", ToJson(statistics.fMinimum)},
            {"max", ToJson(statistics.fMaximum)}, {"mean", ToJson(statistics.fMean)},
            {"histogram", statistics.histogram}};
}

json DescribeRow(const CDebugger& debugger, const SDispatchValues& values)
{
    const size_t nWidth = debugger.GetExtent().nGlobal[0];
    const size_t nInRow = debugger.GetFocus() % nWidth;
    const size_t nCount = std::min(nWidth, s_nMostOfRow);
    const size_t nBegin = std::min(nInRow - std::min(nInRow, nCount / 2), nWidth - nCount);
    const size_t nFirst = debugger.GetFocus() - nInRow + nBegin;
    json list = json::array();
    for (size_t n = nFirst; n < nFirst + nCount; ++n)
    {
        list.push_back(values.vThere[n] != 0 ? ToJson(values.vValues[n]) : json());
    }
    return {{"first", nFirst}, {"focus", debugger.GetFocus() - nFirst}, {"values", list}};
}

} // namespace

SDispatchValues ReadValues(CDebugger& debugger, const std::string& strExpression, bool bAll)
{
    CExpression expression(strExpression, &debugger);
    GuessType(debugger, expression, debugger.GetSettings().eFormat);
    expression.Bind(debugger);
    const size_t nItems = debugger.GetExtent().Count();
    const bool bMasked = !bAll && debugger.CountActive() != nItems;
    const SMaskView mask = bMasked ? debugger.GetActive() : SMaskView();
    SDispatchValues values = {strExpression, std::vector<double>(nItems), std::vector<unsigned char>(nItems)};
    for (size_t nFirst = 0; nFirst < nItems; nFirst += CExpression::BlockSize)
    {
        const size_t nCount = std::min(CExpression::BlockSize, nItems - nFirst);
        expression.Evaluate(nFirst, nCount, &values.vValues[nFirst]);
        const bool bHasAll = expression.HasAllValues(nCount);
        for (size_t n = 0; n < nCount; ++n)
        {
            const bool bAsked = !bMasked || mask.pActive[nFirst + n] != 0;
            if (bAsked && !bHasAll)
            {
                expression.RequireValue(n);
            }
            values.vThere[nFirst + n] = bAsked ? 1 : 0;
        }
    }
    return values;
}

json DrawMask(CDebugger& debugger, size_t nWidth, size_t nHeight)
{
    const SExtent& extent = debugger.GetExtent();
    const SLayout layout = MakeLayout(extent, nWidth, nHeight);
    const SMaskView mask = debugger.GetActive();
    const std::vector<SCell> vCells =
        FillCells(extent, layout, [&](SCell& cell, size_t nItem) { cell.Add(mask.pActive[nItem] != 0 ? 1 : 0); });
    json picture = DescribeLayout(extent, layout);
    picture["kind"] = "mask";
    picture["active"] = mask.Count();
    picture["shades"] = MakeShades(vCells, 0, 1);
    return picture;
}

json DrawValues(CDebugger& debugger, const SDispatchValues& values, size_t nWidth, size_t nHeight)
{
    const SExtent& extent = debugger.GetExtent();
    const SLayout layout = MakeLayout(extent, nWidth, nHeight);
    json picture = DescribeLayout(extent, layout);
    picture["kind"] = "values";
    picture["expression"] = values.strExpression;
    AddShades(picture, FillCells(extent, layout,
                                 [&](SCell& cell, size_t nItem)
                                 {
                                     if (values.vThere[nItem] != 0)
                                     {
                                         cell.Add(values.vValues[nItem]);
                                     }
                                 }));
    return picture;
}

json DescribeValues(const CDebugger& debugger, const SDispatchValues& values)
{
    return {{"statistics", DescribeStatistics(values)}, {"row", DescribeRow(debugger, values)}};
}

json DrawChanges(CDebugger& debugger, const SDispatchValues& before, const SDispatchValues& after, size_t nWidth,
                 size_t nHeight)
{
    const SExtent& extent = debugger.GetExtent();
    const SLayout layout = MakeLayout(extent, nWidth, nHeight);
    json changes = json::array();
    size_t nChanged = 0;
    std::vector<unsigned char> vChanged(extent.Count());
    const auto show = [](const SDispatchValues& values, size_t nItem)
    { return values.vThere[nItem] != 0 ? ToJson(values.vValues[nItem]) : json(); };
    for (size_t n = 0; n < vChanged.size(); ++n)
    {
        const double fBefore = before.vValues[n];
        const double fAfter = after.vValues[n];
        const bool bSame = before.vThere[n] == after.vThere[n] &&
                           (before.vThere[n] == 0 || fBefore == fAfter || (std::isnan(fBefore) && std::isnan(fAfter)));
        vChanged[n] = bSame ? 0 : 1;
        nChanged += vChanged[n];
        if (!bSame && changes.size() < s_nMostChanges)
        {
            changes.push_back({{"item", n}, {"old", show(before, n)}, {"new", show(after, n)}});
        }
    }
    json picture = DescribeLayout(extent, layout);
    picture["kind"] = "changes";
    picture["expression"] = after.strExpression;
    picture["changed"] = nChanged;
    picture["changes"] = changes;
    AddShades(picture, FillCells(extent, layout,
                                 [&](SCell& cell, size_t nItem)
                                 {
                                     if (vChanged[nItem] != 0 && before.vThere[nItem] != 0 && after.vThere[nItem] != 0)
                                     {
                                         cell.Add(after.vValues[nItem] - before.vValues[nItem]);
                                     }
                                 }));
    return picture;
}

json DrawClasses(CDebugger& debugger, const std::vector<unsigned char>& vClasses, size_t nWidth, size_t nHeight)
{
    const SExtent& extent = debugger.GetExtent();
    const SLayout layout = MakeLayout(extent, nWidth, nHeight);
    std::string strShades(layout.Count(), '\0');
    std::vector<unsigned char> vSeen(layout.Count());
    ForEachRun(extent, layout,
               [&](size_t nCell, size_t nFirst, size_t)
               {
                   strShades[nCell] = vSeen[nCell] != 0 ? strShades[nCell] : static_cast<char>(vClasses[nFirst]);
                   vSeen[nCell] = 1;
               });
    json picture = DescribeLayout(extent, layout);
    picture["shades"] = std::move(strShades);
    return picture;
}

} // namespace KestrelTool

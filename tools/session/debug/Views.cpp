#include "tools/session/debug/Views.h"

#include "tools/session/debug/EarlierStop.h"
#include "tools/session/debug/Statistics.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

json ToJson(double fValue)
{
    if (std::isnan(fValue))
    {
        return "nan";
    }
    if (std::isinf(fValue))
    {
        return fValue < 0 ? "-inf" : "inf";
    }
    return fValue;
}

/// Ranges of linear indices, split at the ends of the dispatch's rows.
class CRanges
{
public:
    CRanges(const SExtent& extent, size_t nLimit) : m_nRow(extent.nGlobal[0]), m_nLimit(nLimit) {}

    void Add(size_t nItem)
    {
        ++m_nItems;
        if (m_nRanges != 0 && nItem == m_nLast + 1 && nItem % m_nRow != 0)
        {
            m_nLast = nItem;
            return;
        }
        Close();
        ++m_nRanges;
        m_nFirst = m_nLast = nItem;
    }

    json Finish()
    {
        Close();
        return {{"count", m_nItems}, {"ranges", m_Shown}, {"more", m_nRanges - m_Shown.size()}};
    }

private:
    void Close()
    {
        if (m_nRanges != 0 && m_nRanges <= m_nLimit)
        {
            m_Shown.push_back({m_nFirst, m_nLast});
        }
    }

    size_t m_nRow;
    size_t m_nLimit;
    json m_Shown = json::array();
    size_t m_nItems = 0;
    size_t m_nRanges = 0;
    size_t m_nFirst = 0;
    size_t m_nLast = 0;
};

struct SCellSum
{
    double fSum = 0;
    size_t nCount = 0;
    bool bNaN = false;
};

/// The selected work-items; without a mask if that is all of them.
struct SLookedAt
{
    SLookedAt(CDebugger& debugger, bool bEverything)
        : bAll(bEverything || debugger.CountActive() == debugger.GetExtent().Count()),
          mask(bAll ? SMaskView() : debugger.GetActive())
    {
    }

    bool bAll;
    SMaskView mask;
};

/// The values of the selected work-items.
std::vector<double> CollectValues(CExpression& expression, const SLookedAt& looked, size_t nItems)
{
    const size_t nActive = looked.bAll ? nItems : looked.mask.Count();
    std::vector<double> vValues;
    vValues.reserve(nActive);
    double values[CExpression::BlockSize];
    for (size_t nFirst = 0; nFirst < nItems; nFirst += CExpression::BlockSize)
    {
        const size_t nCount = std::min(CExpression::BlockSize, nItems - nFirst);
        expression.Evaluate(nFirst, nCount, values);
        const bool bThere = expression.HasAllValues(nCount);
        size_t nTaken = 0;
        for (size_t i = 0; i < nCount && !(bThere && nActive == nItems); ++i)
        {
            const bool bAsked = looked.bAll || looked.mask.pActive[nFirst + i] != 0;
            if (bAsked && !bThere)
            {
                expression.RequireValue(i);
            }
            values[nTaken] = values[i];
            nTaken += bAsked ? 1 : 0;
        }
        vValues.insert(vValues.end(), values, values + (bThere && nActive == nItems ? nCount : nTaken));
    }
    return vValues;
}

/// Calls visit(item, value) for the selected work-items.
template <typename Visitor>
void ForEachValue(CExpression& expression, const SLookedAt& looked, size_t nStart, size_t nEnd, const Visitor& visit)
{
    double values[CExpression::BlockSize];
    for (size_t nFirst = nStart; nFirst < nEnd; nFirst += CExpression::BlockSize)
    {
        const size_t nCount = std::min(CExpression::BlockSize, nEnd - nFirst);
        expression.Evaluate(nFirst, nCount, values);
        const bool bThere = expression.HasAllValues(nCount);
        for (size_t i = 0; i < nCount; ++i)
        {
            if (looked.bAll || looked.mask.pActive[nFirst + i] != 0)
            {
                if (!bThere)
                {
                    expression.RequireValue(i);
                }
                visit(nFirst + i, values[i]);
            }
        }
    }
}

} // namespace

void GuessType(CDebugger& debugger, CExpression& expression, EFormat eFormat)
{
    if (!expression.IsTypeOpen())
    {
        return;
    }
    bool bFloat = eFormat == EFormat::Float;
    if (eFormat == EFormat::Auto && expression.IsOperand())
    {
        const size_t nSamples = 1024;
        const SRegisterView view = debugger.GetValues(expression.GetOperand().strRegister);
        const SMaskView mask = debugger.GetActive();
        const unsigned int nComponent = expression.GetOperand().vComponents.front();
        size_t nFloats = 0;
        size_t nOthers = 0;
        for (size_t i = 0; i < view.nItems && nFloats + nOthers < nSamples; ++i)
        {
            const unsigned int nWord = view[i][nComponent];
            if (mask.pActive[i] != 0 && nWord != 0)
            {
                ++(LooksLikeFloat(nWord) ? nFloats : nOthers);
            }
        }
        bFloat = nFloats > nOthers;
    }
    expression.SetFloat(bFloat);
}

json ViewMask(CDebugger& debugger, size_t nWidth, size_t nHeight)
{
    const SExtent& extent = debugger.GetExtent();
    const SLayout layout = MakeLayout(extent, nWidth, nHeight);
    const SMaskView mask = debugger.GetActive();
    std::vector<size_t> vActive(layout.Count());
    std::vector<size_t> vItems(layout.Count());
    ForEachRun(extent, layout,
               [&](size_t nCell, size_t nFirst, size_t nCount)
               {
                   size_t nActive = 0;
                   for (size_t i = nFirst; i < nFirst + nCount; ++i)
                   {
                       nActive += mask.pActive[i] != 0;
                   }
                   vActive[nCell] += nActive;
                   vItems[nCell] += nCount;
               });
    json view = DescribeLayout(extent, layout);
    view["view"] = "mask";
    view["active"] = mask.Count();
    view["cells"] = vActive;
    view["sizes"] = vItems;
    return view;
}

json ViewGrid(CDebugger& debugger, CExpression& expression, bool bAll, size_t nWidth, size_t nHeight)
{
    const SExtent& extent = debugger.GetExtent();
    const SLayout layout = MakeLayout(extent, nWidth, nHeight);
    const SLookedAt looked(debugger, bAll);
    expression.Bind(debugger);
    std::vector<SCellSum> vSums(layout.Count());
    ForEachRun(extent, layout,
               [&](size_t nCell, size_t nFirst, size_t nCount)
               {
                   SCellSum sum = vSums[nCell];
                   ForEachValue(expression, looked, nFirst, nFirst + nCount,
                                [&](size_t, double fValue)
                                {
                                    sum.bNaN = sum.bNaN || std::isnan(fValue);
                                    sum.fSum += std::isfinite(fValue) ? fValue : 0;
                                    ++sum.nCount;
                                });
                   vSums[nCell] = sum;
               });
    json view = DescribeLayout(extent, layout);
    json cells = json::array();
    double fLow = std::numeric_limits<double>::infinity();
    double fHigh = -fLow;
    for (const SCellSum& sum : vSums)
    {
        const double fMean = sum.nCount != 0 ? sum.fSum / static_cast<double>(sum.nCount) : 0;
        cells.push_back(sum.nCount == 0 ? json(nullptr) : sum.bNaN ? json("nan") : json(fMean));
        if (sum.nCount != 0 && !sum.bNaN)
        {
            fLow = std::min(fLow, fMean);
            fHigh = std::max(fHigh, fMean);
        }
    }
    view["view"] = "grid";
    view["expression"] = expression.GetText();
    view["low"] = fLow <= fHigh ? json(fLow) : json(nullptr);
    view["high"] = fLow <= fHigh ? json(fHigh) : json(nullptr);
    view["cells"] = std::move(cells);
    return view;
}

json ViewRow(CDebugger& debugger, CExpression& expression, size_t nMost)
{
    expression.Bind(debugger);
    const size_t nWidth = debugger.GetExtent().nGlobal[0];
    const size_t nFocus = debugger.GetFocus();
    const size_t nCount = std::min(nWidth, nMost);
    const size_t nInRow = nFocus % nWidth;
    const size_t nBegin = std::min(nInRow - std::min(nInRow, nCount / 2), nWidth - nCount);
    const size_t nFirst = nFocus - nInRow + nBegin;
    json values = json::array();
    double block[CExpression::BlockSize];
    for (size_t nDone = 0; nDone < nCount; nDone += CExpression::BlockSize)
    {
        const size_t nHere = std::min(CExpression::BlockSize, nCount - nDone);
        expression.Evaluate(nFirst + nDone, nHere, block);
        for (size_t n = 0; n < nHere; ++n)
        {
            values.push_back(expression.HasValue(n) ? ToJson(block[n]) : json());
        }
    }
    return {{"view", "row"},
            {"expression", expression.GetText()},
            {"first", nFirst},
            {"focus", nFocus - nFirst},
            {"values", values}};
}

json ViewStatistics(CDebugger& debugger, CExpression& expression, bool bAll)
{
    expression.Bind(debugger);
    const size_t nItems = debugger.GetExtent().Count();
    const SStatistics statistics = WorkOutStatistics(CollectValues(expression, SLookedAt(debugger, bAll), nItems));
    return {{"view", "stats"},
            {"expression", expression.GetText()},
            {"float", expression.IsFloat()},
            {"count", statistics.nCount},
            {"nan", statistics.nNaN},
            {"distinct", statistics.nDistinct},
            {"min", ToJson(statistics.fMinimum)},
            {"max", ToJson(statistics.fMaximum)},
            {"mean", ToJson(statistics.fMean)},
            {"low", statistics.fLow},
            {"high", statistics.fHigh},
            {"histogram", statistics.histogram}};
}

json ViewWhere(CDebugger& debugger, CExpression& expression, bool bAll)
{
    expression.Bind(debugger);
    const SExtent& extent = debugger.GetExtent();
    CRanges ranges(extent, debugger.GetSettings().nLimit);
    ForEachValue(expression, SLookedAt(debugger, bAll), 0, extent.Count(),
                 [&](size_t nItem, double fValue)
                 {
                     if (fValue != 0)
                     {
                         ranges.Add(nItem);
                     }
                 });
    json view = ranges.Finish();
    view["view"] = "where";
    view["expression"] = expression.GetText();
    view["global"] = {extent.nGlobal[0], extent.nGlobal[1], extent.nGlobal[2]};
    return view;
}

json ViewDifference(CDebugger& debugger, const SOperand& operand, EFormat eFormat)
{
    const std::vector<uint32_t> vEarlier = debugger.GetEarlierValues(operand.strRegister);
    const SRegisterView now = debugger.GetValues(operand.strRegister);
    const SExtent& extent = debugger.GetExtent();
    CRanges ranges(extent, debugger.GetSettings().nLimit);
    json changes = json::array();
    for (size_t i = 0; i < now.nItems; ++i)
    {
        std::vector<uint32_t> vOld;
        std::vector<uint32_t> vNew;
        for (const unsigned int nComponent : operand.vComponents)
        {
            vOld.push_back(vEarlier.empty() ? 0 : vEarlier[4 * i + nComponent]);
            vNew.push_back(now[i][nComponent]);
        }
        if (vOld == vNew)
        {
            continue;
        }
        ranges.Add(i);
        if (changes.size() < debugger.GetSettings().nLimit)
        {
            changes.push_back({{"item", i},
                               {"old", FormatTuple(FormatWords(vOld, eFormat))},
                               {"new", FormatTuple(FormatWords(vNew, eFormat))}});
        }
    }
    json view = ranges.Finish();
    view["view"] = "diff";
    view["register"] = operand.ToString();
    view["fresh"] = vEarlier.empty();
    view["items"] = extent.Count();
    view["changes"] = std::move(changes);
    return view;
}

json ViewDifference(CDebugger& debugger, const std::string& strExpression, EFormat eFormat)
{
    CEarlierStop earlier(debugger);
    CExpression before(strExpression, &earlier);
    before.Bind(earlier);
    CExpression now(strExpression, &debugger);
    now.Bind(debugger);
    uint64_t nMoves = debugger.GetMoves();
    const SExtent& extent = debugger.GetExtent();
    CRanges ranges(extent, debugger.GetSettings().nLimit);
    json changes = json::array();
    const auto format = [&](const SSourceValue& value)
    { return FormatValue(value, eFormat, [&](uint64_t nAddress) { return debugger.NameAddress(nAddress); }); };
    for (size_t i = 0; i < extent.Count(); ++i)
    {
        const SSourceValue old = before.Read(i);
        earlier.RequireAll();
        if (nMoves != debugger.GetMoves()) // the debugger went to the earlier stop and back to read its memory
        {
            now.Bind(debugger);
            nMoves = debugger.GetMoves();
        }
        const SSourceValue value = now.Read(i);
        if (old.vBytes == value.vBytes && old.vKnown == value.vKnown)
        {
            continue;
        }
        ranges.Add(i);
        if (changes.size() < debugger.GetSettings().nLimit)
        {
            changes.push_back({{"item", i}, {"old", format(old)}, {"new", format(value)}});
        }
    }
    json view = ranges.Finish();
    view["view"] = "diff";
    view["register"] = strExpression;
    view["fresh"] = false;
    view["items"] = extent.Count();
    view["changes"] = std::move(changes);
    return view;
}

json ViewItem(CDebugger& debugger, size_t nItem)
{
    const SExtent& extent = debugger.GetExtent();
    const size_t position[3] = {nItem % extent.nGlobal[0], nItem / extent.nGlobal[0] % extent.nGlobal[1],
                                nItem / (extent.nGlobal[0] * extent.nGlobal[1])};
    json view = {{"view", "workitem"}, {"item", nItem}, {"dimensions", extent.nDimensions}};
    for (unsigned int i = 0; i < 3; ++i)
    {
        view["position"].push_back(position[i]);
        view["group"].push_back(position[i] / extent.nLocal[i]);
        view["local"].push_back(position[i] % extent.nLocal[i]);
    }
    if (debugger.IsLive())
    {
        view["active"] = debugger.GetActive().pActive[nItem] != 0;
    }
    return view;
}

} // namespace KestrelTool

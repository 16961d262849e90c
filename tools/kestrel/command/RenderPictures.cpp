#include "tools/kestrel/command/RenderPictures.h"

#include "tools/session/debug/Format.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <functional>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

struct SShades
{
    const char* pszNone;
    const char* pszNaN;
    const char* levels[4]; ///< from the lightest to the fullest
};

const SShades s_Unicode = {"\u00b7", "!", {"\u2591", "\u2592", "\u2593", "\u2588"}};
const SShades s_Ascii = {".", "!", {"-", "+", "*", "#"}};

const SShades& ChooseShades(bool bUnicode)
{
    return bUnicode ? s_Unicode : s_Ascii;
}

/// The rows of a picture, each preceded by its first work-item, or by y.
std::string DrawRows(const json& view, const std::function<std::string(size_t)>& drawCell)
{
    const size_t nColumns = view["columns"];
    const size_t nRows = view["rows"];
    const size_t nSlices = view["slices"];
    const bool bWrapped = view["wrapped"];
    const size_t nCells = view["cells"].size();
    std::string strPicture;
    for (size_t nSlice = 0; nSlice < nSlices; ++nSlice)
    {
        if (nSlices > 1)
        {
            strPicture += "z " + std::to_string(nSlice * view["cell"][2].get<size_t>()) + "\n";
        }
        for (size_t nRow = 0; nRow < nRows; ++nRow)
        {
            const size_t nLabel =
                bWrapped ? nRow * nColumns * view["cell"][0].get<size_t>() : nRow * view["cell"][1].get<size_t>();
            strPicture += PadLeft(std::to_string(nLabel), 8) + " ";
            for (size_t nColumn = 0; nColumn < nColumns; ++nColumn)
            {
                const size_t nCell = (nSlice * nRows + nRow) * nColumns + nColumn;
                strPicture += nCell < nCells ? drawCell(nCell) : "";
            }
            strPicture += "\n";
        }
    }
    return strPicture;
}

std::string DescribeCell(const json& view)
{
    const size_t nItems = view["cell"][0].get<size_t>() * view["cell"][1].get<size_t>() * view["cell"][2].get<size_t>();
    if (nItems == 1)
    {
        return std::string();
    }
    std::string strShape = std::to_string(view["cell"][0].get<size_t>());
    if (!view["wrapped"].get<bool>())
    {
        strShape += " x " + std::to_string(view["cell"][1].get<size_t>());
        strShape += view["slices"].get<size_t>() > 1 || view["cell"][2].get<size_t>() > 1
                        ? " x " + std::to_string(view["cell"][2].get<size_t>())
                        : "";
    }
    return ", a cell is " + strShape + " work-items";
}

size_t ChooseLevel(double fShare)
{
    return std::min<size_t>(static_cast<size_t>(fShare * 4), 3);
}

} // namespace

std::string PadLeft(const std::string& strText, size_t nWidth)
{
    return strText.size() < nWidth ? std::string(nWidth - strText.size(), ' ') + strText : strText;
}

std::string RenderNumber(const json& number)
{
    if (number.is_string())
    {
        return number.get<std::string>();
    }
    if (number.is_null())
    {
        return "-";
    }
    const double fValue = number.get<double>();
    if (fValue == std::floor(fValue) && std::abs(fValue) < 1e15)
    {
        return std::to_string(static_cast<long long>(fValue));
    }
    return FormatFloat(fValue);
}

std::string RenderMask(const json& view, bool bUnicode)
{
    const SShades& shades = ChooseShades(bUnicode);
    const auto drawCell = [&](size_t nCell) -> std::string
    {
        // A cell beyond the end of the dispatch has no work-items.
        const size_t nSize = view["sizes"][nCell];
        const size_t nActive = view["cells"][nCell];
        if (nSize == 0)
        {
            return " ";
        }
        const size_t nLevel = nActive == nSize ? 3 : std::min<size_t>(ChooseLevel(double(nActive) / double(nSize)), 2);
        return nActive == 0 ? shades.pszNone : shades.levels[nLevel];
    };
    return std::to_string(view["active"].get<size_t>()) + " of " + std::to_string(view["items"].get<size_t>()) +
           " work-items active in the last step" + DescribeCell(view) + "\n" + DrawRows(view, drawCell);
}

std::string RenderGrid(const json& view, bool bUnicode)
{
    const SShades& shades = ChooseShades(bUnicode);
    const double fLow = view["low"].is_null() ? 0 : view["low"].get<double>();
    const double fHigh = view["high"].is_null() ? 0 : view["high"].get<double>();
    const auto drawCell = [&](size_t nCell) -> std::string
    {
        const json& value = view["cells"][nCell];
        if (value.is_null())
        {
            return shades.pszNone;
        }
        if (value.is_string())
        {
            return shades.pszNaN;
        }
        return shades.levels[fHigh > fLow ? ChooseLevel((value.get<double>() - fLow) / (fHigh - fLow)) : 3];
    };
    std::string strLegend = view["expression"].get<std::string>() + ": ";
    for (const char* pszShade : shades.levels)
    {
        strLegend += pszShade;
    }
    return strLegend + " from " + RenderNumber(view["low"]) + " to " + RenderNumber(view["high"]) + DescribeCell(view) +
           "\n" + DrawRows(view, drawCell);
}

std::string RenderStatistics(const json& view, bool bUnicode)
{
    std::string strText = view["expression"].get<std::string>() + ": " + std::to_string(view["count"].get<size_t>()) +
                          " values, " + std::to_string(view["distinct"].get<size_t>()) + " distinct, " +
                          std::to_string(view["nan"].get<size_t>()) + " NaN\n";
    strText += "min " + RenderNumber(view["min"]) + "  max " + RenderNumber(view["max"]) + "  mean " +
               RenderNumber(view["mean"]) + "\n";
    const double fLow = view["low"];
    const double fStep = (view["high"].get<double>() - fLow) / static_cast<double>(view["histogram"].size());
    size_t nMost = 1;
    for (const json& bin : view["histogram"])
    {
        nMost = std::max(nMost, bin.get<size_t>());
    }
    for (size_t i = 0; i < view["histogram"].size() && fStep > 0; ++i)
    {
        const size_t nCount = view["histogram"][i];
        const size_t nBar = (nCount * 40 + nMost - 1) / nMost;
        strText += PadLeft(FormatFloat(fLow + fStep * static_cast<double>(i)), 12) + " " +
                   PadLeft(std::to_string(nCount), 8) + (nBar != 0 ? " " : "");
        for (size_t n = 0; n < nBar; ++n)
        {
            strText += ChooseShades(bUnicode).levels[3];
        }
        strText += "\n";
    }
    return strText;
}

} // namespace KestrelTool

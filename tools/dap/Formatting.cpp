#include "tools/dap/Formatting.h"

#include "tools/session/debug/Expression.h"

namespace KestrelTool
{

std::string FormatFor(CDebugger& debugger, CExpression& expression, size_t nItem, EFormat eFormat)
{
    if (!expression.IsOperand())
    {
        return FormatValue(expression.Read(nItem), eFormat,
                           [&](uint64_t nAddress) { return debugger.NameAddress(nAddress); });
    }
    const SRegisterView view = debugger.GetValues(expression.GetOperand().strRegister);
    std::vector<uint32_t> vWords;
    for (const unsigned int nComponent : expression.GetOperand().vComponents)
    {
        vWords.push_back(view[nItem][nComponent]);
    }
    return FormatTuple(FormatWords(vWords, eFormat));
}

std::string FormatExpression(CDebugger& debugger, const std::string& strText)
{
    CExpression expression(strText, &debugger);
    expression.Bind(debugger);
    return FormatFor(debugger, expression, debugger.GetFocus(), debugger.GetSettings().eFormat);
}

std::string TrimText(const std::string& strText)
{
    const size_t nFirst = strText.find_first_not_of(" \t\r\n");
    return nFirst == std::string::npos ? std::string()
                                       : strText.substr(nFirst, strText.find_last_not_of(" \t\r\n") - nFirst + 1);
}

std::string NameItem(const SExtent& extent, size_t nItem)
{
    const size_t place[3] = {nItem % extent.nGlobal[0], nItem / extent.nGlobal[0] % extent.nGlobal[1],
                             nItem / (extent.nGlobal[0] * extent.nGlobal[1])};
    std::vector<std::string> vTexts;
    for (unsigned int n = 0; n < extent.nDimensions; ++n)
    {
        vTexts.push_back(std::to_string(place[n] + extent.nOffset[n]));
    }
    return FormatTuple(vTexts);
}

} // namespace KestrelTool

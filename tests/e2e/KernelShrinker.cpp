#include "tests/e2e/KernelShrinker.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace KestrelTest
{

namespace
{

typedef std::vector<std::string> Lines;

bool StartsWith(const std::string& strText, const char* pszPrefix)
{
    return strText.rfind(pszPrefix, 0) == 0;
}

Lines Split(const std::string& strText)
{
    Lines vLines;
    std::istringstream stream(strText);
    for (std::string strLine; std::getline(stream, strLine);)
    {
        vLines.push_back(strLine);
    }
    return vLines;
}

std::string Join(const Lines& vLines)
{
    std::string strText;
    for (const std::string& strLine : vLines)
    {
        strText += strLine + "\n";
    }
    return strText;
}

bool Opens(const std::string& strLine)
{
    return StartsWith(strLine, "if") || StartsWith(strLine, "whileloop") || StartsWith(strLine, "switch") ||
           StartsWith(strLine, "func") || StartsWith(strLine, "mdef");
}

bool Closes(const std::string& strLine)
{
    return StartsWith(strLine, "end") || StartsWith(strLine, "mend");
}

/// The line that closes what a line opens, or the line itself.
size_t FindEnd(const Lines& vLines, size_t nStart)
{
    size_t nDepth = 0;
    for (size_t n = nStart; n < vLines.size(); ++n)
    {
        nDepth += Opens(vLines[n]);
        nDepth -= nDepth != 0 && Closes(vLines[n]);
        if (nDepth == 0)
        {
            return n;
        }
    }
    return vLines.size() - 1;
}

/// Everything up to the kernel's own address calculation stays, and so do lines that close something.
bool MayGo(const Lines& vLines, size_t nLine)
{
    const auto head =
        std::find_if(vLines.begin(), vLines.end(),
                     [](const std::string& strLine) { return strLine.find(" r2.x") != std::string::npos; });
    const bool bLast = nLine + 1 < vLines.size() && vLines[nLine + 1] == "endfunc";
    return nLine > static_cast<size_t>(head - vLines.begin()) && !Closes(vLines[nLine]) && vLines[nLine][0] != ';' &&
           !bLast;
}

/// Nothing may come between a switch and its first label.
bool IsWellFormed(const Lines& vLines)
{
    for (size_t n = 0; n + 1 < vLines.size(); ++n)
    {
        if (StartsWith(vLines[n], "switch") && !StartsWith(vLines[n + 1], "case") &&
            !StartsWith(vLines[n + 1], "default"))
        {
            return false;
        }
    }
    return true;
}

bool Replace(KestrelTool::SLaunchFile& file, const Lines& vLines, const StillFails& stillFails)
{
    KestrelTool::SLaunchFile smaller = file;
    smaller.strSource = Join(vLines);
    if (!IsWellFormed(vLines) || !stillFails(smaller))
    {
        return false;
    }
    file = smaller;
    return true;
}

} // namespace

KestrelTool::SLaunchFile Shrink(KestrelTool::SLaunchFile file, const StillFails& stillFails)
{
    bool bSmaller = true;
    while (bSmaller)
    {
        bSmaller = false;
        // Backwards, so that the lines before keep their meaning as long as possible.
        for (size_t n = Split(file.strSource).size(); n-- > 0;)
        {
            const Lines vLines = Split(file.strSource);
            if (n >= vLines.size() || !MayGo(vLines, n))
            {
                continue;
            }
            const size_t nEnd = FindEnd(vLines, n);
            Lines vWithout = vLines;
            vWithout.erase(vWithout.begin() + static_cast<ptrdiff_t>(n),
                           vWithout.begin() + static_cast<ptrdiff_t>(nEnd) + 1);
            if (Replace(file, vWithout, stillFails))
            {
                bSmaller = true;
                continue;
            }
            if (nEnd == n || StartsWith(vLines[n], "func") || StartsWith(vLines[n], "mdef"))
            {
                continue;
            }
            // Keeps the block's content, but not the block.
            vWithout = vLines;
            vWithout.erase(vWithout.begin() + static_cast<ptrdiff_t>(nEnd));
            vWithout.erase(vWithout.begin() + static_cast<ptrdiff_t>(n));
            bSmaller = Replace(file, vWithout, stillFails) || bSmaller;
        }
    }
    return file;
}

} // namespace KestrelTest

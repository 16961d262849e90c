#include "platform/compiler/FrontEnd.h"

#include <algorithm>

namespace KestrelPlatform
{
namespace
{

const std::string_view s_Blanks = " \t\r";

/// Gives the lines of a text one by one, without their ends, and counts them.
class CLines
{
public:
    explicit CLines(std::string_view text) : m_Rest(text) {}

    bool Next(std::string_view& line)
    {
        if (m_Rest.empty())
        {
            return false;
        }
        const size_t nBreak = m_Rest.find('\n');
        line = m_Rest.substr(0, nBreak);
        m_Rest.remove_prefix(nBreak == std::string_view::npos ? m_Rest.size() : nBreak + 1);
        ++m_nLine;
        return true;
    }

    unsigned int Line() const { return m_nLine; }
    std::string_view Rest() const { return m_Rest; }

private:
    std::string_view m_Rest;
    unsigned int m_nLine = 0;
};

std::string_view TrimFront(std::string_view line)
{
    const size_t nStart = line.find_first_not_of(s_Blanks);
    return nStart == std::string_view::npos ? std::string_view() : line.substr(nStart);
}

std::string_view TrimBack(std::string_view line)
{
    const size_t nEnd = line.find_last_not_of(s_Blanks);
    return nEnd == std::string_view::npos ? std::string_view() : line.substr(0, nEnd + 1);
}

bool StartsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

void AppendLine(std::string_view line, unsigned int nLine, size_t nColumn, SModule& module)
{
    module.strText.append(line);
    module.strText.push_back('\n');
    module.vPlaces.push_back({nLine, static_cast<unsigned int>(nColumn)});
}

/// Readers of metadata treat a blank line as a fault.
void RemoveBlankLines(std::string& str)
{
    str.erase(std::unique(str.begin(), str.end(), [](char a, char b) { return a == '\n' && b == '\n'; }), str.end());
}

/// Reads a metadata block whose ARGSTART line has just been taken.
bool ReadBlock(CLines& lines, std::string_view first, SModule& module, SDiagnostic& diag)
{
    const unsigned int nFirstLine = lines.Line();
    SModuleKernel kernel;
    std::string_view line = TrimBack(TrimFront(first));
    do
    {
        line = TrimBack(TrimFront(line));
        if (!line.empty())
        {
            kernel.strMetadata.append(line);
        }
        kernel.strMetadata.push_back('\n');
    } while (!StartsWith(line, ";ARGEND:") && lines.Next(line));
    if (!ReadKernelMetadata(kernel.strMetadata, kernel.metadata, diag))
    {
        diag.nLine += nFirstLine - 1;
        return false;
    }
    RemoveBlankLines(kernel.strMetadata);
    module.vKernels.push_back(std::move(kernel));
    return true;
}

} // namespace

bool IsILModule(std::string_view source)
{
    const size_t nStart = source.find_first_not_of(" \t\r\n");
    const std::string_view text = nStart == std::string_view::npos ? std::string_view() : source.substr(nStart);
    return StartsWith(text, ";") || StartsWith(text, "il_") || StartsWith(text, "il(") || StartsWith(text, "mdef");
}

bool CompileILModule(std::string_view source, SModule& module, SDiagnostic& diag)
{
    CLines lines(source);
    std::string_view text = source;
    unsigned int nTextLine = 1;
    std::string_view line;
    while (lines.Next(line))
    {
        const std::string_view trimmed = TrimFront(line);
        if (StartsWith(trimmed, ";ARGSTART:"))
        {
            if (!ReadBlock(lines, trimmed, module, diag))
            {
                return false;
            }
            text = lines.Rest();
            nTextLine = lines.Line() + 1;
        }
        else if (!trimmed.empty() && trimmed.front() != ';')
        {
            break;
        }
    }
    if (module.vKernels.empty())
    {
        diag.nLine = nTextLine;
        diag.nColumn = 1;
        diag.strMessage = "the module has no kernel: expected a metadata block that starts with ';ARGSTART:'";
        return false;
    }
    AppendNormalizedText(text, nTextLine, module);
    return true;
}

void AppendNormalizedText(std::string_view text, unsigned int nFirstLine, SModule& module)
{
    module.strText.reserve(module.strText.size() + text.size());
    CLines lines(text);
    bool bHeader = false;
    bool bMacro = false;
    std::string_view line;
    while (lines.Next(line))
    {
        const unsigned int nLine = nFirstLine + lines.Line() - 1;
        const std::string_view trimmed = TrimFront(line);
        const size_t nComment = trimmed.find(';');
        const std::string_view item = TrimBack(trimmed.substr(0, nComment));
        const size_t nItemColumn = static_cast<size_t>(trimmed.data() - line.data());
        if (!item.empty())
        {
            AppendLine(item, nLine, nItemColumn, module);
            bMacro = !bHeader && !StartsWith(item, "mend") && (bMacro || StartsWith(item, "mdef"));
            bHeader = bHeader || (!bMacro && StartsWith(item, "il"));
        }
        if (nComment != std::string_view::npos && (bHeader || bMacro))
        {
            std::string_view comment = trimmed.substr(nComment);
            if (comment.back() == '\r')
            {
                comment.remove_suffix(1);
            }
            AppendLine(comment, nLine, nItemColumn + nComment, module);
        }
    }
}

} // namespace KestrelPlatform

#include "tools/dap/Sources.h"

#include "tools/dap/Fields.h"
#include "tools/dap/Formatting.h"
#include "tools/session/launch/Files.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// A path without detours; empty if there is no such file.
std::string FindFileOnDisk(const std::string& strPath)
{
    std::error_code error;
    const std::filesystem::path path = std::filesystem::canonical(strPath, error);
    return !error && std::filesystem::is_regular_file(path, error) ? path.string() : std::string();
}

std::string NameOnly(const std::string& strPath)
{
    return std::filesystem::path(strPath).filename().string();
}

const CCodeMap::SFunction* KernelOf(const CDebugger& debugger)
{
    return debugger.GetCode().FindFunction(debugger.GetCode().GetFirstStop());
}

/// The files that a kernel's lines come from.
std::set<std::string> ListFilesOf(const CListing& listing)
{
    std::set<std::string> files;
    for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
    {
        if (const std::optional<SSourceLine> place = ReadSourceLine(listing.GetPlace(nLine)))
        {
            files.insert(place->strFile);
        }
    }
    return files;
}

std::string JoinLines(const CListing& listing)
{
    std::string strText;
    for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
    {
        strText += listing.GetLine(nLine) + "\n";
    }
    return strText;
}

std::string JoinLines(CSourceText& text, const std::string& strFile)
{
    std::string strText;
    const unsigned int nLast = text.GetLastLine(strFile);
    for (unsigned int nLine = 1; nLine <= nLast; ++nLine)
    {
        const std::string* const pLine = text.FindLine(strFile, nLine);
        strText += (pLine != nullptr ? *pLine : std::string()) + "\n";
    }
    return strText;
}

/// The lines of a file that a listing's lines are, from 1; nothing if an instruction isn't found.
/// \param nFirst  the kernel's function; what comes before may have been added to what the file has
std::vector<unsigned int> MatchLines(const CListing& listing, const std::string& strText, unsigned int nFirst)
{
    std::vector<std::string> vFile;
    std::istringstream stream(strText);
    for (std::string strLine; std::getline(stream, strLine);)
    {
        vFile.push_back(TrimText(strLine));
    }
    std::vector<unsigned int> vLines;
    size_t nNext = 0;
    for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
    {
        const auto it = std::find(vFile.begin() + static_cast<std::ptrdiff_t>(nNext), vFile.end(),
                                  TrimText(listing.GetLine(nLine)));
        if (it == vFile.end() && nLine >= nFirst && listing.IsInstruction(nLine))
        {
            return {};
        }
        nNext = it == vFile.end() ? nNext : static_cast<size_t>(it - vFile.begin()) + 1;
        vLines.push_back(static_cast<unsigned int>(nNext));
    }
    return vLines;
}

/// The program that a launch file names; empty if it can't be told.
std::string FindProgramOf(const SLaunchFile& file)
{
    try
    {
        const json launch = json::parse(ReadFileBytes(file.strPath), nullptr, false, true);
        const json program = launch.is_object() ? launch.value("program", json()) : json();
        return program.is_string()
                   ? FindFileOnDisk(
                         (std::filesystem::path(file.strPath).parent_path() / program.get<std::string>()).string())
                   : std::string();
    }
    catch (const CFileError&)
    {
        return std::string();
    }
}

} // namespace

json CSources::Serve(const std::string& strName, const std::string& strText)
{
    auto it = std::find_if(m_vTexts.begin(), m_vTexts.end(),
                           [&](const SText& text) { return text.strName == strName && text.strText == strText; });
    if (it == m_vTexts.end())
    {
        m_vTexts.push_back({strName, strText});
        it = std::prev(m_vTexts.end());
    }
    return {{"name", NameOnly(strName)}, {"sourceReference", it - m_vTexts.begin() + 1}};
}

json CSources::Describe(CDebugger& debugger, const std::string& strFile)
{
    const std::string strPath = FindFileOnDisk(strFile);
    if (!strPath.empty())
    {
        return {{"name", NameOnly(strPath)}, {"path", strPath}};
    }
    return Serve(strFile, JoinLines(debugger.GetSourceText(), strFile));
}

/// The file of IL that a launch file names can be shown in place of the kernel's text if it holds it.
void CSources::MatchFile(CDebugger& debugger)
{
    const SLaunchFile& file = debugger.GetLaunch().GetFile();
    const std::string strMatched =
        file.strPath + "\n" + file.strKernel + "\n" + std::to_string(debugger.GetListing().GetLineCount());
    if (m_strMatched == strMatched)
    {
        return;
    }
    m_strMatched = strMatched;
    m_strFile = FindProgramOf(file);
    m_vLines.clear();
    if (!m_strFile.empty())
    {
        const CCodeMap::SFunction* const pKernel = KernelOf(debugger);
        m_vLines = MatchLines(debugger.GetListing(), file.strSource, pKernel != nullptr ? pKernel->nHead : 0);
    }
    if (m_vLines.empty())
    {
        m_strFile.clear();
    }
}

json CSources::DescribeIL(CDebugger& debugger)
{
    MatchFile(debugger);
    if (!m_strFile.empty())
    {
        return {{"name", NameOnly(m_strFile)}, {"path", m_strFile}};
    }
    return Serve(debugger.GetLaunch().GetFile().strKernel + ".il", JoinLines(debugger.GetListing()));
}

/// From 1.
unsigned int CSources::FindLineOfIL(CDebugger& debugger, unsigned int nLine)
{
    MatchFile(debugger);
    return nLine < m_vLines.size() ? m_vLines[nLine] : nLine + 1;
}

CSources::SPlace CSources::FindPlace(CDebugger& debugger, const SFrame& frame)
{
    if (frame.place)
    {
        return {Describe(debugger, frame.place->strFile), frame.place->nLine};
    }
    return {DescribeIL(debugger), FindLineOfIL(debugger, frame.nLine)};
}

CSources::SPlace CSources::FindInstruction(CDebugger& debugger, unsigned int nLine)
{
    SFrame frame;
    frame.nLine = nLine;
    frame.place = ReadSourceLine(debugger.GetListing().GetPlace(nLine));
    return FindPlace(debugger, frame);
}

json CSources::List(CDebugger& debugger)
{
    json list = json::array();
    for (const std::string& strFile : ListFilesOf(debugger.GetListing()))
    {
        list.push_back(Describe(debugger, strFile));
    }
    list.push_back(DescribeIL(debugger));
    return list;
}

const std::string& CSources::GetText(int64_t nReference) const
{
    if (nReference < 1 || nReference > static_cast<int64_t>(m_vTexts.size()))
    {
        throw CRequestError("there is no source with this reference");
    }
    return m_vTexts[static_cast<size_t>(nReference) - 1].strText;
}

std::string CSources::NameFile(const json& source) const
{
    const int64_t nReference = ReadInteger(source, "sourceReference", 0);
    if (nReference != 0)
    {
        GetText(nReference);
        return m_vTexts[static_cast<size_t>(nReference) - 1].strName;
    }
    std::string strName = NameOnly(ReadText(source, "path", ReadText(source, "name", "")));
    if (strName.empty())
    {
        throw CRequestError("a source has a path or a reference");
    }
    return strName;
}

bool CSources::IsIL(CDebugger& debugger, const json& source)
{
    const json il = DescribeIL(debugger);
    const int64_t nReference = ReadInteger(source, "sourceReference", 0);
    if (nReference != 0 || il.contains("sourceReference"))
    {
        return il.value("sourceReference", int64_t(0)) == nReference;
    }
    return il["path"] == FindFileOnDisk(ReadText(source, "path", ""));
}

std::set<unsigned int> CSources::ListLines(CDebugger& debugger, const json& source)
{
    const CListing& listing = debugger.GetListing();
    if (!IsIL(debugger, source))
    {
        return ListSourceLines(listing, nullptr, NameFile(source));
    }
    std::set<unsigned int> lines;
    for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
    {
        if (listing.IsInstruction(nLine))
        {
            lines.insert(FindLineOfIL(debugger, nLine));
        }
    }
    return lines;
}

CSources::SCode CSources::FindCode(CDebugger& debugger, const json& source, unsigned int nLine)
{
    SCode code;
    const std::set<unsigned int> lines = ListLines(debugger, source);
    const auto it = lines.lower_bound(nLine);
    if (it == lines.end())
    {
        return code;
    }
    code.nLine = *it;
    const CListing& listing = debugger.GetListing();
    if (IsIL(debugger, source))
    {
        for (unsigned int n = 0; n < listing.GetLineCount(); ++n)
        {
            if (listing.IsInstruction(n) && FindLineOfIL(debugger, n) == *it)
            {
                code.lines.insert(n);
            }
        }
        return code;
    }
    // Code of other kernels in the same binary isn't this launch's.
    const SSourceLine wanted{NameFile(source), *it};
    const std::set<unsigned int> own = ListSourceLines(listing, KernelOf(debugger), wanted.strFile);
    code.lines =
        FindSourceLines(listing, debugger.GetDebugInfo(), own.count(*it) != 0 ? KernelOf(debugger) : nullptr, wanted);
    return code;
}

} // namespace KestrelTool

#include "tools/session/debug/SourceText.h"

#include "tools/session/debug/SourceLines.h"
#include "tools/session/launch/Files.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace KestrelTool
{

namespace
{

const unsigned long s_nMostLine = 0x7FFFFFFF;

/// Parses `#line N "file"` and `# N "file"`. \return false for another line
bool ReadDirective(const std::string& strLine, unsigned int& nLine, std::string& strFile)
{
    std::istringstream stream(strLine);
    std::string strWord;
    char cHash = '\0';
    if (!(stream >> cHash) || cHash != '#' || !(stream >> strWord))
    {
        return false;
    }
    if (strWord == "line" && !(stream >> strWord))
    {
        return false;
    }
    char* pszEnd = nullptr;
    const unsigned long nNumber = std::strtoul(strWord.c_str(), &pszEnd, 10);
    if (strWord.find_first_not_of("0123456789") != std::string::npos || nNumber > s_nMostLine)
    {
        return false;
    }
    nLine = static_cast<unsigned int>(nNumber);
    const size_t nFirst = strLine.find('"');
    const size_t nLast = strLine.rfind('"');
    if (nFirst != nLast)
    {
        strFile = strLine.substr(nFirst + 1, nLast - nFirst - 1);
    }
    return true;
}

std::map<unsigned int, std::string> SplitLines(const std::string& strText)
{
    std::map<unsigned int, std::string> mapLines;
    std::istringstream stream(strText);
    unsigned int nLine = 0;
    for (std::string strLine; std::getline(stream, strLine);)
    {
        mapLines[++nLine] = strLine;
    }
    return mapLines;
}

} // namespace

CSourceText::CSourceText(const std::string& strProgram)
{
    std::istringstream stream(strProgram);
    std::string strFile;
    unsigned int nLine = 1;
    for (std::string strLine; std::getline(stream, strLine);)
    {
        if (!strLine.empty() && strLine.back() == '\r')
        {
            strLine.pop_back();
        }
        if (!ReadDirective(strLine, nLine, strFile))
        {
            m_mapFiles[strFile][nLine++] = strLine;
        }
    }
}

const CSourceText::Lines& CSourceText::GetLines(const std::string& strFile)
{
    const auto itKnown =
        std::find_if(m_mapFiles.begin(), m_mapFiles.end(),
                     [&](const auto& file) { return !file.first.empty() && IsFile(file.first, strFile); });
    if (itKnown != m_mapFiles.end())
    {
        return itKnown->second;
    }
    Lines& lines = m_mapFiles[strFile];
    try
    {
        lines = SplitLines(ReadFileBytes(strFile));
    }
    catch (const CFileError&)
    {
        // A missing file has no lines.
    }
    return lines;
}

const std::string* CSourceText::FindLine(const std::string& strFile, unsigned int nLine)
{
    const Lines& lines = GetLines(strFile);
    const auto itLine = lines.find(nLine);
    return itLine != lines.end() ? &itLine->second : nullptr;
}

unsigned int CSourceText::GetLastLine(const std::string& strFile)
{
    const Lines& lines = GetLines(strFile);
    return lines.empty() ? 0 : lines.rbegin()->first;
}

} // namespace KestrelTool

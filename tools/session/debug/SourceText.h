#ifndef KESTREL_TOOLS_DEBUG_SOURCETEXT_H
#define KESTREL_TOOLS_DEBUG_SOURCETEXT_H

#include <map>
#include <string>
#include <vector>

namespace KestrelTool
{

/// The lines of the files that a program in OpenCL C is made of: those of the text that was compiled, by its own #line
/// directives, and for other files what lies on the disk now.
class CSourceText
{
public:
    /// \param strProgram  the text that was compiled
    explicit CSourceText(const std::string& strProgram);

    /// \param nLine  from 1
    /// \return null for a line that isn't there, or whose file can't be read
    const std::string* FindLine(const std::string& strFile, unsigned int nLine);
    /// The last line of a file; 0 if it can't be read.
    unsigned int GetLastLine(const std::string& strFile);

private:
    using Lines = std::map<unsigned int, std::string>;

    const Lines& GetLines(const std::string& strFile);

    std::map<std::string, Lines> m_mapFiles;
};

} // namespace KestrelTool

#endif

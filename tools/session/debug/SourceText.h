#ifndef KESTREL_TOOLS_DEBUG_SOURCETEXT_H
#define KESTREL_TOOLS_DEBUG_SOURCETEXT_H

#include <map>
#include <string>
#include <vector>

namespace KestrelTool
{

/// The lines of an OpenCL C program's files: for the compiled text, located by its #line directives; for other files,
/// as they are on disk now.
class CSourceText
{
public:
    /// \param strProgram  the compiled text
    explicit CSourceText(const std::string& strProgram);

    /// \param nLine  from 1
    /// \return null for a line that doesn't exist, or whose file can't be read
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

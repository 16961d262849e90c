#ifndef KESTREL_TOOLS_FILES_H
#define KESTREL_TOOLS_FILES_H

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace KestrelTool
{

/// A file that can't be read or written; the text names it and says why.
class CFileError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The bytes of a file, in one piece. Folders, devices, pipes and sockets are refused, since some have no end, and so
/// is what is larger than 4 GiB.
/// \throws CFileError
std::string ReadFileBytes(const std::string& strPath);
/// The same for what isn't text.
std::vector<unsigned char> ReadFileContents(const std::string& strPath);

/// The text of a program's file for a build: OpenCL C gets the name of the file, which the compiler then tells.
std::string ReadProgramText(const std::string& strPath);

/// Makes a file of bytes.
/// \throws CFileError if any of them can't be written
void WriteFileBytes(const std::string& strPath, std::string_view bytes);

/// The same for what a user wants of a result, who may have named by mistake what it is made of.
/// \throws CFileError, also if that file has been read
void WriteReport(const std::string& strPath, std::string_view bytes);

/// Whether two paths lead to the same file, which is there.
bool IsSameFile(const std::string& strOne, const std::string& strOther);

/// Lines of an open descriptor.
class CLineInput
{
public:
    explicit CLineInput(int nFile) : m_nFile(nFile) {}

    /// The next line without its end; nothing at the end and after an error.
    std::optional<std::string> ReadLine();
    /// Why nothing more is read; empty for the end.
    const std::string& GetError() const { return m_strError; }

private:
    bool Fill();

    int m_nFile;
    std::string m_strBytes;
    bool m_bEnd = false;
    std::string m_strError;
};

} // namespace KestrelTool

#endif

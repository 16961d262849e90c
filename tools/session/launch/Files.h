#ifndef KESTREL_TOOLS_FILES_H
#define KESTREL_TOOLS_FILES_H

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KestrelTool
{

/// A file that can't be read or written; the text has its name and the reason.
class CFileError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The bytes of a file. Folders, devices, pipes and sockets are refused, since some are endless, and so are files of
/// more than 4 GiB.
/// \throws CFileError
std::string ReadFileBytes(const std::string& strPath);
/// The same for binary contents.
std::vector<unsigned char> ReadFileContents(const std::string& strPath);

/// The text of a program's file for a build: OpenCL C gets the file's name, which the compiler then uses in messages.
std::string ReadProgramText(const std::string& strPath);

/// Writes bytes to a file.
/// \throws CFileError if any of them can't be written
void WriteFileBytes(const std::string& strPath, std::string_view bytes);

/// The same for a result. Refuses to overwrite a file that was read, which the user may have named by mistake.
/// \throws CFileError
void WriteReport(const std::string& strPath, std::string_view bytes);

/// Whether two paths lead to the same existing file.
bool IsSameFile(const std::string& strOne, const std::string& strOther);

/// Reads lines from an open descriptor.
class CLineInput
{
public:
    explicit CLineInput(int nFile) : m_nFile(nFile) {}

    /// Sets a function that returns once there is something to read; without one reading waits.
    void SetWait(std::function<void()> wait) { m_Wait = std::move(wait); }
    /// The next line without its end; nothing at the end and after an error.
    std::optional<std::string> ReadLine();
    /// The reason why reading has failed; empty at the end of the input.
    const std::string& GetError() const { return m_strError; }

private:
    bool Fill();

    int m_nFile;
    std::function<void()> m_Wait;
    std::string m_strBytes;
    bool m_bEnd = false;
    std::string m_strError;
};

} // namespace KestrelTool

#endif

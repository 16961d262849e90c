#include "tools/session/launch/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <new>
#include <set>
#include <string_view>
#include <utility>

namespace KestrelTool
{

namespace
{

const size_t s_nMaxFile = size_t(4) << 30;
const size_t s_nMaxLine = size_t(1) << 20;
const size_t s_nPiece = size_t(1) << 16;

/// A descriptor that is closed by the destructor.
class CDescriptor
{
public:
    CDescriptor(const std::string& strPath, int nFlags) : m_nFile(open(strPath.c_str(), nFlags | O_CLOEXEC, 0666)) {}
    ~CDescriptor()
    {
        if (m_nFile >= 0)
        {
            close(m_nFile);
        }
    }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    int Get() const { return m_nFile; }
    int Close()
    {
        const int nFile = m_nFile;
        m_nFile = -1;
        return close(nFile);
    }

private:
    int m_nFile;
};

[[noreturn]] void Fail(const std::string& strPath, const std::string& strWhat, const std::string& strWhy)
{
    throw CFileError(strPath + ": " + strWhat + ": " + strWhy);
}

const char* NameKind(mode_t nMode)
{
    return S_ISDIR(nMode)                     ? "it is a folder"
           : S_ISCHR(nMode) || S_ISBLK(nMode) ? "it is a device"
           : S_ISFIFO(nMode)                  ? "it is a pipe"
                                              : "it is no file";
}

template <typename Bytes>
void ReadToEnd(int nFile, const std::string& strPath, size_t nExpected, Bytes& bytes)
{
    // Files that the system generates report no size, so they are read piece by piece.
    size_t nRead = 0;
    bytes.resize(nExpected + 1);
    while (true)
    {
        if (nRead == bytes.size())
        {
            bytes.resize(nRead + std::max(nRead / 2, s_nPiece));
        }
        const ssize_t nNow = read(nFile, &bytes[nRead], bytes.size() - nRead);
        if (nNow < 0 && errno == EINTR)
        {
            continue;
        }
        if (nNow < 0)
        {
            Fail(strPath, "can't be read", std::strerror(errno));
        }
        nRead += static_cast<size_t>(nNow);
        if (nRead > s_nMaxFile)
        {
            Fail(strPath, "can't be read", "it is larger than 4 GiB");
        }
        if (nNow == 0)
        {
            break;
        }
    }
    bytes.resize(nRead);
}

/// The files that were read, by device and number, since a file can have several names.
class CFilesRead
{
public:
    void Add(const struct stat& status)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Files.emplace(status.st_dev, status.st_ino);
    }
    bool Has(const struct stat& status)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Files.count({status.st_dev, status.st_ino}) != 0;
    }

private:
    std::mutex m_Mutex;
    std::set<std::pair<dev_t, ino_t>> m_Files;
};

CFilesRead s_FilesRead;

template <typename Bytes>
Bytes ReadFile(const std::string& strPath)
{
    // Opening a pipe without a writer would wait forever.
    const CDescriptor file(strPath, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (file.Get() < 0)
    {
        Fail(strPath, "can't be read", std::strerror(errno));
    }
    struct stat status = {};
    if (fstat(file.Get(), &status) != 0)
    {
        Fail(strPath, "can't be read", std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode))
    {
        Fail(strPath, "can't be read", NameKind(status.st_mode));
    }
    if (static_cast<uint64_t>(status.st_size) > s_nMaxFile)
    {
        Fail(strPath, "can't be read", "it is larger than 4 GiB");
    }
    s_FilesRead.Add(status);
    Bytes bytes;
    try
    {
        ReadToEnd(file.Get(), strPath, static_cast<size_t>(status.st_size), bytes);
    }
    catch (const std::bad_alloc&)
    {
        Fail(strPath, "can't be read", "there isn't enough memory for it");
    }
    return bytes;
}

} // namespace

std::string ReadFileBytes(const std::string& strPath)
{
    return ReadFile<std::string>(strPath);
}

std::vector<unsigned char> ReadFileContents(const std::string& strPath)
{
    return ReadFile<std::vector<unsigned char>>(strPath);
}

std::string ReadProgramText(const std::string& strPath)
{
    const std::string strText = ReadFileBytes(strPath);
    const std::string_view suffix = ".cl";
    const bool bOpenCL =
        strPath.size() > suffix.size() && strPath.compare(strPath.size() - suffix.size(), suffix.size(), suffix) == 0;
    const bool bNameFits = strPath.find_first_of("\"\\\n") == std::string::npos;
    return (bOpenCL && bNameFits ? "#line 1 \"" + strPath + "\"\n" : "") + strText;
}

void WriteFileBytes(const std::string& strPath, std::string_view bytes)
{
    CDescriptor file(strPath, O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY);
    if (file.Get() < 0)
    {
        Fail(strPath, "can't be written", std::strerror(errno));
    }
    for (size_t nWritten = 0; nWritten < bytes.size();)
    {
        const ssize_t nNow = write(file.Get(), bytes.data() + nWritten, bytes.size() - nWritten);
        if (nNow < 0 && errno != EINTR)
        {
            Fail(strPath, "can't be written", std::strerror(errno));
        }
        nWritten += nNow > 0 ? static_cast<size_t>(nNow) : 0;
    }
    if (file.Close() != 0)
    {
        Fail(strPath, "can't be written", std::strerror(errno));
    }
}

void WriteReport(const std::string& strPath, std::string_view bytes)
{
    struct stat status = {};
    if (stat(strPath.c_str(), &status) == 0 && s_FilesRead.Has(status))
    {
        Fail(strPath, "isn't written", "it is what is read, and would be overwritten");
    }
    WriteFileBytes(strPath, bytes);
}

bool IsSameFile(const std::string& strOne, const std::string& strOther)
{
    std::error_code error;
    return std::filesystem::equivalent(strOne, strOther, error) && !error;
}

bool CLineInput::Fill()
{
    if (m_Wait)
    {
        m_Wait();
    }
    char piece[4096];
    ssize_t nRead = -1;
    do
    {
        nRead = read(m_nFile, piece, sizeof(piece));
    } while (nRead < 0 && errno == EINTR);
    if (nRead < 0)
    {
        m_strError = std::strerror(errno);
    }
    m_bEnd = nRead <= 0;
    m_strBytes.append(piece, nRead > 0 ? static_cast<size_t>(nRead) : 0);
    return !m_bEnd;
}

std::optional<std::string> CLineInput::ReadLine()
{
    size_t nLooked = 0;
    size_t nEnd = m_strBytes.find('\n');
    while (nEnd == std::string::npos && !m_bEnd)
    {
        nLooked = m_strBytes.size();
        if (nLooked > s_nMaxLine)
        {
            m_strError = "a line is longer than 1 MiB";
            m_bEnd = true;
            m_strBytes.clear();
            return std::nullopt;
        }
        Fill();
        nEnd = m_strBytes.find('\n', nLooked);
    }
    if (!m_strError.empty() || (nEnd == std::string::npos && m_strBytes.empty()))
    {
        return std::nullopt;
    }
    const std::string strLine = m_strBytes.substr(0, nEnd);
    m_strBytes.erase(0, nEnd == std::string::npos ? nEnd : nEnd + 1);
    return strLine;
}

} // namespace KestrelTool

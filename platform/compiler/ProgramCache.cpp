#include "platform/compiler/ProgramCache.h"

#include "platform/compiler/ByteHash.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KestrelPlatform
{
namespace
{

namespace fs = std::filesystem;

const char s_Mark[8] = {'O', 'V', 'K', 'C', 'A', 'C', 'H', '1'};
const std::string_view s_Suffix = ".kestrel";

/// Stands before the key, the log and the image.
struct SCacheHeader
{
    char mark[8];
    uint64_t nKeyBytes;
    uint64_t nLogBytes;
    uint64_t nImageBytes;
    uint64_t nHash; ///< of log and image
};

uint64_t HashOf(const SCachedProgram& program)
{
    return HashBytes({program.vImage.data(), program.vImage.size()}, HashBytes(program.strLog));
}

/// A file that is closed by the destructor.
class CFile
{
public:
    explicit CFile(int nFile) : m_nFile(nFile) {}
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;
    ~CFile()
    {
        if (m_nFile >= 0)
        {
            close(m_nFile);
        }
    }

    bool IsOpen() const { return m_nFile >= 0; }
    int Get() const { return m_nFile; }

    bool Read(void* pBytes, size_t nBytes) const
    {
        return nBytes == 0 || read(m_nFile, pBytes, nBytes) == static_cast<ssize_t>(nBytes);
    }
    bool Write(const void* pBytes, size_t nBytes) const
    {
        return nBytes == 0 || write(m_nFile, pBytes, nBytes) == static_cast<ssize_t>(nBytes);
    }

private:
    const int m_nFile;
};

/// Reads the header. Its sizes are trusted only if they match the file's size.
bool ReadHeader(const CFile& file, SCacheHeader& header)
{
    struct stat state = {};
    if (fstat(file.Get(), &state) != 0 || !S_ISREG(state.st_mode) || state.st_uid != geteuid() ||
        !file.Read(&header, sizeof(header)) || std::memcmp(header.mark, s_Mark, sizeof(s_Mark)) != 0)
    {
        return false;
    }
    const auto nSize = static_cast<uint64_t>(state.st_size);
    return header.nKeyBytes <= nSize && header.nLogBytes <= nSize && header.nImageBytes <= nSize &&
           sizeof(header) + header.nKeyBytes + header.nLogBytes + header.nImageBytes == nSize;
}

bool WriteAll(const CFile& file, const std::string& strKey, const SCachedProgram& program)
{
    SCacheHeader header = {};
    std::memcpy(header.mark, s_Mark, sizeof(s_Mark));
    header.nKeyBytes = strKey.size();
    header.nLogBytes = program.strLog.size();
    header.nImageBytes = program.vImage.size();
    header.nHash = HashOf(program);
    return file.Write(&header, sizeof(header)) && file.Write(strKey.data(), strKey.size()) &&
           file.Write(program.strLog.data(), program.strLog.size()) &&
           file.Write(program.vImage.data(), program.vImage.size());
}

std::string DefaultFolder()
{
    const char* const pszSwitch = std::getenv("KESTREL_CACHE");
    if (pszSwitch != nullptr && std::string_view(pszSwitch) == "off")
    {
        return "";
    }
    const char* const pszCache = std::getenv("XDG_CACHE_HOME");
    if (pszCache != nullptr && pszCache[0] == '/')
    {
        return std::string(pszCache) + "/kestrel";
    }
    const char* const pszHome = std::getenv("HOME");
    return pszHome != nullptr && pszHome[0] == '/' ? std::string(pszHome) + "/.cache/kestrel" : "";
}

} // namespace

CProgramCache::CProgramCache(std::string strFolder, uint64_t nMostBytes)
    : m_strFolder(std::move(strFolder)), m_nMostBytes(nMostBytes)
{
}

const CProgramCache& CProgramCache::Default()
{
    static const CProgramCache& s_Cache = *new CProgramCache(DefaultFolder());
    return s_Cache;
}

std::string CProgramCache::FileOf(const std::string& strKey) const
{
    static const char* const s_pszDigits = "0123456789abcdef";
    std::string strName;
    // Two hashes make a collision unlikely: programs with the same name would replace each other.
    for (const uint64_t nHash : {HashBytes(strKey), HashBytes(strKey, HashBytes("kestrel"))})
    {
        for (int nShift = 60; nShift >= 0; nShift -= 4)
        {
            strName += s_pszDigits[nHash >> nShift & 15];
        }
    }
    return m_strFolder + "/" + strName + std::string(s_Suffix);
}

bool CProgramCache::Find(const std::string& strKey, SCachedProgram& program) const
{
    if (!IsOn())
    {
        return false;
    }
    const CFile file(open(FileOf(strKey).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    SCacheHeader header = {};
    if (!file.IsOpen() || !ReadHeader(file, header) || header.nKeyBytes != strKey.size())
    {
        return false;
    }
    std::string strStored(header.nKeyBytes, '\0');
    program.strLog.assign(header.nLogBytes, '\0');
    program.vImage.assign(header.nImageBytes, '\0');
    if (!file.Read(strStored.data(), strStored.size()) || !file.Read(program.strLog.data(), program.strLog.size()) ||
        !file.Read(program.vImage.data(), program.vImage.size()) || strStored != strKey ||
        header.nHash != HashOf(program))
    {
        return false;
    }
    futimens(file.Get(), nullptr); // marks it as used now
    return true;
}

void CProgramCache::Store(const std::string& strKey, const SCachedProgram& program) const
{
    if (!IsOn() || strKey.size() + program.strLog.size() + program.vImage.size() > m_nMostBytes / 4)
    {
        return;
    }
    static std::atomic<unsigned int> s_nFiles{0};
    std::error_code error;
    fs::create_directories(m_strFolder, error);
    const std::string strFile = FileOf(strKey);
    const std::string strNew = strFile + "." + std::to_string(getpid()) + "." + std::to_string(s_nFiles++);
    bool bWhole = false;
    {
        const CFile file(open(strNew.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        bWhole = file.IsOpen() && WriteAll(file, strKey, program);
    }
    if (!bWhole || rename(strNew.c_str(), strFile.c_str()) != 0)
    {
        unlink(strNew.c_str());
    }
    RemoveOldest();
}

void CProgramCache::RemoveOldest() const
{
    struct SFile
    {
        fs::file_time_type time;
        uint64_t nBytes;
        fs::path path;
    };
    std::vector<SFile> vFiles;
    uint64_t nBytes = 0;
    std::error_code error;
    for (fs::directory_iterator it(m_strFolder, error), end; !error && it != end; it.increment(error))
    {
        std::error_code gone;
        const SFile file{it->last_write_time(gone), it->file_size(gone), it->path()};
        // Other files in the folder stay. A half-written file of the cache counts as the cache's own.
        if (!gone && it->path().filename().string().find(s_Suffix) != std::string::npos)
        {
            nBytes += file.nBytes;
            vFiles.push_back(file);
        }
    }
    if (nBytes <= m_nMostBytes)
    {
        return;
    }
    std::sort(vFiles.begin(), vFiles.end(), [](const SFile& a, const SFile& b) { return a.time < b.time; });
    for (const SFile& file : vFiles)
    {
        if (nBytes <= m_nMostBytes / 4 * 3)
        {
            break;
        }
        fs::remove(file.path, error);
        nBytes -= file.nBytes;
    }
}

} // namespace KestrelPlatform

#ifndef KESTREL_PLATFORM_COMPILER_PROGRAMCACHE_H
#define KESTREL_PLATFORM_COMPILER_PROGRAMCACHE_H

#include <cstdint>
#include <string>
#include <vector>

namespace KestrelPlatform
{

/// A build in the cache.
struct SCachedProgram
{
    std::string strLog;
    std::vector<char> vImage;
};

/// Programs that were built before, one file each, in a folder that processes share. Files appear completely or not at
/// all, and a damaged one counts as missing. Nothing here reports failure: what can't be read or written counts as
/// missing too. Any thread.
class CProgramCache
{
public:
    /// \param strFolder created by the first write; empty for a cache that keeps nothing
    /// \param nMostBytes above this, the least recently used files are removed
    explicit CProgramCache(std::string strFolder, uint64_t nMostBytes = uint64_t{256} << 20);

    /// The user's cache: the folder `kestrel` in $XDG_CACHE_HOME or ~/.cache. Off with KESTREL_CACHE=off, and if there
    /// is no such folder.
    static const CProgramCache& Default();

    bool IsOn() const { return !m_strFolder.empty(); }

    /// \param strKey everything that the program depends on
    bool Find(const std::string& strKey, SCachedProgram& program) const;
    void Store(const std::string& strKey, const SCachedProgram& program) const;

private:
    std::string FileOf(const std::string& strKey) const;
    void RemoveOldest() const;

    const std::string m_strFolder;
    const uint64_t m_nMostBytes;
};

} // namespace KestrelPlatform

#endif

#ifndef KESTREL_PLATFORM_COMPILER_PROGRAMCACHE_H
#define KESTREL_PLATFORM_COMPILER_PROGRAMCACHE_H

#include <cstdint>
#include <string>
#include <vector>

namespace KestrelPlatform
{

/// A build as the cache keeps it.
struct SCachedProgram
{
    std::string strLog;
    std::vector<char> vImage;
};

/// Programs that were built before, a file each, in a folder that processes share. Files appear whole or not at all,
/// and one that is damaged counts as not there. Nothing here fails: what can't be read or written is as if it had never
/// been. Any thread.
class CProgramCache
{
public:
    /// \param strFolder made when it is first written to; empty for a cache that keeps nothing
    /// \param nMostBytes the files that were used the longest time ago go when there are more
    explicit CProgramCache(std::string strFolder, uint64_t nMostBytes = uint64_t{256} << 20);

    /// The user's: `kestrel` in $XDG_CACHE_HOME or in ~/.cache. Off with KESTREL_CACHE=off, and where there is no such
    /// folder.
    static const CProgramCache& Default();

    bool IsOn() const { return !m_strFolder.empty(); }

    /// \param strKey all that the program depends on
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

#ifndef KESTREL_TOOLS_DEBUG_MEMORYLOG_H
#define KESTREL_TOOLS_DEBUG_MEMORYLOG_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <tuple>
#include <vector>

namespace KestrelTool
{

/// A range of memory that is read at a stop.
struct SMemoryRead
{
    enum EKind
    {
        Buffer,
        Local,
        Private ///< of all work-items
    };

    EKind eKind;
    size_t nPlace; ///< a buffer's argument, or a resource of local memory; 0 for private memory
    size_t nGroup; ///< for local memory; else 0
    uint64_t nOffset;
    size_t nBytes;

    bool operator<(const SMemoryRead& other) const
    {
        return std::tie(eKind, nPlace, nGroup, nOffset, nBytes) <
               std::tie(other.eKind, other.nPlace, other.nGroup, other.nOffset, other.nBytes);
    }
};

/// The memory that was read at a stop and at the one before it, limited in size.
class CMemoryLog
{
public:
    void Note(const SMemoryRead& read, const std::vector<unsigned char>& vBytes) { m_Now.Add(read, vBytes); }
    void NoteEarlier(const SMemoryRead& read, const std::vector<unsigned char>& vBytes) { m_Earlier.Add(read, vBytes); }
    /// Null if it wasn't read there.
    const std::vector<unsigned char>* FindEarlier(const SMemoryRead& read) const;
    /// Makes the current stop the earlier one.
    void GoOn();
    void Forget();

private:
    struct SReads
    {
        void Add(const SMemoryRead& read, const std::vector<unsigned char>& vBytes);

        std::map<SMemoryRead, std::vector<unsigned char>> mapBytes;
        size_t nBytes = 0;
    };

    SReads m_Now;
    SReads m_Earlier;
};

} // namespace KestrelTool

#endif

#ifndef KESTREL_PLATFORM_COMPILER_NAMETABLE_H
#define KESTREL_PLATFORM_COMPILER_NAMETABLE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KestrelPlatform
{

/// Finds the number of a name. Lives in static storage and needs no destruction, so that it outlasts every thread and
/// goes with a library that is unloaded.
///
/// nBuckets is a power of two, well above the number of names.
template <size_t nBuckets>
class CNameTable
{
public:
    /// Adds a name, which must live as long as the table; one that is there already keeps its number.
    void Add(std::string_view name, int nValue)
    {
        SBucket& bucket = m_Buckets[Place(name)];
        if (bucket.name.empty())
        {
            bucket = {name, nValue};
        }
    }

    /// \return the number of the name, or -1
    int Find(std::string_view name) const { return m_Buckets[Place(name)].nValue; }

private:
    struct SBucket
    {
        std::string_view name;
        int nValue = -1;
    };

    /// The bucket that holds the name, or the empty one in which it would be.
    size_t Place(std::string_view name) const
    {
        uint32_t nHash = 2166136261u;
        for (const char c : name)
        {
            nHash = (nHash ^ static_cast<unsigned char>(c)) * 16777619u;
        }
        size_t nPlace = (nHash ^ nHash >> 16) % nBuckets;
        while (!m_Buckets[nPlace].name.empty() && m_Buckets[nPlace].name != name)
        {
            nPlace = (nPlace + 1) % nBuckets;
        }
        return nPlace;
    }

    SBucket m_Buckets[nBuckets];
};

} // namespace KestrelPlatform

#endif

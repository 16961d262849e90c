#ifndef KESTREL_PLATFORM_IL_NAMETABLE_H
#define KESTREL_PLATFORM_IL_NAMETABLE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KestrelPlatform
{

/// Maps names to numbers. Made to be constexpr: filled at compile time, so that it needs no initialisation and no
/// destruction at run time.
///
/// It has 2 to the power of nBits buckets, which must be well above the number of names.
template <unsigned int nBits>
class CNameTable
{
public:
    /// Adds a name, which must live as long as the table. A name that is there already keeps its number.
    constexpr void Add(std::string_view name, int nValue)
    {
        const uint64_t nKey = KeyOf(name);
        SBucket& bucket = m_Buckets[Place(name, nKey)];
        if (bucket.name.empty())
        {
            bucket.nKey = nKey;
            bucket.name = name;
            bucket.nValue = nValue;
        }
    }

    /// \return the number of the name, or -1
    constexpr int Find(std::string_view name) const { return m_Buckets[Place(name, KeyOf(name))].nValue; }

private:
    static constexpr size_t s_nBuckets = size_t(1) << nBits;

    struct SBucket
    {
        uint64_t nKey = 0;
        std::string_view name;
        int nValue = -1;

        constexpr bool Holds(std::string_view wanted, uint64_t nWantedKey) const
        {
            if (nKey != nWantedKey || name.size() != wanted.size())
            {
                return false;
            }
            // Longer names are compared by this loop: calling a function would cost more for so few characters.
            size_t nSame = name.size() <= sizeof(nKey) ? name.size() : 0;
            while (nSame < name.size() && name[nSame] == wanted[nSame])
            {
                ++nSame;
            }
            return nSame == name.size();
        }
    };

    /// A short name's key is its characters, so that no comparison of characters is needed; a longer name's is a hash.
    static constexpr uint64_t KeyOf(std::string_view name)
    {
        uint64_t nKey = 0;
        for (const char c : name)
        {
            nKey = (nKey << 8 | nKey >> 56) ^ static_cast<unsigned char>(c);
        }
        return nKey;
    }

    /// The bucket that holds the name, or the empty one where it would go.
    constexpr size_t Place(std::string_view name, uint64_t nKey) const
    {
        size_t nPlace = static_cast<size_t>(nKey * 0x9E3779B97F4A7C15u >> (64 - nBits));
        while (!m_Buckets[nPlace].Holds(name, nKey) && !m_Buckets[nPlace].name.empty())
        {
            nPlace = (nPlace + 1) % s_nBuckets;
        }
        return nPlace;
    }

    SBucket m_Buckets[s_nBuckets];
};

} // namespace KestrelPlatform

#endif

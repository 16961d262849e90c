#ifndef KESTREL_ENGINE_KEPTMASK_H
#define KESTREL_ENGINE_KEPTMASK_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerBuffer;

/// The mask of a stop, a bit a work-item, and none if all are active. Internal to this folder.
class CKeptMask
{
public:
    bool IsKept() const { return m_bKept; }
    void Forget() { *this = CKeptMask(); }
    /// Takes the mask from memory: elements of one byte or one word, of which an active work-item's isn't 0. Without
    /// memory for it nothing is kept.
    /// \param pHidden  null, or the value of work-items that don't count
    void KeepBytes(const unsigned char* pBytes, size_t nItems, const unsigned char* pHidden);
    void KeepWords(const unsigned char* pWords, size_t nItems, const unsigned char* pHidden);
    /// Writes the mask into a buffer of words, as many as it has items. \return false if none is kept, or for another
    /// number of items
    bool Restore(CShaderDebuggerBuffer& execMask) const;
    size_t GetActiveCount() const { return m_nActive; }

private:
    template <typename Gather>
    void Keep(size_t nItems, Gather gather);

    bool m_bKept = false;
    size_t m_nItems = 0;
    size_t m_nActive = 0;
    std::vector<uint8_t> m_vBits; ///< none if all are active
};

} // namespace OVK_ShaderDebugger

#endif

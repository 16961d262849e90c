#ifndef KESTREL_ENGINE_KEPTMASK_H
#define KESTREL_ENGINE_KEPTMASK_H

#include <cstdint>
#include <vector>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerBuffer;

/// The mask of a stop, a bit a work-item, for as long as runs overwrite it that may be given up. Internal to this
/// folder.
class CKeptMask
{
public:
    bool IsKept() const { return m_bKept; }
    void Forget() { m_bKept = false; }
    /// \param bFull  all work-items are active in it
    void Keep(const CShaderDebuggerBuffer& execMask, bool bFull);
    /// Writes the mask into a buffer of the same size. \return false if none is kept, or for another number of items
    bool Restore(CShaderDebuggerBuffer& execMask) const;
    bool IsFull() const { return m_bFull; }

private:
    bool m_bKept = false;
    bool m_bFull = false;
    uint32_t m_nActiveWord = 1;    ///< what the mask holds for an active work-item
    std::vector<uint64_t> m_vBits; ///< none if all are active
};

} // namespace OVK_ShaderDebugger

#endif

#ifndef KESTREL_ENGINE_RESULTRESTORER_H
#define KESTREL_ENGINE_RESULTRESTORER_H

#include "core/ShaderDebuggerCommon.h"

#include <cstddef>
#include <vector>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerBuffer;

/// Puts earlier values back into a register's result, element by element, out of runs at earlier positions. Each run
/// gives the values of the work-items that were active there. The latest position comes first, and an earlier one
/// doesn't overwrite what it has given.
class CResultRestorer
{
public:
    /// \param result the buffer to restore, four 32-bit components an element; must outlive this object
    /// \param pChanged if given, the mask of the work-items whose values have to be restored; else all have
    CResultRestorer(CShaderDebuggerBuffer& result, const CShaderDebuggerBuffer* pChanged);

    bool IsComplete() const { return m_nMissing == 0; }

    /// Takes over what a run at an earlier position read.
    /// \param reg the register that was read: of an access to private memory, only the accessed components count
    /// \param bOldest whether no earlier position is left: inactive work-items then take the run's value too, as they
    ///        did at the first write
    /// \return false if the buffers don't fit the result
    bool Take(const CShaderDebuggerBuffer& values, const CShaderDebuggerBuffer& mask, const Register& reg,
              bool bOldest);

private:
    CShaderDebuggerBuffer& m_Result;
    std::vector<unsigned char> m_vMissing; ///< for each element a bit set of Component
    size_t m_nMissing;                     ///< elements with a bit set
};

} // namespace OVK_ShaderDebugger

#endif

#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_SCOPETREE_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_SCOPETREE_H

#include "llvm/ADT/DenseMap.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace llvm
{
class DILocalScope;
class DILocation;
} // namespace llvm

namespace KestrelOpenCL
{

struct SLowered;
struct SLoweredKernel;

/// A function or block of the source within one kernel, once for each inlined call.
struct SScope
{
    const llvm::DILocalScope* pScope = nullptr; ///< a DISubprogram or DILexicalBlock
    const llvm::DILocation* pInlinedAt = nullptr;
    int nParent = -1;
    /// IL lines that belong to it or to an inner scope: first line, and the line after the last. Ascending.
    std::vector<std::pair<uint32_t, uint32_t>> vRanges;
};

/// The scopes of a kernel with their IL lines. A line without a source place belongs to the scope of the line before
/// it.
class CScopeTree
{
public:
    CScopeTree(const SLowered& lowered, const SLoweredKernel& kernel);

    /// The kernel's own scope comes first, and each scope after its parent.
    const std::vector<SScope>& GetScopes() const { return m_vScopes; }

    /// \return -1 if no line of the kernel belongs to the scope
    int Find(const llvm::DILocalScope* pScope, const llvm::DILocation* pInlinedAt) const;

private:
    using CKey = std::pair<const llvm::DILocalScope*, const llvm::DILocation*>;

    int Make(const llvm::DILocalScope* pScope, const llvm::DILocation* pInlinedAt);
    void AddLine(int nScope, uint32_t nLine);

    std::vector<SScope> m_vScopes;
    llvm::DenseMap<CKey, int> m_mapScopes;
};

} // namespace KestrelOpenCL

#endif

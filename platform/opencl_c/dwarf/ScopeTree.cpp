#include "platform/opencl_c/dwarf/ScopeTree.h"

#include "platform/opencl_c/lowering/Lowered.h"

#include "llvm/IR/DebugInfoMetadata.h"
#include "llvm/IR/Function.h"

namespace KestrelOpenCL
{

CScopeTree::CScopeTree(const SLowered& lowered, const SLoweredKernel& kernel)
{
    int nScope = Make(kernel.pFunction->getSubprogram(), nullptr);
    for (uint32_t n = kernel.nFirst; n <= kernel.nLast && n < lowered.vLines.size(); ++n)
    {
        if (const llvm::DILocation* pPlace = lowered.vLines[n])
        {
            nScope = Make(pPlace->getScope(), pPlace->getInlinedAt());
        }
        AddLine(nScope, n);
    }
    // Lines outside of all inner scopes still belong to the kernel.
    m_vScopes[0].vRanges = {{kernel.nFirst, kernel.nLast + 1}};
}

int CScopeTree::Find(const llvm::DILocalScope* pScope, const llvm::DILocation* pInlinedAt) const
{
    const auto it = m_mapScopes.find({pScope->getNonLexicalBlockFileScope(), pInlinedAt});
    return it == m_mapScopes.end() ? -1 : it->second;
}

/// Makes a scope, and the missing scopes around it.
int CScopeTree::Make(const llvm::DILocalScope* pScope, const llvm::DILocation* pInlinedAt)
{
    std::vector<CKey> vMissing;
    int nAbove = -1;
    CKey key{pScope->getNonLexicalBlockFileScope(), pInlinedAt};
    for (;;)
    {
        const auto it = m_mapScopes.find(key);
        if (it != m_mapScopes.end())
        {
            nAbove = it->second;
            break;
        }
        vMissing.push_back(key);
        if (const auto* pBlock = llvm::dyn_cast<llvm::DILexicalBlockBase>(key.first))
        {
            key.first = pBlock->getScope()->getNonLexicalBlockFileScope();
        }
        else if (key.second)
        {
            key = {key.second->getScope()->getNonLexicalBlockFileScope(), key.second->getInlinedAt()};
        }
        else
        {
            break;
        }
    }
    for (size_t n = vMissing.size(); n-- > 0;)
    {
        const int nNew = static_cast<int>(m_vScopes.size());
        // A function that is neither the kernel nor inlined can't occur; it would count as part of the kernel.
        m_vScopes.push_back({vMissing[n].first, vMissing[n].second, nNew == 0 ? -1 : std::max(nAbove, 0), {}});
        m_mapScopes[vMissing[n]] = nNew;
        nAbove = nNew;
    }
    return nAbove;
}

void CScopeTree::AddLine(int nScope, uint32_t nLine)
{
    for (; nScope >= 0; nScope = m_vScopes[nScope].nParent)
    {
        auto& vRanges = m_vScopes[nScope].vRanges;
        if (!vRanges.empty() && vRanges.back().second > nLine)
        {
            return;
        }
        if (!vRanges.empty() && vRanges.back().second == nLine)
        {
            ++vRanges.back().second;
        }
        else
        {
            vRanges.push_back({nLine, nLine + 1});
        }
    }
}

} // namespace KestrelOpenCL

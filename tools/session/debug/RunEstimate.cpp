#include "tools/session/debug/RunEstimate.h"

#include <algorithm>

namespace KestrelTool
{

namespace
{

/// The tracked registers that ranges of lines write, including called functions.
class CWrites
{
public:
    CWrites(const CListing& listing, const CCodeMap& code, const std::vector<std::string>& vTracked)
        : m_Listing(listing), m_Code(code), m_vTracked(vTracked)
    {
    }

    /// \param nEnd  line after the last one
    void Add(unsigned int nFirst, unsigned int nEnd)
    {
        std::vector<std::pair<unsigned int, unsigned int>> vLeft = {{nFirst, nEnd}};
        while (!vLeft.empty())
        {
            const auto [nLeft, nLeftEnd] = vLeft.back();
            vLeft.pop_back();
            for (unsigned int nLine = nLeft; nLine < nLeftEnd; ++nLine)
            {
                AddLine(nLine);
                const CCodeMap::SFunction* const pCallee = m_Code.FindCallee(nLine);
                if (pCallee != nullptr && m_Called.insert(pCallee->nHead).second)
                {
                    vLeft.emplace_back(pCallee->nHead, pCallee->nEnd);
                }
            }
        }
    }

    size_t Count() const { return m_Written.size(); }

private:
    void AddLine(unsigned int nLine)
    {
        const std::string strRegister = m_Listing.GetWrittenRegister(nLine);
        if (std::find(m_vTracked.begin(), m_vTracked.end(), strRegister) != m_vTracked.end())
        {
            m_Written.insert(strRegister);
        }
    }

    const CListing& m_Listing;
    const CCodeMap& m_Code;
    const std::vector<std::string>& m_vTracked;
    std::set<std::string> m_Written;
    std::set<unsigned int> m_Called;
};

} // namespace

size_t EstimateRuns(const CListing& listing, const CCodeMap& code, unsigned int nFrom,
                    const std::set<unsigned int>& stops, const std::vector<std::string>& vTracked, unsigned int& nStop)
{
    const size_t nRunsForABlock = 2;
    const CCodeMap::SFunction* pFunction = code.FindFunction(nFrom);
    const unsigned int nEnd =
        pFunction != nullptr ? pFunction->nEnd : static_cast<unsigned int>(listing.GetLineCount());
    CWrites writes(listing, code, vTracked);
    const auto itAhead = stops.upper_bound(nFrom);
    if (itAhead != stops.end() && *itAhead <= nEnd)
    {
        nStop = *itAhead;
        writes.Add(nFrom, nStop);
        return writes.Count() + 1 + nRunsForABlock * code.CountBlocks(nFrom, nStop);
    }
    // Once around the loop.
    unsigned int nStart = 0;
    unsigned int nLoopEnd = 0;
    if (!code.FindLoop(nFrom, nStart, nLoopEnd))
    {
        return 0;
    }
    const auto itNext = stops.upper_bound(nStart);
    if (itNext == stops.end() || *itNext > nFrom)
    {
        return 0;
    }
    nStop = *itNext;
    writes.Add(nFrom, nLoopEnd);
    writes.Add(nStart, nStop);
    return writes.Count() + 1 + nRunsForABlock;
}

} // namespace KestrelTool

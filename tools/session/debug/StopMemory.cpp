#include "tools/session/debug/StopMemory.h"

#include "tools/session/debug/CommandError.h"

#include <algorithm>
#include <cstring>

namespace KestrelTool
{

namespace
{

const uint64_t s_nMemoryPiece = 1 << 16;
const size_t s_nMaxPrivateReads = 1024; ///< for an expression at a stop; each reads all work-items' memory

} // namespace

void CStopMemory::Bind(IValueSource& source)
{
    m_pSource = &source;
    m_nItems = source.GetExtent().Count();
    m_mapElements.clear();
    m_mapSpaces.clear();
    m_mapPieces.clear();
    m_mapPrivate.clear();
    m_Last = SLast();
}

const unsigned char* CStopMemory::FindElement(const SElements& elements, size_t nGroup, uint64_t nOffset)
{
    const uint64_t nPiece = nOffset / s_nMemoryPiece;
    std::vector<unsigned char>& vBytes = m_mapElements[{elements.strName, {nGroup, nPiece}}];
    if (vBytes.empty())
    {
        const uint64_t nStart = nPiece * s_nMemoryPiece;
        const size_t nBytes = static_cast<size_t>(std::min(s_nMemoryPiece, elements.GetBytes() - nStart));
        vBytes = m_pSource->ReadElements(elements, nGroup, nStart, nBytes);
        if (vBytes.size() < nBytes)
        {
            vBytes.clear();
            throw CCommandError("the bytes of " + elements.strName + " can't be read here");
        }
    }
    return &vBytes[nOffset % s_nMemoryPiece];
}

bool CStopMemory::Read(SSourceType::ESpace eSpace, uint64_t nAddress, size_t nItem, unsigned char* pBytes,
                       size_t nBytes)
{
    const size_t nGroup = eSpace == SSourceType::LocalSpace ? m_pSource->GetExtent().GroupOf(nItem) : 0;
    if (m_Last.pBytes != nullptr && m_Last.eSpace == eSpace && m_Last.nGroup == nGroup && m_Last.nAddress <= nAddress &&
        m_Last.nBytes >= nBytes && nAddress - m_Last.nAddress <= m_Last.nBytes - nBytes)
    {
        const size_t nStride = eSpace == SSourceType::PrivateSpace ? m_Last.nBytes : 0;
        std::memcpy(pBytes, m_Last.pBytes + nItem * nStride + (nAddress - m_Last.nAddress), nBytes);
        return true;
    }
    if (eSpace == SSourceType::PrivateSpace)
    {
        return ReadPrivate(nAddress, nItem, pBytes, nBytes);
    }
    if (m_mapSpaces.count(eSpace) == 0)
    {
        m_mapSpaces[eSpace] = m_pSource->ListMemory(eSpace);
    }
    const std::vector<SMemory>& vMemory = m_mapSpaces[eSpace];
    const auto it = std::find_if(vMemory.begin(), vMemory.end(),
                                 [&](const SMemory& memory) {
                                     return memory.nBase <= nAddress && memory.nSize >= nBytes &&
                                            nAddress - memory.nBase <= memory.nSize - nBytes;
                                 });
    if (it == vMemory.end())
    {
        return false;
    }
    for (uint64_t nOffset = nAddress - it->nBase; nBytes > 0;)
    {
        const uint64_t nPiece = nOffset / s_nMemoryPiece;
        const uint64_t nStart = nPiece * s_nMemoryPiece;
        std::vector<unsigned char>& vPiece = m_mapPieces[{{eSpace, it->nPlace}, {nGroup, nPiece}}];
        if (vPiece.empty())
        {
            vPiece = m_pSource->ReadMemory(eSpace, *it, nGroup, nStart,
                                           static_cast<size_t>(std::min(s_nMemoryPiece, it->nSize - nStart)));
        }
        const size_t nInside = static_cast<size_t>(nOffset - nStart);
        if (nInside >= vPiece.size())
        {
            return false;
        }
        const size_t nTaken = std::min(nBytes, vPiece.size() - nInside);
        m_Last = SLast{eSpace, nGroup, it->nBase + nStart, vPiece.size(), vPiece.data()};
        std::memcpy(pBytes, &vPiece[nInside], nTaken);
        pBytes += nTaken;
        nBytes -= nTaken;
        nOffset += nTaken;
    }
    return true;
}

void CStopMemory::Prepare(uint64_t nAddress, size_t nBytes)
{
    const auto [it, bNew] = m_mapPrivate.insert({{nAddress, nBytes}, {}});
    if (!bNew)
    {
        return;
    }
    if (m_mapPrivate.size() > s_nMaxPrivateReads)
    {
        throw CCommandError("the work-items point to too many places in their private memory");
    }
    try
    {
        it->second = m_pSource->ReadAllPrivate(nAddress, nBytes);
    }
    catch (const CCommandError&)
    {
        // Nothing is there.
    }
}

bool CStopMemory::ReadPrivate(uint64_t nAddress, size_t nItem, unsigned char* pBytes, size_t nBytes)
{
    const auto holds = [&](const auto& entry)
    {
        const auto& [nFirst, nSize] = entry.first;
        return nFirst <= nAddress && nSize >= nBytes && nAddress - nFirst <= nSize - nBytes;
    };
    auto it = m_mapPrivate.find({nAddress, nBytes});
    it = it == m_mapPrivate.end() ? std::find_if(m_mapPrivate.begin(), m_mapPrivate.end(), holds) : it;
    if (it == m_mapPrivate.end())
    {
        Prepare(nAddress, nBytes);
        it = m_mapPrivate.find({nAddress, nBytes});
    }
    const size_t nStart = nItem * it->first.second + static_cast<size_t>(nAddress - it->first.first);
    if (it->second.size() < nStart + nBytes)
    {
        return false;
    }
    std::memcpy(pBytes, &it->second[nStart], nBytes);
    const bool bAll = it->second.size() >= m_nItems * it->first.second;
    m_Last = SLast{SSourceType::PrivateSpace, 0, it->first.first, it->first.second, bAll ? it->second.data() : nullptr};
    return true;
}

SBoundVariable::SPiece CStopMemory::ReadPiece(const SValuePiece& piece, bool& bKnown)
{
    SBoundVariable::SPiece read;
    read.nBytes = piece.nBytes;
    bKnown = true;
    const std::string strNumber = std::to_string(piece.nNumber / 4);
    switch (piece.ePlace)
    {
    case SValuePiece::Register:
    case SValuePiece::Argument:
        read.values =
            m_pSource->GetValues(piece.ePlace == SValuePiece::Register ? "r" + strNumber : "cb1[" + strNumber + "]");
        read.nComponent = piece.nNumber % 4;
        read.nBytes = std::min<size_t>(read.nBytes, 4);
        bKnown = read.values.nItems >= m_nItems;
        break;
    case SValuePiece::Constant:
        read.vBytes = piece.vBytes;
        bKnown = read.vBytes.size() >= read.nBytes;
        break;
    case SValuePiece::Private:
        read.vBytes = m_pSource->ReadAllPrivate(piece.nNumber, piece.nBytes);
        read.bForAll = false;
        bKnown = read.vBytes.size() >= m_nItems * read.nBytes;
        break;
    default:
        bKnown = false;
    }
    return read;
}

std::shared_ptr<const SBoundVariable> CStopMemory::FindVariable(const SExpressionNode& node)
{
    const std::optional<SSourceVariable> variable = m_pSource->FindVariable(node.strVariable, true);
    if (!variable || !IsSameType(*variable->pType, *node.pWhole))
    {
        throw CCommandError("there is no " + node.strVariable + " here, or one of another type");
    }
    auto pBound = std::make_shared<SBoundVariable>();
    const std::vector<SValuePiece>& vPieces = variable->vPieces;
    const bool bWhole = vPieces.size() == 1 && vPieces[0].nBytes >= variable->pType->nSize;
    const bool bLocal = bWhole && vPieces[0].ePlace == SValuePiece::Local;
    if (bLocal || (bWhole && vPieces[0].ePlace == SValuePiece::Private))
    {
        if (bLocal != (node.eSpace == SSourceType::LocalSpace))
        {
            throw CCommandError("there is no " + node.strVariable + " here, or one in another memory");
        }
        pBound->bMemory = true;
        pBound->nBase = vPieces[0].nNumber;
        return pBound;
    }
    pBound->vKnown.resize(variable->pType->nSize);
    const size_t nEnd = node.nOffset + node.pType->nSize;
    size_t nFirst = 0;
    for (const SValuePiece& piece : vPieces)
    {
        // A piece that isn't needed is skipped, as it may cost a kernel run.
        if (nFirst < nEnd && nFirst + piece.nBytes > node.nOffset)
        {
            try
            {
                bool bKnown = false;
                SBoundVariable::SPiece read = ReadPiece(piece, bKnown);
                read.nFirst = nFirst;
                for (size_t n = nFirst; n < std::min(nFirst + read.nBytes, pBound->vKnown.size()); ++n)
                {
                    pBound->vKnown[n] = bKnown;
                }
                pBound->vPieces.push_back(std::move(read));
            }
            catch (const CCommandError&)
            {
                // It has no value.
            }
        }
        nFirst += piece.nBytes;
    }
    return pBound;
}

} // namespace KestrelTool

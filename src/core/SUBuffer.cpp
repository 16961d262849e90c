#include "core/SUBuffer.h"

#include "core/SDULogger.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

namespace ShaderUtils
{

namespace
{

unsigned char* Duplicate(const unsigned char* pData, size_t nSize)
{
    if (pData == nullptr)
    {
        return nullptr;
    }
    unsigned char* pCopy = static_cast<unsigned char*>(std::malloc(nSize));
    if (pCopy != nullptr)
    {
        std::memcpy(pCopy, pData, nSize);
    }
    return pCopy;
}

template <typename T>
size_t CountActiveThreadsAs(const unsigned char* pData, size_t nSize)
{
    const T* pItems = reinterpret_cast<const T*>(pData);
    const size_t nItems = nSize / sizeof(T);
    // Usually all work-items are active, and the C library compares in wider pieces than the loop below counts in.
    if (nItems != 0 && std::memcmp(pItems, pItems + 1, (nItems - 1) * sizeof(T)) == 0)
    {
        return pItems[0] != 0 ? nItems : 0;
    }
    size_t nActive = 0;
    for (size_t nBegin = 0; nBegin < nItems;)
    {
        // Counts in a number as wide as an item, so that the loop needs no wider lanes; a piece is short enough for it.
        const size_t nEnd = nBegin + std::min<size_t>(nItems - nBegin, std::numeric_limits<T>::max());
        T nInPiece = 0;
        for (; nBegin < nEnd; ++nBegin)
        {
            nInPiece = static_cast<T>(nInPiece + (pItems[nBegin] != 0));
        }
        nActive += nInPiece;
    }
    return nActive;
}

size_t CountActiveQuads(const unsigned char* pData, size_t nSize)
{
    const uint32_t* pWords = reinterpret_cast<const uint32_t*>(pData);
    const size_t nItems = nSize / (4 * sizeof(uint32_t));
    size_t nActive = 0;
    for (size_t i = 0; i < nItems; ++i, pWords += 4)
    {
        nActive += (pWords[0] | pWords[1] | pWords[2] | pWords[3]) != 0;
    }
    return nActive;
}

/// Where a merge reads and writes, for one sub-resource.
struct MergeRange
{
    unsigned char* pDest;
    const unsigned char* pSrc;
    const unsigned char* pMask;
    size_t nItems;
    bool bInvertMask;
    size_t nDestOffset;
    size_t nSrcOffset;
    size_t nComponents;
};

bool IsSet(uint32_t nMask)
{
    return nMask != 0;
}

bool IsSet(const RGBA_32F& mask)
{
    return !(mask == RGBA_32F(0.0f));
}

template <typename BufferType, typename ComponentType, typename MaskType>
void MergeAs(const MergeRange& range)
{
    constexpr size_t nNumBufferComponents = sizeof(BufferType) / sizeof(ComponentType);
    static_assert(nNumBufferComponents * sizeof(ComponentType) == sizeof(BufferType), "whole components only");

    ComponentType* pDest = reinterpret_cast<ComponentType*>(range.pDest) + range.nDestOffset;
    const ComponentType* pSrc = reinterpret_cast<const ComponentType*>(range.pSrc) + range.nSrcOffset;
    const MaskType* pMask = reinterpret_cast<const MaskType*>(range.pMask);
    const size_t nBytes = range.nComponents * sizeof(ComponentType);
    for (size_t i = 0; i < range.nItems; ++i)
    {
        if (IsSet(pMask[i]) != range.bInvertMask)
        {
            std::memcpy(pDest + i * nNumBufferComponents, pSrc + i * nNumBufferComponents, nBytes);
        }
    }
}

template <typename BufferType, typename ComponentType>
bool MergeAs(BufferFormat maskFormat, const MergeRange& range)
{
    switch (GetPointSize(maskFormat))
    {
    case 16:
        MergeAs<BufferType, ComponentType, RGBA_32F>(range);
        return true;
    case 4:
        MergeAs<BufferType, ComponentType, uint32_t>(range);
        return true;
    case 2:
        MergeAs<BufferType, ComponentType, uint16_t>(range);
        return true;
    case 1:
        MergeAs<BufferType, ComponentType, uint8_t>(range);
        return true;
    default:
        return false;
    }
}

/// Components of an element that can be merged; 0 for a format that can't.
size_t GetMergeComponents(BufferFormat format)
{
    switch (format)
    {
    case BF_RGBA_32F:
    case BF_XYZW_32F:
    case BF_RGBA_8:
        return 4;
    case BF_RG_16:
    case BF_RG_8:
        return 2;
    case BF_R_32:
    case BF_R_16:
    case BF_R_8:
        return 1;
    default:
        return 0;
    }
}

bool MergeSubResource(BufferFormat format, BufferFormat maskFormat, const MergeRange& range)
{
    switch (format)
    {
    case BF_RGBA_32F:
    case BF_XYZW_32F:
        return MergeAs<RGBA_32F, float>(maskFormat, range);
    case BF_RGBA_8:
        return MergeAs<uint32_t, uint8_t>(maskFormat, range);
    case BF_RG_16:
        return MergeAs<uint32_t, uint16_t>(maskFormat, range);
    case BF_R_32:
        return MergeAs<uint32_t, uint32_t>(maskFormat, range);
    case BF_RG_8:
        return MergeAs<uint16_t, uint8_t>(maskFormat, range);
    case BF_R_16:
        return MergeAs<uint16_t, uint16_t>(maskFormat, range);
    case BF_R_8:
        return MergeAs<uint8_t, uint8_t>(maskFormat, range);
    default:
        return false;
    }
}

bool MulOverflows(size_t nA, size_t nB)
{
    return nB != 0 && nA > SIZE_MAX / nB;
}

} // namespace

SUBuffer::SUBuffer() : m_nPointSize(0), m_nSubResourceSize(0), m_nSubResourceCount(0), m_nSize(0), m_pData(nullptr) {}

SUBuffer::SUBuffer(const SUBuffer& other) : SUBuffer()
{
    CopyFrom(other);
}

SUBuffer& SUBuffer::operator=(const SUBuffer& other)
{
    if (this != &other)
    {
        std::free(m_pData);
        CopyFrom(other);
    }
    return *this;
}

SUBuffer::~SUBuffer()
{
    std::free(m_pData);
}

void SUBuffer::CopyFrom(const SUBuffer& other)
{
    m_Desc = other.m_Desc;
    m_nPointSize = other.m_nPointSize;
    m_nSubResourceSize = other.m_nSubResourceSize;
    m_nSubResourceCount = other.m_nSubResourceCount;
    m_nSize = other.m_nSize;
    m_pData = Duplicate(other.m_pData, other.m_nSize);
    if (other.m_pData != nullptr && m_pData == nullptr)
    {
        m_nSubResourceCount = 0;
        m_nSize = 0;
    }
}

void SUBuffer::Swap(SUBuffer& other)
{
    std::swap(m_Desc, other.m_Desc);
    std::swap(m_nPointSize, other.m_nPointSize);
    std::swap(m_nSubResourceSize, other.m_nSubResourceSize);
    std::swap(m_nSubResourceCount, other.m_nSubResourceCount);
    std::swap(m_nSize, other.m_nSize);
    std::swap(m_pData, other.m_pData);
}

bool SUBuffer::Create(ShaderType shaderType, unsigned int nWidth, unsigned int nHeight, unsigned int nPitch,
                      BufferType type, BufferFormat format, BufferUsage usage, void* pData)
{
    BufferDesc desc;
    desc.m_Type = type;
    desc.m_Format = format;
    desc.m_Usage = usage;
    desc.m_ShaderType = shaderType;
    desc.m_nWidth = nWidth;
    desc.m_nHeight = nHeight;
    desc.m_nDepth = 1;
    desc.m_nArraySize = 1;
    desc.m_nPitch = nPitch;
    desc.m_nSampleCount = 1;
    return Create(desc, pData);
}

bool SUBuffer::Create(const BufferDesc& desc, void* pData)
{
    if (!SDU_AssertText(m_pData == nullptr, "m_pData == __null"))
    {
        return false;
    }
    m_Desc = desc;
    m_nPointSize = ShaderUtils::GetPointSize(desc.m_Format);
    if (m_nPointSize == 0)
    {
        return false;
    }

    bool bTooLarge = false;
    if (desc.m_Format == BF_RAW)
    {
        m_nSubResourceSize = desc.m_nSize;
    }
    else
    {
        if (m_Desc.m_nPitch == 0)
        {
            m_Desc.m_nPitch = desc.m_nWidth * m_nPointSize;
        }
        bTooLarge = MulOverflows(m_Desc.m_nPitch, desc.m_nHeight);
        m_nSubResourceSize = m_Desc.m_nPitch * desc.m_nHeight;
    }
    m_nSubResourceCount = desc.m_nArraySize * desc.m_nDepth;
    bTooLarge = bTooLarge || MulOverflows(m_nSubResourceSize, m_nSubResourceCount);
    m_nSize = m_nSubResourceSize * m_nSubResourceCount;

    // calloc hands out fresh pages as zeros without touching them.
    m_pData = bTooLarge ? nullptr : static_cast<unsigned char*>(std::calloc(std::max<size_t>(m_nSize, 1), 1));
    if (m_pData == nullptr)
    {
        m_Desc.m_nWidth = 0;
        m_Desc.m_nHeight = 0;
        m_nSubResourceCount = 0;
        m_nSize = 0;
        return false;
    }
    if (pData != nullptr)
    {
        UpdateData(pData, 0, 0, 1);
    }
    return true;
}

bool SUBuffer::UpdateData(void* pData, size_t nSourcePitch, unsigned int nSubResource, int nSubResourceCount)
{
    if (!SDU_AssertText(m_pData != nullptr, "m_pData != __null") ||
        !SDU_AssertText(pData != nullptr, "pData != __null") || !SDU_Assert(nSubResource < m_nSubResourceCount))
    {
        return false;
    }
    const unsigned int nRemaining = m_nSubResourceCount - nSubResource;
    if (!SDU_AssertText((nSubResourceCount == -1) ||
                            ((nSubResourceCount > 0) && (static_cast<unsigned int>(nSubResourceCount) <= nRemaining)),
                        "(nSubResourceCount == -1) || ((nSubResourceCount != 0) && "
                        "((nSubResource + nSubResourceCount) <= m_nSubResourceCount))"))
    {
        return false;
    }
    const size_t nCount = nSubResourceCount == -1 ? nRemaining : static_cast<size_t>(nSubResourceCount);
    if (nSourcePitch == 0 && m_Desc.m_nPitch != 0)
    {
        nSourcePitch = m_Desc.m_nWidth * m_nPointSize;
    }

    unsigned char* pDest = m_pData + nSubResource * m_nSubResourceSize;
    const unsigned char* pSource = static_cast<const unsigned char*>(pData);
    if (nSourcePitch == m_Desc.m_nPitch || m_Desc.m_Format == BF_RAW)
    {
        std::memcpy(pDest, pSource, m_nSubResourceSize * nCount);
        return true;
    }
    // A source row holds no more than its own pitch.
    const size_t nRowBytes = std::min(m_Desc.m_nPitch, nSourcePitch);
    for (size_t nRow = 0; nRow < nCount * m_Desc.m_nHeight; ++nRow)
    {
        std::memcpy(pDest + nRow * m_Desc.m_nPitch, pSource + nRow * nSourcePitch, nRowBytes);
    }
    return true;
}

bool SUBuffer::Merge(const SUBuffer& other, const SUBuffer& mask, bool bInvertMask, size_t nDestComponentOffset,
                     size_t nSrcComponentOffset, size_t nNumComponents)
{
    const auto sameExtent = [this](const SUBuffer& buffer)
    { return buffer.GetWidth() == GetWidth() && buffer.GetHeight() == GetHeight() && buffer.GetDepth() == GetDepth(); };
    if (!sameExtent(other) || !sameExtent(mask) || m_Desc != other.m_Desc || m_pData == nullptr ||
        other.m_pData == nullptr || mask.m_pData == nullptr)
    {
        return false;
    }

    const size_t nAll = GetMergeComponents(m_Desc.m_Format);
    const size_t nComponents = nNumComponents == 0 ? nAll : nNumComponents;
    if (GetMergeComponents(mask.m_Desc.m_Format) == 0 || nComponents > nAll ||
        nDestComponentOffset > nAll - nComponents || nSrcComponentOffset > nAll - nComponents)
    {
        return false;
    }

    const size_t nItems = std::min(m_nSubResourceSize / m_nPointSize, mask.m_nSubResourceSize / mask.m_nPointSize);
    for (unsigned int i = 0; i < m_nSubResourceCount; ++i)
    {
        const MergeRange range = {GetSubResource(i), other.GetSubResource(i), mask.GetSubResource(0), nItems,
                                  bInvertMask,       nDestComponentOffset,    nSrcComponentOffset,    nComponents};
        if (!MergeSubResource(m_Desc.m_Format, mask.m_Desc.m_Format, range))
        {
            return false;
        }
    }
    return true;
}

ThreadIDType SUBuffer::GetThreadIDType() const
{
    if (m_Desc.m_Type != BT_Buffer)
    {
        return ShaderUtils::GetThreadIDType(m_Desc.m_Type);
    }
    if (m_Desc.m_nDepth > 1)
    {
        return TID_3D;
    }
    return m_Desc.m_nHeight > 1 ? TID_2D : TID_1D;
}

unsigned char* SUBuffer::GetSubResource(unsigned int nSubResource) const
{
    return m_pData != nullptr && nSubResource < m_nSubResourceCount ? m_pData + nSubResource * m_nSubResourceSize
                                                                    : nullptr;
}

bool SUBuffer::IsBlank(unsigned int nSubResource) const
{
    const unsigned char* pData = GetSubResource(nSubResource);
    return pData == nullptr || CountActiveThreadsAs<uint8_t>(pData, m_nSubResourceSize) == 0;
}

size_t SUBuffer::GetItemCount() const
{
    const bool bHasItems = m_nPointSize != 0 && m_Desc.m_Format != BF_RAW && m_pData != nullptr;
    return bHasItems ? m_nSubResourceSize / m_nPointSize : 0;
}

size_t SUBuffer::GetActiveItemCount(unsigned int nSubResource) const
{
    const unsigned char* pData = GetSubResource(nSubResource);
    if (pData == nullptr)
    {
        return 0;
    }
    switch (m_Desc.m_Format)
    {
    case BF_R_8:
        return CountActiveThreadsAs<uint8_t>(pData, m_nSubResourceSize);
    case BF_RG_8:
    case BF_R_16:
        return CountActiveThreadsAs<uint16_t>(pData, m_nSubResourceSize);
    case BF_RGBA_8:
    case BF_RG_16:
    case BF_R_32:
        return CountActiveThreadsAs<uint32_t>(pData, m_nSubResourceSize);
    case BF_RGBA_32F:
    case BF_XYZW_32F:
        return CountActiveQuads(pData, m_nSubResourceSize);
    default:
        return 0;
    }
}

bool SUBuffer::IsValidThread(const ThreadID& threadID) const
{
    if (!IsValid(threadID) || threadID.type != GetThreadIDType())
    {
        return false;
    }
    const auto below = [](int nValue, unsigned int nLimit)
    { return static_cast<unsigned int>(std::max(nValue, 0)) < nLimit; };
    return below(threadID.x, m_Desc.m_nWidth) && (threadID.type == TID_1D || below(threadID.y, m_Desc.m_nHeight)) &&
           (threadID.type != TID_3D || below(threadID.z, m_Desc.m_nDepth)) &&
           below(threadID.nSubResource, m_nSubResourceCount);
}

const unsigned char* SUBuffer::GetThreadAddress(const ThreadID& threadID) const
{
    if (m_pData == nullptr || !IsValidThread(threadID))
    {
        return nullptr;
    }
    const auto positive = [](int nValue) { return static_cast<size_t>(std::max(nValue, 0)); };
    const size_t nElement =
        (positive(threadID.z) * m_Desc.m_nHeight + positive(threadID.y)) * m_Desc.m_nWidth + positive(threadID.x);
    const size_t nOffset = positive(threadID.nSubResource) * m_nSubResourceSize + nElement * m_nPointSize;
    return nOffset <= m_nSize && m_nPointSize <= m_nSize - nOffset ? m_pData + nOffset : nullptr;
}

bool SUBuffer::GetThreadValue(float* fPoint, const ThreadID& threadID) const
{
    const bool bFormat = m_Desc.m_Format == BF_RGBA_32F || m_Desc.m_Format == BF_XYZW_32F;
    const unsigned char* pValue = bFormat ? GetThreadAddress(threadID) : nullptr;
    if (pValue == nullptr)
    {
        return false;
    }
    std::memcpy(fPoint, pValue, 4 * sizeof(float));
    return true;
}

bool SUBuffer::GetThreadValue(unsigned char& cPoint, const ThreadID& threadID) const
{
    const unsigned char* pValue = m_Desc.m_Format == BF_R_8 ? GetThreadAddress(threadID) : nullptr;
    if (pValue == nullptr)
    {
        return false;
    }
    cPoint = *pValue;
    return true;
}

bool SUBuffer::GetThreadValue(unsigned char* cPoint, const ThreadID& threadID) const
{
    const unsigned char* pValue = m_Desc.m_Format == BF_RGBA_8 ? GetThreadAddress(threadID) : nullptr;
    if (pValue == nullptr)
    {
        return false;
    }
    std::memcpy(cPoint, pValue, 4);
    return true;
}

template <typename Matches>
ThreadID SUBuffer::FindThreadIf(ThreadIDType type, int nSubResource, const Matches& matches) const
{
    const bool bAll = nSubResource == -1;
    const unsigned int nFirst = bAll ? 0 : static_cast<unsigned int>(nSubResource);
    const unsigned int nEnd = bAll ? m_nSubResourceCount : nFirst + 1;
    for (unsigned int nSub = nFirst; nSub < nEnd; ++nSub)
    {
        for (unsigned int x = 0; x < m_Desc.m_nWidth; ++x)
        {
            for (unsigned int y = 0; y < m_Desc.m_nHeight; ++y)
            {
                const ThreadID threadID(type, static_cast<int>(x), static_cast<int>(y), 0, static_cast<int>(nSub));
                if (matches(threadID))
                {
                    return threadID;
                }
            }
        }
    }
    return g_tID_Error;
}

ThreadID SUBuffer::FindThread(float* fPoint, int nSubResource) const
{
    const ThreadIDType type = m_Desc.m_Format == BF_XYZW_32F ? TID_1D : TID_2D;
    return FindThreadIf(type, nSubResource,
                        [&](const ThreadID& threadID)
                        {
                            float fValue[4];
                            return GetThreadValue(fValue, threadID) && std::memcmp(fValue, fPoint, sizeof(fValue)) == 0;
                        });
}

ThreadID SUBuffer::FindThread(unsigned char cPoint, int nSubResource) const
{
    return FindThreadIf(TID_2D, nSubResource,
                        [&](const ThreadID& threadID)
                        {
                            unsigned char cValue = 0;
                            return GetThreadValue(cValue, threadID) && cValue == cPoint;
                        });
}

ThreadID SUBuffer::FindThread(unsigned char* cPoint, int nSubResource) const
{
    return FindThreadIf(TID_2D, nSubResource,
                        [&](const ThreadID& threadID)
                        {
                            unsigned char cValue[4];
                            return GetThreadValue(cValue, threadID) && std::memcmp(cValue, cPoint, sizeof(cValue)) == 0;
                        });
}

} // namespace ShaderUtils

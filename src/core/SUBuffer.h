#ifndef KESTREL_CORE_SUBUFFER_H
#define KESTREL_CORE_SUBUFFER_H

#include "core/SUCommon.h"

namespace ShaderUtils
{

/// The host-side image of a device buffer: a block of memory laid out by a description, cut into
/// sub-resources (slices of a 3D image, elements of an array) of m_nHeight rows of m_nPitch bytes.
/// For BF_RAW a sub-resource is m_Desc.m_nSize bytes.
///
/// Access by work-item addresses element (z * height + y) * width + x and so is for tightly packed
/// buffers. A buffer belongs to one thread at a time. Queries on a buffer without memory answer
/// with 0, false or null.
class SUBuffer
{
public:
    SUBuffer();
    SUBuffer(const SUBuffer& other);
    SUBuffer& operator=(const SUBuffer& other);
    virtual ~SUBuffer();

    /// A description of depth 1, array size 1, sample count 1, sample quality 0.
    virtual bool Create(ShaderType shaderType, unsigned int nWidth, unsigned int nHeight, unsigned int nPitch,
                        BufferType type, BufferFormat format, BufferUsage usage, void* pData);

    /// Makes zeroed memory; with pData, fills the first sub-resource from it. There must be no
    /// memory yet. \return false for a format without a size or when memory runs out
    bool Create(const BufferDesc& desc, void* pData);

    /// Copies into sub-resources; a count of -1 means all from nSubResource to the last. A source
    /// pitch of 0 means tightly packed rows.
    bool UpdateData(void* pData, size_t nSourcePitch, unsigned int nSubResource, int nSubResourceCount);

    /// Overlays other on this buffer where the mask is set (or, inverted, where it isn't). Copies
    /// nNumComponents components (0: all) from nSrcComponentOffset to nDestComponentOffset. The
    /// mask's sub-resource 0 holds for every slice.
    /// \return false, with nothing changed, if extents, descriptions, formats or offsets don't fit
    bool Merge(const SUBuffer& other, const SUBuffer& mask, bool bInvertMask, size_t nDestComponentOffset,
               size_t nSrcComponentOffset, size_t nNumComponents);

    /// Exchanges everything with another buffer, without a copy.
    void Swap(SUBuffer& other);

    const BufferDesc& GetDesc() const { return m_Desc; }
    unsigned int GetWidth() const { return m_Desc.m_nWidth; }
    unsigned int GetHeight() const { return m_Desc.m_nHeight; }
    unsigned int GetDepth() const { return m_Desc.m_nDepth; }
    unsigned int GetArraySize() const { return m_Desc.m_nArraySize; }
    unsigned int GetFirstArraySlice() const { return m_Desc.m_nFirstArraySlice; }
    unsigned int GetLastArraySlice() const { return m_Desc.m_nLastArraySlice; }
    BufferType GetType() const { return m_Desc.m_Type; }
    BufferFormat GetFormat() const { return m_Desc.m_Format; }
    BufferUsage GetUsage() const { return m_Desc.m_Usage; }
    unsigned int GetSampleCount() const { return m_Desc.m_nSampleCount; }
    unsigned int GetSampleQuality() const { return m_Desc.m_nSampleQuality; }
    ShaderType GetShaderType() const { return m_Desc.m_ShaderType; }
    size_t GetPointSize() const { return m_nPointSize; }
    size_t GetSubResourceSize() const { return m_nSubResourceSize; }
    unsigned int GetSubResourceCount() const { return m_nSubResourceCount; }
    size_t GetSize() const { return m_nSize; }
    unsigned char* GetData() const { return m_pData; }

    ThreadIDType GetThreadIDType() const;
    /// Null for an index at or above the count.
    unsigned char* GetSubResource(unsigned int nSubResource) const;
    /// Whether all bytes of the sub-resource are 0.
    bool IsBlank(unsigned int nSubResource) const;
    /// Elements of one sub-resource; 0 for BF_RAW and BF_Unknown.
    size_t GetItemCount() const;
    /// Elements of the sub-resource that aren't all zero.
    size_t GetActiveItemCount(unsigned int nSubResource) const;

    bool IsValidThread(const ThreadID& threadID) const;
    /// Four floats, only for the four-float formats.
    bool GetThreadValue(float* fPoint, const ThreadID& threadID) const;
    /// One byte, only for BF_R_8.
    bool GetThreadValue(unsigned char& cPoint, const ThreadID& threadID) const;
    /// Four bytes, only for BF_RGBA_8.
    bool GetThreadValue(unsigned char* cPoint, const ThreadID& threadID) const;

    /// The first work-item, x-major, that holds the value; g_tID_Error if none does or the format
    /// isn't the one that GetThreadValue wants. An nSubResource of -1 searches all.
    ThreadID FindThread(float* fPoint, int nSubResource) const;
    ThreadID FindThread(unsigned char cPoint, int nSubResource) const;
    ThreadID FindThread(unsigned char* cPoint, int nSubResource) const;

protected:
    BufferDesc m_Desc; ///< m_nPitch is filled in by Create
    size_t m_nPointSize;
    size_t m_nSubResourceSize;
    unsigned int m_nSubResourceCount;
    size_t m_nSize;
    unsigned char* m_pData; ///< owned, from malloc

private:
    void CopyFrom(const SUBuffer& other);
    const unsigned char* GetThreadAddress(const ThreadID& threadID) const;
    template <typename Matches>
    ThreadID FindThreadIf(ThreadIDType type, int nSubResource, const Matches& matches) const;
};

} // namespace ShaderUtils

#endif

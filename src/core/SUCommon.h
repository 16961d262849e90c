#ifndef KESTREL_CORE_SUCOMMON_H
#define KESTREL_CORE_SUCOMMON_H

#include <cstddef>
#include <string>

/// The buffer and work-item vocabulary that the debugger, the host and the device share. The
/// enumerators are stored as numbers in descriptions and compared by value across the system.
namespace ShaderUtils
{

/// The kind of a device buffer.
enum BufferType
{
    BT_Unknown = 0,
    BT_Buffer = 1,     ///< linear memory object; every target buffer too
    BT_Texture_1D = 2, ///< 1D image or 1D image array
    BT_Texture_2D = 3, ///< 2D image or 2D image array
    BT_Texture_CubeMap = 4,
    BT_Texture_3D = 5,
    BT_Value = 6,      ///< a kernel argument by value: the bytes live on the host
    BT_LocalBuffer = 7 ///< a kernel argument in local memory: a size and no memory object
};

/// Layout of one element of a buffer.
enum BufferFormat
{
    BF_Unknown = 0,
    BF_RGBA_32F = 1,
    BF_RGBA_16 = 2,
    BF_RGBA_8 = 3,
    BF_RGB_32 = 4,
    BF_RGB_16 = 5,
    BF_RGB_8 = 6,
    BF_RG_32 = 7,
    BF_RG_16 = 8,
    BF_RG_8 = 9,
    BF_R_32 = 10,
    BF_R_16 = 11,
    BF_R_8 = 12,
    BF_RAW = 13,     ///< untyped bytes; the size is m_nSize
    BF_XYZW_32F = 14 ///< as BF_RGBA_32F, but its threads are one-dimensional
};

/// What a buffer is for.
enum BufferUsage
{
    BU_Unknown = 0,
    BU_Results = 1, ///< receives register values
    BU_ExecMask = 2 ///< receives the execution mask
};

enum BufferAccess
{
    BA_Unknown = 0,
    BA_Read = 1,
    BA_Write = 2,
    BA_ReadWrite = 3
};

enum ShaderType
{
    ST_Unknown = 0,
    ST_Pixel = 1,
    ST_Vertex = 2,
    ST_Geometry = 3,
    ST_Geometry_SO = 4,
    ST_Hull = 5,
    ST_Domain = 6,
    ST_Compute = 7
};

enum ThreadIDType
{
    TID_Unknown = 0,
    TID_1D = 1,
    TID_2D = 2,
    TID_3D = 3
};

enum DataType
{
    DT_Unknown = 0,
    DT_Float32 = 1,
    DT_Int32 = 2,
    DT_SInt32 = 3,
    DT_UInt32 = 4,
    DT_Boolean = 5
};

enum KeyWordType
{
    KW_All = 0,
    KW_Op = 1,
    KW_IntOp = 2,
    KW_DoubleOp = 3,
    KW_TextureOp = 4,
    KW_UnsupportedOp = 5,
    KW_Function = 6,
    KW_Reg = 7,
    KW_Type = 8,
    KW_Semantics = 9,
    KW_Variable = 10,
    KW_Reserved = 11
};

/// One class of a shader language's keywords.
struct KeyWords
{
    KeyWordType type = KW_All;
    std::string strKeywords;
};

/// Describes a device buffer. All zeros until it is filled.
struct BufferDesc
{
    BufferType m_Type = BT_Unknown;
    BufferFormat m_Format = BF_Unknown;
    BufferUsage m_Usage = BU_Unknown;
    BufferAccess m_AccessType = BA_Unknown; ///< carried only
    ShaderType m_ShaderType = ST_Unknown;
    unsigned int m_nWidth = 0;  ///< elements per row
    unsigned int m_nHeight = 0; ///< rows
    unsigned int m_nDepth = 0;  ///< slices
    unsigned int m_nStride = 0; ///< carried only
    size_t m_nSize = 0;         ///< bytes; the only size of BF_RAW, BT_Value and BT_LocalBuffer
    unsigned int m_nArraySize = 0;
    unsigned int m_nFirstArraySlice = 0;
    unsigned int m_nLastArraySlice = 0;
    size_t m_nPitch = 0;             ///< bytes from row to row; 0 means tightly packed
    unsigned int m_nSampleCount = 0; ///< carried only
    unsigned int m_nSampleQuality = 0;
};

/// Equal when all sixteen fields are equal.
bool operator==(const BufferDesc& lhs, const BufferDesc& rhs);
bool operator!=(const BufferDesc& lhs, const BufferDesc& rhs);

/// The coordinates of one work-item, or the extent of a dispatch.
struct ThreadID
{
    ThreadIDType type;
    int x;
    int y;
    int z;
    int nSubResource;

    ThreadID() { Clear(); }
    ThreadID(ThreadIDType idType, int nX, int nY, int nZ, int nSubRes)
        : type(idType), x(nX), y(nY), z(nZ), nSubResource(nSubRes)
    {
    }

    void Clear()
    {
        type = TID_2D;
        x = y = z = nSubResource = 0;
    }
};

/// What a failed search for a work-item returns.
extern const ThreadID g_tID_Error;

/// True when the coordinates that the type uses are not negative.
bool IsValid(const ThreadID& threadID);

/// The dimensionality of a work-item in a buffer of the given type.
ThreadIDType GetThreadIDType(BufferType type);

/// One element of four floats.
struct RGBA_32F
{
    float r;
    float g;
    float b;
    float a;

    RGBA_32F() = default;
    explicit RGBA_32F(float fAll) : r(fAll), g(fAll), b(fAll), a(fAll) {}
};

/// Compares as floats: a NaN is unequal to everything, 0.0 equals -0.0.
bool operator==(const RGBA_32F& lhs, const RGBA_32F& rhs);

/// Bytes of one element of a format; 0 for BF_Unknown and for what is no format.
size_t GetPointSize(BufferFormat format);

} // namespace ShaderUtils

#endif

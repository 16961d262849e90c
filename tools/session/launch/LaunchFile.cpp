#include "tools/session/launch/LaunchFile.h"

#include "tools/session/launch/Contents.h"
#include "tools/session/launch/JsonField.h"

#include <CL/cl.h>

#include <algorithm>
#include <iterator>

namespace KestrelTool
{

namespace
{

struct SChannelOrder
{
    const char* pszName;
    cl_channel_order nOrder;
    size_t nChannels;
};

const SChannelOrder s_Orders[] = {
    {"R", CL_R, 1},
    {"A", CL_A, 1},
    {"RG", CL_RG, 2},
    {"RA", CL_RA, 2},
    {"RGBA", CL_RGBA, 4},
    {"BGRA", CL_BGRA, 4},
    {"ARGB", CL_ARGB, 4},
    {"INTENSITY", CL_INTENSITY, 1},
    {"LUMINANCE", CL_LUMINANCE, 1},
};

struct SChannelType
{
    const char* pszName;
    cl_channel_type nType;
    const char* pszElement;
};

const SChannelType s_Channels[] = {
    {"snorm8", CL_SNORM_INT8, "i8"},      {"snorm16", CL_SNORM_INT16, "i16"}, {"unorm8", CL_UNORM_INT8, "u8"},
    {"unorm16", CL_UNORM_INT16, "u16"},   {"int8", CL_SIGNED_INT8, "i8"},     {"int16", CL_SIGNED_INT16, "i16"},
    {"int32", CL_SIGNED_INT32, "i32"},    {"uint8", CL_UNSIGNED_INT8, "u8"},  {"uint16", CL_UNSIGNED_INT16, "u16"},
    {"uint32", CL_UNSIGNED_INT32, "u32"}, {"float", CL_FLOAT, "f32"},         {"half", CL_HALF_FLOAT, "u16"},
};

const SNamedNumber s_Shapes[] = {
    {"1d", CL_MEM_OBJECT_IMAGE1D},
    {"1d_buffer", CL_MEM_OBJECT_IMAGE1D_BUFFER},
    {"1d_array", CL_MEM_OBJECT_IMAGE1D_ARRAY},
    {"2d", CL_MEM_OBJECT_IMAGE2D},
    {"2d_array", CL_MEM_OBJECT_IMAGE2D_ARRAY},
    {"3d", CL_MEM_OBJECT_IMAGE3D},
};

const SNamedNumber s_Addressings[] = {
    {"none", CL_ADDRESS_NONE},     {"clamp_to_edge", CL_ADDRESS_CLAMP_TO_EDGE},     {"clamp", CL_ADDRESS_CLAMP},
    {"repeat", CL_ADDRESS_REPEAT}, {"mirrored_repeat", CL_ADDRESS_MIRRORED_REPEAT},
};

const SNamedNumber s_Filters[] = {{"nearest", CL_FILTER_NEAREST}, {"linear", CL_FILTER_LINEAR}};

/// The name of the entry whose member has this number; null if there is none.
template <typename T, typename Number, size_t N>
const char* NameOf(const T (&table)[N], Number T::*pNumber, uint32_t nNumber)
{
    const T* const pEntry =
        std::find_if(std::begin(table), std::end(table), [&](const T& entry) { return entry.*pNumber == nNumber; });
    return pEntry != std::end(table) ? pEntry->pszName : nullptr;
}

template <typename T, size_t N>
const T& Choose(const T (&table)[N], const CJsonField& field)
{
    const std::string strName = field.AsString();
    std::string strKnown;
    for (const T& entry : table)
    {
        if (strName == entry.pszName)
        {
            return entry;
        }
        strKnown += (strKnown.empty() ? "" : ", ") + std::string(entry.pszName);
    }
    field.Fail("unknown name \"" + strName + "\"; known are " + strKnown);
}

std::string ReadSavePath(const CJsonField& field)
{
    return field.Has("save") ? ResolvePath(field.At("save")) : std::string();
}

SArgument ReadBuffer(const CJsonField& field)
{
    field.AllowOnly({"type", "count", "fill", "values", "file", "expect", "save"});
    SArgument argument;
    argument.eKind = SArgument::Buffer;
    argument.pType = &ReadElementType(field.At("type"));
    argument.vContents = ReadContents(field, *argument.pType, std::nullopt);
    argument.bUnwritten = field.Has("fill") && field.At("fill").IsString() && field.At("fill").AsString() == "none";
    argument.vExpected = ReadExpectation(field, *argument.pType, argument.vContents.size());
    argument.strSave = ReadSavePath(field);
    return argument;
}

SArgument ReadValue(const CJsonField& field)
{
    field.AllowOnly({"type", "values"});
    SArgument argument;
    argument.eKind = SArgument::Value;
    argument.pType = &ReadElementType(field.At("type"));
    argument.vContents = ReadValues(field.At("values"), *argument.pType);
    return argument;
}

/// Each extent has 32 bits: multiplying two can't overflow, but a third can.
size_t CountTexels(const CJsonField& field, const SArgument& image)
{
    constexpr size_t nMaxTexels = size_t(1) << 40;
    const size_t nPlane = image.nWidth * image.nHeight;
    const size_t nPlanes = std::max<size_t>({image.nDepth, image.nArray, 1});
    if (nPlane > nMaxTexels / nPlanes)
    {
        field.Fail("is larger than any image");
    }
    return nPlane * nPlanes;
}

/// Reads the kind of an image and the extents that this kind has.
void ReadExtents(const CJsonField& field, SArgument& image)
{
    image.nImageType = field.Has("shape")   ? Choose(s_Shapes, field.At("shape")).nNumber
                       : field.Has("depth") ? CL_MEM_OBJECT_IMAGE3D
                                            : CL_MEM_OBJECT_IMAGE2D;
    const uint32_t nType = image.nImageType;
    const bool bPlane =
        nType == CL_MEM_OBJECT_IMAGE2D || nType == CL_MEM_OBJECT_IMAGE2D_ARRAY || nType == CL_MEM_OBJECT_IMAGE3D;
    const bool bArray = nType == CL_MEM_OBJECT_IMAGE1D_ARRAY || nType == CL_MEM_OBJECT_IMAGE2D_ARRAY;
    const struct
    {
        const char* pszName;
        bool bTaken;
        size_t& nExtent;
    } extents[] = {{"width", true, image.nWidth},
                   {"height", bPlane, image.nHeight},
                   {"depth", nType == CL_MEM_OBJECT_IMAGE3D, image.nDepth},
                   {"array", bArray, image.nArray}};
    for (const auto& extent : extents)
    {
        if (extent.bTaken)
        {
            extent.nExtent = field.At(extent.pszName).AsCount();
        }
        else if (field.Has(extent.pszName))
        {
            field.At(extent.pszName).Fail("is nothing that an image of this shape has");
        }
    }
}

SArgument ReadImage(const CJsonField& field)
{
    field.AllowOnly(
        {"order", "channel", "shape", "width", "height", "depth", "array", "fill", "values", "file", "expect", "save"});
    const SChannelOrder& order = Choose(s_Orders, field.At("order"));
    const SChannelType& channel = Choose(s_Channels, field.At("channel"));
    SArgument argument;
    argument.eKind = SArgument::Image;
    argument.pType = FindElementType(channel.pszElement);
    argument.nChannelOrder = order.nOrder;
    argument.nChannelType = channel.nType;
    ReadExtents(field, argument);
    argument.vContents = ReadContents(field, *argument.pType, CountTexels(field, argument) * order.nChannels);
    argument.vExpected = ReadExpectation(field, *argument.pType, argument.vContents.size());
    argument.strSave = ReadSavePath(field);
    return argument;
}

SArgument ReadSampler(const CJsonField& field)
{
    field.AllowOnly({"normalized", "addressing", "filter"});
    SArgument argument;
    argument.eKind = SArgument::Sampler;
    argument.bNormalized = field.At("normalized").AsBool();
    argument.nAddressing = Choose(s_Addressings, field.At("addressing")).nNumber;
    argument.nFilter = Choose(s_Filters, field.At("filter")).nNumber;
    return argument;
}

/// A part of a shared buffer, with that part of its contents.
SArgument ReadSub(const CJsonField& field, const std::vector<SArgument>& vBuffers)
{
    field.AllowOnly({"of", "origin", "size"});
    SArgument argument;
    argument.eKind = SArgument::Sub;
    argument.nSame = field.At("of").AsIndex();
    if (argument.nSame >= vBuffers.size())
    {
        field.At("of").Fail("must be an index in buffers");
    }
    const SArgument& buffer = vBuffers[argument.nSame];
    argument.pType = buffer.pType;
    if (!field.Has("origin") && !field.Has("size"))
    {
        argument.vContents = buffer.vContents;
        return argument;
    }
    const size_t nOrigin = field.At("origin").AsIndex();
    const size_t nSize = field.At("size").AsCount();
    if (nOrigin > buffer.vContents.size() || nSize > buffer.vContents.size() - nOrigin)
    {
        field.Fail("reaches beyond the buffer, which has " + std::to_string(buffer.vContents.size()) + " bytes");
    }
    argument.nOrigin = nOrigin;
    const auto itFirst = buffer.vContents.begin() + static_cast<std::ptrdiff_t>(nOrigin);
    argument.vContents.assign(itFirst, itFirst + static_cast<std::ptrdiff_t>(nSize));
    return argument;
}

SArgument ReadSame(const CJsonField& field, const std::vector<SArgument>& vEarlier)
{
    SArgument argument;
    argument.eKind = SArgument::Same;
    argument.nSame = field.AsIndex();
    const bool bFits = argument.nSame < vEarlier.size() && (vEarlier[argument.nSame].eKind == SArgument::Buffer ||
                                                            vEarlier[argument.nSame].eKind == SArgument::Image);
    if (!bFits)
    {
        field.Fail("must be the index of an earlier buffer or image");
    }
    return argument;
}

SArgument ReadArgument(const CJsonField& field, const SLaunchFile& launch)
{
    field.AllowOnly({"buffer", "same", "sub", "value", "local", "image", "sampler", "null"});
    if (field.Size() != 1)
    {
        field.Fail("must have exactly one of buffer, same, sub, value, local, image, sampler, null");
    }
    if (field.Has("buffer"))
    {
        return ReadBuffer(field.At("buffer"));
    }
    if (field.Has("value"))
    {
        return ReadValue(field.At("value"));
    }
    if (field.Has("image"))
    {
        return ReadImage(field.At("image"));
    }
    if (field.Has("same"))
    {
        return ReadSame(field.At("same"), launch.vArguments);
    }
    if (field.Has("sub"))
    {
        return ReadSub(field.At("sub"), launch.vBuffers);
    }
    if (field.Has("sampler"))
    {
        return ReadSampler(field.At("sampler"));
    }

    SArgument argument;
    if (field.Has("local"))
    {
        argument.eKind = SArgument::Local;
        argument.nLocalBytes = field.At("local").AsCount();
        return argument;
    }
    const std::string strWhat = field.At("null").AsString();
    if (strWhat != "buffer" && strWhat != "image")
    {
        field.At("null").Fail("must be \"buffer\" or \"image\"");
    }
    argument.eKind = strWhat == "buffer" ? SArgument::NullBuffer : SArgument::NullImage;
    return argument;
}

/// Reads one to three sizes; there must be as many as in the global size.
unsigned int ReadSizes(const CJsonField& field, unsigned int nDimensions, bool bZeroAllowed, size_t (&sizes)[3])
{
    const size_t nCount = field.ArraySize();
    if (nCount < 1 || nCount > 3 || (nDimensions != 0 && nCount != nDimensions))
    {
        field.Fail(nDimensions == 0 ? "must have one to three numbers" : "must have as many numbers as global");
    }
    for (size_t i = 0; i < nCount; ++i)
    {
        sizes[i] = bZeroAllowed ? field.At(i).AsIndex() : field.At(i).AsCount();
    }
    return static_cast<unsigned int>(nCount);
}

} // namespace

const char* NameChannelOrder(uint32_t nOrder)
{
    return NameOf(s_Orders, &SChannelOrder::nOrder, nOrder);
}

const char* NameChannelType(uint32_t nType)
{
    return NameOf(s_Channels, &SChannelType::nType, nType);
}

const SElementType* FindChannelElement(uint32_t nType)
{
    const auto* const pChannel = std::find_if(std::begin(s_Channels), std::end(s_Channels),
                                              [&](const SChannelType& channel) { return channel.nType == nType; });
    return pChannel != std::end(s_Channels) ? FindElementType(pChannel->pszElement) : nullptr;
}

const char* NameImageShape(uint32_t nImageType)
{
    return NameOf(s_Shapes, &SNamedNumber::nNumber, nImageType);
}

const char* NameAddressing(uint32_t nAddressing)
{
    return NameOf(s_Addressings, &SNamedNumber::nNumber, nAddressing);
}

const char* NameFilter(uint32_t nFilter)
{
    return NameOf(s_Filters, &SNamedNumber::nNumber, nFilter);
}

SLaunchFile ReadLaunchFile(const std::string& strPath)
{
    return ParseLaunchFile(ReadLaunchText(strPath), strPath);
}

SLaunchFile ParseLaunchFile(const std::string& strText, const std::string& strPath)
{
    const CJsonDocument document(strText, strPath);
    const CJsonField root = document.Root();
    root.AllowOnly({"program", "kernel", "device", "options", "global", "local", "offset", "buffers", "args"});

    SLaunchFile launch;
    launch.strPath = strPath;
    launch.strSource = ReadProgram(root.At("program"));
    launch.strKernel = root.At("kernel").AsString();
    launch.strDevice = root.Has("device") ? root.At("device").AsString() : std::string();
    launch.strOptions = root.Has("options") ? root.At("options").AsString() : "-g";
    launch.nDimensions = ReadSizes(root.At("global"), 0, false, launch.nGlobalSize);
    launch.bHasLocalSize = root.Has("local");
    if (launch.bHasLocalSize)
    {
        ReadSizes(root.At("local"), launch.nDimensions, false, launch.nLocalSize);
    }
    launch.bHasOffset = root.Has("offset");
    if (launch.bHasOffset)
    {
        ReadSizes(root.At("offset"), launch.nDimensions, true, launch.nGlobalOffset);
    }
    if (root.Has("buffers"))
    {
        const CJsonField buffers = root.At("buffers");
        for (size_t i = 0; i < buffers.ArraySize(); ++i)
        {
            launch.vBuffers.push_back(ReadBuffer(buffers.At(i)));
        }
    }
    if (root.Has("args"))
    {
        const CJsonField args = root.At("args");
        for (size_t i = 0; i < args.ArraySize(); ++i)
        {
            launch.vArguments.push_back(ReadArgument(args.At(i), launch));
        }
    }
    return launch;
}

} // namespace KestrelTool

#include "tools/kestrel/LaunchFile.h"

#include "tools/kestrel/Contents.h"
#include "tools/kestrel/JsonField.h"

#include <CL/cl.h>

#include <cmath>

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
    {"R", CL_R, 1}, {"A", CL_A, 1}, {"RG", CL_RG, 2}, {"RA", CL_RA, 2}, {"RGBA", CL_RGBA, 4}, {"BGRA", CL_BGRA, 4},
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
    {"uint32", CL_UNSIGNED_INT32, "u32"}, {"float", CL_FLOAT, "f32"},
};

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

/// Each extent has 32 bits, so that two of them can't overflow and a third one can.
size_t CountTexels(const CJsonField& field, const SArgument& image)
{
    constexpr size_t nMaxTexels = size_t(1) << 40;
    const size_t nPlane = image.nWidth * image.nHeight;
    const size_t nPlanes = image.nDepth == 0 ? 1 : image.nDepth;
    if (nPlane > nMaxTexels / nPlanes)
    {
        field.Fail("is larger than any image");
    }
    return nPlane * nPlanes;
}

SArgument ReadImage(const CJsonField& field)
{
    field.AllowOnly({"order", "channel", "width", "height", "depth", "fill", "values", "file", "expect", "save"});
    const SChannelOrder& order = Choose(s_Orders, field.At("order"));
    const SChannelType& channel = Choose(s_Channels, field.At("channel"));
    SArgument argument;
    argument.eKind = SArgument::Image;
    argument.pType = FindElementType(channel.pszElement);
    argument.nChannelOrder = order.nOrder;
    argument.nChannelType = channel.nType;
    argument.nWidth = field.At("width").AsCount();
    argument.nHeight = field.At("height").AsCount();
    argument.nDepth = field.Has("depth") ? field.At("depth").AsCount() : 0;
    argument.vContents = ReadContents(field, *argument.pType, CountTexels(field, argument) * order.nChannels);
    argument.vExpected = ReadExpectation(field, *argument.pType, argument.vContents.size());
    argument.strSave = ReadSavePath(field);
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

SArgument ReadArgument(const CJsonField& field, const std::vector<SArgument>& vEarlier)
{
    field.AllowOnly({"buffer", "same", "value", "local", "image", "null"});
    if (field.Size() != 1)
    {
        field.Fail("must have exactly one of buffer, same, value, local, image, null");
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
        return ReadSame(field.At("same"), vEarlier);
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

/// One to three numbers into sizes; the count must be that of the global size.
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

SLaunchFile ReadLaunchFile(const std::string& strPath)
{
    return ParseLaunchFile(ReadLaunchText(strPath), strPath);
}

SLaunchFile ParseLaunchFile(const std::string& strText, const std::string& strPath)
{
    const CJsonDocument document(strText, strPath);
    const CJsonField root = document.Root();
    root.AllowOnly({"program", "kernel", "device", "options", "global", "local", "offset", "args"});

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
    if (root.Has("args"))
    {
        const CJsonField args = root.At("args");
        for (size_t i = 0; i < args.ArraySize(); ++i)
        {
            launch.vArguments.push_back(ReadArgument(args.At(i), launch.vArguments));
        }
    }
    return launch;
}

} // namespace KestrelTool

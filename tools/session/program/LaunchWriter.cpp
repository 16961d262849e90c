#include "tools/session/program/LaunchWriter.h"

#include "tools/session/launch/Files.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>

namespace KestrelTool
{

using nlohmann::ordered_json;

namespace
{

const size_t s_nInline = 16; ///< elements that are written to the launch file itself

/// The contents as a list of numbers, if that reproduces exactly these bytes.
ordered_json ListValues(const SElementType& type, const std::vector<unsigned char>& vBytes)
{
    ordered_json values = ordered_json::array();
    for (size_t n = 0; n < vBytes.size(); n += type.nSize)
    {
        const double fValue = ReadElement(type, &vBytes[n]);
        unsigned char element[sizeof(double)] = {};
        if (fValue - fValue == 0) // finite
        {
            StoreElement(type, fValue, element);
        }
        if (!std::equal(element, element + type.nSize, vBytes.begin() + static_cast<std::ptrdiff_t>(n)))
        {
            return nullptr;
        }
        if (type.eKind == SElementType::Float)
        {
            values.push_back(fValue);
        }
        else
        {
            values.push_back(static_cast<int64_t>(fValue));
        }
    }
    return values;
}

class CWriter
{
public:
    CWriter(const SLaunchFile& launch, const std::string& strPath) : m_Launch(launch), m_Path(strPath) {}

    void Write(const std::string& strProgram)
    {
        ordered_json root;
        root["program"] = strProgram;
        root["kernel"] = m_Launch.strKernel;
        root["device"] = m_Launch.strDevice;
        root["options"] = m_Launch.strOptions;
        root["global"] = ListSizes(m_Launch.nGlobalSize);
        if (m_Launch.bHasLocalSize)
        {
            root["local"] = ListSizes(m_Launch.nLocalSize);
        }
        if (m_Launch.bHasOffset)
        {
            root["offset"] = ListSizes(m_Launch.nGlobalOffset);
        }
        for (size_t i = 0; i < m_Launch.vBuffers.size(); ++i)
        {
            root["buffers"].push_back(DescribeContents(m_Launch.vBuffers[i], "buffer" + std::to_string(i)));
        }
        root["args"] = ordered_json::array();
        for (size_t i = 0; i < m_Launch.vArguments.size(); ++i)
        {
            root["args"].push_back(DescribeArgument(m_Launch.vArguments[i], "arg" + std::to_string(i)));
        }
        WriteFileBytes((m_Path.parent_path() / strProgram).string(), m_Launch.strSource);
        WriteFileBytes(m_Path.string(), root.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n");
    }

private:
    ordered_json ListSizes(const size_t (&sizes)[3]) const
    {
        return std::vector<size_t>(sizes, sizes + m_Launch.nDimensions);
    }

    ordered_json DescribeContents(const SArgument& argument, const std::string& strName)
    {
        ordered_json description = {{"type", argument.pType->pszName}};
        if (argument.bUnwritten)
        {
            description["count"] = argument.vContents.size() / argument.pType->nSize;
            description["fill"] = "none";
            return description;
        }
        AddContents(argument, strName, description);
        return description;
    }

    void AddContents(const SArgument& argument, const std::string& strName, ordered_json& description)
    {
        const std::vector<unsigned char>& vBytes = argument.vContents;
        const ordered_json values = IsInLaunchFile(argument) ? ListValues(*argument.pType, vBytes) : ordered_json();
        if (!values.is_null())
        {
            description["values"] = values;
            return;
        }
        const std::string strFile = NameContentsFile(m_Path.stem().string(), strName);
        WriteFileBytes((m_Path.parent_path() / strFile).string(),
                       {reinterpret_cast<const char*>(vBytes.data()), vBytes.size()});
        description["file"] = strFile;
    }

    ordered_json DescribeImage(const SArgument& image, const std::string& strName)
    {
        ordered_json description = {{"order", NameChannelOrder(image.nChannelOrder)},
                                    {"channel", NameChannelType(image.nChannelType)},
                                    {"shape", NameImageShape(image.nImageType)},
                                    {"width", image.nWidth}};
        const std::string strShape = description["shape"];
        if (strShape.compare(0, 2, "1d") != 0)
        {
            description["height"] = image.nHeight;
        }
        if (strShape == "3d")
        {
            description["depth"] = image.nDepth;
        }
        if (strShape.find("array") != std::string::npos)
        {
            description["array"] = image.nArray;
        }
        AddContents(image, strName, description);
        return description;
    }

    ordered_json DescribeValue(const SArgument& value)
    {
        const SElementType* pType = value.pType;
        ordered_json values = ListValues(*pType, value.vContents);
        if (values.is_null())
        {
            // No number in a launch file stands for exactly these bits.
            pType = FindElementType("uchar");
            values = ListValues(*pType, value.vContents);
        }
        return {{"type", pType->pszName}, {"values", values}};
    }

    ordered_json DescribeArgument(const SArgument& argument, const std::string& strName)
    {
        switch (argument.eKind)
        {
        case SArgument::Buffer:
            return {{"buffer", DescribeContents(argument, strName)}};
        case SArgument::Image:
            return {{"image", DescribeImage(argument, strName)}};
        case SArgument::Same:
            return {{"same", argument.nSame}};
        case SArgument::Value:
            return {{"value", DescribeValue(argument)}};
        case SArgument::Local:
            return {{"local", argument.nLocalBytes}};
        case SArgument::Sampler:
            return {{"sampler",
                     {{"normalized", argument.bNormalized},
                      {"addressing", NameAddressing(argument.nAddressing)},
                      {"filter", NameFilter(argument.nFilter)}}}};
        case SArgument::Sub:
        {
            ordered_json sub = {{"of", argument.nSame}};
            if (argument.nOrigin)
            {
                sub["origin"] = *argument.nOrigin;
                sub["size"] = argument.vContents.size();
            }
            return {{"sub", sub}};
        }
        case SArgument::NullImage:
            return {{"null", "image"}};
        case SArgument::NullBuffer:
            break;
        }
        return {{"null", "buffer"}};
    }

    const SLaunchFile& m_Launch;
    std::filesystem::path m_Path;
};

} // namespace

bool IsInLaunchFile(const SArgument& argument)
{
    return argument.vContents.size() <= s_nInline * argument.pType->nSize;
}

std::string NameContentsFile(const std::string& strLaunch, const std::string& strName)
{
    return strLaunch + "." + strName + ".bin";
}

void WriteLaunch(const SLaunchFile& launch, const std::string& strPath, const std::string& strProgram)
{
    CWriter(launch, strPath).Write(strProgram);
}

} // namespace KestrelTool

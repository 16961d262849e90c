#include "tools/session/debug/KernelArguments.h"

#include "tools/session/launch/BinarySections.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace KestrelTool
{

namespace
{

const std::string s_strStart = ";ARGSTART:__OpenCL_";
const std::string s_strEnd = ";ARGEND:";
const std::string s_strSuffix = "_kernel";

std::vector<std::string> SplitFields(const std::string& strLine)
{
    std::vector<std::string> vFields;
    std::istringstream stream(strLine.substr(1));
    for (std::string strField; std::getline(stream, strField, ':');)
    {
        vFields.push_back(strField);
    }
    return vFields;
}

unsigned int ToNumber(const std::vector<std::string>& vFields, size_t nField)
{
    return nField < vFields.size() ? static_cast<unsigned int>(std::strtoul(vFields[nField].c_str(), nullptr, 10)) : 0;
}

std::string ToText(const std::vector<std::string>& vFields, size_t nField)
{
    return nField < vFields.size() ? vFields[nField] : std::string();
}

} // namespace

std::vector<std::string> ReadMetadata(const std::vector<char>& vBinary, const std::string& strKernel)
{
    const std::string strData = FindSection(vBinary, ".rodata");
    const std::string strName = "__OpenCL_" + strKernel + s_strSuffix + "\n";
    const size_t nStart = strData.find(";ARGSTART:" + strName);
    const size_t nEnd = nStart == std::string::npos ? nStart : strData.find(s_strEnd + strName, nStart);
    return nEnd == std::string::npos
               ? std::vector<std::string>()
               : SplitLines(strData.substr(nStart, nEnd - nStart + s_strEnd.size() + strName.size()));
}

std::vector<std::string> ListKernels(const std::vector<char>& vBinary)
{
    const std::string strData = FindSection(vBinary, ".rodata");
    std::vector<std::string> vNames;
    for (size_t n = strData.find(s_strStart); n != std::string::npos; n = strData.find(s_strStart, n + 1))
    {
        const size_t nName = n + s_strStart.size();
        const size_t nEnd = strData.find(s_strSuffix + "\n", nName);
        if (nEnd != std::string::npos)
        {
            vNames.push_back(strData.substr(nName, nEnd - nName));
        }
    }
    return vNames;
}

unsigned int ReadLabel(const std::vector<std::string>& vMetadata)
{
    const std::string strField = ";uniqueid:";
    unsigned int nLabel = 0;
    for (const std::string& strLine : vMetadata)
    {
        if (strLine.compare(0, strField.size(), strField) == 0)
        {
            nLabel = static_cast<unsigned int>(std::strtoul(strLine.c_str() + strField.size(), nullptr, 10));
        }
    }
    return nLabel;
}

unsigned int ReadLocalBytes(const std::vector<std::string>& vMetadata)
{
    unsigned int nBytes = 0;
    for (const std::string& strLine : vMetadata)
    {
        const std::vector<std::string> vFields = strLine.empty() ? std::vector<std::string>() : SplitFields(strLine);
        if (ToText(vFields, 0) == "memory" && ToText(vFields, 1) == "hwlocal")
        {
            nBytes = ToNumber(vFields, 2);
        }
    }
    return nBytes;
}

std::vector<SKernelArgument> ReadArguments(const std::vector<std::string>& vMetadata)
{
    std::vector<SKernelArgument> vArguments;
    for (const std::string& strLine : vMetadata)
    {
        if (strLine.empty())
        {
            continue;
        }
        const std::vector<std::string> vFields = SplitFields(strLine);
        SKernelArgument argument;
        argument.strKind = ToText(vFields, 0);
        argument.strName = ToText(vFields, 1);
        argument.strType = ToText(vFields, 2);
        if (argument.strKind == "pointer")
        {
            argument.nConstant = ToNumber(vFields, 5) / 16;
            argument.strMemory = ToText(vFields, 6);
            argument.nResource = ToNumber(vFields, 7);
            argument.strAccess = ToText(vFields, 9);
        }
        else if (argument.strKind == "value")
        {
            argument.nElements = ToNumber(vFields, 3);
            argument.nConstant = ToNumber(vFields, 5) / 16;
        }
        else if (argument.strKind == "image")
        {
            argument.strAccess = ToText(vFields, 3);
            argument.nResource = ToNumber(vFields, 4);
            argument.nConstant = ToNumber(vFields, 6) / 16;
        }
        else if (argument.strKind == "sampler" && ToNumber(vFields, 3) == 0)
        {
            // A sampler that the host sets; the kernel's own aren't arguments.
            argument.strType = "sampler_t";
            argument.nResource = ToNumber(vFields, 2);
        }
        else
        {
            continue;
        }
        vArguments.push_back(argument);
    }
    return vArguments;
}

} // namespace KestrelTool

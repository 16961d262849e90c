#include "tools/session/launch/Describe.h"

#include "tools/session/debug/CodeMap.h"
#include "tools/session/debug/KernelArguments.h"
#include "tools/session/launch/BinarySections.h"
#include "tools/source/SourcePlaces.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace KestrelTool
{

namespace
{

const size_t s_nPlaceColumnOfIL = 56;

/// A kernel's text: the IL for debugging, or else what it was compiled from.
std::vector<std::string> FindText(const std::vector<char>& vBinary)
{
    const std::vector<std::string> vLines = ReadKernelText(vBinary);
    return !vLines.empty() ? vLines : SplitLines(FindSection(vBinary, ".ovkil"));
}

void DescribeArguments(const std::vector<SKernelArgument>& vArguments, std::ostream& output)
{
    for (size_t i = 0; i < vArguments.size(); ++i)
    {
        const SKernelArgument& argument = vArguments[i];
        output << "  argument " << i << "  " << argument.strKind << "  " << argument.strName << "  "
               << argument.strType;
        if (argument.strKind == "pointer")
        {
            output << "  " << argument.strMemory << " " << argument.nResource << "  " << argument.strAccess;
        }
        else if (argument.strKind == "image")
        {
            output << "  " << argument.strAccess << " " << argument.nResource;
        }
        if (argument.strKind == "sampler")
        {
            output << "  " << argument.nResource << "\n";
            continue;
        }
        output << "  cb1[" << argument.nConstant << "]\n";
    }
}

/// The launch file's name for an element type of the metadata.
std::string NameElement(const std::string& strType)
{
    static const char* const s_Names[][2] = {{"i8", "char"},     {"i16", "short"},    {"u16", "ushort"}, {"i32", "int"},
                                             {"u32", "uint"},    {"i64", "long"},     {"u64", "ulong"},  {"i1", "int"},
                                             {"float", "float"}, {"double", "double"}};
    for (const auto& name : s_Names)
    {
        if (strType == name[0])
        {
            return name[1];
        }
    }
    return "int";
}

std::string MakeArgument(const SKernelArgument& argument)
{
    const std::string strType = NameElement(argument.strType);
    if (argument.strKind == "value")
    {
        return "{\"value\": {\"type\": \"" + strType + "\", \"values\": [1]}}";
    }
    if (argument.strKind == "image")
    {
        return "{\"image\": {\"order\": \"RGBA\", \"channel\": \"float\", \"width\": 8, \"height\": 8, \"fill\": "
               "\"zero\"}}";
    }
    if (argument.strKind == "sampler")
    {
        return "{\"sampler\": {\"normalized\": false, \"addressing\": \"clamp_to_edge\", \"filter\": \"nearest\"}}";
    }
    if (argument.IsGlobal() || argument.strMemory.find('c') != std::string::npos)
    {
        const bool bRead = argument.strAccess == "RO";
        return "{\"buffer\": {\"type\": \"" + strType +
               "\", \"count\": 64, \"fill\": " + (bRead ? "\"iota\"" : "\"zero\"") + "}}";
    }
    return "{\"local\": 1024}";
}

} // namespace

std::string DescribeBinary(const std::vector<char>& vBinary)
{
    const std::vector<SSection> vSections = ReadSections(vBinary);
    if (vSections.empty())
    {
        throw std::runtime_error("this is no kernel binary");
    }
    std::ostringstream output;
    for (const SSection& section : vSections)
    {
        output << "section " << section.strName << std::string(12 - std::min<size_t>(section.strName.size(), 11), ' ')
               << section.strContents.size() << " bytes at " << section.nOffset << "\n";
    }
    for (const std::string& strKernel : ListKernels(vBinary))
    {
        output << "kernel " << strKernel << "\n";
        const std::vector<std::string> vMetadata = ReadMetadata(vBinary, strKernel);
        DescribeArguments(ReadArguments(vMetadata), output);
        for (const std::string& strLine : vMetadata)
        {
            output << "  " << strLine << "\n";
        }
    }
    const CListing listing(FindText(vBinary));
    const bool bDebug = !ReadKernelText(vBinary).empty();
    output << listing.GetLineCount() << " lines of IL" << (bDebug ? ", to be debugged with\n" : "\n");
    const CCodeMap code(listing);
    for (const CCodeMap::SFunction& function : code.GetFunctions())
    {
        output << (function.bMacro ? "macro " : "func ") << function.nLabel << "  " << function.strName << "  lines "
               << function.nHead << " to " << function.nEnd << "\n";
    }
    return output.str();
}

std::string DisassembleBinary(const std::vector<char>& vBinary, bool bNumbers, bool bPlaces)
{
    const std::vector<std::string> vLines = FindText(vBinary);
    if (vLines.empty())
    {
        throw std::runtime_error("this binary holds no IL");
    }
    const CListing listing(vLines, bPlaces ? ReadSourcePlaces(vBinary, vLines.size()) : std::vector<std::string>());
    std::ostringstream output;
    for (size_t i = 0; i < vLines.size(); ++i)
    {
        if (bNumbers)
        {
            const std::string strNumber = std::to_string(i);
            output << std::string(4 - std::min<size_t>(strNumber.size(), 4), ' ') << strNumber << "  ";
        }
        const std::string& strPlace = listing.GetPlace(static_cast<unsigned int>(i));
        output << vLines[i];
        if (!strPlace.empty())
        {
            output << std::string(s_nPlaceColumnOfIL - std::min(s_nPlaceColumnOfIL, vLines[i].size()), ' ') << "  ;"
                   << ShortenPlace(strPlace);
        }
        output << "\n";
    }
    return output.str();
}

std::string MakeLaunchFile(const std::vector<char>& vBinary, const std::string& strProgram,
                           const std::string& strKernel)
{
    const std::vector<std::string> vKernels = ListKernels(vBinary);
    const std::string strChosen = strKernel.empty() && !vKernels.empty() ? vKernels.front() : strKernel;
    if (std::find(vKernels.begin(), vKernels.end(), strChosen) == vKernels.end())
    {
        throw std::runtime_error("the program has no kernel \"" + strChosen + "\"");
    }
    std::ostringstream output;
    output << "{\n"
           << "  // The program, relative to this file.\n"
           << "  \"program\": \"" << strProgram << "\",\n"
           << "  \"kernel\": \"" << strChosen << "\",\n"
           << "  // A device's name, or the beginning of it. Without this field it is the first GPU.\n"
           << "  // \"device\": \"Quench\",\n"
           << "  // Build options; kernels are debugged with -g.\n"
           << "  \"options\": \"-g\",\n"
           << "  // One to three sizes. local and offset may be left out.\n"
           << "  \"global\": [64],\n"
           << "  \"local\": [64],\n"
           << "  // Contents of a buffer or image: \"fill\" is \"zero\", \"iota\", {\"constant\": C} or {\"random\": "
              "SEED};\n"
           << "  // or in its place \"values\": [...], or \"file\": PATH. \"expect\": [...] or {\"file\": PATH} says "
              "what\n"
           << "  // the kernel must leave there, \"save\": PATH writes that to a file. Other arguments are\n"
           << "  // {\"same\": INDEX}, {\"local\": BYTES}, {\"null\": \"buffer\"} and {\"null\": \"image\"}.\n"
           << "  \"args\": [";
    const std::vector<SKernelArgument> vArguments = ReadArguments(ReadMetadata(vBinary, strChosen));
    for (size_t i = 0; i < vArguments.size(); ++i)
    {
        output << (i == 0 ? "\n" : ",\n") << "    // " << i << ": " << vArguments[i].strName << ", "
               << vArguments[i].strKind << " of " << vArguments[i].strType << "\n"
               << "    " << MakeArgument(vArguments[i]);
    }
    output << (vArguments.empty() ? "]\n}\n" : "\n  ]\n}\n");
    return output.str();
}

} // namespace KestrelTool

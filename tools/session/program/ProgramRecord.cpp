#include "tools/session/program/ProgramRecord.h"

#include "tools/session/debug/KernelArguments.h"
#include "tools/session/launch/BinarySections.h"
#include "tools/session/launch/Describe.h"
#include "tools/session/launch/Files.h"
#include "tools/session/program/CapturedArguments.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// How many bits a process has to count its buffers.
constexpr unsigned int s_nProcessBits = 40;

/// Reads a message's fields; a missing field, or one of the wrong type, is a protocol error.
template <typename Read>
decltype(auto) ReadFields(Read read)
{
    try
    {
        return read();
    }
    catch (const json::exception& error)
    {
        throw CProtocolError(std::string("a message lacks what it should have: ") + error.what());
    }
}

bool IsOfKind(const SMessage& message, const char* pszKind)
{
    const auto itKind = message.header.find("what");
    return itKind != message.header.end() && *itKind == pszKind;
}

std::vector<size_t> ReadSizes(const json& sizes)
{
    return sizes.is_null() ? std::vector<size_t>() : sizes.get<std::vector<size_t>>();
}

/// A value's bytes as elements of its type.
std::string FormatValue(const std::vector<unsigned char>& vBytes, const std::string& strType)
{
    const SElementType& type = FindElementOf(strType);
    const size_t nShown = 4;
    std::string strText;
    for (size_t n = 0; (n + 1) * type.nSize <= vBytes.size(); ++n)
    {
        if (n == nShown)
        {
            return strText + ", ...";
        }
        strText += (n != 0 ? ", " : "") + FormatElement(type, &vBytes[n * type.nSize]);
    }
    return strText;
}

std::string SummariseArgument(const json& summary, const std::string& strType)
{
    const std::string strKind = summary.at(0);
    if (strKind == "value")
    {
        return FormatValue(summary.at(1).get<std::vector<unsigned char>>(), strType);
    }
    if (strKind == "memory" || strKind == "local")
    {
        return std::to_string(summary.at(1).get<size_t>()) + " bytes" + (strKind == "local" ? " local" : "");
    }
    return strKind == "unknown" ? "?" : strKind;
}

std::string SummariseArguments(const json& list, const SKnownKernel& kernel)
{
    std::string strText;
    for (size_t i = 0; i < list.size(); ++i)
    {
        const bool bKnown = i < kernel.vParameters.size() && !kernel.vParameters[i].first.empty();
        strText += (i != 0 ? ", " : "") + (bKnown ? kernel.vParameters[i].first : "arg" + std::to_string(i)) + "=" +
                   SummariseArgument(list[i], bKnown ? kernel.vParameters[i].second : std::string());
    }
    return strText;
}

} // namespace

std::string NameSource(const SKnownProgram& program)
{
    const bool bFits = program.strFile.find_first_of("\"\\\n") == std::string::npos;
    const bool bIL = program.strSource.compare(0, 3, "il_") == 0 || program.strSource.compare(0, 9, ";ARGSTART") == 0;
    return (bFits && !bIL ? "#line 1 \"" + program.strFile + "\"\n" : "") + program.strSource;
}

const SElementType& FindElementOf(const std::string& strType)
{
    std::istringstream words(strType.substr(0, strType.find('*')));
    std::string strBase;
    for (std::string strWord; words >> strWord;)
    {
        strBase = strWord;
    }
    strBase.erase(strBase.find_last_not_of("0123456789") + 1);
    const SElementType* const pType = FindElementType(strBase == "half" ? "ushort" : strBase);
    return pType != nullptr ? *pType : *FindElementType("uchar");
}

/// A program passes its text without a file name. If a file with the same text is in the folder where the program was
/// started or in the program's own, the user knows the text by that name.
std::string CProgramRecord::FindFile(const std::string& strSource, unsigned int nNumber) const
{
    for (const std::string& strFolder : m_vFolders)
    {
        std::error_code error;
        std::vector<std::filesystem::path> vFiles;
        for (const auto& entry : std::filesystem::directory_iterator(strFolder, error))
        {
            if (entry.path().extension() == ".cl" && entry.file_size(error) == strSource.size() && !error)
            {
                vFiles.push_back(entry.path());
            }
        }
        std::sort(vFiles.begin(), vFiles.end());
        for (const std::filesystem::path& file : vFiles)
        {
            try
            {
                if (ReadFileBytes(file.string()) == strSource)
                {
                    return file.lexically_normal().string();
                }
            }
            catch (const CFileError&)
            {
                continue; // a file that can't be read isn't a candidate
            }
        }
    }
    return "program" + std::to_string(nNumber) + ".cl";
}

bool CProgramRecord::IsStop(const SMessage& message)
{
    return IsOfKind(message, "stop");
}

void CProgramRecord::Note(int nProcess, const SMessage& message)
{
    if (IsOfKind(message, "program"))
    {
        AddProgram(nProcess, message);
    }
    else if (IsOfKind(message, "kernel"))
    {
        AddKernel(nProcess, message);
    }
    else if (IsOfKind(message, "launch"))
    {
        AddLaunch(nProcess, message);
    }
}

void CProgramRecord::AddProgram(int nProcess, const SMessage& message)
{
    ReadFields(
        [&]
        {
            SKnownProgram program;
            program.nNumber = static_cast<unsigned int>(m_vPrograms.size() + 1);
            program.nProcess = nProcess;
            program.nId = message.header.at("program");
            program.strOptions = message.header.at("options");
            program.strSource.assign(message.vBlob.begin(), message.vBlob.end());
            program.strFile = program.strSource.empty() ? "program" + std::to_string(program.nNumber)
                                                        : FindFile(program.strSource, program.nNumber);
            std::istringstream kernels(message.header.at("kernels").get<std::string>());
            for (std::string strName; std::getline(kernels, strName, ';');)
            {
                program.vKernels.push_back(strName);
            }
            m_vPrograms.push_back(program);
        });
}

void CProgramRecord::AddKernel(int nProcess, const SMessage& message)
{
    ReadFields(
        [&]
        {
            SKnownKernel kernel;
            kernel.strName = message.header.at("name");
            for (const json& argument : message.header.at("arguments"))
            {
                kernel.vParameters.emplace_back(argument.at("name"), argument.at("type"));
            }
            // A rebuilt program is reported again.
            const uint32_t nId = message.header.at("program");
            for (const SKnownProgram& program : m_vPrograms)
            {
                kernel.nProgram =
                    program.nProcess == nProcess && program.nId == nId ? program.nNumber : kernel.nProgram;
            }
            if (kernel.nProgram == 0)
            {
                throw CProtocolError("a kernel belongs to no program");
            }
            m_mapKernels[{nProcess, message.header.at("kernel").get<uint32_t>()}] = kernel;
        });
}

const SKnownKernel& CProgramRecord::FindKernel(int nProcess, const SMessage& message) const
{
    const auto it = m_mapKernels.find({nProcess, message.header.at("kernel").get<uint32_t>()});
    if (it == m_mapKernels.end())
    {
        throw CProtocolError("a launch has no kernel");
    }
    return it->second;
}

const SKnownLaunch& CProgramRecord::AddLaunch(int nProcess, const SMessage& message)
{
    return ReadFields(
        [&]() -> const SKnownLaunch&
        {
            const SKnownKernel& kernel = FindKernel(nProcess, message);
            SKnownLaunch launch;
            launch.nProcess = nProcess;
            launch.nNumber = message.header.at("number");
            launch.nTurn = message.header.at("turn");
            launch.strKernel = kernel.strName;
            launch.nProgram = kernel.nProgram;
            launch.vGlobal = ReadSizes(message.header.at("global"));
            launch.vLocal = ReadSizes(message.header.at("local"));
            launch.nMicroseconds = message.header.at("microseconds");
            launch.strArguments = SummariseArguments(message.header.at("arguments"), kernel);
            m_vLaunches.push_back(launch);
            return m_vLaunches.back();
        });
}

std::vector<std::pair<std::string, uint64_t>> CProgramRecord::CountLaunches() const
{
    std::vector<std::pair<std::string, uint64_t>> vCounts;
    for (const SKnownLaunch& launch : m_vLaunches)
    {
        auto it = std::find_if(vCounts.begin(), vCounts.end(),
                               [&](const auto& count) { return count.first == launch.strKernel; });
        if (it == vCounts.end())
        {
            vCounts.emplace_back(launch.strKernel, 0);
            it = vCounts.end() - 1;
        }
        ++it->second;
    }
    return vCounts;
}

std::string MakeDebuggable(const std::vector<char>& vImage, const std::string& strKernel)
{
    const std::string strText = FindSymbol(vImage, "__OpenCL_" + strKernel + "_ovkil");
    if (strText.empty() || !FindSection(vImage, ".debugil").empty())
    {
        return std::string(vImage.begin(), vImage.end());
    }
    std::string strModule;
    for (const std::string& strLine : ReadMetadata(vImage, strKernel))
    {
        strModule += strLine + "\n";
    }
    // In a module, the main body's call is left open for the selected kernel.
    bool bMain = true;
    for (const std::string& strLine : SplitLines(strText))
    {
        bMain = bMain && strLine != "endmain";
        strModule += (bMain && strLine.compare(0, 5, "call ") == 0 ? ";$$$$$$$$$$" : strLine) + "\n";
    }
    return strModule;
}

SLaunchFile CProgramRecord::MakeLaunch(int nProcess, const SMessage& message) const
{
    return ReadFields(
        [&]
        {
            const SKnownKernel& kernel = FindKernel(nProcess, message);
            const SKnownProgram& program = m_vPrograms[kernel.nProgram - 1];
            SLaunchFile launch;
            launch.strPath = "launch " + std::to_string(message.header.at("number").get<uint64_t>());
            launch.strKernel = kernel.strName;
            launch.strDevice = message.header.at("device");
            launch.strSource = program.strSource;
            launch.strOptions = program.strOptions + (program.strOptions.empty() ? "-g" : " -g");
            if (program.strSource.empty())
            {
                const std::vector<unsigned char> vImage = TakePart(message, message.header.at("binary"));
                launch.strSource = MakeDebuggable(std::vector<char>(vImage.begin(), vImage.end()), kernel.strName);
                launch.strOptions = "-g";
            }
            const std::vector<size_t> vGlobal = ReadSizes(message.header.at("global"));
            const std::vector<size_t> vLocal = ReadSizes(message.header.at("local"));
            const std::vector<size_t> vOffset = ReadSizes(message.header.at("offset"));
            const auto isSize = [&](const std::vector<size_t>& vSizes)
            { return vSizes.empty() || vSizes.size() == vGlobal.size(); };
            if (vGlobal.empty() || vGlobal.size() > 3 || !isSize(vLocal) || !isSize(vOffset))
            {
                throw CProtocolError("a launch has no sizes");
            }
            launch.nDimensions = static_cast<unsigned int>(vGlobal.size());
            launch.bHasLocalSize = !vLocal.empty();
            launch.bHasOffset = !vOffset.empty();
            std::copy(vGlobal.begin(), vGlobal.end(), launch.nGlobalSize);
            std::copy(vLocal.begin(), vLocal.end(), launch.nLocalSize);
            std::copy(vOffset.begin(), vOffset.end(), launch.nGlobalOffset);
            TakeArguments(message, launch);
            for (SArgument& argument : launch.vArguments)
            {
                // Each process counts its own buffers.
                argument.nObject |= argument.nObject != 0 ? static_cast<uint64_t>(nProcess) << s_nProcessBits : 0;
            }
            return launch;
        });
}

} // namespace KestrelTool

#ifndef KESTREL_TESTS_OPENCL_C_DWARF_DEBUGREADERS_H
#define KESTREL_TESTS_OPENCL_C_DWARF_DEBUGREADERS_H

#include <array>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <regex>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace KestrelTests
{

/// The output of a program for a file, on both streams.
inline std::string Ask(const std::string& strCommand)
{
    std::string strOutput;
    std::array<char, 4096> vBuffer;
    FILE* pPipe = popen((strCommand + " 2>&1").c_str(), "r");
    for (size_t n = 1; pPipe && n > 0;)
    {
        n = fread(vBuffer.data(), 1, vBuffer.size(), pPipe);
        strOutput.append(vBuffer.data(), n);
    }
    const int nResult = pPipe ? pclose(pPipe) : -1;
    return strOutput + (nResult == 0 ? "" : "\nended with " + std::to_string(nResult));
}

inline std::string WriteFile(const std::vector<char>& vImage)
{
    static std::atomic<unsigned int> s_nFiles{0}; // threads have their own
    std::string strPath =
        testing::TempDir() + "dwarf_" + std::to_string(getpid()) + "_" + std::to_string(s_nFiles++) + ".bin";
    std::ofstream(strPath, std::ios::binary).write(vImage.data(), static_cast<std::streamsize>(vImage.size()));
    return strPath;
}

/// The complaints of the system's readers of debug data about a kernel binary; "" if there are none.
inline std::string Complaints(const std::vector<char>& vImage)
{
    const std::string strPath = WriteFile(vImage);
    std::string strComplaints;
    const std::string strVerdict = Ask("llvm-dwarfdump-15 --verify " + strPath);
    if (strVerdict.find("No errors.") == std::string::npos ||
        std::regex_search(strVerdict, std::regex("warning|error:")))
    {
        strComplaints += strVerdict;
    }
    const std::string strDump = Ask("readelf --debug-dump " + strPath);
    for (const char* pszWord : {"arning", "corrupt", "ended with"})
    {
        const size_t nPlace = strDump.find(pszWord);
        strComplaints += nPlace == std::string::npos ? "" : strDump.substr(nPlace, 200);
    }
    strComplaints += strDump.find("debug_line") == std::string::npos ? "no lines" : "";
    std::remove(strPath.c_str());
    return strComplaints;
}

} // namespace KestrelTests

#endif

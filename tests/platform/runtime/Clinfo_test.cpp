#include "Runtime.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <sstream>

/// The usual program for listing devices, behind the system's own loader. It makes all queries, calls functions with
/// null platforms, and compiles a kernel on each device.
///
/// A program without the address or thread sanitizer can't open a library with it.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace
{

/// The output of the program on both streams, and its exit code.
struct SOutput
{
    explicit SOutput(const std::string& strCommand)
    {
        std::FILE* const pPipe = popen((strCommand + " 2>&1").c_str(), "r");
        if (!pPipe)
        {
            return;
        }
        for (char buffer[4096]; std::fgets(buffer, sizeof(buffer), pPipe);)
        {
            m_vLines.push_back(buffer);
        }
        m_nCode = pclose(pPipe);
    }

    /// The values of the lines with this name, in order.
    std::vector<std::string> Values(const std::string& strName) const
    {
        std::vector<std::string> vValues;
        for (const std::string& strLine : m_vLines)
        {
            const size_t nName = strLine.find_first_not_of(' ');
            if (nName == std::string::npos || strLine.compare(nName, strName.size(), strName) != 0)
            {
                continue;
            }
            const size_t nValue = strLine.find_first_not_of(' ', nName + strName.size());
            const std::string strValue = strLine.substr(nValue, strLine.find_last_not_of(" \n") + 1 - nValue);
            // A name may begin with another one; the shorter name is followed by blanks.
            if (nValue >= nName + strName.size() + 2 || strName.back() == ')')
            {
                vValues.push_back(strValue);
            }
        }
        return vValues;
    }

    std::vector<std::string> m_vLines;
    int m_nCode = -1;
};

/// Whether a line is a complaint: the program writes failures in angle brackets, and names what is missing.
bool Complains(const std::string& strLine)
{
    std::string strLower = strLine;
    std::transform(strLower.begin(), strLower.end(), strLower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const char* pszSign : {"<", "error", "not available", "unavailable", "invalid", "failed", "warning",
                                "build_log", "unknown", "bad ", "null platform name"})
    {
        if (strLower.find(pszSign) != std::string::npos)
        {
            return strLower.find("error correction support") == std::string::npos;
        }
    }
    return false;
}

TEST(Clinfo, ListsThePlatformWithoutComplaint)
{
    ASSERT_EQ(std::system("command -v clinfo >/dev/null"), 0) << "clinfo is missing; scripts/setup installs it";
    const std::string strFolder = RuntimePath().substr(0, RuntimePath().rfind('/')) + "/icd";
    const SOutput output("OCL_ICD_VENDORS='" + strFolder + "' clinfo");
    EXPECT_EQ(output.m_nCode, 0);
    EXPECT_GT(output.m_vLines.size(), 250u);
    for (const std::string& strLine : output.m_vLines)
    {
        EXPECT_FALSE(Complains(strLine)) << strLine;
    }

    using Values = std::vector<std::string>;
    struct SCase
    {
        const char* pszName;
        Values m_vExpected; ///< by device
    };
    const SCase cases[] = {
        {"Number of platforms", {"1"}},
        {"Number of devices", {"3"}},
        {"Platform Vendor", {"Oberon Vector Kinetics, Inc."}},
        {"Platform Extensions function suffix", {"OVK"}},
        {"Device Type", {"GPU", "GPU", "CPU"}},
        {"Device Version", Values(3, "OpenCL 1.2 (1800.0)")},
        {"Device Available", Values(3, "Yes")},
        {"Compiler Available", Values(3, "Yes")},
        {"Address bits", {"64, Little-Endian", "32, Little-Endian", "64, Little-Endian"}},
        {"Preferred work group size multiple (kernel)", Values(3, "64")},
        {"Max number of sub-devices", Values(3, "0")},
        {"Max work item sizes", Values(3, "256x256x256")},
        {"Image support", Values(3, "Yes")},
        {"Max 2D image size", Values(3, "16384x16384 pixels")},
        {"Global memory size", {"8589934592 (8GiB)", "2147483648 (2GiB)", "8589934592 (8GiB)"}},
        {"Local memory size", Values(3, "32768 (32KiB)")},
        {"Run native kernels", {"No", "No", "Yes"}},
        {"Profiling timer resolution", Values(3, "1ns")},
        {"clGetDeviceIDs(NULL, CL_DEVICE_TYPE_ALL, ...)", {"Success [OVK]"}},
        {"clCreateContext(NULL, ...) [default]", {"Success [OVK]"}},
        {"clCreateContextFromType(NULL, CL_DEVICE_TYPE_GPU)", {"Success (2)"}},
        {"clCreateContextFromType(NULL, CL_DEVICE_TYPE_ACCELERATOR)", {"No devices found in platform"}},
        {"clCreateContextFromType(NULL, CL_DEVICE_TYPE_ALL)", {"Success (3)"}},
    };
    for (const SCase& test : cases)
    {
        EXPECT_EQ(output.Values(test.pszName), test.m_vExpected) << test.pszName;
    }
    const Values vNames = output.Values("Device Name");
    ASSERT_GE(vNames.size(), 3u);
    EXPECT_EQ(Values(vNames.begin(), vNames.begin() + 3), (Values{"Quench", "Kiln", "Host"}));
}

} // namespace

#endif

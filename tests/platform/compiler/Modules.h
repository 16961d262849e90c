#ifndef KESTREL_TESTS_PLATFORM_COMPILER_MODULES_H
#define KESTREL_TESTS_PLATFORM_COMPILER_MODULES_H

#include "platform/compiler/ProgramBuilder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>

/// The two devices, and modules that are built for them.
namespace Modules
{

inline KestrelPlatform::SDeviceTarget Newer()
{
    KestrelPlatform::SDeviceTarget target;
    target.strName = "Quench";
    return target;
}

inline KestrelPlatform::SDeviceTarget Older()
{
    KestrelPlatform::SDeviceTarget target;
    target.strName = "Kiln";
    target.b64BitAddresses = false;
    target.bRawUavOnly = true;
    return target;
}

inline std::string Metadata(const std::string& strName, const std::string& strId, const std::string& strLines = "")
{
    return ";ARGSTART:__OpenCL_" + strName + "_kernel\n;version:3:1:104\n;device:quench\n;uniqueid:" + strId + "\n" +
           strLines + ";function:1:1030\n;ARGEND:__OpenCL_" + strName + "_kernel\n";
}

inline const char* TwoKernelText()
{
    return "il_cs_2_0\n"
           ";$$$$$$$$$$\n"
           "endmain\n"
           "func 1024 ; first\n"
           "\n"
           "  dcl_max_thread_per_group 64\n"
           "mov r0, r1\n"
           "ret\nendfunc\n"
           "func 1025\n"
           "dcl_num_thread_per_group 8, 4, 1\n"
           "call 7\n"
           "ret\nendfunc\n"
           "func 7\n"
           "ret\nendfunc\n"
           "end\n";
}

inline std::string TwoKernels()
{
    return Metadata("first", "1024", ";memory:64bitABI\n;memory:hwlocal:256\n;memory:uavprivate:32\n") + "\n" +
           Metadata(
               "second", "1025",
               ";value:n:i32:3:1:0\n;pointer:p:float:1:1:16:uav:12:4:RO:1:0\n;pointer:tmp:i32:1:1:32:hl:1:4:RW:0:0\n"
               ";image:img:2D:WO:3:1:48\n;sampler:s:2:1:21\n;sampler:t:4:0:0\n") +
           TwoKernelText();
}

/// A file with these bytes, which the destructor removes.
class CTemporaryFile
{
public:
    explicit CTemporaryFile(const std::vector<char>& vBytes)
    {
        m_strName = testing::TempDir() + "kestrel-compiler-XXXXXX";
        const int nFile = mkstemp(&m_strName[0]);
        const ssize_t nWritten = write(nFile, vBytes.data(), vBytes.size());
        close(nFile);
        m_bGood = nWritten == static_cast<ssize_t>(vBytes.size());
    }
    ~CTemporaryFile() { unlink(m_strName.c_str()); }

    const std::string& Name() const { return m_strName; }
    bool Good() const { return m_bGood; }

private:
    std::string m_strName;
    bool m_bGood = false;
};

/// The warnings and errors of "readelf -aW" about an image; empty if there are none.
inline std::string ReadElfComplaints(const std::vector<char>& vImage)
{
    const CTemporaryFile file(vImage);
    FILE* pPipe = popen(("readelf -aW " + file.Name() + " 2>&1").c_str(), "r");
    std::string strAll;
    char buffer[4096];
    while (pPipe != nullptr && fgets(buffer, sizeof(buffer), pPipe) != nullptr)
    {
        const std::string strLine = buffer;
        if (strLine.find("arning") != std::string::npos || strLine.find("rror") != std::string::npos)
        {
            strAll += strLine;
        }
    }
    const int nResult = pPipe == nullptr ? -1 : pclose(pPipe);
    return nResult == 0 ? strAll : "readelf failed: " + strAll;
}

} // namespace Modules

#endif

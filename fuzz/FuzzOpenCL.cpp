#include "fuzz/OpenCLRoad.h"
#include "fuzz/Targets.h"

namespace KestrelFuzz
{

using namespace KestrelPlatform;

/// The first byte chooses the device and debug data, the rest is the source.
void FuzzOpenCL(const uint8_t* pData, size_t nSize)
{
    if (nSize == 0)
    {
        return;
    }
    SCompileJob job = MakeOpenCLJob((pData[0] & 1) != 0, (pData[0] & 2) != 0);
    job.strSource.assign(reinterpret_cast<const char*>(pData) + 1, nSize - 1);
    if (job.strSource.find('\0') == std::string::npos)
    {
        SModule module;
        std::string strLog;
        const bool bOk = OpenCLCompiler().Build(job, module, strLog);
        CheckCompiled(bOk, module, strLog);
    }
}

} // namespace KestrelFuzz

#include "fuzz/LlvmMaker.h"
#include "fuzz/OpenCLRoad.h"
#include "fuzz/Targets.h"

namespace KestrelFuzz
{

using namespace KestrelPlatform;

/// The first byte chooses the device, debug data and passes. The rest makes a program, which is compiled like an
/// object.
void FuzzLlvm(const uint8_t* pData, size_t nSize)
{
    if (nSize == 0)
    {
        return;
    }
    SCompileJob job = MakeOpenCLJob((pData[0] & 1) != 0, (pData[0] & 2) != 0);
    job.options.bOptDisable = (pData[0] & 4) != 0;
    const std::string strObject = MakeLlvmObject(pData + 1, nSize - 1, job.target.b64BitAddresses);
    SModule module;
    std::string strLog;
    const bool bOk = OpenCLCompiler().LinkProgram(job, {strObject}, module, strLog);
    Require(strLog.find("error: an object is damaged") == std::string::npos, "what is made is taken", strLog);
    Require(strLog.find("error: the compiler ") == std::string::npos, "no program ends the compiler", strLog);
    CheckCompiled(bOk, module, strLog);
}

} // namespace KestrelFuzz

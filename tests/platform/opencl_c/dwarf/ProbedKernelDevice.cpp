#include "tests/platform/opencl_c/dwarf/ProbedKernel.h"

#include "platform/compiler/ProgramImage.h"
#include "platform/opencl_c/driver/IrCompiler.h"
#include "platform/opencl_c/dwarf/DebugSections.h"
#include "platform/opencl_c/lowering/Lowered.h"
#include "tests/platform/opencl_c/dwarf/DebugReaders.h"
#include "tests/platform/opencl_c/dwarf/TracedRun.h"
#include "tests/support/OpenCLProgram.h"

#include "llvm/IR/LLVMContext.h"
#include "llvm/IR/Module.h"

namespace KestrelTests
{

namespace
{

using KestrelTest::COpenCLDevice;
using KestrelTest::COpenCLProgram;

/// A kernel binary from the compiler itself.
std::vector<char> Compile(const std::string& strSource, const KestrelPlatform::SDeviceTarget& target)
{
    KestrelOpenCL::SCompileJob job;
    job.strSource = strSource;
    job.bDebug = job.options.bDebug = true;
    job.target = target;
    llvm::LLVMContext context;
    std::string strLog;
    KestrelOpenCL::SLowered lowered;
    const std::unique_ptr<llvm::Module> pModule = KestrelOpenCL::CompileToIR(context, job, strLog);
    if (!pModule || !KestrelOpenCL::PrepareForLowering(*pModule, job, strLog) ||
        !KestrelOpenCL::LowerModule(*pModule, target, true, lowered, strLog))
    {
        throw std::runtime_error(strLog);
    }
    lowered.module.vDebugSections = KestrelOpenCL::WriteDwarf(*pModule, lowered, false);
    return KestrelPlatform::CProgramImage(std::move(lowered.module), target, true).GetBytes();
}

} // namespace

CVisits RunOnDevice(const SProbedKernel& kernel, const std::string& strDevice, size_t nItems,
                    std::vector<int32_t>& vData, int nScale, const CVisits& expected)
{
    COpenCLDevice device(strDevice);
    KestrelPlatform::SDeviceTarget target;
    target.strName = strDevice;
    target.b64BitAddresses = strDevice != "Kiln";
    target.bRawUavOnly = strDevice == "Kiln";
    const std::vector<char> vBinary = Compile(std::string("#define P(name)\n#line 1\n") + kernel.pszSource, target);
    EXPECT_EQ(Complaints(vBinary), "");
    COpenCLProgram program(device, vBinary);
    // The pointer's slot, then the int's.
    CTracedRun run(vBinary, expected, {0, 0, 0, 0, static_cast<uint32_t>(nScale), 0, 0, 0});
    const auto buffer = device.Buffer(vData);
    Control().SetTrace(CTracedRun::OnRecord, &run);
    program.Run("run", {{nItems}, {}, {}}, buffer, static_cast<cl_int>(nScale));
    Control().SetTrace(nullptr, nullptr);
    vData = device.Read<int32_t>(buffer);
    return run.GetVisits();
}

} // namespace KestrelTests

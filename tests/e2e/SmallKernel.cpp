#include "tests/e2e/SmallKernel.h"

namespace KestrelTest
{

KestrelTool::SLaunchFile MakeSmallKernel(const std::string& strBody, const std::string& strDeclarations,
                                         const std::string& strFunctions)
{
    KestrelTool::SLaunchFile launch;
    launch.strPath = "small kernel";
    launch.strKernel = "small";
    launch.strDevice = "Quench";
    launch.strOptions = "-g";
    launch.nGlobalSize[0] = 8;
    launch.bHasLocalSize = true;
    launch.nLocalSize[0] = 4;
    launch.strSource = R"(;ARGSTART:__OpenCL_small_kernel
;version:3:1:104
;device:quench
;uniqueid:1024
;memory:64bitABI
;pointer:out:i32:1:1:0:uav:10:4:RW:0:0
;function:1:1030
;ARGEND:__OpenCL_small_kernel
il_cs_2_0
dcl_cb cb0[10]
dcl_cb cb1[1]
dcl_literal l0, 2, 1, 0, -1
)" + strDeclarations + R"(;$$$$$$$$$$
endmain
func 1024
;__OpenCL_small_kernel
dcl_max_thread_per_group 256
dcl_typeless_uav_id(10)_stride(4)_length(4)
imad r0.x, vThreadGrpId.x, cb0[1].x, vTidInGrp.x
ishl r1.x, r0.x, l0.x
i64add r2.xy, cb1[0].xy, r1.x000
)" + strBody + "ret\nendfunc\n" +
                       strFunctions + "end\n";
    KestrelTool::SArgument output;
    output.eKind = KestrelTool::SArgument::Buffer;
    output.pType = KestrelTool::FindElementType("int");
    output.vContents.assign(8 * 4, 0);
    launch.vArguments.push_back(output);
    return launch;
}

} // namespace KestrelTest

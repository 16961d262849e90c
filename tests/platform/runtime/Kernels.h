#ifndef KESTREL_TESTS_PLATFORM_RUNTIME_KERNELS_H
#define KESTREL_TESTS_PLATFORM_RUNTIME_KERNELS_H

#include <string>

/// IL modules for the runtime's tests. docs/il-text.md describes the text form, docs/kernel-binary.md the metadata.

/// A module with one kernel for one device. Arguments are metadata lines; the body is the kernel's function, which
/// starts with the one-dimensional global id in r0.x.
inline std::string MakeModule(bool bNewer, const std::string& strName, const std::string& strArguments,
                              const std::string& strDeclarations, const std::string& strBody)
{
    const std::string strMark = "__OpenCL_" + strName + "_kernel\n";
    return ";ARGSTART:" + strMark + ";version:3:1:104\n;device:" + (bNewer ? "quench" : "kiln") + "\n;uniqueid:1024\n" +
           (bNewer ? ";memory:64bitABI\n" : "") + ";memory:uavprivate:0\n;memory:hwlocal:0\n" + strArguments +
           ";function:1:1030\n;uavid:11\n;ARGEND:" + strMark + "il_cs_2_0\n;$$$$$$$$$$\nendmain\nfunc 1024\n;" +
           strMark + "dcl_max_thread_per_group 256\ndcl_cb cb0[10]\ndcl_cb cb1[8]\n" + strDeclarations +
           "dcl_literal l10, 2, 2, 2, 2\ndcl_literal l11, 1, 1, 1, 1\ncall 1030\nret\nendfunc\n;" + strMark +
           "func 1030\n;" + strName + "\nimad r0.x, vThreadGrpId.x, cb0[1].x, vTidInGrp.x\n" +
           "iadd r0.x, r0.x, cb0[6].x\n" + strBody + "ret\nendfunc\n;" + strName + "\nend\n";
}

/// out[i] = a[i] * scale; on the older device, both pointers use its only raw UAV.
inline std::string ScaleModule(bool bNewer)
{
    const std::string strUav = bNewer ? "12" : "11";
    const std::string strArguments = ";pointer:a:float:1:1:0:uav:" + strUav + ":4:RO:0:0\n;value:scale:float:1:1:16\n" +
                                     ";pointer:out:float:1:1:32:uav:" + (bNewer ? "13" : "11") + ":4:RW:0:0\n";
    if (bNewer)
    {
        return MakeModule(true, "scale", strArguments,
                          "dcl_typeless_uav_id(12)_stride(4)_length(4)\ndcl_typeless_uav_id(13)_stride(4)_length(4)\n",
                          "ishl r0.x, r0.x, l10.x\ni64add r1.xy, cb1[0].xyxy, r0.x000\n"
                          "uav_raw_load_id(12)_addr64 r2.x, r1.xyxy\nmul r2.x, r2.x, cb1[1].x\n"
                          "i64add r1.xy, cb1[2].xyxy, r0.x000\nuav_raw_store_id(13)_addr64 mem0.x, r1.xyxy, r2.x\n");
    }
    return MakeModule(false, "scale", strArguments, "dcl_raw_uav_id(11)\n",
                      "ishl r0.x, r0.x, l10.x\niadd r1.x, cb1[0].x, r0.x\n"
                      "uav_raw_load_id(11) r2.x, r1.x\nmul r2.x, r2.x, cb1[1].x\n"
                      "iadd r1.x, cb1[2].x, r0.x\nuav_raw_store_id(11) mem0.x, r1.x, r2.x\n");
}

/// A kernel that never ends.
inline std::string EndlessModule()
{
    return MakeModule(true, "endless", "", "", "whileloop\niadd r1.x, r1.x, l11.x\nendloop\n");
}

/// Stores nCount elements of constant buffer 1 to the buffer whose address is in one of them. Uses r1, r2 and literals
/// from 20.
inline std::string DumpElements(int nCount, int nBufferElement)
{
    std::string strBody;
    for (int i = 0; i < nCount; ++i)
    {
        strBody += "dcl_literal l" + std::to_string(20 + i) + ", " + std::to_string(16 * i) + ", 0, 0, 0\n" +
                   "i64add r1.xy, cb1[" + std::to_string(nBufferElement) + "].xyxy, l" + std::to_string(20 + i) +
                   ".x000\n" + "mov r2, cb1[" + std::to_string(i) +
                   "]\nuav_raw_store_id(12)_addr64 mem0, r1.xyxy, r2\n";
    }
    return strBody;
}

/// Stores all of constant buffer 1 to its first argument. The test chooses the other arguments.
inline std::string DumpModule(const std::string& strMoreArguments)
{
    return MakeModule(true, "dump", ";pointer:out:u32:1:1:0:uav:12:4:RW:0:0\n" + strMoreArguments,
                      "dcl_typeless_uav_id(12)_stride(4)_length(4)\n", DumpElements(8, 0));
}

/// dst[x] = src at x + 2.5, with the sampler argument; and the images' elements of constant buffer 1 in out.
inline std::string PictureModule()
{
    return MakeModule(true, "picture",
                      ";image:src:2D:RO:0:1:0\n;image:dst:2D:WO:1:1:32\n;pointer:out:u32:1:1:64:uav:12:4:RW:0:0\n"
                      ";sampler:s:2:0:0\n",
                      "dcl_typeless_uav_id(12)_stride(4)_length(4)\ndcl_resource_id(0)_type(2d) 0x0\n"
                      "dcl_typed_uav_id(1)_access(wo) 0x2\ndcl_literal l12, 2.5, 0.5, 0, 0\n",
                      "itof r3.x, r0.x\nadd r3.x, r3.x, l12.x\nmov r3.y, l12.y\n"
                      "sample_resource(0)_sampler(2) r4, r3.xy00\nuav_store_id(1) r0.x000, r4\n" +
                          DumpElements(4, 4));
}

#endif

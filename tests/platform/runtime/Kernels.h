#ifndef KESTREL_TESTS_PLATFORM_RUNTIME_KERNELS_H
#define KESTREL_TESTS_PLATFORM_RUNTIME_KERNELS_H

#include <string>

/// IL modules for the runtime's tests. The text form is described in docs/il-text.md, the metadata
/// in docs/kernel-binary.md.

/// A module of one kernel for one device: arguments are metadata lines, the body is the kernel's
/// function, r0.x the one-dimensional global id when it starts.
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

/// out[i] = a[i] * scale; the buffer number of both pointers is the older device's one raw UAV there.
inline std::string ScaleModule(bool bNewer)
{
    const std::string strUav = bNewer ? "12" : "11";
    const std::string strArguments = ";pointer:a:float:1:1:0:uav:" + strUav + ":4:RO:0:0\n;value:scale:float:1:1:16\n" +
                                     ";pointer:out:float:1:1:32:uav:" + (bNewer ? "13" : "11") + ":4:RW:0:0\n";
    if (bNewer)
        return MakeModule(true, "scale", strArguments,
                          "dcl_typeless_uav_id(12)_stride(4)_length(4)\ndcl_typeless_uav_id(13)_stride(4)_length(4)\n",
                          "ishl r0.x, r0.x, l10.x\ni64add r1.xy, cb1[0].xyxy, r0.x000\n"
                          "uav_raw_load_id(12)_addr64 r2.x, r1.xyxy\nmul r2.x, r2.x, cb1[1].x\n"
                          "i64add r1.xy, cb1[2].xyxy, r0.x000\nuav_raw_store_id(13)_addr64 mem0.x, r1.xyxy, r2.x\n");
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

/// Copies the first 16 bytes of constant buffer 1's elements to a buffer: element i of the buffer
/// is element i of the constant buffer. The arguments behind the buffer are the test's.
inline std::string DumpModule(const std::string& strMoreArguments)
{
    std::string strBody;
    for (int i = 0; i < 8; ++i)
        strBody += "dcl_literal l" + std::to_string(20 + i) + ", " + std::to_string(16 * i) + ", 0, 0, 0\n" +
                   "i64add r1.xy, cb1[0].xyxy, l" + std::to_string(20 + i) + ".x000\n" + "mov r2, cb1[" +
                   std::to_string(i) + "]\nuav_raw_store_id(12)_addr64 mem0, r1.xyxy, r2\n";
    return MakeModule(true, "dump", ";pointer:out:u32:1:1:0:uav:12:4:RW:0:0\n" + strMoreArguments,
                      "dcl_typeless_uav_id(12)_stride(4)_length(4)\n", strBody);
}

#endif

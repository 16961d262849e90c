#ifndef KESTREL_TESTS_ENGINE_COURSEKERNEL_H
#define KESTREL_TESTS_ENGINE_COURSEKERNEL_H

#include "engine/KernelCourse.h"
#include "instrument/TestKernel.h"

#include <string>

namespace OVK_ShaderDebugger
{

/// An analysed kernel without a session: a function's body, and the functions that it calls.
class CCourseKernel : public CTestKernel
{
public:
    explicit CCourseKernel(const std::string& strBody, const std::string& strFunctions = "")
        : CTestKernel("il_cs_2_0\ndcl_cb cb0[10]\ncall 1024\nendmain\nfunc 1024\n;__OpenCL_k_kernel\n"
                      "dcl_max_thread_per_group 64\ndcl_cb cb1[2]\ndcl_typeless_uav_id(10)_stride(4)_length(4)\n"
                      "dcl_literal l20, 0, 0, 0, 0\ndcl_literal l21, 1, 1, 1, 1\n" +
                      strBody + "ret\nendfunc\n" + strFunctions + "end\n"),
          m_Course(Shader())
    {
        EXPECT_TRUE(IsAnalyzed());
    }

    const CKernelCourse& Course() const { return m_Course; }

    /// A position in the main function or, given the texts of calls, outermost first, in the callee.
    SPosition Place(const std::string& strLine, const std::vector<std::string>& vCalls = {}) const
    {
        SPosition position = {At(Find(strLine)), {}};
        position.callStack.push_front(ProgramCounter(Find("call 1024")));
        for (const std::string& strCall : vCalls)
        {
            position.callStack.push_front(At(Find(strCall)));
        }
        return position;
    }

private:
    CKernelCourse m_Course;
};

} // namespace OVK_ShaderDebugger

#endif

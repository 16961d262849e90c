#include "Kernels.h"
#include "Runtime.h"

#include <algorithm>

/// How many work-items reach each instruction of a kernel run.
namespace
{

class CVisitsTest : public CRuntimeTest
{
protected:
    /// Runs a kernel over 64 work-items, of which the odd ones enter an if, and gives the counts.
    std::vector<uint64_t> Run()
    {
        const std::string strSource =
            MakeModule(true, "odd", "", "", "iand r1.x, r0.x, l11.x\nif_logicalnz r1.x\nmov r2.x, r1.x\nendif\n");
        const char* pszSource = strSource.c_str();
        cl_program program = cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
        EXPECT_EQ(cl.clBuildProgram(program, 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
        cl_kernel kernel = cl.clCreateKernel(program, "odd", nullptr);
        const size_t nGlobal = 64;
        EXPECT_EQ(cl.clEnqueueNDRangeKernel(m_queue, kernel, 1, nullptr, &nGlobal, nullptr, 0, nullptr, nullptr),
                  CL_SUCCESS);
        EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS);
        cl.clReleaseKernel(kernel);
        cl.clReleaseProgram(program);
        std::vector<uint64_t> vCounts(Control().GetVisits(nullptr, 0));
        EXPECT_EQ(Control().GetVisits(vCounts.data(), static_cast<uint32_t>(vCounts.size())), vCounts.size());
        return vCounts;
    }
};

TEST_F(CVisitsTest, AreCountedWhenAskedFor)
{
    EXPECT_TRUE(Run().empty());
    Control().CountVisits(1);
    const std::vector<uint64_t> vCounts = Run();
    const std::vector<uint64_t> wanted = {32, 32, 64}; // the if, what is in it, its end
    EXPECT_NE(std::search(vCounts.begin(), vCounts.end(), wanted.begin(), wanted.end()), vCounts.end())
        << testing::PrintToString(vCounts);
    EXPECT_EQ(Run(), vCounts) << "of the last run alone";
    Control().CountVisits(0);
    EXPECT_TRUE(Run().empty());
}

} // namespace

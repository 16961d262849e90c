#ifndef KESTREL_TESTS_PLATFORM_OPENCL_C_KERNELS_EXAMPLEKERNELS_H
#define KESTREL_TESTS_PLATFORM_OPENCL_C_KERNELS_EXAMPLEKERNELS_H

#include "tests/support/OpenCLProgram.h"

#include <cmath>
#include <random>
#include <tuple>

namespace KestrelTest
{

/// A device's name and build options.
using SetUpOfKernel = std::tuple<const char*, const char*>;

/// Kernels of examples/opencl_c on one device with one set of options, held against code of the host.
class CExampleKernels : public testing::TestWithParam<SetUpOfKernel>
{
protected:
    CExampleKernels() : m_Device(std::get<0>(GetParam())) {}

    /// \param strFile  in examples/opencl_c, without its extension
    COpenCLProgram& Build(const std::string& strFile, const std::string& strMore = "")
    {
        m_pProgram = std::make_unique<COpenCLProgram>(m_Device, ReadProjectFile("examples/opencl_c/" + strFile + ".cl"),
                                                      std::get<1>(GetParam()) + (" " + strMore));
        EXPECT_EQ(m_pProgram->Log(), "");
        return *m_pProgram;
    }

    template <class T>
    std::vector<T> Random(size_t nCount, double fLow, double fHigh)
    {
        std::vector<T> vValues(nCount);
        for (T& value : vValues)
        {
            value = static_cast<T>(fLow + (fHigh - fLow) * (static_cast<double>(m_Random()) / 4294967296.0));
        }
        return vValues;
    }

    template <class T>
    static void ExpectNear(const std::vector<T>& vGot, const std::vector<T>& vWanted, double fRelative,
                           double fAbsolute)
    {
        ASSERT_EQ(vGot.size(), vWanted.size());
        for (size_t i = 0; i < vGot.size(); ++i)
        {
            ASSERT_LE(std::fabs(static_cast<double>(vGot[i]) - static_cast<double>(vWanted[i])),
                      fAbsolute + fRelative * std::fabs(static_cast<double>(vWanted[i])))
                << "element " << i << ": " << vGot[i] << " in place of " << vWanted[i];
        }
    }

    COpenCLDevice m_Device;
    std::unique_ptr<COpenCLProgram> m_pProgram;
    std::mt19937 m_Random{20};
};

inline std::string NameOfSetUp(const testing::TestParamInfo<SetUpOfKernel>& info)
{
    return std::string(std::get<0>(info.param)) + (*std::get<1>(info.param) ? "Debug" : "");
}

/// Every device, with debug data and without.
#define KESTREL_ON_ALL_DEVICES(fixture)                                                                                \
    INSTANTIATE_TEST_SUITE_P(Devices, fixture,                                                                         \
                             testing::Combine(testing::Values("Quench", "Kiln", "Host"), testing::Values("", "-g")),   \
                             NameOfSetUp)

} // namespace KestrelTest

#endif

#ifndef KESTREL_TESTS_PLATFORM_OPENCL_C_LOWERING_EACHWAY_H
#define KESTREL_TESTS_PLATFORM_OPENCL_C_LOWERING_EACHWAY_H

#include "tests/support/OpenCLProgram.h"

namespace KestrelTest
{

typedef unsigned char uchar;
typedef unsigned short ushort;
typedef unsigned int uint;
typedef unsigned long ulong;

/// Calls a function for each combination of device generation and build options.
template <class TFunction>
void EachWay(TFunction function)
{
    for (const char* pszDevice : {"Quench", "Kiln"})
    {
        for (const char* pszOptions : {"", "-g"})
        {
            SCOPED_TRACE(std::string(pszDevice) + " " + pszOptions);
            COpenCLDevice device(pszDevice);
            ASSERT_NO_THROW(function(device, std::string(pszOptions)));
        }
    }
}

} // namespace KestrelTest

#endif

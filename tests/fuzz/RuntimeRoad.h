#ifndef KESTREL_TESTS_FUZZ_RUNTIMEROAD_H
#define KESTREL_TESTS_FUZZ_RUNTIMEROAD_H

#include "tests/platform/runtime/Runtime.h"

#include <string>
#include <vector>

/// A client that gives the runtime a binary: creates a program from it, builds it, and runs a work-group of each of its
/// kernels on one small buffer.
class CRuntimeRoad
{
public:
    explicit CRuntimeRoad(const std::string& strDevice);
    ~CRuntimeRoad();
    CRuntimeRoad(const CRuntimeRoad&) = delete;
    CRuntimeRoad& operator=(const CRuntimeRoad&) = delete;

    /// \return how many kernels ran to their end
    size_t Try(const std::vector<char>& vImage, const char* pszOptions);

private:
    size_t RunKernels(cl_program program);
    bool Run(cl_kernel kernel);
    void SetArguments(cl_kernel kernel);

    SRuntimeEntries& cl = Runtime();
    cl_device_id m_Device = nullptr;
    cl_context m_Context = nullptr;
    cl_command_queue m_Queue = nullptr;
    cl_mem m_Buffer = nullptr;
};

#endif

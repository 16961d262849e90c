#ifndef KESTREL_TESTS_PLATFORM_OPENCL_C_GENERATED_HOSTBUILD_H
#define KESTREL_TESTS_PLATFORM_OPENCL_C_GENERATED_HOSTBUILD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KestrelTest
{

/// The arguments of generated kernels besides the buffers, equal on both sides.
const int32_t g_nArgumentN = 5;
const float g_fArgumentF = 1.5f;
const uint32_t g_nArgumentV[2] = {3, 4000000000u};

/// Definitions that generated kernels need in both languages.
extern const char* const g_pszCommonPrelude;

/// Receives the probes of a host run: work-item, line, name, the variable and its size.
using NoteVariable = void (*)(int, int, const char*, const void*, unsigned long);

/// Generated kernels as host code: compiled as plain C by Debian's clang. Work-groups run one after the other, and
/// their work-items take turns at barriers.
class CHostBuild
{
public:
    /// \param strKernels  texts of MakeKernel
    /// \param strFolder   an existing folder for the source and the library
    /// Throws std::runtime_error with clang's messages.
    CHostBuild(const std::string& strKernels, const std::vector<std::string>& vNames, const std::string& strFolder);
    ~CHostBuild();
    CHostBuild(const CHostBuild&) = delete;
    CHostBuild& operator=(const CHostBuild&) = delete;

    /// Runs a whole dispatch. \param pOut g_nItems * g_nOutputs words \param pSums g_nSums words
    /// \param pNote  called at each probe; required for kernels with probes
    void Run(const std::string& strName, const int32_t* pIn, uint32_t* pOut, uint32_t* pSums,
             NoteVariable pNote = nullptr) const;

private:
    void* m_pLibrary = nullptr;
};

} // namespace KestrelTest

#endif

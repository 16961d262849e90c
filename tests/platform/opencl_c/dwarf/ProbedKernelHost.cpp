#include "tests/platform/opencl_c/dwarf/ProbedKernel.h"

#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>
#include <unistd.h>

namespace KestrelTests
{

namespace
{

const char s_szPrelude[] = R"(typedef unsigned char uchar; typedef unsigned short ushort; typedef unsigned int uint;
typedef unsigned long ulong; typedef unsigned long size_t;
#define V(t) typedef t t##2 __attribute__((ext_vector_type(2))); typedef t t##3 __attribute__((ext_vector_type(3))); typedef t t##4 __attribute__((ext_vector_type(4)));
V(char) V(uchar) V(short) V(ushort) V(int) V(uint) V(long) V(ulong) V(float) V(double)
#define __kernel __attribute__((visibility("default")))
#define __global
#define __constant static const
#define bool _Bool
#define true 1
#define false 0
__attribute__((visibility("default"))) void (*g_note)(int, const char*, const void*, size_t);
__attribute__((visibility("default"))) size_t g_item;
static size_t get_global_id(uint n) { return n == 0 ? g_item : 0; }
#define P(name) g_note(__LINE__, #name, (const void*)&name, sizeof(name));
#line 1
)";

CVisits* s_pVisits = nullptr;
size_t s_nItem = 0;

void Note(int nLine, const char* pszName, const void* pValue, size_t nSize)
{
    std::vector<SnapShot>& vVisits = (*s_pVisits)[{s_nItem, nLine}];
    if (vVisits.empty() || vVisits.back().count(pszName))
    {
        vVisits.emplace_back();
    }
    vVisits.back()[pszName] = std::string(static_cast<const char*>(pValue), nSize);
}

} // namespace

CVisits RunOnHost(const SProbedKernel& kernel, size_t nItems, std::vector<int32_t>& vData, int nScale)
{
    const std::string strBase = testing::TempDir() + "probed_" + std::to_string(getpid()) + "_" + kernel.pszName;
    std::ofstream(strBase + ".c") << s_szPrelude << kernel.pszSource;
    const std::string strCommand =
        "clang-15 -w -O0 -ffp-contract=off -fvisibility=hidden -shared -fPIC -o " + strBase + ".so " + strBase + ".c";
    const int nResult = std::system(strCommand.c_str());
    void* pLibrary = nResult == 0 ? dlopen((strBase + ".so").c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
    std::remove((strBase + ".c").c_str());
    std::remove((strBase + ".so").c_str());
    if (!pLibrary)
    {
        throw std::runtime_error("the host's compiler refuses " + std::string(kernel.pszName));
    }
    CVisits visits;
    s_pVisits = &visits;
    *static_cast<void (**)(int, const char*, const void*, size_t)>(dlsym(pLibrary, "g_note")) = Note;
    const auto run = reinterpret_cast<void (*)(int32_t*, int)>(dlsym(pLibrary, "run"));
    for (s_nItem = 0; s_nItem < nItems; ++s_nItem)
    {
        *static_cast<size_t*>(dlsym(pLibrary, "g_item")) = s_nItem;
        run(vData.data(), nScale);
    }
    dlclose(pLibrary);
    return visits;
}

} // namespace KestrelTests

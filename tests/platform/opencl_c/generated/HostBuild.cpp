#include "tests/platform/opencl_c/generated/HostBuild.h"

#include "tests/platform/opencl_c/generated/KernelMaker.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>

#include <dlfcn.h>

namespace KestrelTest
{

const char* const g_pszCommonPrelude = R"(
int __attribute__((overloadable)) to_int(float x) { return x > -1.0e9f && x < 1.0e9f ? (int)x : 7; }
int __attribute__((overloadable)) to_int(double x) { return x > -1.0e9 && x < 1.0e9 ? (int)x : 7; }
uint __attribute__((overloadable)) bits_of(float x)
{
    union { float f; uint u; } bits;
    bits.f = x;
    return x != x ? 0x7FC00000u : bits.u;
}
uint __attribute__((overloadable)) bits_of(double x)
{
    union { double d; ulong u; } bits;
    bits.d = x;
    return x != x ? 0x7FF80000u : (uint)(bits.u ^ (bits.u >> 32));
}
)";

namespace
{

/// Turns OpenCL C into plain C, with a scheduler that runs the work-items of a group in turn.
const char* const s_pszHostPrelude = R"(
#include <ucontext.h>
typedef unsigned char uchar;
typedef unsigned short ushort;
typedef unsigned int uint;
typedef unsigned long ulong;
#define VECTORS(type)                                      \
    typedef type type##2 __attribute__((ext_vector_type(2))); \
    typedef type type##3 __attribute__((ext_vector_type(3))); \
    typedef type type##4 __attribute__((ext_vector_type(4))); \
    typedef type type##8 __attribute__((ext_vector_type(8))); \
    typedef type type##16 __attribute__((ext_vector_type(16)));
VECTORS(char) VECTORS(uchar) VECTORS(short) VECTORS(ushort) VECTORS(int) VECTORS(uint) VECTORS(long) VECTORS(ulong)
VECTORS(float) VECTORS(double)
#define __kernel
#define __global
#define __local static
#define __constant static const
#define CLK_LOCAL_MEM_FENCE 1
static ucontext_t s_scheduler, s_items[64];
static char s_stacks[64][65536];
static int s_done[64];
static int s_current, s_group, s_size;
static int get_local_id(int d) { return s_current; }
static int get_global_id(int d) { return s_group * s_size + s_current; }
static void barrier(int flags) { swapcontext(&s_items[s_current], &s_scheduler); }
static uint atomic_add(uint* p, uint v) { const uint old = *p; *p += v; return old; }
static uint atomic_sub(uint* p, uint v) { const uint old = *p; *p -= v; return old; }
static uint atomic_xor(uint* p, uint v) { const uint old = *p; *p ^= v; return old; }
void (*note_variable)(int, int, const char*, const void*, unsigned long);
#define P(name) note_variable(get_global_id(0), __LINE__, #name, (const void*)&name, sizeof name);
static void (*s_kernel)(const int*, uint*, uint*);
static const int* s_in;
static uint *s_out, *s_sums;
static void run_item(void)
{
    s_kernel(s_in, s_out, s_sums);
    s_done[s_current] = 1;
}
void run_dispatch(void (*kernel)(const int*, uint*, uint*), const int* in, uint* out, uint* sums, int items, int size)
{
    s_kernel = kernel;
    s_in = in;
    s_out = out;
    s_sums = sums;
    s_size = size;
    for (s_group = 0; s_group < items / size; ++s_group)
    {
        for (int i = 0; i < size; ++i)
        {
            s_done[i] = 0;
            getcontext(&s_items[i]);
            s_items[i].uc_stack.ss_sp = s_stacks[i];
            s_items[i].uc_stack.ss_size = sizeof s_stacks[i];
            s_items[i].uc_link = &s_scheduler;
            makecontext(&s_items[i], run_item, 0);
        }
        for (int left = size; left > 0;)
        {
            left = 0;
            for (s_current = 0; s_current < size; ++s_current)
            {
                if (!s_done[s_current])
                {
                    swapcontext(&s_scheduler, &s_items[s_current]);
                    left += !s_done[s_current];
                }
            }
        }
    }
}
)";

using Kernel = void (*)(const int32_t*, uint32_t*, uint32_t*);
using Dispatch = void (*)(Kernel, const int32_t*, uint32_t*, uint32_t*, int, int);

std::string OutputOf(const std::string& strCommand)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pPipe(popen((strCommand + " 2>&1").c_str(), "r"), pclose);
    std::string strOutput;
    std::array<char, 4096> chunk;
    while (pPipe && fgets(chunk.data(), chunk.size(), pPipe.get()))
    {
        strOutput += chunk.data();
    }
    return strOutput;
}

} // namespace

CHostBuild::CHostBuild(const std::string& strKernels, const std::vector<std::string>& vNames,
                       const std::string& strFolder)
{
    const std::string strSource = strFolder + "/kernels.c", strLibrary = strFolder + "/kernels.so";
    std::ofstream source(strSource);
    source << s_pszHostPrelude << g_pszCommonPrelude << strKernels;
    for (const std::string& strName : vNames)
    {
        source << "void run_" << strName << "(const int* in, uint* out, uint* sums)\n{\n    " << strName
               << "(in, out, sums, " << g_nArgumentN << ", " << g_fArgumentF << "f, (uint2){" << g_nArgumentV[0]
               << "u, " << g_nArgumentV[1] << "u});\n}\n";
    }
    source.close();
    const std::string strOutput = OutputOf("clang-15 -std=gnu99 -O1 -w -ffp-contract=off -fwrapv -shared -fPIC -o '" +
                                           strLibrary + "' '" + strSource + "'");
    m_pLibrary = dlopen(strLibrary.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_pLibrary == nullptr)
    {
        throw std::runtime_error("the kernels don't compile as plain C:\n" + strOutput);
    }
}

CHostBuild::~CHostBuild()
{
    if (m_pLibrary != nullptr)
    {
        dlclose(m_pLibrary);
    }
}

void CHostBuild::Run(const std::string& strName, const int32_t* pIn, uint32_t* pOut, uint32_t* pSums,
                     NoteVariable pNote) const
{
    const auto dispatch = reinterpret_cast<Dispatch>(dlsym(m_pLibrary, "run_dispatch"));
    const auto kernel = reinterpret_cast<Kernel>(dlsym(m_pLibrary, ("run_" + strName).c_str()));
    auto* const pNoteOfBuild = static_cast<NoteVariable*>(dlsym(m_pLibrary, "note_variable"));
    if (dispatch == nullptr || kernel == nullptr || pNoteOfBuild == nullptr)
    {
        throw std::runtime_error("no kernel " + strName);
    }
    *pNoteOfBuild = pNote;
    dispatch(kernel, pIn, pOut, pSums, static_cast<int>(g_nItems), static_cast<int>(g_nGroupSize));
}

} // namespace KestrelTest

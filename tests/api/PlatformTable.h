#ifndef KESTREL_TESTS_API_PLATFORMTABLE_H
#define KESTREL_TESTS_API_PLATFORMTABLE_H

#include <CL/cl_icd.h>

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

/** Opens the software platform and fills a table with its entry points.
 *  \return the runtime's handle, or null with the reason on standard error */
inline void* OpenPlatform(const char* pszFolder, cl_icd_dispatch* pTable)
{
    static const char* const libraries[] = {"libovkocl12cl64.so", "libovkqrlrt.so", "libOpenCL.so"};
    void* pRuntime = nullptr;
    size_t i;
    /* The debugger opens the compilers by name, which finds what is open already. */
    for (i = 0; i < sizeof(libraries) / sizeof(libraries[0]); ++i)
    {
        char szPath[4096];
        snprintf(szPath, sizeof(szPath), "%s/%s", pszFolder, libraries[i]);
        pRuntime = dlopen(szPath, RTLD_LAZY | RTLD_LOCAL);
        if (pRuntime == nullptr)
        {
            fprintf(stderr, "%s\n", dlerror());
            return nullptr;
        }
    }
    memset(pTable, 0, sizeof(*pTable));
#define CL_ICD_ENTRY(family, name) *(void**)(&pTable->cl##name) = dlsym(pRuntime, "cl" #name);
#include "modules/CLEntryPoints.def"
    return pRuntime;
}

#endif

#include "tests/api/allocations/OwnCalls.h"

#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace
{

struct SSearch
{
    std::string strLibrary;
    const char* pszFunction;
    void* pFunction;
    bool bFound;
};

struct SImports
{
    const ElfW(Sym) * pSymbols = nullptr;
    const char* pszStrings = nullptr;
};

void Overwrite(void** ppSlot, void* pFunction)
{
    const uintptr_t nPage = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    void* pPage = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(ppSlot) / nPage * nPage);
    if (mprotect(pPage, nPage, PROT_READ | PROT_WRITE) == 0)
    {
        *ppSlot = pFunction;
    }
}

void Redirect(SSearch& search, ElfW(Addr) nBase, const SImports& imports, const ElfW(Rela) * pRelocations, size_t nSize)
{
    for (size_t i = 0; i < nSize / sizeof(ElfW(Rela)); ++i)
    {
        const ElfW(Rela)& relocation = pRelocations[i];
        const auto nType = ELF64_R_TYPE(relocation.r_info);
        const ElfW(Sym)& symbol = imports.pSymbols[ELF64_R_SYM(relocation.r_info)];
        if ((nType == R_X86_64_JUMP_SLOT || nType == R_X86_64_GLOB_DAT) &&
            std::strcmp(imports.pszStrings + symbol.st_name, search.pszFunction) == 0)
        {
            Overwrite(reinterpret_cast<void**>(nBase + relocation.r_offset), search.pFunction);
            search.bFound = true;
        }
    }
}

int Visit(dl_phdr_info* pInfo, size_t, void* pUser)
{
    SSearch& search = *static_cast<SSearch*>(pUser);
    const std::string strName = pInfo->dlpi_name;
    if (strName.size() < search.strLibrary.size() ||
        strName.compare(strName.size() - search.strLibrary.size(), std::string::npos, search.strLibrary) != 0)
    {
        return 0;
    }
    const ElfW(Dyn)* pDynamic = nullptr;
    for (int i = 0; i < pInfo->dlpi_phnum; ++i)
    {
        if (pInfo->dlpi_phdr[i].p_type == PT_DYNAMIC)
        {
            pDynamic = reinterpret_cast<const ElfW(Dyn)*>(pInfo->dlpi_addr + pInfo->dlpi_phdr[i].p_vaddr);
        }
    }
    // The dynamic loader has replaced the section's offsets by absolute addresses.
    const auto find = [&](ElfW(Sxword) nTag) -> ElfW(Xword)
    {
        for (const ElfW(Dyn)* pEntry = pDynamic; pEntry != nullptr && pEntry->d_tag != DT_NULL; ++pEntry)
        {
            if (pEntry->d_tag == nTag)
            {
                return pEntry->d_un.d_val;
            }
        }
        return 0;
    };
    SImports imports;
    imports.pSymbols = reinterpret_cast<const ElfW(Sym)*>(find(DT_SYMTAB));
    imports.pszStrings = reinterpret_cast<const char*>(find(DT_STRTAB));
    Redirect(search, pInfo->dlpi_addr, imports, reinterpret_cast<const ElfW(Rela)*>(find(DT_JMPREL)),
             find(DT_PLTRELSZ));
    Redirect(search, pInfo->dlpi_addr, imports, reinterpret_cast<const ElfW(Rela)*>(find(DT_RELA)), find(DT_RELASZ));
    return 1;
}

} // namespace

bool RedirectOwnCalls(const char* pszLibrary, const char* pszFunction, void* pFunction)
{
    SSearch search = {pszLibrary, pszFunction, pFunction, false};
    dl_iterate_phdr(&Visit, &search);
    return search.bFound;
}

#ifndef KESTREL_TESTS_API_ALLOCATIONS_OWNCALLS_H
#define KESTREL_TESTS_API_ALLOCATIONS_OWNCALLS_H

/// Redirects one loaded library's own calls of a function, by changing its table of imported addresses (ELF gABI and
/// the x86-64 psABI: R_X86_64_JUMP_SLOT and R_X86_64_GLOB_DAT).
/// \param pszLibrary   the end of the library's file name
/// \param pFunction    of the same type as the imported one
/// \return false if the library isn't loaded or doesn't import the function
bool RedirectOwnCalls(const char* pszLibrary, const char* pszFunction, void* pFunction);

#endif

#ifndef KESTREL_MODULES_ZCCMODULE_H
#define KESTREL_MODULES_ZCCMODULE_H

#include "modules/DynamicLibraryModule.h"
#include "modules/ZCCTypes.h"

#include <string>

/// The compiler library as a table of function pointers, each under its function's name without the
/// "zcc". An entry that the library lacks is null. No locks.
class ZCCModule
{
public:
    static constexpr const char* s_DefaultModuleName = "libovkocl12cl64.so";
    static constexpr const char* s_OldDefaultModuleName = "libovkoclcl64.so";
    static constexpr const char* s_TMP_MODULE_NAME = "libovkocl64.so";
    static constexpr const char* s_HSA_COMPILER_LIB_NAME = "libovkhsacl64.so";

    /// Loads the library under its default name; IsLoaded() tells the outcome.
    ZCCModule();

    ZCCModule(const ZCCModule&) = delete;
    ZCCModule& operator=(const ZCCModule&) = delete;

    /// Opens the named library, or else the first of the four known names, and looks up all entries.
    /// If none can be opened, what was loaded before stays.
    /// \return IsLoaded()
    bool LoadModule(const std::string& moduleName);

    /// Closes the library and clears every entry.
    void UnloadModule();

    /// True if a library is open and has at least "zccCompilerInit"; any other entry may be null.
    bool IsLoaded() const { return m_bModuleLoaded; }

#define ZCC_MEMBER(name, result, parameters) PFNzcc##name name = nullptr;
    ZCC_ENTRY_POINTS(ZCC_MEMBER)
#undef ZCC_MEMBER

private:
    void Initialize();

    bool m_bModuleLoaded = false;
    DynamicLibraryModule m_DynamicLibraryHelper;
};

#endif

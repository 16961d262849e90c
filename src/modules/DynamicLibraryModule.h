#ifndef KESTREL_MODULES_DYNAMICLIBRARYMODULE_H
#define KESTREL_MODULES_DYNAMICLIBRARYMODULE_H

#include <string>
#include <vector>

/// A shared library that is opened at run time. It owns the handle: one object closes one library, so
/// it can't be copied. No locks; a library that can't be opened is reported by the result alone.
class DynamicLibraryModule
{
public:
    DynamicLibraryModule() = default;

    /// Opens a library; IsLoaded() tells the outcome.
    explicit DynamicLibraryModule(const std::string& name);

    DynamicLibraryModule(const DynamicLibraryModule&) = delete;
    DynamicLibraryModule& operator=(const DynamicLibraryModule&) = delete;

    ~DynamicLibraryModule();

    /// Opens the library with lazy binding. A library that was open before is closed once the new one
    /// is there, and stays open if there is no new one.
    /// \return true if the named library was opened
    bool LoadModule(const std::string& name);

    /// Tries each name in order and stops at the first success.
    bool LoadModule(const std::vector<std::string>& names);

    /// Closes the library, if one is open.
    void UnloadModule();

    /// \return the address of a symbol; null if there is none or no library is open
    void* GetProcAddress(const std::string& name) const;

    bool IsLoaded() const { return m_Module != nullptr; }

private:
    void* m_Module = nullptr;
};

#endif

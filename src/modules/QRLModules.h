#ifndef KESTREL_MODULES_QRLMODULES_H
#define KESTREL_MODULES_QRLMODULES_H

#include "modules/DynamicLibraryModule.h"
#include "modules/QRLTypes.h"

#include <string>

#define QRL_MEMBER(name, type) type name = nullptr;

/// The entry points of each library, each under its function's name without the prefix.
struct SQRLRTEntryPoints
{
    QRL_RT_ENTRY_POINTS(QRL_MEMBER)

    /// Looks up every symbol. \return false if one is missing
    bool LookUp(const DynamicLibraryModule& library);
};

struct SQRLCLEntryPoints
{
    QRL_CL_ENTRY_POINTS(QRL_MEMBER)

    bool LookUp(const DynamicLibraryModule& library);
};

struct SQRLDDEntryPoints
{
    QRL_DD_ENTRY_POINTS(QRL_MEMBER)

    bool LookUp(const DynamicLibraryModule& library);
};

#undef QRL_MEMBER

/// A library of the low-level runtime: loaded with all of its entries, or not at all with all of them
/// null. No locks.
template <class Entries>
class CQRLModule : public Entries
{
public:
    /// Loads the library; m_ModuleLoaded tells the outcome.
    explicit CQRLModule(const std::string& moduleName) { LoadModule(moduleName); }

    CQRLModule(const CQRLModule&) = delete;
    CQRLModule& operator=(const CQRLModule&) = delete;

    /// Unloads what is loaded, then opens the library and looks up every entry.
    /// \return true if the library has them all
    bool LoadModule(const std::string& moduleName)
    {
        UnloadModule();
        m_ModuleLoaded = m_DynamicLibraryHelper.LoadModule(moduleName) && this->LookUp(m_DynamicLibraryHelper);
        if (!m_ModuleLoaded)
        {
            UnloadModule();
        }
        return m_ModuleLoaded;
    }

    /// Closes the library and clears every entry.
    void UnloadModule()
    {
        m_DynamicLibraryHelper.UnloadModule();
        static_cast<Entries&>(*this) = Entries();
        m_ModuleLoaded = false;
    }

    bool m_ModuleLoaded = false;

private:
    DynamicLibraryModule m_DynamicLibraryHelper;
};

/// The runtime itself.
class QRLRTModule : public CQRLModule<SQRLRTEntryPoints>
{
public:
    static constexpr const char* s_DefaultModuleName = "libovkqrlrt.so";
    using CQRLModule::CQRLModule;
};

/// Its compiler.
class QRLCLModule : public CQRLModule<SQRLCLEntryPoints>
{
public:
    static constexpr const char* s_DefaultModuleName = "libovkqrlcl.so";
    using CQRLModule::CQRLModule;
};

/// Its driver interface.
class QRLDDModule : public CQRLModule<SQRLDDEntryPoints>
{
public:
    static constexpr const char* s_DefaultModuleName = "libovkqrldd.so";
    using CQRLModule::CQRLModule;
};

#endif

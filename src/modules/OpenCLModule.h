#ifndef KESTREL_MODULES_OPENCLMODULE_H
#define KESTREL_MODULES_OPENCLMODULE_H

#include "modules/DynamicLibraryModule.h"

#include <CL/cl_icd.h>

#include <iosfwd>
#include <string>
#include <vector>

/// The name under which the ICD dispatch table is known here. It is cl_icd.h's structure.
typedef cl_icd_dispatch cl_icd_dispatch_table;

/// A vendor's entry point that this project never calls; whoever does casts it to its real type.
typedef void (*CLVendorEntry)(void);

/// The entry points, each under its function's name without the "cl": GetPlatformIDs is clGetPlatformIDs.
/// An entry that the runtime lacks is null.
struct SOpenCLEntryPoints
{
#define CL_ICD_ENTRY(family, name) cl_api_cl##name name = nullptr;
#define CL_SLOT(block, index, name) void* _reserved##block##Extensions_##index = nullptr;
#define CL_EXT_ENTRY(type, name) type name = nullptr;
#include "modules/CLEntryPoints.def"
};

/// The OpenCL runtime as a table of function pointers, from a library or from a client's table.
///
/// No locks: tables are filled while the library loads, or by a client before it uses them, and read
/// afterwards.
class OpenCLModule : public SOpenCLEntryPoints
{
public:
    /// The highest version whose entry points are all there.
    enum OpenCLVersion
    {
        OpenCL_None = 0,
        OpenCL_1_0 = 1,
        OpenCL_1_1 = 2,
        OpenCL_1_2 = 3,
        OpenCL_2_0 = 4
    };

    enum OpenCLExt
    {
        OpenCL_Ext_Invalid = 0,
        OpenCL_khr_d3d10_sharing = 1,
        OpenCL_ext_device_fission = 2,
        OpenCL_khr_gl_event = 3,
        OpenCL_ovk_open_video = 4
    };

    static constexpr const char* s_DefaultModuleName = "libOpenCL.so";

    /// Opens the library; for the default name also under the names of its versions.
    explicit OpenCLModule(const std::string& moduleName);

    /// Opens the first library of the list that holds a usable table.
    explicit OpenCLModule(const std::vector<std::string>& moduleNames);

    /// A copy has the pointers but not the library: it never closes it, and is of use only as long as
    /// the original has it open.
    OpenCLModule(const OpenCLModule& other);
    OpenCLModule& operator=(const OpenCLModule&) = delete;

    /// Opens a library and looks up every entry but the vendor's extensions. A name that the library
    /// lacks leaves a null pointer. If the library can't be opened the table stays as it was.
    /// \return OpenCLLoaded()
    OpenCLVersion LoadModule(const std::string& moduleName);

    /// Tries each name and stops at the first that gives more than OpenCL_None.
    OpenCLVersion LoadModule(const std::vector<std::string>& moduleNames);

    /// Closes the library and clears every entry.
    void UnloadModule();

    /// Judges the version by the pointers alone, so that it holds for a client's table too.
    OpenCLVersion OpenCLLoaded() const;

    /// Looks up the vendor's extensions through the runtime's own call for that.
    /// \param platform may be null where the runtime accepts that
    /// \return false if the table has no such call
    bool LoadOpenCLExtensions(cl_platform_id platform);

    /// \return true for device fission or the GL event if its entries are set, false for anything else
    bool IsExtensionSupported(OpenCLExt ext) const;

    /// Copies each entry that the ICD table has a slot for; other slots keep what they hold.
    void GetAsCLDispatchTable(cl_icd_dispatch_table& dispatchTable) const;

    /// The reverse; entries without a slot keep what they hold.
    void SetFromCLDispatchTable(const cl_icd_dispatch_table& dispatchTable);

private:
    enum class Family
    {
        Core_1_0,
        Core_1_1,
        Core_1_2,
        Core_2_0,
        DeviceFission,
        GLEvent,
        Optional,
        Extension
    };

    void Initialize();
    bool IsComplete(Family family) const;
    CLVendorEntry FindExtension(cl_platform_id platform, const char* szName) const;

    DynamicLibraryModule m_DynamicLibraryHelper;
    OpenCLVersion m_openCLVersion = OpenCL_None;
};

/// Writes a line for each entry: its name, " = " and "set" or "null".
std::ostream& operator<<(std::ostream& output, const OpenCLModule& module);

#endif

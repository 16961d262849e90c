#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_BUILTINARCHIVE_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_BUILTINARCHIVE_H

#include <string_view>
#include <unordered_map>

namespace KestrelOpenCL
{

/// The built-in functions for one address width: an archive of bitcode in the common format of `ar`, whose first member
/// is the symbol table. It is built with the project, so its contents are trusted.
class CBuiltinArchive
{
public:
    explicit CBuiltinArchive(std::string_view archive);

    /// The archive for an address width, read at the first call. Any thread.
    static const CBuiltinArchive& Get(bool b64BitAddresses);

    /// The bitcode of the member that defines a function; empty if none does.
    std::string_view FindMember(std::string_view function) const;

private:
    std::unordered_map<std::string_view, std::string_view> m_Members; ///< by function
};

} // namespace KestrelOpenCL

#endif

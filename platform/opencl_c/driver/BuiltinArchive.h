#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_BUILTINARCHIVE_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_BUILTINARCHIVE_H

#include <string_view>
#include <unordered_map>

namespace KestrelOpenCL
{

/// The built-in functions for one width of addresses: an archive of bitcode in the common format of `ar`, whose first
/// member is the symbol table. Made with the project, so it isn't distrusted.
class CBuiltinArchive
{
public:
    explicit CBuiltinArchive(std::string_view archive);

    /// The one for a width of addresses, read at the first call. Any thread.
    static const CBuiltinArchive& Get(bool b64BitAddresses);

    /// The bitcode of the member that defines a function; empty if none does.
    std::string_view FindMember(std::string_view function) const;

private:
    std::unordered_map<std::string_view, std::string_view> m_Members; ///< by function
};

} // namespace KestrelOpenCL

#endif

#include "platform/opencl_c/driver/BuiltinArchive.h"

#include "platform/opencl_c/driver/EmbeddedFiles.h"

#include <charconv>
#include <cstddef>
#include <cstdint>

namespace KestrelOpenCL
{
namespace
{

const size_t s_nMagic = 8;   // "!<arch>\n"
const size_t s_nHeader = 60; // of a member: name, date, owner, group, mode, size, end
const size_t s_nSizeField = 48;
const size_t s_nSizeDigits = 10;
const size_t s_nWord = 4;

/// The bytes of the member whose header stands at an offset.
std::string_view MemberAt(std::string_view archive, size_t nOffset)
{
    const std::string_view field = archive.substr(nOffset + s_nSizeField, s_nSizeDigits);
    size_t nSize = 0;
    std::from_chars(field.data(), field.data() + field.size(), nSize);
    return archive.substr(nOffset + s_nHeader, nSize);
}

/// The symbol table's numbers are big-endian words.
size_t BigEndian(std::string_view table, size_t nOffset)
{
    size_t nValue = 0;
    for (size_t i = 0; i < s_nWord; ++i)
    {
        nValue = nValue << 8 | static_cast<unsigned char>(table[nOffset + i]);
    }
    return nValue;
}

} // namespace

CBuiltinArchive::CBuiltinArchive(std::string_view archive)
{
    if (archive.size() < s_nMagic + s_nHeader)
    {
        return; // the archive has no members
    }
    // The number of symbols, the offset of each one's member, the names.
    const std::string_view table = MemberAt(archive, s_nMagic);
    const size_t nSymbols = BigEndian(table, 0);
    m_Members.reserve(nSymbols);
    std::string_view names = table.substr((nSymbols + 1) * s_nWord);
    for (size_t i = 0; i < nSymbols; ++i)
    {
        const std::string_view name = names.substr(0, names.find('\0'));
        names.remove_prefix(name.size() + 1);
        m_Members.emplace(name, MemberAt(archive, BigEndian(table, (i + 1) * s_nWord)));
    }
}

const CBuiltinArchive& CBuiltinArchive::Get(bool b64BitAddresses)
{
    if (b64BitAddresses)
    {
        static const CBuiltinArchive& s_Archive64 = *new CBuiltinArchive(BuiltinBitcode(true));
        return s_Archive64;
    }
    static const CBuiltinArchive& s_Archive32 = *new CBuiltinArchive(BuiltinBitcode(false));
    return s_Archive32;
}

std::string_view CBuiltinArchive::FindMember(std::string_view function) const
{
    const auto it = m_Members.find(function);
    return it == m_Members.end() ? std::string_view() : it->second;
}

} // namespace KestrelOpenCL

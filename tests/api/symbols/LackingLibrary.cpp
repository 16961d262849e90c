#include "tests/api/symbols/LackingLibrary.h"

#include <elf.h>

#include <cstring>
#include <fstream>
#include <iterator>

namespace
{

template <typename Header>
Header ReadAt(const std::string& strImage, size_t nOffset)
{
    Header header = {};
    std::memcpy(&header, strImage.data() + nOffset, sizeof(header));
    return header;
}

/// The string table used by the dynamic symbols.
Elf64_Shdr FindDynamicStrings(const std::string& strImage)
{
    const Elf64_Ehdr image = ReadAt<Elf64_Ehdr>(strImage, 0);
    for (unsigned int i = 0; i < image.e_shnum; ++i)
    {
        const Elf64_Shdr section = ReadAt<Elf64_Shdr>(strImage, image.e_shoff + i * image.e_shentsize);
        if (section.sh_type == SHT_DYNSYM)
        {
            return ReadAt<Elf64_Shdr>(strImage, image.e_shoff + section.sh_link * image.e_shentsize);
        }
    }
    return {};
}

} // namespace

bool CopyWithoutSymbol(const std::string& strFrom, const std::string& strTo, const std::string& strSymbol)
{
    std::ifstream in(strFrom, std::ios::binary);
    std::string strImage((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (strImage.size() < sizeof(Elf64_Ehdr))
    {
        return false;
    }
    const Elf64_Shdr strings = FindDynamicStrings(strImage);
    const std::string strWanted = '\0' + strSymbol + '\0';
    const size_t nFound = strImage.find(strWanted, strings.sh_offset);
    if (nFound == std::string::npos || nFound >= strings.sh_offset + strings.sh_size)
    {
        return false;
    }
    strImage[nFound + 1] = '_';
    std::ofstream out(strTo, std::ios::binary);
    return static_cast<bool>(out << strImage << std::flush);
}

#ifndef KESTREL_TESTS_BINARY_TESTIMAGE_H
#define KESTREL_TESTS_BINARY_TESTIMAGE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <elf.h>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

/// An ELF image built by hand, so that the tests of CElf's reading don't depend on its writing.
///
/// Sections 0 to 3 are the null section, .shstrtab, .strtab and .symtab; the caller's start at 4.
class CTestImage
{
public:
    struct SSection
    {
        std::string strName;
        uint32_t nType = SHT_PROGBITS;
        uint64_t nAlign = 1;
        std::string strData;
        uint32_t nLink = 0;
        uint32_t nInfo = 0;
    };

    struct SSymbol
    {
        std::string strName;
        uint16_t nSection = 0;
        uint64_t nValue = 0;
        uint64_t nSize = 0;
        uint8_t nInfo = ELF64_ST_INFO(STB_LOCAL, STT_OBJECT);
    };

    static constexpr uint16_t s_nFirst = 4;

    std::vector<SSection> vSections;
    std::vector<SSymbol> vSymbols; ///< after the null symbol, local ones first

    /// Offsets in the image made last.
    size_t nSectionHeaders = 0;
    size_t nSymbols = 0;

    template <class Ehdr, class Shdr, class Sym>
    std::vector<char> Make()
    {
        std::vector<SSection> vAll(s_nFirst);
        vAll[0] = {"", SHT_NULL, 0, "", 0, 0};
        vAll[1] = {".shstrtab", SHT_STRTAB, 1, "", 0, 0};
        vAll[2] = {".strtab", SHT_STRTAB, 1, std::string(1, '\0'), 0, 0};
        vAll[3] = {".symtab", SHT_SYMTAB, 8, std::string(sizeof(Sym), '\0'), 2, 1};
        vAll.insert(vAll.end(), vSections.begin(), vSections.end());
        for (const SSymbol& symbol : vSymbols)
        {
            Sym record = {};
            record.st_name = static_cast<uint32_t>(vAll[2].strData.size());
            record.st_value = static_cast<decltype(record.st_value)>(symbol.nValue);
            record.st_size = static_cast<decltype(record.st_size)>(symbol.nSize);
            record.st_info = symbol.nInfo;
            record.st_shndx = symbol.nSection;
            vAll[2].strData += symbol.strName + '\0';
            vAll[3].strData.append(reinterpret_cast<const char*>(&record), sizeof(record));
            vAll[3].nInfo += ELF64_ST_BIND(symbol.nInfo) == STB_LOCAL ? 1 : 0;
        }
        for (const SSection& section : vAll)
        {
            vAll[1].strData += section.strName + '\0';
        }

        std::vector<char> vImage(sizeof(Ehdr));
        std::vector<char> vHeaders;
        uint32_t nName = 0;
        for (const SSection& section : vAll)
        {
            while (section.nAlign > 1 && vImage.size() % section.nAlign != 0)
            {
                vImage.push_back(0x55);
            }
            Shdr header = {};
            header.sh_name = nName;
            header.sh_type = section.nType;
            header.sh_offset = static_cast<decltype(header.sh_offset)>(vImage.size());
            header.sh_size = static_cast<decltype(header.sh_size)>(section.strData.size());
            header.sh_link = section.nLink;
            header.sh_info = section.nInfo;
            header.sh_addralign = static_cast<decltype(header.sh_addralign)>(section.nAlign);
            header.sh_entsize = section.nType == SHT_SYMTAB ? sizeof(Sym) : 0;
            nName += static_cast<uint32_t>(section.strName.size() + 1);
            nSymbols = section.nType == SHT_SYMTAB ? vImage.size() : nSymbols;
            vImage.insert(vImage.end(), section.strData.begin(), section.strData.end());
            const char* pHeader = reinterpret_cast<const char*>(&header);
            vHeaders.insert(vHeaders.end(), pHeader, pHeader + sizeof(header));
        }
        nSectionHeaders = vImage.size();

        Ehdr header = {};
        std::memcpy(header.e_ident, ELFMAG, SELFMAG);
        header.e_ident[EI_CLASS] = sizeof(Ehdr) == sizeof(Elf64_Ehdr) ? ELFCLASS64 : ELFCLASS32;
        header.e_ident[EI_DATA] = ELFDATA2LSB;
        header.e_ident[EI_VERSION] = EV_CURRENT;
        header.e_type = ET_REL;
        header.e_machine = 0x7D2;
        header.e_version = EV_CURRENT;
        header.e_shoff = static_cast<decltype(header.e_shoff)>(nSectionHeaders);
        header.e_ehsize = sizeof(Ehdr);
        header.e_shentsize = sizeof(Shdr);
        header.e_shnum = static_cast<uint16_t>(vAll.size());
        header.e_shstrndx = 1;
        std::memcpy(vImage.data(), &header, sizeof(header));
        vImage.insert(vImage.end(), vHeaders.begin(), vHeaders.end());
        return vImage;
    }

    std::vector<char> Make64() { return Make<Elf64_Ehdr, Elf64_Shdr, Elf64_Sym>(); }
    std::vector<char> Make32() { return Make<Elf32_Ehdr, Elf32_Shdr, Elf32_Sym>(); }
};

/// The warnings of readelf about an image; empty if there are none.
inline std::string ReadElfComplaints(const std::vector<char>& vImage)
{
    std::string strFile = testing::TempDir() + "kestrel_image_XXXXXX";
    const int nFile = mkstemp(&strFile[0]);
    if (nFile < 0)
    {
        return "no temporary file";
    }
    close(nFile);
    std::ofstream(strFile, std::ios::binary).write(vImage.data(), static_cast<std::streamsize>(vImage.size()));

    std::string strComplaints;
    bool bRead = false;
    FILE* pPipe = popen(("LC_ALL=C readelf -aW " + strFile + " 2>&1").c_str(), "r");
    char szLine[4096];
    while (pPipe != nullptr && fgets(szLine, sizeof(szLine), pPipe) != nullptr)
    {
        const std::string strLine = szLine;
        bRead = bRead || strLine.find("Section Headers:") != std::string::npos;
        if (strLine.find("Warning") != std::string::npos || strLine.find("Error") != std::string::npos)
        {
            strComplaints += strLine;
        }
    }
    const int nStatus = pPipe == nullptr ? 1 : pclose(pPipe);
    unlink(strFile.c_str());
    return bRead && nStatus == 0 ? strComplaints : "readelf failed: " + strComplaints;
}

#endif

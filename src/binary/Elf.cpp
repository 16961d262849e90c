#include "binary/Elf.h"

#include "binary/ElfBytes.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <unordered_map>

CElf::CElf(const std::string& strFilename) : CElf()
{
    std::ifstream file(strFilename, std::ios::binary);
    m_Initialized = file.is_open() && ReadStream(file);
}

CElf::CElf(std::istream* stream) : CElf()
{
    m_Initialized = stream != nullptr && ReadStream(*stream);
}

CElf::CElf(const std::vector<char>& vBinary) : CElf()
{
    m_Initialized = Read(vBinary);
}

CElf::CElf(const CElf& celf) : CElf()
{
    Copy(celf);
}

CElf& CElf::operator=(const CElf& celf)
{
    if (this != &celf)
    {
        Deinitialize();
        Copy(celf);
    }
    return *this;
}

CElf::~CElf()
{
    Deinitialize();
}

void CElf::Deinitialize()
{
    for (CElfSection* pSection : m_Sections)
    {
        delete pSection;
    }
    m_Sections.clear();
    m_SectionHeaderStringTable = nullptr;
    m_SymbolTable = nullptr;
    m_Initialized = false;
    m_IsElf64 = false;
}

void CElf::Copy(const CElf& celf)
{
    if (!celf.good())
    {
        return;
    }
    m_Header = celf.m_Header;
    m_IsElf64 = celf.m_IsElf64;

    std::unordered_map<const CElfSection*, CElfSection*> mapToCopy;
    mapToCopy[nullptr] = nullptr;
    for (const CElfSection* pSource : celf.m_Sections)
    {
        m_Sections.push_back(nullptr);
        CElfSection* pCopy = MakeCopy(celf, *pSource);
        m_Sections.back() = pCopy;
        mapToCopy[pSource] = pCopy;
    }
    for (size_t nIndex = 0; nIndex < m_Sections.size(); ++nIndex)
    {
        m_Sections[nIndex]->SetLinkSection(mapToCopy[celf.m_Sections[nIndex]->GetLinkSection()]);
        m_Sections[nIndex]->SetInfoSection(mapToCopy[celf.m_Sections[nIndex]->GetInfoSection()]);
    }
    if (celf.m_SymbolTable != nullptr)
    {
        m_SymbolTable->m_Table = celf.m_SymbolTable->m_Table;
        for (CElfSymbolTable::TableEntry& entry : m_SymbolTable->m_Table)
        {
            entry.symSection = mapToCopy[entry.symSection];
        }
    }
    m_Initialized = true;
}

CElfSection* CElf::MakeCopy(const CElf& celf, const CElfSection& source)
{
    std::unique_ptr<CElfSection> pCopy;
    if (&source == celf.m_SymbolTable)
    {
        pCopy.reset(m_SymbolTable = new CElfSymbolTable);
    }
    else if (&source == celf.m_SectionHeaderStringTable)
    {
        pCopy.reset(m_SectionHeaderStringTable = new CElfStringTable);
    }
    else if (dynamic_cast<const CElfStringTable*>(&source) != nullptr)
    {
        pCopy.reset(new CElfStringTable);
    }
    else
    {
        pCopy.reset(new CElfSection);
        pCopy->SetData(source.GetData());
    }

    pCopy->m_Header = source.m_Header;
    pCopy->m_Header.sh_addr = 0;
    pCopy->m_Name = source.m_Name;
    return pCopy.release();
}

bool CElf::Store(const std::string& strFilename)
{
    std::vector<char> vBinary;
    if (!Store(&vBinary))
    {
        return false;
    }
    std::ofstream file(strFilename, std::ios::binary | std::ios::trunc);
    file.write(vBinary.data(), static_cast<std::streamsize>(vBinary.size()));
    file.close();
    return file.good();
}

bool CElf::Store(std::ostream* stream)
{
    std::vector<char> vBinary;
    if (stream == nullptr || !Store(&vBinary))
    {
        return false;
    }
    stream->write(vBinary.data(), static_cast<std::streamsize>(vBinary.size()));
    return stream->good();
}

bool CElf::IsElf(const char* p)
{
    return std::equal(p, p + SELFMAG, ELFMAG);
}

bool CElf::IsElf64(const char* p)
{
    return p[EI_CLASS] == ELFCLASS64;
}

bool CElf::SetClass(unsigned char elfClass)
{
    if (elfClass != ELFCLASS32)
    {
        return false;
    }
    m_Header.e_ident[EI_CLASS] = elfClass;
    m_Header.e_ehsize = sizeof(Elf32_Ehdr);
    m_Header.e_shentsize = sizeof(Elf32_Shdr);
    m_IsElf64 = false;
    if (m_SymbolTable != nullptr)
    {
        m_SymbolTable->SetEntrySize(sizeof(Elf32_Sym));
    }
    return true;
}

bool CElf::SetDataEncoding(unsigned char encoding)
{
    if (encoding != ELFDATA2LSB)
    {
        return false;
    }
    m_Header.e_ident[EI_DATA] = encoding;
    return true;
}

bool CElf::SetType(Elf64_Half type)
{
    m_Header.e_type = type;
    return true;
}

bool CElf::SetMachine(Elf64_Half machine)
{
    m_Header.e_machine = machine;
    return true;
}

bool CElf::SetVersion(Elf64_Word version)
{
    m_Header.e_version = version;
    return true;
}

bool CElf::SetEntry(Elf64_Addr entry)
{
    m_Header.e_entry = entry;
    return true;
}

bool CElf::SetFlags(Elf64_Word flags)
{
    m_Header.e_flags = flags;
    return true;
}

CElfSection* CElf::GetSection(const std::string& name) const
{
    const auto found = std::find_if(m_Sections.begin(), m_Sections.end(),
                                    [&name](const CElfSection* pSection) { return pSection->GetName() == name; });
    return found == m_Sections.end() ? nullptr : *found;
}

CElf::SectionIterator CElf::GetSectionIterator(const std::string& name)
{
    return std::find(m_Sections.begin(), m_Sections.end(), GetSection(name));
}

CElfSection* CElf::AddSection(const std::string& name, Elf64_Word type, Elf64_Xword flags, Elf64_Word info,
                              Elf64_Xword addrAlign, Elf64_Xword entrySize)
{
    const bool bIsTable = type == SHT_SYMTAB || type == SHT_STRTAB || type == SHT_DYNSYM;
    if (bIsTable || UnsupportedSectionType(type))
    {
        return nullptr;
    }

    auto pSection = std::make_unique<CElfSection>();
    pSection->SetName(name);
    pSection->SetType(type);
    pSection->SetFlags(flags);
    pSection->SetInfo(info);
    pSection->m_Header.sh_addralign = addrAlign;
    pSection->SetEntrySize(entrySize);
    m_Sections.push_back(pSection.get());
    return pSection.release();
}

bool CElf::RemoveSection(const std::string& name)
{
    return RemoveSection(GetSectionIterator(name));
}

bool CElf::RemoveSection(SectionIterator section)
{
    if (section == m_Sections.end() || IsNeeded(*section))
    {
        return false;
    }
    if (m_SymbolTable != nullptr)
    {
        m_SymbolTable->RemoveSymbolsInSection(*section);
    }
    delete *section;
    m_Sections.erase(section);
    return true;
}

bool CElf::IsNeeded(const CElfSection* pSection) const
{
    if (pSection == m_Sections.front() || pSection == m_SectionHeaderStringTable || pSection == m_SymbolTable)
    {
        return true;
    }
    return std::any_of(m_Sections.begin(), m_Sections.end(),
                       [pSection](const CElfSection* pOther)
                       { return pOther->GetLinkSection() == pSection || pOther->GetInfoSection() == pSection; });
}

bool CElf::UnsupportedSectionType(Elf64_Word type)
{
    static constexpr Elf64_Word s_Types[] = {SHT_RELA, SHT_HASH, SHT_DYNAMIC, SHT_SHLIB, SHT_GROUP, SHT_SYMTAB_SHNDX};
    return std::find(std::begin(s_Types), std::end(s_Types), type) != std::end(s_Types);
}

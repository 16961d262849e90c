#include "binary/ElfSection.h"

#include "binary/ElfBytes.h"

#include <algorithm>

bool CElfSection::SetAddrAlign(Elf64_Xword addrAlign)
{
    if ((addrAlign & (addrAlign - 1)) != 0)
    {
        return false;
    }
    m_Header.sh_addralign = addrAlign;
    return true;
}

bool CElfSection::SetData(const char* pData, size_t nSize)
{
    // The new bytes may be a part of the old ones.
    std::vector<char> vData(pData, pData + nSize);
    m_Data.swap(vData);
    return true;
}

bool CElfSection::SetData(const std::string& data)
{
    return SetData(data.data(), data.size());
}

bool CElfSection::SetData(const std::vector<char>& data)
{
    m_Data = data;
    return true;
}

bool CElfSection::AppendData(const char* pData, size_t nSize)
{
    return AppendData(std::vector<char>(pData, pData + nSize));
}

bool CElfSection::AppendData(const std::string& data)
{
    m_Data.insert(m_Data.end(), data.begin(), data.end());
    return true;
}

bool CElfSection::AppendData(const std::vector<char>& data)
{
    const size_t nOld = m_Data.size();
    const size_t nAdded = data.size(); // before the resize: data may be this section's own
    m_Data.resize(nOld + nAdded);
    std::copy_n(data.begin(), nAdded, m_Data.begin() + static_cast<std::ptrdiff_t>(nOld));
    return true;
}

bool CElfSection::Load(const std::vector<char>& vBinary, uint64_t shdrOff, bool is64)
{
    m_Data.clear();
    if (!ElfBytes::ReadSectionHeader(vBinary, shdrOff, is64, m_Header))
    {
        return false;
    }
    if (!ElfBytes::IsInside(vBinary, m_Header.sh_offset, m_Header.sh_size))
    {
        return false;
    }
    const char* pData = vBinary.data() + m_Header.sh_offset;
    m_Data.assign(pData, pData + m_Header.sh_size);
    return true;
}

size_t CElfStringTable::AddString(const std::string& str)
{
    const size_t nOffset = m_Data.size();
    m_Data.insert(m_Data.end(), str.c_str(), str.c_str() + str.size() + 1);
    return nOffset;
}

#include "platform/compiler/library/BinaryObject.h"

#include "platform/compiler/ElfReader.h"
#include "platform/compiler/ElfWriter.h"
#include "platform/compiler/KernelMetadata.h"

#include <algorithm>
#include <elf.h>

using namespace KestrelPlatform;

namespace
{

const size_t s_nNone = static_cast<size_t>(-1);

struct SSectionName
{
    zccSections id;
    const char* pName;
};

const SSectionName s_SectionNames[] = {{zccLLVMIR, ".llvmir"},   {zccILTEXT, ".ovkil"},  {zccRODATA, ".rodata"},
                                       {zccCOMMENT, ".comment"}, {zccSOURCE, ".source"}, {zccTEXT, ".text"}};

const char* NameOf(zccSections id)
{
    for (const SSectionName& section : s_SectionNames)
    {
        if (section.id == id)
        {
            return section.pName;
        }
    }
    return nullptr;
}

bool IsArgumentLine(std::string_view line)
{
    for (const std::string_view type : {";value:", ";pointer:", ";image:", ";counter:", ";constarg:"})
    {
        if (line.substr(0, type.size()) == type)
        {
            return true;
        }
    }
    return false;
}

/// Where the line of a new argument goes: after the last argument, or before the function line.
size_t FindArgumentEnd(const std::string& strMetadata)
{
    size_t nEnd = std::string::npos;
    for (size_t nStart = 0; nStart < strMetadata.size();)
    {
        const size_t nBreak = std::min(strMetadata.find('\n', nStart), strMetadata.size() - 1);
        const std::string_view line = std::string_view(strMetadata).substr(nStart, nBreak - nStart);
        if (IsArgumentLine(line))
        {
            nEnd = nBreak + 1;
        }
        else if (nEnd == std::string::npos && line.substr(0, 10) == ";function:")
        {
            return nStart;
        }
        nStart = nBreak + 1;
    }
    return nEnd;
}

} // namespace

bool zccBinary::ReadImage(const char* pImage, size_t nSize)
{
    CElfReader elf;
    std::string strError;
    if (!elf.Read(pImage, nSize, strError))
    {
        return false;
    }
    std::vector<size_t> vIndex(elf.Sections().size(), s_nNone);
    for (size_t i = 0; i < elf.Sections().size(); ++i)
    {
        const CElfReader::SSection& section = elf.Sections()[i];
        if (section.name == ".debugil" || section.name == ".debugilbin")
        {
            SetInternal(section.name == ".debugil" ? s_pDebugText : s_pDebugTokens, section.data);
        }
        else if (section.nType == SHT_PROGBITS)
        {
            vIndex[i] = m_vSections.size();
            m_vSections.push_back(
                {std::string(section.name), section.nFlags, section.nAlignment, std::string(section.data)});
        }
    }
    for (const CElfReader::SSymbol& symbol : elf.Symbols())
    {
        if (vIndex[symbol.nSection] != s_nNone)
        {
            m_vSymbols.push_back(
                {std::string(symbol.name), symbol.nType, vIndex[symbol.nSection], symbol.nValue, symbol.data.size()});
        }
    }
    return true;
}

std::vector<char> zccBinary::WriteImage() const
{
    CElfWriter elf;
    for (const SSection& section : m_vSections)
    {
        elf.AddSection(section.strName, section.nFlags, section.nAlignment, section.strData);
    }
    if (const std::string* pText = FindInternal(s_pDebugText))
    {
        elf.AddSection(".debugil", 0, 1, *pText);
    }
    if (const std::string* pTokens = FindInternal(s_pDebugTokens))
    {
        elf.AddSection(".debugilbin", 0, 4, *pTokens);
    }
    for (const SSymbol& symbol : m_vSymbols)
    {
        elf.AddSymbol(symbol.strName, symbol.nType, symbol.nSection, symbol.nValue, symbol.nSize);
    }
    return elf.Write();
}

size_t zccBinary::IndexOf(zccSections id) const
{
    const char* pName = NameOf(id);
    for (size_t i = 0; pName != nullptr && i < m_vSections.size(); ++i)
    {
        if (m_vSections[i].strName == pName)
        {
            return i;
        }
    }
    return s_nNone;
}

std::string* zccBinary::FindSection(zccSections id, bool bCreate)
{
    if (id == zccILDEBUG)
    {
        const auto it = bCreate ? m_Internal.emplace(s_pDebugText, "").first : m_Internal.find(s_pDebugText);
        return it == m_Internal.end() ? nullptr : &it->second;
    }
    size_t nIndex = IndexOf(id);
    if (nIndex == s_nNone && bCreate && NameOf(id) != nullptr)
    {
        nIndex = m_vSections.size();
        m_vSections.push_back({NameOf(id), 0, 1, {}});
    }
    return nIndex == s_nNone ? nullptr : &m_vSections[nIndex].strData;
}

bool zccBinary::RemoveSection(zccSections id)
{
    if (id == zccILDEBUG)
    {
        return RemoveInternal(s_pDebugText);
    }
    const size_t nIndex = IndexOf(id);
    if (nIndex == s_nNone)
    {
        return false;
    }
    m_vSections.erase(m_vSections.begin() + static_cast<long>(nIndex));
    m_vSymbols.erase(std::remove_if(m_vSymbols.begin(), m_vSymbols.end(),
                                    [=](const SSymbol& symbol) { return symbol.nSection == nIndex; }),
                     m_vSymbols.end());
    for (SSymbol& symbol : m_vSymbols)
    {
        symbol.nSection -= symbol.nSection > nIndex ? 1 : 0;
    }
    return true;
}

const std::string* zccBinary::FindInternal(const std::string& strName) const
{
    const auto it = m_Internal.find(strName);
    return it == m_Internal.end() ? nullptr : &it->second;
}

std::vector<zccBinary::SSymbol>::iterator zccBinary::FindSymbol(zccSections id, const std::string& strName)
{
    const size_t nIndex = IndexOf(id);
    return std::find_if(m_vSymbols.begin(), m_vSymbols.end(),
                        [&](const SSymbol& symbol) { return symbol.nSection == nIndex && symbol.strName == strName; });
}

bool zccBinary::FindBlock(zccSections id, const std::string& strName, std::string_view& block) const
{
    const auto it = const_cast<zccBinary*>(this)->FindSymbol(id, strName);
    if (it == m_vSymbols.end())
    {
        return false;
    }
    block = std::string_view(m_vSections[it->nSection].strData).substr(it->nValue, it->nSize);
    return true;
}

bool zccBinary::SetBlock(zccSections id, const std::string& strName, std::string_view data)
{
    std::string* pSection = FindSection(id, true);
    const size_t nIndex = IndexOf(id);
    if (pSection == nullptr || nIndex == s_nNone)
    {
        return false;
    }
    const auto it = FindSymbol(id, strName);
    if (it == m_vSymbols.end())
    {
        m_vSymbols.push_back({strName, STT_OBJECT, nIndex, pSection->size(), data.size()});
        pSection->append(data);
        return true;
    }
    const uint64_t nOldEnd = it->nValue + it->nSize;
    pSection->replace(it->nValue, it->nSize, data.data(), data.size());
    for (SSymbol& symbol : m_vSymbols)
    {
        if (&symbol != &*it && symbol.nSection == nIndex && symbol.nValue >= nOldEnd)
        {
            symbol.nValue = symbol.nValue - it->nSize + data.size();
        }
    }
    it->nSize = data.size();
    return true;
}

bool zccBinary::RemoveBlock(zccSections id, const std::string& strName)
{
    const auto it = FindSymbol(id, strName);
    if (it == m_vSymbols.end())
    {
        return false;
    }
    m_vSymbols.erase(it);
    return true;
}

bool zccBinary::AddArgument(const std::string& strKernel, const std::string& strName, bool bByValue)
{
    const std::string strSymbol = "__OpenCL_" + strKernel + "_metadata";
    std::string_view block;
    SKernelMetadata metadata;
    SDiagnostic diag;
    if (!FindBlock(zccRODATA, strSymbol, block) || !ReadKernelMetadata(block, metadata, diag))
    {
        return false;
    }
    std::string strMetadata(block);
    const size_t nPlace = FindArgumentEnd(strMetadata);
    if (nPlace == std::string::npos)
    {
        return false;
    }
    const std::string strOffset = std::to_string(metadata.nConstantBuffer1Elements * 16);
    // How many fields a pointer has depends on the block's revision.
    const std::string strFurther = metadata.nPointerFields > 10 ? ":RW:0:0" : metadata.nPointerFields > 9 ? ":RW" : "";
    const std::string strLine = bByValue
                                    ? ";value:" + strName + ":i32:1:1:" + strOffset + "\n"
                                    : ";pointer:" + strName + ":i32:1:1:" + strOffset + ":uav:11:4" + strFurther + "\n";
    return SetBlock(zccRODATA, strSymbol, strMetadata.insert(nPlace, strLine));
}

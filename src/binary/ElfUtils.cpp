#include "binary/ElfUtils.h"

#include "binary/CLMetadata.h"
#include "binary/ElfImage.h"

#include "core/SDULogger.h"

#include <algorithm>

namespace OVK_ElfUtils
{

namespace
{

constexpr char s_Prefix[] = "__OpenCL_";
constexpr size_t s_nPrefixLength = sizeof(s_Prefix) - 1;

bool HasSmallPlace(uint64_t value, uint64_t size)
{
    return SDU_Assert(value <= 0xFFFFFFFFULL) && SDU_Assert(size <= 0xFFFFFFFFULL) &&
           SDU_Assert(value + size <= 0xFFFFFFFFULL);
}

} // namespace

std::string GetKernelSymbolName(const std::string& strKernelName, const std::string& strExtension)
{
    return s_Prefix + strKernelName + "_" + strExtension;
}

bool GetKernelNameFromSymbol(const std::string& strSymbolName, const std::string& strExtension,
                             std::string* pstrKernelName)
{
    const std::string strEnd = "_" + strExtension;
    if (strSymbolName.size() < s_nPrefixLength + strEnd.size() ||
        strSymbolName.compare(0, s_nPrefixLength, s_Prefix) != 0 ||
        strSymbolName.compare(strSymbolName.size() - strEnd.size(), strEnd.size(), strEnd) != 0)
    {
        return false;
    }
    *pstrKernelName = strSymbolName.substr(s_nPrefixLength, strSymbolName.size() - s_nPrefixLength - strEnd.size());
    return true;
}

bool HasBlock(const CElfSymbolTable::TableEntry& entry)
{
    const uint64_t nValue = entry.symEntry.st_value;
    const uint64_t nSize = entry.symEntry.st_size;
    // An undefined symbol names the null section.
    if (entry.symSection == nullptr || entry.symSection->GetType() == SHT_NULL || !HasSmallPlace(nValue, nSize))
    {
        return false;
    }
    return nValue + nSize <= entry.symSection->GetDataSize();
}

bool RemoveElfSection(std::vector<char>* pvBinary, const std::string& strSectionName)
{
    return ChangeImage(pvBinary,
                       [&](CElf& elf)
                       {
                           elf.RemoveSection(strSectionName);
                           return elf.GetSection(strSectionName) == nullptr;
                       });
}

bool RemoveElfSymbol(std::vector<char>* pvBinary, const std::string& strSymbolName)
{
    return ChangeImage(pvBinary,
                       [&](CElf& elf)
                       {
                           if (elf.GetSymbolTable() != nullptr)
                           {
                               elf.GetSymbolTable()->RemoveSymbol(strSymbolName);
                           }
                           return true;
                       });
}

bool ListAvailableMetadata(const std::vector<char>& vInputElf, std::vector<std::string>& vStrKernelNames)
{
    const CElf elf(vInputElf);
    const CElfSymbolTable* pSymbols = elf.GetSymbolTable();
    if (!elf.good() || pSymbols == nullptr)
    {
        return false;
    }
    std::for_each(pSymbols->SymbolsBegin(), pSymbols->SymbolsEnd(),
                  [&vStrKernelNames](const CElfSymbolTable::TableEntry& entry)
                  {
                      std::string strKernelName;
                      if (GetKernelNameFromSymbol(entry.symName, "metadata", &strKernelName))
                      {
                          vStrKernelNames.push_back(strKernelName);
                      }
                  });
    return true;
}

bool GetDataFromSection(const std::string& strSection, const std::vector<char>& vInputElf, std::vector<char>* pvData)
{
    const CElf elf(vInputElf);
    const CElfSection* pSection = elf.good() ? elf.GetSection(strSection) : nullptr;
    if (pSection == nullptr || pvData == nullptr)
    {
        return false;
    }
    *pvData = pSection->GetData();
    return true;
}

bool ExtractBinaryILFromElf(const std::vector<char>& vInputElf, std::vector<unsigned int>* pvOutputIL)
{
    std::vector<char> vData;
    if (pvOutputIL == nullptr || !GetDataFromSection(".debugilbin", vInputElf, &vData))
    {
        return false;
    }
    pvOutputIL->resize(vData.size() / sizeof(unsigned int));
    std::copy_n(vData.begin(), pvOutputIL->size() * sizeof(unsigned int), reinterpret_cast<char*>(pvOutputIL->data()));
    return true;
}

bool GetDataForSymbol(const std::string& strSymbolName, const CElf* pElf, std::vector<char>* pvData)
{
    CElfSymbolTable* pSymbols = pElf != nullptr && pElf->good() ? pElf->GetSymbolTable() : nullptr;
    if (pSymbols == nullptr)
    {
        return false;
    }
    const auto symbol = pSymbols->GetSymbol(strSymbolName);
    if (symbol == pSymbols->SymbolsEnd() || !HasBlock(*symbol))
    {
        return false;
    }
    if (pvData != nullptr)
    {
        const char* pBlock = symbol->symSection->GetData().data() + symbol->symEntry.st_value;
        pvData->assign(pBlock, pBlock + symbol->symEntry.st_size);
    }
    return true;
}

bool GetDataForSymbol(const std::string& strSymbolName, const std::vector<char>& vInputElf, std::vector<char>* pvData)
{
    const CElf elf(vInputElf);
    return GetDataForSymbol(strSymbolName, &elf, pvData);
}

bool ExtractMetadataFromElf(const std::vector<char>& vInputElf, const std::string& strKernelName,
                            std::string* pstrOutputMetadata)
{
    std::vector<char> vText;
    if (pstrOutputMetadata == nullptr ||
        !GetDataForSymbol(GetKernelSymbolName(strKernelName, "metadata"), vInputElf, &vText))
    {
        return false;
    }
    pstrOutputMetadata->assign(vText.begin(), std::find(vText.begin(), vText.end(), '\0'));
    return true;
}

bool GetKernelFunctionNumber(const std::string& strKernelName, const std::vector<char>& vBinary,
                             unsigned int* pnFunctionNumber)
{
    std::vector<char> vText;
    OVK_ShaderDebugger::CCLMetadata metadata;
    if (pnFunctionNumber == nullptr ||
        !GetDataForSymbol(GetKernelSymbolName(strKernelName, "metadata"), vBinary, &vText) ||
        !metadata.FromString(std::string(vText.begin(), vText.end())))
    {
        return false;
    }
    *pnFunctionNumber = metadata.GetFunctionNumber();
    return true;
}

namespace
{

/// Whether all symbols lie below 4 GiB; looked at before the first one moves.
bool HaveSmallPlaces(const CElfSymbolTable& symbols)
{
    return std::all_of(symbols.SymbolsBegin(), symbols.SymbolsEnd(),
                       [](const CElfSymbolTable::TableEntry& entry)
                       {
                           const uint64_t symValue = entry.symEntry.st_value;
                           const uint64_t symSize = entry.symEntry.st_size;
                           return SDU_Assert(symValue <= 0xFFFFFFFFULL) && SDU_Assert(symSize <= 0xFFFFFFFFULL) &&
                                  SDU_Assert(symValue + symSize <= 0xFFFFFFFFULL);
                       });
}

} // namespace

bool SetDataForSymbol(const std::string& strSymbolName, CElf* pElf, const char* pData, size_t nDataSize)
{
    CElfSymbolTable* pSymbols = pElf != nullptr && pElf->good() ? pElf->GetSymbolTable() : nullptr;
    if (pSymbols == nullptr || (pData == nullptr && nDataSize != 0))
    {
        return false;
    }
    const auto symbol = pSymbols->GetSymbol(strSymbolName);
    if (symbol == pSymbols->SymbolsEnd() || !HasBlock(*symbol) || !HaveSmallPlaces(*pSymbols))
    {
        return false;
    }

    const uint64_t nValue = symbol->symEntry.st_value;
    const uint64_t nOldEnd = nValue + symbol->symEntry.st_size;
    if (nDataSize > 0xFFFFFFFFULL - nValue)
    {
        return false;
    }

    CElfSection& section = *symbol->symSection;
    const char* pOld = section.GetData().data();
    std::vector<char> vNew;
    vNew.reserve(section.GetDataSize() - symbol->symEntry.st_size + nDataSize);
    vNew.insert(vNew.end(), pOld, pOld + nValue);
    vNew.insert(vNew.end(), pData, pData + nDataSize);
    vNew.insert(vNew.end(), pOld + nOldEnd, pOld + section.GetDataSize());
    section.GetMutableData().swap(vNew);

    // Modulo 2^64, so that a shorter block moves the others back.
    const uint64_t nChange = nDataSize - symbol->symEntry.st_size;
    for (auto other = pSymbols->SymbolsBegin(); other != pSymbols->SymbolsEnd(); ++other)
    {
        if (other != symbol && other->symSection == &section && other->symEntry.st_value >= nOldEnd)
        {
            other->symEntry.st_value += nChange;
        }
    }
    symbol->symEntry.st_size = nDataSize;
    return true;
}

bool SetDataForSymbol(const std::string& strSymbolName, std::vector<char>* pvBinary, const char* pData,
                      size_t nDataSize)
{
    return ChangeImage(pvBinary, [&](CElf& elf) { return SetDataForSymbol(strSymbolName, &elf, pData, nDataSize); });
}

bool InsertMetadataIntoElf(CElf* pElf, const std::string& strKernelName, const std::string& strInputMetadata)
{
    return SetDataForSymbol(GetKernelSymbolName(strKernelName, "metadata"), pElf, strInputMetadata.data(),
                            strInputMetadata.size());
}

bool InsertMetadataIntoElf(std::vector<char>* pvBinary, const std::string& strKernelName,
                           const std::string& strInputMetadata)
{
    return ChangeImage(pvBinary,
                       [&](CElf& elf) { return InsertMetadataIntoElf(&elf, strKernelName, strInputMetadata); });
}

bool InsertTextOvkILIntoElf(CElf* pElf, const std::string& strKernelName, const std::string& strInputIL)
{
    return SetDataForSymbol(GetKernelSymbolName(strKernelName, "ovkil"), pElf, strInputIL.data(), strInputIL.size());
}

bool InsertTextOvkILIntoElf(std::vector<char>* pvBinary, const std::string& strKernelName,
                            const std::string& strInputIL)
{
    return ChangeImage(pvBinary, [&](CElf& elf) { return InsertTextOvkILIntoElf(&elf, strKernelName, strInputIL); });
}

} // namespace OVK_ElfUtils

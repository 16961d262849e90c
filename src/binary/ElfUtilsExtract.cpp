#include "binary/ElfUtils.h"

#include "binary/ElfImage.h"

#include <map>

namespace OVK_ElfUtils
{

namespace
{

typedef std::map<CElfSection*, std::vector<char>> SectionContents;

/// Copies one block of the kernel after those that were taken from its section before, and points its
/// symbol at the copy.
bool TakeBlock(const std::string& strSymbolName, CElfSymbolTable& symbols, SectionContents& mapContents)
{
    const auto symbol = symbols.GetSymbol(strSymbolName);
    if (symbol == symbols.SymbolsEnd() || !HasBlock(*symbol))
    {
        return false;
    }
    const char* pBlock = symbol->symSection->GetData().data() + symbol->symEntry.st_value;
    std::vector<char>& vContents = mapContents[symbol->symSection];
    symbol->symEntry.st_value = vContents.size();
    vContents.insert(vContents.end(), pBlock, pBlock + symbol->symEntry.st_size);
    return true;
}

/// Removes the symbols of an extension that are another kernel's.
void RemoveOthers(const std::string& strKernelName, const std::string& strExtension, CElfSymbolTable& symbols)
{
    symbols.RemoveSymbolsIf(
        [&](const CElfSymbolTable::TableEntry& entry)
        {
            std::string strOther;
            return GetKernelNameFromSymbol(entry.symName, strExtension, &strOther) && strOther != strKernelName;
        });
}

bool ExtractKernelSymbolsFromSections(const std::string& strKernelName, CElfSymbolTable& symbols)
{
    SectionContents mapContents;
    for (const char* szExtension : {"metadata", "header", "ovkil"})
    {
        if (!TakeBlock(GetKernelSymbolName(strKernelName, szExtension), symbols, mapContents))
        {
            return false;
        }
        RemoveOthers(strKernelName, szExtension, symbols);
    }
    for (auto& contents : mapContents)
    {
        contents.first->GetMutableData().swap(contents.second);
    }
    return true;
}

void RemoveFunctionMetadataSymbols(CElfSymbolTable& symbols)
{
    symbols.RemoveSymbolsIf(
        [](const CElfSymbolTable::TableEntry& entry)
        {
            std::string strFunction;
            return GetKernelNameFromSymbol(entry.symName, "fmetadata", &strFunction);
        });
}

} // namespace

bool ExtractKernelFromBinary(const std::string& strKernelName, const std::vector<char>& vInputBinary,
                             std::vector<char>* pvOutputBinary)
{
    CElf elf(vInputBinary);
    CElfSymbolTable* pSymbols = elf.GetSymbolTable();
    if (pvOutputBinary == nullptr || !elf.good() || pSymbols == nullptr ||
        !ExtractKernelSymbolsFromSections(strKernelName, *pSymbols))
    {
        return false;
    }

    elf.RemoveSection(".text");
    elf.RemoveSection(".llvmir");
    RemoveFunctionMetadataSymbols(*pSymbols);
    return elf.Store(pvOutputBinary);
}

} // namespace OVK_ElfUtils

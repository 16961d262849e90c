#include "fuzz/ElfChanges.h"

#include "fuzz/Targets.h"

#include "binary/Elf.h"
#include "binary/ElfUtils.h"

#include <algorithm>
#include <sstream>

namespace KestrelFuzz
{

namespace
{

constexpr size_t s_nMaxKernels = 4;

std::string NameOf(const CElfSection* pSection)
{
    return pSection == nullptr ? "none" : pSection->GetName();
}

/// Every section and symbol as text, without offsets. Rebuilt tables are compared by their contents.
std::string Describe(const CElf& elf)
{
    std::ostringstream text;
    text << int(elf.GetClass()) << " " << elf.GetType() << " " << elf.GetMachine() << " " << elf.GetEntry() << " "
         << elf.GetFlags() << "\n";
    const CElfSymbolTable* pSymbols = elf.GetSymbolTable();
    for (auto it = elf.SectionsBegin(); it != elf.SectionsEnd(); ++it)
    {
        const CElfSection& section = **it;
        const bool bRebuilt = *it == pSymbols || dynamic_cast<const CElfStringTable*>(*it) != nullptr;
        text << section.GetName() << ": " << section.GetType() << " " << section.GetFlags() << " "
             << section.GetAddress() << " " << section.GetAddrAlign() << " " << section.GetEntrySize() << " "
             << NameOf(section.GetLinkSection()) << " " << NameOf(section.GetInfoSection()) << " "
             << (bRebuilt ? "" : std::string(section.GetData().begin(), section.GetData().end())) << "\n";
    }
    if (pSymbols != nullptr)
    {
        for (auto symbol = pSymbols->SymbolsBegin(); symbol != pSymbols->SymbolsEnd(); ++symbol)
        {
            text << symbol->symName << " " << int(symbol->symEntry.st_info) << " " << int(symbol->symEntry.st_other)
                 << " " << NameOf(symbol->symSection) << "@" << symbol->symEntry.st_value << "+"
                 << symbol->symEntry.st_size << "\n";
        }
    }
    return text.str();
}

/// One symbol's block, as far as it is within its section.
struct SBlock
{
    const CElfSection* pSection = nullptr;
    uint64_t nBegin = 0;
    uint64_t nEnd = 0;
    std::string strData;

    bool IsThere() const { return pSection != nullptr; }
};

std::vector<SBlock> Blocks(const CElf& elf)
{
    std::vector<SBlock> vBlocks;
    const CElfSymbolTable* pSymbols = elf.GetSymbolTable();
    for (auto symbol = pSymbols->SymbolsBegin(); symbol != pSymbols->SymbolsEnd(); ++symbol)
    {
        const uint64_t nValue = symbol->symEntry.st_value;
        const uint64_t nSize = symbol->symEntry.st_size;
        const size_t nData = symbol->symSection != nullptr ? symbol->symSection->GetDataSize() : 0;
        SBlock block;
        if (symbol->symSection != nullptr && nValue <= nData && nSize <= nData - nValue)
        {
            const char* pData = symbol->symSection->GetData().data() + nValue;
            block = {symbol->symSection, nValue, nValue + nSize, std::string(pData, nSize)};
        }
        vBlocks.push_back(block);
    }
    return vBlocks;
}

/// Whether a section is the symbol table or a table of names, whose data is rebuilt when an image is written.
bool IsTable(const CElf& elf, const CElfSection* pSection)
{
    return pSection == elf.GetSymbolTable() || dynamic_cast<const CElfStringTable*>(pSection) != nullptr;
}

/// Changing a block's size must not change what other symbols name.
void CheckNeighbours(const std::vector<char>& vBefore, const std::vector<char>& vAfter, const std::string& strSymbol)
{
    const CElf before(vBefore);
    const CElf after(vAfter);
    const std::vector<SBlock> vOld = Blocks(before);
    const std::vector<SBlock> vNew = Blocks(after);
    Require(vOld.size() == vNew.size(), "the symbols stay as many when a block changes");
    const auto symbol = before.GetSymbolTable()->GetSymbol(strSymbol);
    const SBlock& changed = vOld[static_cast<size_t>(symbol - before.GetSymbolTable()->SymbolsBegin())];
    for (size_t i = 0; i < vOld.size(); ++i)
    {
        const SBlock& old = vOld[i];
        // An empty block overlaps nothing.
        const bool bApart =
            &old != &changed && old.IsThere() && changed.IsThere() &&
            (old.pSection != changed.pSection || old.nEnd <= changed.nBegin || old.nBegin >= changed.nEnd);
        if (bApart && !IsTable(before, old.pSection))
        {
            Require(vNew[i].IsThere() && vNew[i].strData == old.strData,
                    "a block that changes its size leaves the others what they are", strSymbol);
        }
    }
}

void ChangeMetadata(const std::vector<char>& vImage, const std::string& strKernel, const ImageSink& sink)
{
    std::string strMetadata;
    if (!OVK_ElfUtils::ExtractMetadataFromElf(vImage, strKernel, &strMetadata))
    {
        return;
    }
    const std::string strSymbol = OVK_ElfUtils::GetKernelSymbolName(strKernel, "metadata");
    const CElf elf(vImage);
    const bool bTable = IsTable(elf, elf.GetSymbolTable()->GetSymbol(strSymbol)->symSection);
    const std::string texts[] = {strMetadata + ";more:of:it\n", strMetadata.substr(0, strMetadata.size() / 2), ""};
    for (const std::string& strText : texts)
    {
        std::vector<char> vChanged = vImage;
        if (!OVK_ElfUtils::InsertMetadataIntoElf(&vChanged, strKernel, strText))
        {
            Require(vChanged == vImage, "a change that fails leaves the image alone");
            continue;
        }
        sink("insert metadata", vChanged);
        std::string strRead;
        const bool bRead = OVK_ElfUtils::ExtractMetadataFromElf(vChanged, strKernel, &strRead) && strRead == strText;
        Require(bRead || bTable, "inserted metadata is read back", strKernel);
        CheckNeighbours(vImage, vChanged, strSymbol);
    }
}

std::string DebugText(const std::vector<char>& vImage)
{
    std::vector<char> vText;
    OVK_ElfUtils::GetDataFromSection(".debugil", vImage, &vText);
    return std::string(vText.begin(), vText.end());
}

void ChangeEntry(const std::vector<char>& vImage, const std::string& strKernel, const ImageSink& sink)
{
    std::vector<char> vPatched = vImage;
    unsigned int nNumber = 0;
    if (!OVK_ElfUtils::PatchKernelEntry(strKernel, &vPatched) ||
        !OVK_ElfUtils::GetKernelFunctionNumber(strKernel, vImage, &nNumber))
    {
        return;
    }
    sink("patch the entry", vPatched);
    std::vector<char> vBack = vPatched;
    Require(OVK_ElfUtils::UnpatchKernelEntry(strKernel, &vBack), "an entry that was patched is found again");
    sink("unpatch the entry", vBack);
    if (DebugText(vImage).find("call " + std::to_string(nNumber)) == std::string::npos)
    {
        Require(DebugText(vBack) == DebugText(vImage), "unpatching gives the text that was patched");
    }
}

/// Whether a kernel's metadata is in a section that isn't copied when the kernel is extracted.
bool LosesMetadata(const std::vector<char>& vImage, const std::string& strKernel)
{
    const CElf elf(vImage);
    const auto symbol = elf.GetSymbolTable()->GetSymbol(OVK_ElfUtils::GetKernelSymbolName(strKernel, "metadata"));
    const std::string& strSection = symbol->symSection->GetName();
    return strSection == ".text" || strSection == ".llvmir";
}

void TakeKernelOut(const std::vector<char>& vImage, const std::string& strKernel, const ImageSink& sink)
{
    std::vector<char> vKernel;
    if (!OVK_ElfUtils::ExtractKernelFromBinary(strKernel, vImage, &vKernel))
    {
        return;
    }
    sink("extract a kernel", vKernel);
    std::vector<std::string> vNames;
    OVK_ElfUtils::ListAvailableMetadata(vKernel, vNames);
    const bool bAlone =
        std::all_of(vNames.begin(), vNames.end(), [&](const std::string& strName) { return strName == strKernel; });
    Require(bAlone && (!vNames.empty() || LosesMetadata(vImage, strKernel)), "a kernel that is taken out is alone",
            strKernel);
}

void RemoveThings(const std::vector<char>& vImage, const ImageSink& sink)
{
    std::vector<char> vLess = vImage;
    for (const char* pszName : {".ovkil", ".llvmir", ".text", ".debugil", ".rodata", ".strtab", ".symtab", ""})
    {
        if (OVK_ElfUtils::RemoveElfSection(&vLess, pszName))
        {
            sink("remove a section", vLess);
        }
    }
    const CElf elf(vImage);
    const CElfSymbolTable* pSymbols = elf.GetSymbolTable();
    for (size_t i = 0; pSymbols != nullptr && i < std::min<size_t>(pSymbols->GetNumSymbols(), s_nMaxKernels); ++i)
    {
        std::vector<char> vOther = vImage;
        if (OVK_ElfUtils::RemoveElfSymbol(&vOther,
                                          (pSymbols->SymbolsBegin() + static_cast<std::ptrdiff_t>(i))->symName))
        {
            sink("remove a symbol", vOther);
        }
    }
}

void ConvertText(const std::vector<char>& vImage, const ImageSink& sink)
{
    std::vector<char> vBoth = vImage;
    std::vector<unsigned int> vTokens;
    if (OVK_ElfUtils::InsertTextDebugILIntoElf(&vBoth, DebugText(vImage) + "\n;\n"))
    {
        sink("insert text", vBoth);
    }
    vBoth = vImage;
    if (!OVK_ElfUtils::AddILBinarySection(&vBoth, "debugil", "debugilbin", false, "") ||
        !OVK_ElfUtils::ExtractBinaryILFromElf(vBoth, &vTokens) || vTokens.empty())
    {
        return;
    }
    sink("assemble", vBoth);
    if (OVK_ElfUtils::InsertBinaryILIntoElf(&vBoth, vTokens.data(), vTokens.size() * sizeof(vTokens[0]), ""))
    {
        sink("insert tokens", vBoth);
    }
}

} // namespace

void CheckWritten(const char* pszChange, const std::vector<char>& vImage)
{
    CElf elf(vImage);
    Require(elf.good(), "what the ELF code writes it reads", pszChange);
    const std::string strDescription = Describe(elf);
    std::vector<char> vAgain;
    Require(elf.Store(&vAgain), "what was read of a written image is written again", pszChange);
    Require(vAgain == vImage, "an image that was written is written again as it is", pszChange);
    Require(Describe(CElf(vAgain)) == strDescription, "writing keeps sections and symbols", pszChange);
}

void ChangeImage(const std::vector<char>& vImage, const ImageSink& sink)
{
    CElf elf(vImage);
    std::vector<char> vStored;
    if (!elf.good() || !elf.Store(&vStored))
    {
        return;
    }
    sink("write", vStored);
    const std::string strBefore = Describe(CElf(vImage));
    const std::string strAfter = Describe(CElf(vStored));
    Require(strAfter == strBefore, "writing keeps sections and symbols", strBefore + "---\n" + strAfter);

    RemoveThings(vImage, sink);
    ConvertText(vImage, sink);
    std::vector<std::string> vKernels;
    OVK_ElfUtils::ListAvailableMetadata(vImage, vKernels);
    vKernels.resize(std::min(vKernels.size(), s_nMaxKernels));
    for (const std::string& strKernel : vKernels)
    {
        ChangeMetadata(vImage, strKernel, sink);
        ChangeEntry(vImage, strKernel, sink);
        TakeKernelOut(vImage, strKernel, sink);
    }
}

} // namespace KestrelFuzz

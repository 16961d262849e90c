#include "binary/ElfUtils.h"

#include "binary/ElfImage.h"
#include "binary/ILProcessingStateMachine.h"
#include "binary/ILTranslator.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace OVK_ElfUtils
{

using OVK_ShaderDebugger::ovkAssembleIL;
using OVK_ShaderDebugger::ovkDisassembleIL;
using OVK_ShaderDebugger::ovkIsAssemblingWithQRL;

namespace
{

constexpr char s_WaveSize[] = "dcl_wavesize";
constexpr char s_WaveSizeRemoved[] = "; DCL_WAVESIZE removed\n";

void RemoveWaveSize(std::string& strILText)
{
    size_t nFound = strILText.find(s_WaveSize);
    if (nFound == std::string::npos)
    {
        return;
    }

    std::string strResult;
    size_t nCopied = 0;
    while (nFound != std::string::npos)
    {
        strResult.append(strILText, nCopied, nFound - nCopied);
        strResult += s_WaveSizeRemoved;
        nCopied = std::min(strILText.find('\n', nFound), strILText.size());
        nFound = strILText.find(s_WaveSize, nCopied);
    }
    strResult.append(strILText, nCopied, std::string::npos);
    strILText.swap(strResult);
}

void RemoveWhitespace(std::string& strILText)
{
    if (strILText.size() > std::numeric_limits<unsigned int>::max())
    {
        return;
    }
    unsigned int nSize = 0;
    OVK_ShaderDebugger::ILProcessingStateMachine filter(strILText.data(), static_cast<unsigned int>(strILText.size()),
                                                        &strILText[0]);
    filter.execute(&nSize);
    if (nSize < strILText.size())
    {
        strILText.resize(nSize);
    }
}

void PrepareILText(std::string& strILText)
{
    const bool usingQRL = ovkIsAssemblingWithQRL();
    ProcessILText(strILText, !usingQRL, usingQRL);
}

bool ConvertILTextToBinary(const std::vector<char>& vText, std::vector<char>& vNewData, const std::string& strDevice)
{
    std::string strILText(vText.begin(), vText.end());
    PrepareILText(strILText);

    std::vector<unsigned char> vILBytecode;
    if (!ovkAssembleIL(strILText, &vILBytecode, strDevice))
    {
        return false;
    }
    vNewData.assign(vILBytecode.begin(), vILBytecode.end());
    return true;
}

bool ConvertILBinaryToText(const std::vector<char>& vTokens, std::vector<char>& vNewData, const std::string& strDevice)
{
    std::string strILText;
    if (!ovkDisassembleIL(std::vector<unsigned char>(vTokens.begin(), vTokens.end()), &strILText, strDevice))
    {
        return false;
    }
    PrepareILText(strILText);
    vNewData.assign(strILText.begin(), strILText.end());
    return true;
}

/// The kernel of the first symbol with the extension.
CElfSymbolTable::SymbolIterator FindKernelSymbol(CElfSymbolTable& symbols, const std::string& strExtension,
                                                 std::string& strKernelName)
{
    auto symbol = symbols.SymbolsBegin();
    while (symbol != symbols.SymbolsEnd() && !GetKernelNameFromSymbol(symbol->symName, strExtension, &strKernelName))
    {
        ++symbol;
    }
    return symbol;
}

/// Points the kernel's symbol for the new section at the whole of it.
bool UpdateKernelSymbol(CElf& elf, const std::string& strSourceName, const std::string& strDestName, CElfSection& dest)
{
    CElfSymbolTable* pSymbols = elf.GetSymbolTable();
    if (pSymbols == nullptr)
    {
        return false;
    }
    std::string strKernelName;
    const auto source = FindKernelSymbol(*pSymbols, strSourceName, strKernelName);
    if (source == pSymbols->SymbolsEnd())
    {
        return false;
    }

    const std::string strNewName = GetKernelSymbolName(strKernelName, strDestName);
    const auto existing = pSymbols->GetSymbol(strNewName);
    const bool bExists = existing != pSymbols->SymbolsEnd();
    const Elf64_Sym model = bExists ? existing->symEntry : source->symEntry;
    const unsigned char bind = ELF64_ST_BIND(model.st_info);
    const unsigned char type = ELF64_ST_TYPE(model.st_info);
    const Elf64_Xword nSize = dest.GetDataSize();
    return bExists ? pSymbols->SetInfo(existing, strNewName, bind, type, model.st_other, &dest, 0, nSize)
                   : pSymbols->AddSymbol(strNewName, bind, type, model.st_other, &dest, 0, nSize);
}

typedef bool (*ConvertFunction)(const std::vector<char>& vData, std::vector<char>& vNewData,
                                const std::string& strDevice);

/// Converts one section's bytes into another section, which is made like the first if it isn't there.
bool AddSection(const std::string& strSourceName, const std::string& strDestName, CElf* pElf,
                ConvertFunction pfnConvert, bool bUpdateSymbols, const std::string& strDevice)
{
    const CElfSection* pSource = pElf != nullptr && pElf->good() ? pElf->GetSection("." + strSourceName) : nullptr;
    std::vector<char> vNewData;
    if (pSource == nullptr || !pfnConvert(pSource->GetData(), vNewData, strDevice))
    {
        return false;
    }

    CElfSection* pDest = pElf->GetSection("." + strDestName);
    if (pDest == nullptr)
    {
        pDest = pElf->AddSection("." + strDestName, pSource->GetType(), pSource->GetFlags(), pSource->GetInfo(),
                                 pSource->GetAddrAlign(), pSource->GetEntrySize());
    }
    if (pDest == nullptr)
    {
        return false;
    }
    pDest->GetMutableData().swap(vNewData);
    return !bUpdateSymbols || UpdateKernelSymbol(*pElf, strSourceName, strDestName, *pDest);
}

bool IsWordCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

/// A text that is looked for, and what is to stand in its place.
struct SReplacement
{
    const std::string& strFind;
    const std::string& strReplaceWith;
};

/// Whether a text put between two places of another would be a word of its own there. It must not be empty.
bool IsWord(const std::string& strText, size_t nBegin, size_t nEnd, const std::string& strBetween)
{
    const bool bGoesBack = nBegin > 0 && IsWordCharacter(strText[nBegin - 1]) && IsWordCharacter(strBetween.front());
    const bool bGoesOn = nEnd < strText.size() && IsWordCharacter(strText[nEnd]) && IsWordCharacter(strBetween.back());
    return !bGoesBack && !bGoesOn;
}

/// Finds a text in one line, as a word that doesn't stand inside a comment; it may be one itself. What replaces it has
/// to be a word there, too, so that it is found again.
size_t FindInLine(const std::string& strText, size_t nLineBegin, size_t nLineEnd, const SReplacement& replacement)
{
    const std::string& strFind = replacement.strFind;
    const char* pText = strText.data();
    const char* pLineEnd = pText + nLineEnd;
    const char* pComment = std::find(pText + nLineBegin, pLineEnd, ';');
    const char* pSearchEnd = strFind.front() != ';'                                      ? pComment
                             : static_cast<size_t>(pLineEnd - pComment) < strFind.size() ? pLineEnd
                                                                                         : pComment + strFind.size();
    for (const char* pFrom = pText + nLineBegin;;)
    {
        const char* pFound = std::search(pFrom, pSearchEnd, strFind.begin(), strFind.end());
        if (pFound == pSearchEnd)
        {
            return std::string::npos;
        }
        const auto nFound = static_cast<size_t>(pFound - pText);
        const size_t nEnd = nFound + strFind.size();
        if (IsWord(strText, nFound, nEnd, strFind) && IsWord(strText, nFound, nEnd, replacement.strReplaceWith))
        {
            return nFound;
        }
        pFrom = pFound + 1;
    }
}

/// Replaces the first occurrence that FindInLine accepts. \return false if there is none
bool ReplaceInText(std::string& strText, const std::string& strFind, const std::string& strReplaceWith)
{
    for (size_t nLineBegin = 0; nLineBegin < strText.size();)
    {
        const size_t nLineEnd = std::min(strText.find('\n', nLineBegin), strText.size());
        const size_t nFound = FindInLine(strText, nLineBegin, nLineEnd, {strFind, strReplaceWith});
        if (nFound != std::string::npos)
        {
            strText.replace(nFound, strFind.size(), strReplaceWith);
            return true;
        }
        nLineBegin = nLineEnd + 1;
    }
    return false;
}

bool FindAndReplaceInDebugIL(CElf& elf, const std::string& strFind, const std::string& strReplaceWith)
{
    CElfSection* pSection = elf.GetSection(".debugil");
    if (pSection == nullptr)
    {
        return false;
    }
    std::string strText(pSection->GetData().begin(), pSection->GetData().end());
    return ReplaceInText(strText, strFind, strReplaceWith) && pSection->SetData(strText);
}

std::string GetCallText(unsigned int nFunctionNumber)
{
    return "call " + std::to_string(nFunctionNumber);
}

} // namespace

void ProcessILText(std::string& strILText, bool removeFunctionWhitespace, bool removeDCL_WAVESIZE)
{
    if (removeDCL_WAVESIZE)
    {
        RemoveWaveSize(strILText);
    }
    if (removeFunctionWhitespace)
    {
        RemoveWhitespace(strILText);
    }
}

bool PatchKernelEntry(const std::string& strKernelName, std::vector<char>* pvBinary)
{
    unsigned int nFunctionNumber = 0;
    return pvBinary != nullptr && GetKernelFunctionNumber(strKernelName, *pvBinary, &nFunctionNumber) &&
           ChangeImage(pvBinary,
                       [=](CElf& elf) {
                           return FindAndReplaceInDebugIL(elf, s_KernelEntryPlaceholder, GetCallText(nFunctionNumber));
                       });
}

bool UnpatchKernelEntry(const std::string& strKernelName, std::vector<char>* pvBinary)
{
    unsigned int nFunctionNumber = 0;
    return pvBinary != nullptr && GetKernelFunctionNumber(strKernelName, *pvBinary, &nFunctionNumber) &&
           UnpatchKernelEntry(nFunctionNumber, pvBinary);
}

bool UnpatchKernelEntry(unsigned int nFunctionNumber, std::vector<char>* pvBinary)
{
    return ChangeImage(pvBinary,
                       [=](CElf& elf) {
                           return FindAndReplaceInDebugIL(elf, GetCallText(nFunctionNumber), s_KernelEntryPlaceholder);
                       });
}

bool AddILBinarySection(CElf* pElf, const std::string& strTextSectionName, const std::string& strBinarySectionName,
                        bool bUpdateSymbols, const std::string& strDevice)
{
    return AddSection(strTextSectionName, strBinarySectionName, pElf, ConvertILTextToBinary, bUpdateSymbols, strDevice);
}

bool AddILBinarySection(std::vector<char>* pvBinary, const std::string& strTextSectionName,
                        const std::string& strBinarySectionName, bool bUpdateSymbols, const std::string& strDevice)
{
    return ChangeImage(
        pvBinary, [&](CElf& elf)
        { return AddILBinarySection(&elf, strTextSectionName, strBinarySectionName, bUpdateSymbols, strDevice); });
}

bool AddILTextSection(CElf* pElf, const std::string& strTextSectionName, const std::string& strBinarySectionName,
                      bool bUpdateSymbols, const std::string& strDevice)
{
    return AddSection(strBinarySectionName, strTextSectionName, pElf, ConvertILBinaryToText, bUpdateSymbols, strDevice);
}

bool SetDataInSection(SectionType secType, CElf* pElf, const char* pData, size_t nDataSize,
                      const std::string& strDevice)
{
    if ((secType != ST_BINARY_IL && secType != ST_DEBUG_IL) || (pData == nullptr && nDataSize != 0) ||
        pElf == nullptr || !pElf->good())
    {
        return false;
    }
    CElfSection* pSection = pElf->GetSection(secType == ST_BINARY_IL ? ".debugilbin" : ".debugil");
    if (pSection == nullptr || pElf->GetSection(".symtab") == nullptr || pElf->GetSymbolTable() == nullptr)
    {
        return false;
    }

    pSection->SetData(pData, nDataSize);
    if (secType == ST_DEBUG_IL)
    {
        return true;
    }
    const bool bConverted = AddILTextSection(pElf, "debugil", "debugilbin", false, strDevice);
    pElf->RemoveSection(".debugilbin");
    return bConverted;
}

bool SetDataInSection(SectionType secType, std::vector<char>* pvBinary, const char* pData, size_t nDataSize,
                      const std::string& strDevice)
{
    return ChangeImage(pvBinary,
                       [&](CElf& elf) { return SetDataInSection(secType, &elf, pData, nDataSize, strDevice); });
}

bool InsertTextDebugILIntoElf(CElf* pElf, const std::string& strInputIL)
{
    return SetDataInSection(ST_DEBUG_IL, pElf, strInputIL.data(), strInputIL.size(), "");
}

bool InsertTextDebugILIntoElf(std::vector<char>* pvBinary, const std::string& strInputIL)
{
    return ChangeImage(pvBinary, [&](CElf& elf) { return InsertTextDebugILIntoElf(&elf, strInputIL); });
}

bool InsertBinaryILIntoElf(CElf* pElf, const unsigned int* pInputIL, size_t nInputILSize, const std::string& strDevice)
{
    return SetDataInSection(ST_BINARY_IL, pElf, reinterpret_cast<const char*>(pInputIL), nInputILSize, strDevice);
}

bool InsertBinaryILIntoElf(std::vector<char>* pvBinary, const unsigned int* pInputIL, size_t nInputILSize,
                           const std::string& strDevice)
{
    return ChangeImage(pvBinary,
                       [&](CElf& elf) { return InsertBinaryILIntoElf(&elf, pInputIL, nInputILSize, strDevice); });
}

} // namespace OVK_ElfUtils

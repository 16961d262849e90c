#ifndef KESTREL_BINARY_ELFUTILS_H
#define KESTREL_BINARY_ELFUTILS_H

#include <cstddef>
#include <string>
#include <vector>

class CElf;

/// What a kernel binary holds, and every way in which it is read and changed. A kernel binary is an ELF
/// image of one program, with one or more kernels; docs/kernel-binary.md lists its sections and symbols.
///
/// Each operation gives false, with no message to the caller, if the image can't be read, or what it
/// names isn't there. The forms that take a vector store the image only on success and leave it alone
/// otherwise. Nothing here has state; an operation that converts IL needs the lock under which debugger
/// work runs (see ILTranslator.h).
namespace OVK_ElfUtils
{

/// The sections that SetDataInSection can be given.
enum SectionType
{
    ST_METADATA = 0,  ///< ".rodata"
    ST_BINARY_IL = 1, ///< ".debugilbin"
    ST_OVK_IL = 2,    ///< ".ovkil"
    ST_DEBUG_IL = 3   ///< ".debugil"
};

/// The text that the compiler leaves in .debugil where the call of the kernel's function is to go; a line of its own.
constexpr const char* s_KernelEntryPlaceholder = ";$$$$$$$$$$";

/// "__OpenCL_" + the kernel's name + "_" + the extension ("metadata", "header", "ovkil", ...).
std::string GetKernelSymbolName(const std::string& strKernelName, const std::string& strExtension);

/// The name between prefix and "_" + extension.
/// \return false if the symbol's name doesn't have both
bool GetKernelNameFromSymbol(const std::string& strSymbolName, const std::string& strExtension,
                             std::string* pstrKernelName);

/// Reduces the image to one kernel: its metadata, header and .ovkil block, without code and LLVM IR.
bool ExtractKernelFromBinary(const std::string& strKernelName, const std::vector<char>& vInputBinary,
                             std::vector<char>* pvOutputBinary);

/// Puts "call N" in the placeholder's place in .debugil, N being the kernel's function number. Placeholder and call
/// are looked for as whole words outside of comments.
bool PatchKernelEntry(const std::string& strKernelName, std::vector<char>* pvBinary);

/// The reverse of PatchKernelEntry; it knows the call by its whole text. The second form takes the number.
bool UnpatchKernelEntry(const std::string& strKernelName, std::vector<char>* pvBinary);
bool UnpatchKernelEntry(unsigned int nFunctionNumber, std::vector<char>* pvBinary);

/// Removes a section with its symbols, if it is there. \return true for any image that can be read
bool RemoveElfSection(std::vector<char>* pvBinary, const std::string& strSectionName);

/// Removes the first symbol of that name, if it is there. \return true for any image that can be read
bool RemoveElfSymbol(std::vector<char>* pvBinary, const std::string& strSymbolName);

/// Assembles one section's IL text into another section, which is made if it isn't there.
/// \param strTextSectionName, strBinarySectionName  names without the leading dot
/// \param bUpdateSymbols  also point the kernel's symbol of the new section at it
/// \param strDevice       device name for the assembler; may be empty
bool AddILBinarySection(std::vector<char>* pvBinary, const std::string& strTextSectionName,
                        const std::string& strBinarySectionName, bool bUpdateSymbols, const std::string& strDevice);
bool AddILBinarySection(CElf* pElf, const std::string& strTextSectionName, const std::string& strBinarySectionName,
                        bool bUpdateSymbols, const std::string& strDevice);

/// Disassembles one section's tokens into another section; as AddILBinarySection.
bool AddILTextSection(CElf* pElf, const std::string& strTextSectionName, const std::string& strBinarySectionName,
                      bool bUpdateSymbols, const std::string& strDevice);

/// The words of .debugilbin. \return false for anything that isn't an image with tokens
bool ExtractBinaryILFromElf(const std::vector<char>& vInputElf, std::vector<unsigned int>* pvOutputIL);

/// Appends the name of each kernel that has metadata, in the order of the symbol table.
/// \return false for an image that can't be read or has no symbol table
bool ListAvailableMetadata(const std::vector<char>& vInputElf, std::vector<std::string>& vStrKernelNames);

/// The kernel's metadata text, up to the first NUL of its block.
bool ExtractMetadataFromElf(const std::vector<char>& vInputElf, const std::string& strKernelName,
                            std::string* pstrOutputMetadata);

/// Replaces the kernel's block of .ovkil.
bool InsertTextOvkILIntoElf(CElf* pElf, const std::string& strKernelName, const std::string& strInputIL);
bool InsertTextOvkILIntoElf(std::vector<char>* pvBinary, const std::string& strKernelName,
                            const std::string& strInputIL);

/// Replaces the text of .debugil.
bool InsertTextDebugILIntoElf(CElf* pElf, const std::string& strInputIL);
bool InsertTextDebugILIntoElf(std::vector<char>* pvBinary, const std::string& strInputIL);

/// Disassembles new tokens into .debugil and removes .debugilbin, which must be there.
/// \param nInputILSize  bytes at pInputIL
bool InsertBinaryILIntoElf(CElf* pElf, const unsigned int* pInputIL, size_t nInputILSize, const std::string& strDevice);
bool InsertBinaryILIntoElf(std::vector<char>* pvBinary, const unsigned int* pInputIL, size_t nInputILSize,
                           const std::string& strDevice);

/// Replaces the kernel's metadata block; blocks and symbols after it move.
bool InsertMetadataIntoElf(CElf* pElf, const std::string& strKernelName, const std::string& strInputMetadata);
bool InsertMetadataIntoElf(std::vector<char>* pvBinary, const std::string& strKernelName,
                           const std::string& strInputMetadata);

/// The kernel's function number, from its metadata.
bool GetKernelFunctionNumber(const std::string& strKernelName, const std::vector<char>& vBinary,
                             unsigned int* pnFunctionNumber);

/// The bytes of a section. \param strSection  the name with its dot
bool GetDataFromSection(const std::string& strSection, const std::vector<char>& vInputElf, std::vector<char>* pvData);

/// The block that a symbol names. \param pvData  may be null, to ask whether it is there
bool GetDataForSymbol(const std::string& strSymbolName, const CElf* pElf, std::vector<char>* pvData);
bool GetDataForSymbol(const std::string& strSymbolName, const std::vector<char>& vInputElf, std::vector<char>* pvData);

/// Replaces a whole section. Only ST_BINARY_IL and ST_DEBUG_IL can be replaced.
bool SetDataInSection(SectionType secType, CElf* pElf, const char* pData, size_t nDataSize,
                      const std::string& strDevice);
bool SetDataInSection(SectionType secType, std::vector<char>* pvBinary, const char* pData, size_t nDataSize,
                      const std::string& strDevice);

/// Replaces the block that a symbol names; blocks and symbols of the section after it move.
bool SetDataForSymbol(const std::string& strSymbolName, CElf* pElf, const char* pData, size_t nDataSize);
bool SetDataForSymbol(const std::string& strSymbolName, std::vector<char>* pvBinary, const char* pData,
                      size_t nDataSize);

/// Tidies IL text in place: for the compiler library the white space around function declarations goes
/// (ILProcessingStateMachine), for the low-level assembler the "dcl_wavesize" declarations.
void ProcessILText(std::string& strILText, bool removeFunctionWhitespace, bool removeDCL_WAVESIZE);

} // namespace OVK_ElfUtils

#endif

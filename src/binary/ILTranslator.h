#ifndef KESTREL_BINARY_ILTRANSLATOR_H
#define KESTREL_BINARY_ILTRANSLATOR_H

#include <cstddef>
#include <string>
#include <vector>

/// The conversion of IL between text and tokens, by whichever assembler there is: the low-level runtime,
/// if its use was allowed and it has the extension, or else the compiler library. Each conversion gives
/// false if there is neither, or if the assembler refuses its input; no message is written.
///
/// The choice is process-wide and without a lock of its own: conversions are debugger work and run under
/// that work's lock.
namespace OVK_ShaderDebugger
{

/// \param pvILBytecode  receives the bytes of the 32-bit tokens; unchanged on failure
/// \param strDevice     a device name; empty for the default one
bool ovkAssembleIL(const std::string& strILText, std::vector<unsigned char>* pvILBytecode,
                   const std::string& strDevice);

/// \param ilBytecodeSize  bytes; a partial word at the end is dropped by the compiler library
/// \param pstrILText      receives the text; unchanged on failure
bool ovkDisassembleIL(const std::vector<unsigned char>& vILBytecode, std::string* pstrILText,
                      const std::string& strDevice);
bool ovkDisassembleIL(const unsigned char* pILBytecode, size_t ilBytecodeSize, std::string* pstrILText,
                      const std::string& strDevice);

/// Whether text is to be prepared for the low-level assembler. True as long as its use is allowed.
bool ovkIsAssemblingWithQRL();

/// Whether the compiler library is there, as found on the first call.
bool ovkIsAssemblingWithZCC();

/// Allows the low-level assembler, for runtimes whose compiler library is too old.
void ovkSetAssemblingWithQRLAllowed(bool allowed);

} // namespace OVK_ShaderDebugger

#endif

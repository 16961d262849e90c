#ifndef KESTREL_BINARY_BIFUTILS_H
#define KESTREL_BINARY_BIFUTILS_H

#include "modules/ZCCTypes.h"

#include <cstddef>
#include <string>

class ZCCModule;

namespace OVK_ShaderDebugger
{

/// The access to the compiler library, which converts IL between text and tokens. The library and its compiler object
/// are shared by the whole process and set up on first use. No lock is taken: conversions are debugger work and run
/// under that work's lock.
class BifUtils
{
public:
    BifUtils() = delete;

    /// IL text to tokens.
    /// \param strDevice   a device name that the library knows
    /// \param pILBinOut   receives a new array of nILSizeOut 32-bit words, the caller's to delete[]
    /// \return false, with the outputs unchanged, without the library or if it refuses
    static bool ILTextToBinary(const std::string& strDevice, const std::string& strIL, unsigned int*& pILBinOut,
                               size_t& nILSizeOut);

    /// Tokens to IL text, up to its first NUL. \param nInputILSize  32-bit words at pInputIL
    static bool ILBinaryToText(const std::string& strDevice, const unsigned int* pInputIL, size_t nInputILSize,
                               std::string& strILTextOut);

    /// Loads the library if it isn't loaded yet. \return true if it is there
    static bool ZCCModuleSupported();

    /// Makes the shared compiler object, if the library is there and hasn't made it yet.
    static void InitCompiler();

    /// Releases the shared compiler object.
    static void ReleaseCompiler();

    /// The library's id for an ELF section's name; zccLAST for a name that it has none for.
    static zccSections ToSectionID(const char* szSecName);

private:
    static ZCCModule m_zccMod;
    static zccCompiler* ms_pCom;
};

} // namespace OVK_ShaderDebugger

#endif

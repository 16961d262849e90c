#ifndef KESTREL_PLATFORM_SIMT_STRUCTURE_H
#define KESTREL_PLATFORM_SIMT_STRUCTURE_H

#include "platform/simt/Decoder.h"

#include <cstdint>
#include <map>
#include <vector>

namespace KestrelPlatform
{

/// The main body, a function or a macro.
struct SBody
{
    enum EKind
    {
        Main,
        Function,
        Macro
    };
    EKind eKind = Main;
    uint32_t nLabel = 0;
    std::vector<uint32_t> vItems;   ///< items of the stream, except those of macros nested in the text
    std::vector<uint32_t> vCallees; ///< bodies called, each once
    bool bReachable = false;
    bool bReturns = false; ///< contains a return before its end
};

/// The bodies of a stream and their calls.
struct SStructure
{
    std::vector<SBody> vBodies;                ///< the main body first
    std::map<uint32_t, uint32_t> mapFunctions; ///< label to body
    std::map<uint32_t, uint32_t> mapMacros;
};

/// What the interpreter does with an opcode.
enum EOpCodeClass
{
    ClassUnsupported, ///< has no meaning on this device
    ClassIgnored,     ///< declarations, comments and hints
    ClassFlow,
    ClassLane,   ///< a rule of the lane operation tables
    ClassMemory, ///< buffers, local and private memory
    ClassImage,
    ClassSpecial ///< has a lowering of its own
};

EOpCodeClass GetOpCodeClass(uint32_t nOpCode);

/// Splits the stream into bodies and checks them: blocks must nest, calls must have a target and not
/// recurse, and the device must have all instructions.
/// \return false with the instruction and the reason
bool BuildStructure(const SDecodedStream& stream, SStructure& structure, SDecodeError& error);

} // namespace KestrelPlatform

#endif

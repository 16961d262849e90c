#ifndef KESTREL_INSTRUMENT_LOCALMEMORY_H
#define KESTREL_INSTRUMENT_LOCALMEMORY_H

namespace OVK_ShaderDebugger
{

/// A block of a work-group's local memory, and where it goes in the buffer that a memory kernel fills.
struct SLocalBlock
{
    bool bArgument = false;    ///< the memory of an argument, not what the kernel declares
    unsigned int nNumber = 0;  ///< the argument's index, or the number that the declaration has
    unsigned int nId = 0;      ///< the number through which it is read
    unsigned int nElement = 0; ///< of an argument: the element of constant buffer 1 whose x is its first address
    unsigned int nSize = 0;    ///< bytes
    unsigned int nOffset = 0;  ///< in the buffer, a multiple of 16
};

} // namespace OVK_ShaderDebugger

#endif

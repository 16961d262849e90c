#ifndef KESTREL_BINARY_ELFIMAGE_H
#define KESTREL_BINARY_ELFIMAGE_H

#include "binary/Elf.h"

#include <string>
#include <vector>

/// What the files behind ElfUtils.h share.
namespace OVK_ElfUtils
{

/// Whether the symbol names a block of bytes that its section holds. A place that doesn't fit 32 bits is logged.
bool HasBlock(const CElfSymbolTable::TableEntry& entry);

/// Reads an image, changes it, and stores it back if all of that succeeds.
/// \param change  takes a CElf& and gives whether it succeeded
/// \return false, with the bytes as they were, on any failure
template <class Change>
bool ChangeImage(std::vector<char>* pvBinary, Change change)
{
    if (pvBinary == nullptr)
    {
        return false;
    }
    CElf elf(*pvBinary);
    std::vector<char> vStored;
    if (!elf.good() || !change(elf) || !elf.Store(&vStored))
    {
        return false;
    }
    pvBinary->swap(vStored);
    return true;
}

} // namespace OVK_ElfUtils

#endif

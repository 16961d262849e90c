#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_FILETABLE_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_FILETABLE_H

#include <string>
#include <unordered_map>
#include <vector>

namespace llvm
{
class DIFile;
} // namespace llvm

namespace KestrelOpenCL
{

class CByteWriter;

/// The source files of a program, numbered from 1 as in DWARF. Linked programs may have several different sources of
/// one name: the second one gets folder 2, and so on.
class CFileTable
{
public:
    unsigned int Number(const llvm::DIFile& file);

    /// Writes the folders and files of a line table.
    void WriteNames(CByteWriter& writer) const;

    /// The section `.debugsrc`: for each file whose text is known, its number, the number of bytes, and the text,
    /// padded with zeros to a multiple of four.
    std::string WriteTexts() const;

private:
    struct SFile
    {
        std::string strFolder; ///< empty for the folder of the compilation
        std::string strName;
        std::string strText;
        bool bText = false;
    };

    unsigned int Add(SFile file);

    std::vector<SFile> m_vFiles;
    std::vector<std::string> m_vFolders;
    std::unordered_map<const llvm::DIFile*, unsigned int> m_mapNumbers;
};

} // namespace KestrelOpenCL

#endif

#include "platform/opencl_c/dwarf/FileTable.h"

#include "platform/opencl_c/dwarf/ByteWriter.h"

#include "llvm/IR/DebugInfoMetadata.h"

#include <algorithm>

namespace KestrelOpenCL
{

unsigned int CFileTable::Number(const llvm::DIFile& file)
{
    const auto it = m_mapNumbers.find(&file);
    if (it != m_mapNumbers.end())
    {
        return it->second;
    }
    SFile made;
    made.strFolder = file.getDirectory() == "." ? "" : file.getDirectory().str();
    made.strName = file.getFilename().empty() ? "-" : file.getFilename().str();
    if (const auto source = file.getSource())
    {
        made.bText = true;
        made.strText = source->str();
    }
    const unsigned int nNumber = Add(std::move(made));
    m_mapNumbers[&file] = nNumber;
    return nNumber;
}

unsigned int CFileTable::Add(SFile file)
{
    const std::string strFolder = file.strFolder;
    for (unsigned int nSame = 2;; ++nSame)
    {
        const auto it = std::find_if(m_vFiles.begin(), m_vFiles.end(),
                                     [&](const SFile& other)
                                     { return other.strName == file.strName && other.strFolder == file.strFolder; });
        if (it == m_vFiles.end())
        {
            break;
        }
        if (!file.bText || !it->bText || it->strText == file.strText)
        {
            if (file.bText)
            {
                it->bText = true;
                it->strText = std::move(file.strText);
            }
            return static_cast<unsigned int>(it - m_vFiles.begin()) + 1;
        }
        file.strFolder = (strFolder.empty() ? "" : strFolder + "/") + std::to_string(nSame);
    }
    if (!file.strFolder.empty() && std::find(m_vFolders.begin(), m_vFolders.end(), file.strFolder) == m_vFolders.end())
    {
        m_vFolders.push_back(file.strFolder);
    }
    m_vFiles.push_back(std::move(file));
    return static_cast<unsigned int>(m_vFiles.size());
}

void CFileTable::WriteNames(CByteWriter& writer) const
{
    for (const std::string& strFolder : m_vFolders)
    {
        writer.Text(strFolder);
    }
    writer.U8(0);
    for (const SFile& file : m_vFiles)
    {
        writer.Text(file.strName);
        const auto it = std::find(m_vFolders.begin(), m_vFolders.end(), file.strFolder);
        writer.Unsigned(it == m_vFolders.end() ? 0 : static_cast<uint64_t>(it - m_vFolders.begin()) + 1);
        writer.U16(0); // no time, no length
    }
    writer.U8(0);
}

std::string CFileTable::WriteTexts() const
{
    CByteWriter writer;
    for (size_t n = 0; n < m_vFiles.size(); ++n)
    {
        if (m_vFiles[n].bText)
        {
            writer.U32(n + 1);
            writer.U32(m_vFiles[n].strText.size());
            writer.Bytes(m_vFiles[n].strText);
            while (writer.Size() % 4 != 0)
            {
                writer.U8(0);
            }
        }
    }
    return writer.Data();
}

} // namespace KestrelOpenCL

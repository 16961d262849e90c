#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_TYPEDIES_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_TYPEDIES_H

#include "platform/opencl_c/dwarf/DieTree.h"
#include "platform/opencl_c/dwarf/FileTable.h"

#include "llvm/ADT/DenseMap.h"

#include <vector>

namespace llvm
{
class DICompositeType;
class DIDerivedType;
class DIFile;
class DISubroutineType;
class DIType;
} // namespace llvm

namespace KestrelOpenCL
{

/// The types of a program, each once, as children of its compile unit.
class CTypeDies
{
public:
    CTypeDies(CDieTree& tree, CFileTable& files, CDieTree::CDie unit) : m_Tree(tree), m_Files(files), m_Unit(unit) {}

    /// Sets an entry's type; void has none.
    void SetType(CDieTree::CDie die, const llvm::DIType* pType);

    /// Sets an entry's place of declaration.
    void SetPlace(CDieTree::CDie die, const llvm::DIFile* pFile, unsigned int nLine);

    /// Makes the types that other types refer to, until all are there. To be called after all calls of SetType.
    void Finish();

private:
    CDieTree::CDie Find(const llvm::DIType* pType);
    void Describe(const llvm::DIType* pType, CDieTree::CDie die);
    void DescribeDerived(const llvm::DIDerivedType& type, CDieTree::CDie die);
    void DescribeComposite(const llvm::DICompositeType& type, CDieTree::CDie die);
    void DescribeArray(const llvm::DICompositeType& type, CDieTree::CDie die);
    void DescribeEnumerators(const llvm::DICompositeType& type, CDieTree::CDie die);
    void DescribeMember(const llvm::DIDerivedType& member, CDieTree::CDie die);
    void DescribeSubroutine(const llvm::DISubroutineType& type, CDieTree::CDie die);
    void SetSize(CDieTree::CDie die, uint64_t nBits);

    CDieTree& m_Tree;
    CFileTable& m_Files;
    CDieTree::CDie m_Unit;
    llvm::DenseMap<const llvm::DIType*, CDieTree::CDie> m_mapTypes;
    std::vector<const llvm::DIType*> m_vOpen;
};

} // namespace KestrelOpenCL

#endif

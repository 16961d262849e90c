#ifndef KESTREL_BINARY_CLMETADATA_H
#define KESTREL_BINARY_CLMETADATA_H

#include "binary/CLMetadataEntries.h"

#include <string>
#include <vector>

namespace OVK_ShaderDebugger
{

/// The metadata block of one kernel: a list of entries, one a line of the text. What isn't understood is kept
/// as it stands, and the text round-trips from ARGSTART to ARGEND, apart from lines between ARGSTART and
/// the version. docs/kernel-binary.md describes the text.
///
/// A query on an object whose first entry isn't ARGSTART or whose last isn't ARGEND gives the default that its comment
/// names. The object owns its entries. One thread an object.
class CCLMetadata
{
public:
    /// Where a kernel's private arrays live.
    enum PrivateMemoryLocation
    {
        PML_UNDEFINED = 0,
        PML_INDEXED_TEMP = 1, ///< a "memory" line "hwprivate"
        PML_PRIVATE_UAV = 2   ///< a "memory" line "uavprivate"
    };

    CCLMetadata() = default;
    CCLMetadata(const CCLMetadata&) = delete;
    CCLMetadata& operator=(const CCLMetadata&) = delete;
    virtual ~CCLMetadata();

    /// Replaces the entries by those of a text. Lines before ARGSTART, between it and the version, and after ARGEND are
    /// dropped.
    /// \return false, with no entries, for a line that can't be parsed, a known type with another token count
    ///         than its own, a version that isn't supported, or an ARGEND of another function
    bool FromString(const std::string& strMetadata);

    /// Each entry's line, with a newline after it.
    std::string ToString() const;

    /// The numbers of the first "version" line. \return false if there is none or a pointer is null
    virtual bool GetVersion(unsigned int* pMajor, unsigned int* pMinor, unsigned int* pRevision) const;

    /// The name in the "device" line, or "".
    virtual std::string GetDeviceName() const;

    /// The name in the ARGSTART line, or "".
    virtual std::string GetFunctionName() const;

    /// The number in the "uniqueid" line, or 0.
    virtual unsigned int GetFunctionNumber() const;

    /// Whether a line says that addresses have 64 bits.
    virtual bool Uses64BitABI() const;

    /// The first label of the "function" line, or 0xFFFFFFFF.
    virtual unsigned int GetFunctionLabel() const;

    virtual PrivateMemoryLocation GetPrivateMemoryLocation() const;

    /// The number in the "privateid" line, or 0xFFFFFFFF.
    virtual unsigned int GetPrivateMemoryNumber() const;

    /// The number in the first "uavid" line, or 0xFFFFFFFF.
    virtual unsigned int GetUavNumber() const;

    /// Sets every "uavid" line. \return false only for an object without ARGSTART and ARGEND
    virtual bool SetUavNumber(unsigned int nUavId);

    /// Sets the size in every "memory" line whose address space contains "local". \return as SetUavNumber
    virtual bool SetLDSLimit(unsigned int nLDSLimit);

    /// The first byte of the argument constant buffer after all image, value and pointer arguments; 0 with none.
    virtual unsigned int GetNextConstantBufferOffset() const;

    virtual const std::vector<CCLMetadataEntry*>& GetEntries() const { return m_vEntries; }

    /// Inserts an entry right after ARGSTART and takes ownership. \return false for null or an empty object
    virtual bool AddEntry(CCLMetadataEntry* pEntry);

    /// Adds an entry at the end and takes ownership. \return false for null
    virtual bool AppendEntry(CCLMetadataEntry* pEntry);

    /// Takes an entry out and gives it back to the caller. \return false if it isn't in the list
    virtual bool RemoveEntry(CCLMetadataEntry* pEntry);

    /// The image, value, pointer and counter entries in order; they stay this object's.
    virtual std::vector<CCLMetadataEntry*> GetArgumentEntries() const;

    /// The entries of a kernel with so many arguments, one for each. Samplers that the host sets count among them if
    /// that makes the number right; else they are those of GetArgumentEntries. They stay this object's.
    std::vector<const CCLMetadataEntry*> GetEntriesByArgument(size_t nArguments) const;

    /// Inserts an entry after the last argument and takes ownership.
    /// \return false, with ownership left to the caller, for null or an object without ARGSTART and ARGEND
    virtual bool AddArgumentEntry(CCLMetadataEntry* pEntry);

    /// Adds a label to the "function" line, which is made if there is none. \return as SetUavNumber
    virtual bool AddFunctionLabel(unsigned int nFuncId);

    /// Whether an entry is an image, value, pointer or counter, by its type token.
    static bool IsArgumentEntry(const CCLMetadataEntry* pEntry);

    /// Whether an entry is a sampler that the host sets, as it sets arguments.
    static bool IsSamplerArgument(const CCLMetadataEntry* pEntry);

private:
    class CParser;

    typedef std::vector<CCLMetadataEntry*> EntryList;

    void Clear();
    bool HasFrame() const;
    bool Parse(const std::string& strMetadata);
    EntryList::iterator FindArgumentPlace();

    /// The first entry of a class, or null.
    template <class Entry>
    Entry* FindEntry() const;

    EntryList m_vEntries;
};

} // namespace OVK_ShaderDebugger

#endif

#ifndef KESTREL_BINARY_CLMETADATAENTRIES_H
#define KESTREL_BINARY_CLMETADATAENTRIES_H

#include <cstddef>
#include <string>
#include <vector>

namespace OVK_ShaderDebugger
{

/// One line of a metadata block, as the tokens between its colons. The ";" that a line begins with isn't
/// kept. A line of a type that isn't known is one of these; the known types derive from it.
class CCLMetadataEntry
{
public:
    virtual ~CCLMetadataEntry() = default;

    /// Takes another entry's tokens. \return false for the entry itself, or for tokens that don't fit the type
    virtual bool FromEntry(const CCLMetadataEntry& entry);

    /// Parses a line, without its newline.
    /// \return false, with the entry unchanged, for a line without ";" or of fewer than two tokens
    virtual bool FromString(const std::string& strEntry);

    /// The line, without a newline.
    virtual std::string ToString() const;

    /// The first token; "" if there is none.
    virtual std::string GetEntryType() const;

    virtual std::vector<std::string> GetTokens() const;

protected:
    std::vector<std::string> m_vstrTokens;
};

/// An entry of a known type: it has a fixed number of tokens, the first of them its type.
class CCLMetadataTypedEntry : public CCLMetadataEntry
{
public:
    bool FromEntry(const CCLMetadataEntry& entry) override;
    bool FromString(const std::string& strEntry) override;

    /// How many tokens a line of the type has, the type among them.
    virtual size_t NumTokens() const = 0;

protected:
    CCLMetadataTypedEntry(const char* szType, size_t nTokens);

    /// Whether the entry may be read and written; if not, the fault is logged.
    bool HasAllTokens() const;

    /// The token count that FromEntry accepts.
    virtual bool AcceptsTokens(size_t nTokens) const;

    std::string GetTextToken(size_t nPlace) const;
    void SetTextToken(size_t nPlace, const std::string& strValue);

    /// Decimal digits; 0 for a token that isn't a number.
    unsigned int GetNumberToken(size_t nPlace) const;
    void SetNumberToken(size_t nPlace, unsigned int nValue);

    /// "1" is true and anything else false.
    bool GetBitToken(size_t nPlace) const;
    void SetBitToken(size_t nPlace, bool bValue);
};

/// The opening of an entry class: its type token, its count of tokens, its constructor.
#define CLMETADATA_ENTRY(Class, type, tokens)                                                                          \
public:                                                                                                                \
    static constexpr const char* ClassEntryType = type;                                                                \
    Class() : CCLMetadataTypedEntry(type, tokens) {}                                                                   \
    size_t NumTokens() const override                                                                                  \
    {                                                                                                                  \
        return tokens;                                                                                                 \
    }

/// The getter and setter of a field, which is the token at its place. On an entry with another count of
/// tokens than NumTokens() the getter gives 0 or "" and the setter does nothing.
#define CLMETADATA_TEXT(Name, place)                                                                                   \
    std::string Get##Name() const                                                                                      \
    {                                                                                                                  \
        return GetTextToken(place);                                                                                    \
    }                                                                                                                  \
    void Set##Name(const std::string& strValue)                                                                        \
    {                                                                                                                  \
        SetTextToken(place, strValue);                                                                                 \
    }
#define CLMETADATA_NUMBER(Name, place)                                                                                 \
    unsigned int Get##Name() const                                                                                     \
    {                                                                                                                  \
        return GetNumberToken(place);                                                                                  \
    }                                                                                                                  \
    void Set##Name(unsigned int nValue)                                                                                \
    {                                                                                                                  \
        SetNumberToken(place, nValue);                                                                                 \
    }
#define CLMETADATA_BIT(Name, place)                                                                                    \
    bool Get##Name() const                                                                                             \
    {                                                                                                                  \
        return GetBitToken(place);                                                                                     \
    }                                                                                                                  \
    void Set##Name(bool bValue)                                                                                        \
    {                                                                                                                  \
        SetBitToken(place, bValue);                                                                                    \
    }

class CCLMetadataArgStartEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataArgStartEntry, "ARGSTART", 2)
    CLMETADATA_TEXT(FunctionName, 1)
};

class CCLMetadataArgEndEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataArgEndEntry, "ARGEND", 2)
    CLMETADATA_TEXT(FunctionName, 1)
};

class CCLMetadataVersionEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataVersionEntry, "version", 4)
    CLMETADATA_NUMBER(Major, 1)
    CLMETADATA_NUMBER(Minor, 2)
    CLMETADATA_NUMBER(Revision, 3)
};

class CCLMetadataDeviceEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataDeviceEntry, "device", 2)
    CLMETADATA_TEXT(DeviceName, 1)
};

class CCLMetadataMem64bitABIEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataMem64bitABIEntry, "mem64bitABI", 1)
};

class CCLMetadataUniqueIdEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataUniqueIdEntry, "uniqueid", 2)
    CLMETADATA_NUMBER(UniqueId, 1)
};

class CCLMetadataSamplerEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataSamplerEntry, "sampler", 5)
    CLMETADATA_TEXT(ArgumentName, 1)
    CLMETADATA_NUMBER(Id, 2)
    CLMETADATA_NUMBER(Location, 3)
    CLMETADATA_NUMBER(Value, 4)

    enum SamplerLocation
    {
        SAMPLER_LOCATION_KERNEL_ARGUMENT = 0,
        SAMPLER_LOCATION_KERNEL_DEFINED = 1
    };
};

class CCLMetadataImageEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataImageEntry, "image", 7)
    CLMETADATA_TEXT(ArgumentName, 1)
    CLMETADATA_TEXT(ImageType, 2)
    CLMETADATA_TEXT(AccessType, 3)
    CLMETADATA_NUMBER(Id, 4)
    CLMETADATA_NUMBER(ConstantBufferNumber, 5)
    CLMETADATA_NUMBER(ConstantBufferOffset, 6)

    /// Bytes that the argument takes in its constant buffer.
    virtual unsigned int GetConstantBufferEntrySize() const;
};

class CCLMetadataValueEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataValueEntry, "value", 6)
    CLMETADATA_TEXT(ArgumentName, 1)
    CLMETADATA_TEXT(DataType, 2)
    CLMETADATA_NUMBER(NumberOfElements, 3)
    CLMETADATA_NUMBER(ConstantBufferNumber, 4)
    CLMETADATA_NUMBER(ConstantBufferOffset, 5)

    /// Bytes that the argument takes in its constant buffer, a multiple of 16; at most the highest such number.
    virtual unsigned int GetConstantBufferEntrySize() const;

    /// Bytes of one element; 0, with the fault logged, for a data type that can't be a value.
    unsigned int GetElementSize() const;
};

/// A pointer argument before revision 87.
class CCLMetadataPointerEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataPointerEntry, "pointer", 9)
    CLMETADATA_TEXT(ArgumentName, 1)
    CLMETADATA_TEXT(DataType, 2)
    CLMETADATA_NUMBER(NumberOfElements, 3)
    CLMETADATA_NUMBER(ConstantBufferNumber, 4)
    CLMETADATA_NUMBER(ConstantBufferOffset, 5)
    CLMETADATA_TEXT(MemoryType, 6)
    CLMETADATA_NUMBER(BufferNumber, 7)
    CLMETADATA_NUMBER(DataTypeAlignment, 8)

    /// Bytes that the argument takes in its constant buffer.
    virtual unsigned int GetConstantBufferEntrySize() const;

protected:
    explicit CCLMetadataPointerEntry(size_t nTokens) : CCLMetadataTypedEntry(ClassEntryType, nTokens) {}
};

/// A pointer argument of revisions 87 to 99.
class CCLMetadataPointerEntryR87 : public CCLMetadataPointerEntry
{
public:
    enum AccessType
    {
        AT_UNDEFINED = 0,
        AT_READ_ONLY = 1,
        AT_WRITE_ONLY = 2,
        AT_READ_WRITE = 3
    };

    CCLMetadataPointerEntryR87() : CCLMetadataPointerEntry(10) {}

    size_t NumTokens() const override { return 10; }

    AccessType GetAccessType() const;

    /// AT_UNDEFINED is logged and changes nothing.
    void SetAccessType(AccessType eAccess);

protected:
    explicit CCLMetadataPointerEntryR87(size_t nTokens) : CCLMetadataPointerEntry(nTokens) {}
};

/// A pointer argument from revision 100 on.
class CCLMetadataPointerEntryR100 : public CCLMetadataPointerEntryR87
{
public:
    CCLMetadataPointerEntryR100() : CCLMetadataPointerEntryR87(12) {}

    size_t NumTokens() const override { return 12; }

    CLMETADATA_BIT(VolatileBit, 10)
    CLMETADATA_BIT(RestrictBit, 11)
};

class CCLMetadataCounterEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataCounterEntry, "counter", 6)
    CLMETADATA_TEXT(ArgumentName, 1)
    CLMETADATA_NUMBER(ElementSize, 2)
    CLMETADATA_NUMBER(GdsId, 3)
    CLMETADATA_NUMBER(ConstantBufferNumber, 4)
    CLMETADATA_NUMBER(ConstantBufferOffset, 5)
};

class CCLMetadataPrivateIdEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataPrivateIdEntry, "privateid", 2)
    CLMETADATA_NUMBER(PrivateId, 1)
};

class CCLMetadataUavIdEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataUavIdEntry, "uavid", 2)
    CLMETADATA_NUMBER(UavId, 1)
};

/// The labels of the kernel's functions. Several labels stand in one token, joined by ":", so that such a
/// line can be written but not read back.
class CCLMetadataFunctionEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataFunctionEntry, "function", 3)

    /// The first label.
    unsigned int GetFunctionLabel() const;
    void SetFunctionLabels(const std::vector<unsigned int>& vLabels);

    /// Adds a label after the others.
    void AddFunctionLabel(unsigned int nLabel);
};

/// A memory need. The size may be missing, and the entry then has one token less.
class CCLMetadataMemoryEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataMemoryEntry, "memory", 3)
    CLMETADATA_NUMBER(MemorySize, 2)

    /// These two work on the short form too.
    std::string GetAddressSpace() const;
    void SetAddressSpace(const std::string& strAddressSpace);

protected:
    bool AcceptsTokens(size_t nTokens) const override;

private:
    bool HasAddressSpace() const;
};

class CCLMetadataConstArgEntry : public CCLMetadataTypedEntry
{
    CLMETADATA_ENTRY(CCLMetadataConstArgEntry, "constarg", 3)
    CLMETADATA_NUMBER(ArgID, 1)
    CLMETADATA_TEXT(ArgName, 2)
};

#undef CLMETADATA_ENTRY
#undef CLMETADATA_TEXT
#undef CLMETADATA_NUMBER
#undef CLMETADATA_BIT

} // namespace OVK_ShaderDebugger

#endif

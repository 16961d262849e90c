#include "binary/CLMetadata.h"

#include "core/SDULogger.h"

#include <memory>

namespace OVK_ShaderDebugger
{

namespace
{

typedef std::unique_ptr<CCLMetadataEntry> EntryPtr;

constexpr unsigned int s_nFirstRevisionWithAccessType = 87;
constexpr unsigned int s_nFirstRevisionWithVolatile = 100;

template <class Entry>
EntryPtr Make()
{
    return EntryPtr(new Entry);
}

EntryPtr MakePointer(unsigned int nRevision)
{
    if (nRevision >= s_nFirstRevisionWithVolatile)
    {
        return Make<CCLMetadataPointerEntryR100>();
    }
    if (nRevision >= s_nFirstRevisionWithAccessType)
    {
        return Make<CCLMetadataPointerEntryR87>();
    }
    return Make<CCLMetadataPointerEntry>();
}

struct SEntryClass
{
    const char* szType;
    EntryPtr (*pfnMake)();
};

template <class Entry>
constexpr SEntryClass ClassOf()
{
    return {Entry::ClassEntryType, Make<Entry>};
}

/// Every known type but the pointer, whose class follows the revision.
constexpr SEntryClass s_Classes[] = {
    ClassOf<CCLMetadataArgStartEntry>(), ClassOf<CCLMetadataArgEndEntry>(),      ClassOf<CCLMetadataVersionEntry>(),
    ClassOf<CCLMetadataDeviceEntry>(),   ClassOf<CCLMetadataMem64bitABIEntry>(), ClassOf<CCLMetadataUniqueIdEntry>(),
    ClassOf<CCLMetadataSamplerEntry>(),  ClassOf<CCLMetadataImageEntry>(),       ClassOf<CCLMetadataValueEntry>(),
    ClassOf<CCLMetadataCounterEntry>(),  ClassOf<CCLMetadataPrivateIdEntry>(),   ClassOf<CCLMetadataUavIdEntry>(),
    ClassOf<CCLMetadataFunctionEntry>(), ClassOf<CCLMetadataMemoryEntry>(),      ClassOf<CCLMetadataConstArgEntry>()};

EntryPtr MakeForType(const std::string& strType, unsigned int nRevision)
{
    if (strType == CCLMetadataPointerEntry::ClassEntryType)
    {
        return MakePointer(nRevision);
    }
    for (const SEntryClass& entryClass : s_Classes)
    {
        if (strType == entryClass.szType)
        {
            return entryClass.pfnMake();
        }
    }
    return Make<CCLMetadataEntry>();
}

bool IsSupportedVersion(const CCLMetadataVersionEntry& version)
{
    const unsigned int nMajor = version.GetMajor();
    return nMajor <= 3 && (nMajor != 1 || version.GetMinor() >= 4);
}

/// The next line of a text, without its newline, as long as there is one. The text after the last
/// newline is a line too.
class CLineReader
{
public:
    explicit CLineReader(const std::string& strText) : m_strText(strText) {}

    bool Next(std::string& strLine)
    {
        if (m_nPosition == std::string::npos)
        {
            return false;
        }
        const size_t nEnd = m_strText.find('\n', m_nPosition);
        strLine = m_strText.substr(m_nPosition, nEnd - m_nPosition);
        m_nPosition = nEnd == std::string::npos ? nEnd : nEnd + 1;
        return true;
    }

private:
    const std::string& m_strText;
    size_t m_nPosition = 0;
};

} // namespace

/// Takes the lines of a block in order and stores those that count.
class CCLMetadata::CParser
{
public:
    explicit CParser(CCLMetadata& metadata) : m_metadata(metadata) {}

    bool IsDone() const { return m_eState == Done; }

    /// \return false if the line ends the parse as a failure
    bool TakeLine(const CCLMetadataEntry& line)
    {
        switch (m_eState)
        {
        case BeforeStart:
            return line.GetEntryType() != CCLMetadataArgStartEntry::ClassEntryType || TakeStart(line);
        case BeforeVersion:
            return line.GetEntryType() != CCLMetadataVersionEntry::ClassEntryType || TakeVersion(line);
        case InBlock:
            return TakeEntry(line);
        case Done:
            break;
        }
        return false;
    }

private:
    enum EState
    {
        BeforeStart,
        BeforeVersion,
        InBlock,
        Done
    };

    /// \return the entry that the line became, now the metadata's; null if it has the wrong count of tokens
    const CCLMetadataEntry* Add(const CCLMetadataEntry& line)
    {
        EntryPtr pEntry = MakeForType(line.GetEntryType(), m_nRevision);
        if (!pEntry->FromEntry(line))
        {
            return nullptr;
        }
        m_metadata.AppendEntry(pEntry.get());
        return pEntry.release();
    }

    bool TakeStart(const CCLMetadataEntry& line)
    {
        const auto* pStart = static_cast<const CCLMetadataArgStartEntry*>(Add(line));
        if (pStart == nullptr)
        {
            return false;
        }
        m_strFunctionName = pStart->GetFunctionName();
        m_eState = BeforeVersion;
        return true;
    }

    bool TakeVersion(const CCLMetadataEntry& line)
    {
        const auto* pVersion = static_cast<const CCLMetadataVersionEntry*>(Add(line));
        if (pVersion == nullptr || !IsSupportedVersion(*pVersion))
        {
            return false;
        }
        const unsigned int nRevision = pVersion->GetRevision();
        SDU_Assert(nRevision <= 111);
        m_nRevision = nRevision;
        m_eState = InBlock;
        return true;
    }

    bool TakeEntry(const CCLMetadataEntry& line)
    {
        const CCLMetadataEntry* pEntry = Add(line);
        const auto* pEnd = dynamic_cast<const CCLMetadataArgEndEntry*>(pEntry);
        if (pEnd == nullptr)
        {
            return pEntry != nullptr;
        }
        m_eState = Done;
        return pEnd->GetFunctionName() == m_strFunctionName;
    }

    CCLMetadata& m_metadata;
    EState m_eState = BeforeStart;
    std::string m_strFunctionName;
    unsigned int m_nRevision = 0;
};

bool CCLMetadata::Parse(const std::string& strMetadata)
{
    CParser parser(*this);
    CLineReader reader(strMetadata);
    std::string strLine;
    while (!parser.IsDone() && reader.Next(strLine))
    {
        CCLMetadataEntry line;
        if (!line.FromString(strLine) || !parser.TakeLine(line))
        {
            return false;
        }
    }
    return true;
}

} // namespace OVK_ShaderDebugger

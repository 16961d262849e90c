#include "instrument/InstrumentedShaderIL.h"

#include "binary/CLMetadata.h"

#include <memory>
#include <new>

namespace OVK_ShaderDebugger
{

namespace
{

// The revisions from which a pointer's line has more fields.
constexpr unsigned int s_nRevisionWithAccess = 87;
constexpr unsigned int s_nRevisionWithQualifiers = 100;

struct SOutputArgument
{
    const char* pszName;
    const char* pszDataType;
    unsigned int nAlignment;
};

constexpr SOutputArgument s_ResultsArgument = {"__ovk_debug_result", "float", 16};
constexpr SOutputArgument s_ExecMaskArgument = {"__ovk_debug_execMask", "i32", 4};
constexpr const char* s_pszSelectorArgument = "__ovk_debug_outputSelector";

/// An empty pointer line of the form that the revision has. Null when memory is short.
std::unique_ptr<CCLMetadataPointerEntry> MakePointerEntry(unsigned int nRevision)
{
    if (nRevision < s_nRevisionWithAccess)
    {
        return std::unique_ptr<CCLMetadataPointerEntry>(new (std::nothrow) CCLMetadataPointerEntry);
    }

    std::unique_ptr<CCLMetadataPointerEntryR87> pEntry;

    if (nRevision < s_nRevisionWithQualifiers)
    {
        pEntry.reset(new (std::nothrow) CCLMetadataPointerEntryR87);
    }
    else if (auto* pQualified = new (std::nothrow) CCLMetadataPointerEntryR100)
    {
        pQualified->SetVolatileBit(false);
        pQualified->SetRestrictBit(false);
        pEntry.reset(pQualified);
    }

    if (pEntry != nullptr)
    {
        pEntry->SetAccessType(CCLMetadataPointerEntryR87::AT_READ_WRITE);
    }

    return pEntry;
}

/// Puts the entry after the last argument. The metadata takes it over if that works.
template <typename Entry>
bool Append(CCLMetadata& metadata, std::unique_ptr<Entry> pEntry)
{
    const bool bAdded = metadata.AddArgumentEntry(pEntry.get());

    if (bAdded)
    {
        static_cast<void>(pEntry.release());
    }

    return bAdded;
}

bool AppendOutputBuffer(CCLMetadata& metadata, const SOutputArgument& argument, unsigned int nRevision,
                        unsigned int nUAVNum)
{
    std::unique_ptr<CCLMetadataPointerEntry> pEntry = MakePointerEntry(nRevision);

    if (pEntry == nullptr)
    {
        return false;
    }

    pEntry->SetArgumentName(argument.pszName);
    pEntry->SetDataType(argument.pszDataType);
    pEntry->SetNumberOfElements(1);
    pEntry->SetConstantBufferNumber(s_nArgumentBuffer);
    pEntry->SetConstantBufferOffset(metadata.GetNextConstantBufferOffset());
    pEntry->SetMemoryType("uav");
    pEntry->SetBufferNumber(nUAVNum);
    pEntry->SetDataTypeAlignment(argument.nAlignment);
    return Append(metadata, std::move(pEntry));
}

} // namespace

bool CInstrumentedShaderIL::PatchMetadata(CCLMetadata& metadata, std::string* pstrPatchedMetadata)
{
    if (!PatchMetadataAppendOutputBuffers(metadata) || !PatchMetadataAppendValue(metadata))
    {
        return false;
    }

    if (pstrPatchedMetadata != nullptr)
    {
        *pstrPatchedMetadata = metadata.ToString();
    }

    return true;
}

bool CInstrumentedShaderIL::PatchMetadataAppendOutputBuffers(CCLMetadata& metadata)
{
    if (!m_bTidewater && metadata.GetUavNumber() != m_nRawUAVNum && !metadata.SetUavNumber(m_nRawUAVNum))
    {
        return false;
    }

    unsigned int nMajor = 0;
    unsigned int nMinor = 0;
    unsigned int nRevision = 0;
    return metadata.GetVersion(&nMajor, &nMinor, &nRevision) &&
           AppendOutputBuffer(metadata, s_ResultsArgument, nRevision, GetResultsUAVNum()) &&
           AppendOutputBuffer(metadata, s_ExecMaskArgument, nRevision, GetExecMaskUAVNum());
}

bool CInstrumentedShaderIL::PatchMetadataAppendValue(CCLMetadata& metadata)
{
    std::unique_ptr<CCLMetadataValueEntry> pEntry(new (std::nothrow) CCLMetadataValueEntry);

    if (pEntry == nullptr)
    {
        return false;
    }

    pEntry->SetArgumentName(s_pszSelectorArgument);
    pEntry->SetDataType("i32");
    pEntry->SetNumberOfElements(1);
    pEntry->SetConstantBufferNumber(s_nArgumentBuffer);
    pEntry->SetConstantBufferOffset(metadata.GetNextConstantBufferOffset());
    return Append(metadata, std::move(pEntry));
}

} // namespace OVK_ShaderDebugger

#include "binary/CLMetadata.h"

#include "core/SDULogger.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>

namespace OVK_ShaderDebugger
{

namespace
{

constexpr unsigned int s_nNone = 0xFFFFFFFF;

/// The first byte after an argument's place in the constant buffer; 0 for an entry that isn't there.
template <class Argument>
uint64_t GetEnd(const CCLMetadataEntry* pEntry)
{
    const auto* pArgument = dynamic_cast<const Argument*>(pEntry);
    return pArgument == nullptr
               ? 0
               : static_cast<uint64_t>(pArgument->GetConstantBufferOffset()) + pArgument->GetConstantBufferEntrySize();
}

} // namespace

CCLMetadata::~CCLMetadata()
{
    Clear();
}

void CCLMetadata::Clear()
{
    for (CCLMetadataEntry* pEntry : m_vEntries)
    {
        delete pEntry;
    }
    m_vEntries.clear();
}

bool CCLMetadata::FromString(const std::string& strMetadata)
{
    Clear();
    if (!Parse(strMetadata))
    {
        Clear();
        return false;
    }
    return true;
}

std::string CCLMetadata::ToString() const
{
    std::string strText;
    for (const CCLMetadataEntry* pEntry : m_vEntries)
    {
        strText += pEntry->ToString() + "\n";
    }
    return strText;
}

bool CCLMetadata::HasFrame() const
{
    return !m_vEntries.empty() &&
           SDU_Assert((*m_vEntries.begin())->GetEntryType() == CCLMetadataArgStartEntry::ClassEntryType) &&
           SDU_Assert((*(m_vEntries.end() - 1))->GetEntryType() == CCLMetadataArgEndEntry::ClassEntryType);
}

template <class Entry>
Entry* CCLMetadata::FindEntry() const
{
    if (!HasFrame())
    {
        return nullptr;
    }
    for (CCLMetadataEntry* pEntry : m_vEntries)
    {
        if (auto* pFound = dynamic_cast<Entry*>(pEntry))
        {
            return pFound;
        }
    }
    return nullptr;
}

bool CCLMetadata::GetVersion(unsigned int* pMajor, unsigned int* pMinor, unsigned int* pRevision) const
{
    const auto* pVersion = FindEntry<CCLMetadataVersionEntry>();
    if (pMajor == nullptr || pMinor == nullptr || pRevision == nullptr || pVersion == nullptr)
    {
        return false;
    }
    *pMajor = pVersion->GetMajor();
    *pMinor = pVersion->GetMinor();
    *pRevision = pVersion->GetRevision();
    return true;
}

std::string CCLMetadata::GetDeviceName() const
{
    const auto* pDevice = FindEntry<CCLMetadataDeviceEntry>();
    return pDevice == nullptr ? std::string() : pDevice->GetDeviceName();
}

std::string CCLMetadata::GetFunctionName() const
{
    const auto* pStart = FindEntry<CCLMetadataArgStartEntry>();
    return pStart == nullptr ? std::string() : pStart->GetFunctionName();
}

unsigned int CCLMetadata::GetFunctionNumber() const
{
    const auto* pUniqueId = FindEntry<CCLMetadataUniqueIdEntry>();
    return pUniqueId == nullptr ? 0 : pUniqueId->GetUniqueId();
}

unsigned int CCLMetadata::GetFunctionLabel() const
{
    const auto* pFunction = FindEntry<CCLMetadataFunctionEntry>();
    return pFunction == nullptr ? s_nNone : pFunction->GetFunctionLabel();
}

unsigned int CCLMetadata::GetPrivateMemoryNumber() const
{
    const auto* pPrivateId = FindEntry<CCLMetadataPrivateIdEntry>();
    return pPrivateId == nullptr ? s_nNone : pPrivateId->GetPrivateId();
}

unsigned int CCLMetadata::GetUavNumber() const
{
    const auto* pUavId = FindEntry<CCLMetadataUavIdEntry>();
    return pUavId == nullptr ? s_nNone : pUavId->GetUavId();
}

bool CCLMetadata::Uses64BitABI() const
{
    return HasFrame() && std::any_of(m_vEntries.begin(), m_vEntries.end(),
                                     [](const CCLMetadataEntry* pEntry)
                                     {
                                         const auto* pMemory = dynamic_cast<const CCLMetadataMemoryEntry*>(pEntry);
                                         return dynamic_cast<const CCLMetadataMem64bitABIEntry*>(pEntry) != nullptr ||
                                                (pMemory != nullptr && pMemory->GetAddressSpace() == "64bitABI");
                                     });
}

CCLMetadata::PrivateMemoryLocation CCLMetadata::GetPrivateMemoryLocation() const
{
    if (!HasFrame())
    {
        return PML_UNDEFINED;
    }
    for (const CCLMetadataEntry* pEntry : m_vEntries)
    {
        const auto* pMemory = dynamic_cast<const CCLMetadataMemoryEntry*>(pEntry);
        const std::string strSpace = pMemory == nullptr ? std::string() : pMemory->GetAddressSpace();
        if (strSpace == "hwprivate")
        {
            return PML_INDEXED_TEMP;
        }
        if (strSpace == "uavprivate")
        {
            return PML_PRIVATE_UAV;
        }
    }
    return PML_UNDEFINED;
}

bool CCLMetadata::SetUavNumber(unsigned int nUavId)
{
    if (!HasFrame())
    {
        return false;
    }
    for (CCLMetadataEntry* pEntry : m_vEntries)
    {
        if (auto* pUavId = dynamic_cast<CCLMetadataUavIdEntry*>(pEntry))
        {
            pUavId->SetUavId(nUavId);
        }
    }
    return true;
}

bool CCLMetadata::SetLDSLimit(unsigned int nLDSLimit)
{
    if (!HasFrame())
    {
        return false;
    }
    for (CCLMetadataEntry* pEntry : m_vEntries)
    {
        auto* pMemory = dynamic_cast<CCLMetadataMemoryEntry*>(pEntry);
        if (pMemory != nullptr && pMemory->GetAddressSpace().find("local") != std::string::npos)
        {
            pMemory->SetMemorySize(nLDSLimit);
        }
    }
    return true;
}

unsigned int CCLMetadata::GetNextConstantBufferOffset() const
{
    if (!HasFrame())
    {
        return 0;
    }
    uint64_t nEnd = 0;
    for (const CCLMetadataEntry* pEntry : m_vEntries)
    {
        nEnd = std::max({nEnd, GetEnd<CCLMetadataImageEntry>(pEntry), GetEnd<CCLMetadataValueEntry>(pEntry),
                         GetEnd<CCLMetadataPointerEntry>(pEntry)});
    }
    return static_cast<unsigned int>(std::min<uint64_t>(nEnd, std::numeric_limits<unsigned int>::max()));
}

bool CCLMetadata::IsArgumentEntry(const CCLMetadataEntry* pEntry)
{
    if (pEntry == nullptr)
    {
        return false;
    }
    const std::string strType = pEntry->GetEntryType();
    return strType == CCLMetadataImageEntry::ClassEntryType || strType == CCLMetadataValueEntry::ClassEntryType ||
           strType == CCLMetadataPointerEntry::ClassEntryType || strType == CCLMetadataCounterEntry::ClassEntryType;
}

std::vector<CCLMetadataEntry*> CCLMetadata::GetArgumentEntries() const
{
    std::vector<CCLMetadataEntry*> vArguments;
    if (HasFrame())
    {
        std::copy_if(m_vEntries.begin(), m_vEntries.end(), std::back_inserter(vArguments), IsArgumentEntry);
    }
    return vArguments;
}

bool CCLMetadata::IsSamplerArgument(const CCLMetadataEntry* pEntry)
{
    const auto* pSampler = dynamic_cast<const CCLMetadataSamplerEntry*>(pEntry);
    return pSampler != nullptr && pSampler->GetLocation() == CCLMetadataSamplerEntry::SAMPLER_LOCATION_KERNEL_ARGUMENT;
}

std::vector<const CCLMetadataEntry*> CCLMetadata::GetEntriesByArgument(size_t nArguments) const
{
    std::vector<const CCLMetadataEntry*> vAll;
    if (HasFrame())
    {
        std::copy_if(m_vEntries.begin(), m_vEntries.end(), std::back_inserter(vAll),
                     [](const CCLMetadataEntry* p) { return IsArgumentEntry(p) || IsSamplerArgument(p); });
    }
    if (vAll.size() != nArguments)
    {
        const std::vector<CCLMetadataEntry*> vArguments = GetArgumentEntries();
        vAll.assign(vArguments.begin(), vArguments.end());
    }
    return vAll;
}

bool CCLMetadata::AddEntry(CCLMetadataEntry* pEntry)
{
    if (pEntry == nullptr || m_vEntries.empty())
    {
        return false;
    }
    m_vEntries.insert(m_vEntries.begin() + 1, pEntry);
    return true;
}

bool CCLMetadata::AppendEntry(CCLMetadataEntry* pEntry)
{
    if (pEntry == nullptr)
    {
        return false;
    }
    m_vEntries.push_back(pEntry);
    return true;
}

bool CCLMetadata::RemoveEntry(CCLMetadataEntry* pEntry)
{
    const auto found = std::find(m_vEntries.begin(), m_vEntries.end(), pEntry);
    if (found == m_vEntries.end())
    {
        return false;
    }
    m_vEntries.erase(found);
    return true;
}

bool CCLMetadata::AddArgumentEntry(CCLMetadataEntry* pEntry)
{
    if (pEntry == nullptr || !HasFrame())
    {
        return false;
    }
    m_vEntries.insert(FindArgumentPlace(), pEntry);
    return true;
}

CCLMetadata::EntryList::iterator CCLMetadata::FindArgumentPlace()
{
    const auto argEnd = m_vEntries.end() - 1;
    bool bInRun = false;
    for (auto place = m_vEntries.begin(); place != argEnd; ++place)
    {
        const std::string strType = (*place)->GetEntryType();
        const bool bIsArgument = IsArgumentEntry(*place) || IsSamplerArgument(*place);
        const bool bEndsRun = bInRun && !bIsArgument && strType != CCLMetadataConstArgEntry::ClassEntryType;
        if (bEndsRun || strType == CCLMetadataFunctionEntry::ClassEntryType)
        {
            return place;
        }
        bInRun = bInRun || bIsArgument;
    }

    // Still the best place that such a block has.
    SDU_Break("Reached ;argend without finding a ;function");
    return argEnd;
}

bool CCLMetadata::AddFunctionLabel(unsigned int nFuncId)
{
    if (!HasFrame())
    {
        return false;
    }
    if (auto* pFunction = FindEntry<CCLMetadataFunctionEntry>())
    {
        pFunction->AddFunctionLabel(nFuncId);
        return true;
    }

    auto pFunction = std::make_unique<CCLMetadataFunctionEntry>();
    pFunction->SetFunctionLabels({nFuncId});
    m_vEntries.insert(m_vEntries.end() - 1, pFunction.get());
    static_cast<void>(pFunction.release());
    return true;
}

} // namespace OVK_ShaderDebugger

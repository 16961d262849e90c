#include "binary/CLMetadataEntries.h"

#include "core/SDULogger.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace OVK_ShaderDebugger
{

namespace
{

constexpr char s_Separator = ':';

/// Splits at each colon and keeps empty tokens.
std::vector<std::string> Split(const std::string& strText, size_t nBegin)
{
    std::vector<std::string> vTokens;
    vTokens.reserve(static_cast<size_t>(std::count(strText.begin(), strText.end(), s_Separator)) + 1);
    for (;;)
    {
        const size_t nEnd = strText.find(s_Separator, nBegin);
        vTokens.push_back(strText.substr(nBegin, nEnd - nBegin));
        if (nEnd == std::string::npos)
        {
            return vTokens;
        }
        nBegin = nEnd + 1;
    }
}

unsigned int ToNumber(const std::string& strText)
{
    unsigned int nValue = 0;
    const std::from_chars_result result = std::from_chars(strText.data(), strText.data() + strText.size(), nValue);
    return result.ec == std::errc() ? nValue : 0;
}

} // namespace

bool CCLMetadataEntry::FromEntry(const CCLMetadataEntry& entry)
{
    if (this == &entry)
    {
        return false;
    }
    m_vstrTokens = entry.GetTokens();
    return true;
}

bool CCLMetadataEntry::FromString(const std::string& strEntry)
{
    const bool bIsEntry = !strEntry.empty() && strEntry[0] == ';';
    if (!SDU_AssertText(bIsEntry, "m_vstrTokens[0][0] == ';'"))
    {
        return false;
    }
    std::vector<std::string> vTokens = Split(strEntry, 1);
    if (!SDU_AssertText(vTokens.size() >= 2, "m_vstrTokens.size() >= 2"))
    {
        return false;
    }
    m_vstrTokens.swap(vTokens);
    return true;
}

std::string CCLMetadataEntry::ToString() const
{
    std::string strText(1, ';');
    for (size_t nToken = 0; nToken < m_vstrTokens.size(); ++nToken)
    {
        if (nToken != 0)
        {
            strText += s_Separator;
        }
        strText += m_vstrTokens[nToken];
    }
    return strText;
}

std::string CCLMetadataEntry::GetEntryType() const
{
    return m_vstrTokens.empty() ? std::string() : m_vstrTokens[0];
}

std::vector<std::string> CCLMetadataEntry::GetTokens() const
{
    return m_vstrTokens;
}

CCLMetadataTypedEntry::CCLMetadataTypedEntry(const char* szType, size_t nTokens)
{
    m_vstrTokens.resize(nTokens);
    m_vstrTokens[0] = szType;
}

bool CCLMetadataTypedEntry::FromEntry(const CCLMetadataEntry& entry)
{
    std::vector<std::string> vTokens = entry.GetTokens();
    // An entry of a known type keeps its type token for life.
    if (this == &entry || entry.GetEntryType() != GetEntryType() || !AcceptsTokens(vTokens.size()))
    {
        return false;
    }
    m_vstrTokens.swap(vTokens);
    return true;
}

bool CCLMetadataTypedEntry::FromString(const std::string& strEntry)
{
    CCLMetadataEntry entry;
    return entry.FromString(strEntry) && FromEntry(entry);
}

bool CCLMetadataTypedEntry::AcceptsTokens(size_t nTokens) const
{
    return nTokens == NumTokens();
}

bool CCLMetadataTypedEntry::HasAllTokens() const
{
    return SDU_Assert(m_vstrTokens.size() == NumTokens());
}

std::string CCLMetadataTypedEntry::GetTextToken(size_t nPlace) const
{
    return HasAllTokens() ? m_vstrTokens[nPlace] : std::string();
}

void CCLMetadataTypedEntry::SetTextToken(size_t nPlace, const std::string& strValue)
{
    if (HasAllTokens())
    {
        m_vstrTokens[nPlace] = strValue;
    }
}

unsigned int CCLMetadataTypedEntry::GetNumberToken(size_t nPlace) const
{
    return ToNumber(GetTextToken(nPlace));
}

void CCLMetadataTypedEntry::SetNumberToken(size_t nPlace, unsigned int nValue)
{
    SetTextToken(nPlace, std::to_string(nValue));
}

bool CCLMetadataTypedEntry::GetBitToken(size_t nPlace) const
{
    return GetTextToken(nPlace) == "1";
}

void CCLMetadataTypedEntry::SetBitToken(size_t nPlace, bool bValue)
{
    SetTextToken(nPlace, bValue ? "1" : "0");
}

unsigned int CCLMetadataImageEntry::GetConstantBufferEntrySize() const
{
    return 32;
}

unsigned int CCLMetadataPointerEntry::GetConstantBufferEntrySize() const
{
    return 16;
}

unsigned int CCLMetadataValueEntry::GetConstantBufferEntrySize() const
{
    constexpr uint64_t nSlot = 16;
    const uint64_t nElementSize = std::max(GetElementSize(), 4u);
    const uint64_t nSize = GetNumberOfElements() * nElementSize;
    const uint64_t nRounded = (nSize + nSlot - 1) / nSlot * nSlot;
    return static_cast<unsigned int>(std::min<uint64_t>(nRounded, UINT32_MAX / nSlot * nSlot));
}

unsigned int CCLMetadataValueEntry::GetElementSize() const
{
    static constexpr struct
    {
        const char* szType;
        unsigned int nSize;
    } s_Types[] = {{"i8", 1},  {"struct", 1}, {"union", 1}, {"i16", 2}, {"u16", 2}, {"i1", 4},
                   {"i32", 4}, {"u32", 4},    {"float", 4}, {"i64", 8}, {"u64", 8}, {"double", 8}};

    const std::string strType = GetDataType();
    for (const auto& type : s_Types)
    {
        if (strType == type.szType)
        {
            return type.nSize;
        }
    }

    SDU_Break(strType == "event" ? "These seem to be passed as pointers rather than values. Explore why you got here."
              : strType == "opaque" ? "I don't know what this type is so bail."
                                    : "Unrecognized data type");
    return 0;
}

namespace
{

constexpr struct
{
    CCLMetadataPointerEntryR87::AccessType eAccess;
    const char* szText;
} s_AccessTypes[] = {{CCLMetadataPointerEntryR87::AT_READ_ONLY, "RO"},
                     {CCLMetadataPointerEntryR87::AT_WRITE_ONLY, "WO"},
                     {CCLMetadataPointerEntryR87::AT_READ_WRITE, "RW"}};

constexpr size_t s_nAccessTypePlace = 9;

} // namespace

CCLMetadataPointerEntryR87::AccessType CCLMetadataPointerEntryR87::GetAccessType() const
{
    const std::string strAccess = GetTextToken(s_nAccessTypePlace);
    for (const auto& access : s_AccessTypes)
    {
        if (strAccess == access.szText)
        {
            return access.eAccess;
        }
    }
    return AT_UNDEFINED;
}

void CCLMetadataPointerEntryR87::SetAccessType(AccessType eAccess)
{
    for (const auto& access : s_AccessTypes)
    {
        if (eAccess == access.eAccess)
        {
            SetTextToken(s_nAccessTypePlace, access.szText);
            return;
        }
    }
    SDU_Break("Unrecognized access type");
}

unsigned int CCLMetadataFunctionEntry::GetFunctionLabel() const
{
    // The conversion ends at the ":" before a second label.
    return GetNumberToken(2);
}

void CCLMetadataFunctionEntry::SetFunctionLabels(const std::vector<unsigned int>& vLabels)
{
    std::string strLabels;
    for (unsigned int nLabel : vLabels)
    {
        strLabels += (strLabels.empty() ? "" : ":") + std::to_string(nLabel);
    }
    SetNumberToken(1, static_cast<unsigned int>(vLabels.size()));
    SetTextToken(2, strLabels);
}

void CCLMetadataFunctionEntry::AddFunctionLabel(unsigned int nLabel)
{
    SetTextToken(2, GetTextToken(2) + s_Separator + std::to_string(nLabel));
    SetNumberToken(1, GetNumberToken(1) + 1);
}

bool CCLMetadataMemoryEntry::AcceptsTokens(size_t nTokens) const
{
    return nTokens == NumTokens() || nTokens == NumTokens() - 1;
}

bool CCLMetadataMemoryEntry::HasAddressSpace() const
{
    return SDU_Assert(m_vstrTokens.size() == NumTokens() || m_vstrTokens.size() == NumTokens() - 1);
}

std::string CCLMetadataMemoryEntry::GetAddressSpace() const
{
    return HasAddressSpace() ? m_vstrTokens[1] : std::string();
}

void CCLMetadataMemoryEntry::SetAddressSpace(const std::string& strAddressSpace)
{
    if (HasAddressSpace())
    {
        m_vstrTokens[1] = strAddressSpace;
    }
}

} // namespace OVK_ShaderDebugger

#include "platform/runtime/PrintfRecords.h"

#include "platform/simt/HalfFloat.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace KestrelPlatform::Runtime
{

namespace
{

constexpr size_t s_nWordBytes = 4;
constexpr size_t s_nBufferHeader = 8;
constexpr size_t s_nRecordWords = 3;
/// The maximum for field widths and other numbers of a format, so that the text's size is limited.
constexpr int s_nWidest = 4096;

/// An argument's type: "i32", "f64x4", "s".
struct SArgumentType
{
    char cKind = '\0';
    unsigned int nBits = 32;
    unsigned int nElements = 1;
    bool bVector = false;

    size_t WordsOfElement() const { return nBits > 32 ? 2 : 1; }
};

std::vector<SArgumentType> ReadTypes(std::string_view text)
{
    std::vector<SArgumentType> vTypes;
    while (!text.empty())
    {
        const std::string_view word = text.substr(0, text.find(','));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        SArgumentType type;
        type.cKind = word.empty() ? '\0' : word.front();
        const char* const pEnd = word.data() + word.size();
        const char* pRest = word.data() + std::min<size_t>(1, word.size());
        pRest = std::from_chars(pRest, pEnd, type.nBits).ptr;
        if (pRest != pEnd && *pRest == 'x')
        {
            type.bVector = true;
            std::from_chars(pRest + 1, pEnd, type.nElements);
        }
        vTypes.push_back(type);
    }
    return vTypes;
}

/// One directive of a format: %[flags][width][.precision][vector][length]conversion.
struct SDirective
{
    std::string_view text; ///< all of it
    std::string strFlags;
    int nWidth = -1;
    int nPrecision = -1;
    unsigned int nVector = 0; ///< elements; 0 for a scalar
    std::string_view length;
    char cConversion = '\0';
};

/// Takes a number of a format, limited to the widest field.
int TakeNumber(std::string_view& text)
{
    int nNumber = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9')
    {
        nNumber = std::min(nNumber * 10 + (text.front() - '0'), s_nWidest);
        text.remove_prefix(1);
    }
    return nNumber;
}

/// Takes a directive, which begins with "%". \return false if it isn't one
bool TakeDirective(std::string_view& text, SDirective& directive)
{
    std::string_view rest = text.substr(1);
    const size_t nFlags = std::min(rest.find_first_not_of("-+ #0"), rest.size());
    directive.strFlags = rest.substr(0, nFlags);
    rest.remove_prefix(nFlags);
    if (!rest.empty() && rest.front() >= '1' && rest.front() <= '9')
    {
        directive.nWidth = TakeNumber(rest);
    }
    if (!rest.empty() && rest.front() == '.')
    {
        rest.remove_prefix(1);
        directive.nPrecision = TakeNumber(rest);
    }
    if (!rest.empty() && rest.front() == 'v')
    {
        rest.remove_prefix(1);
        directive.nVector = static_cast<unsigned int>(TakeNumber(rest));
    }
    for (const std::string_view length : {"hh", "hl", "h", "l"})
    {
        if (directive.length.empty() && rest.substr(0, length.size()) == length)
        {
            directive.length = length;
            rest.remove_prefix(length.size());
        }
    }
    if (rest.empty() || std::string_view("diouxXfFeEgGaAcsp").find(rest.front()) == std::string_view::npos)
    {
        return false;
    }
    directive.cConversion = rest.front();
    rest.remove_prefix(1);
    directive.text = text.substr(0, text.size() - rest.size());
    text = rest;
    return true;
}

/// Formats one value with the C library's printf.
template <class T>
std::string Print(const SDirective& directive, const char* pszLength, T value)
{
    std::string strFormat = "%" + directive.strFlags;
    strFormat += directive.nWidth >= 0 ? std::to_string(directive.nWidth) : "";
    strFormat += directive.nPrecision >= 0 ? "." + std::to_string(directive.nPrecision) : "";
    strFormat += pszLength;
    strFormat += directive.cConversion;
    const int nLength = std::snprintf(nullptr, 0, strFormat.c_str(), value);
    if (nLength <= 0)
    {
        return "";
    }
    std::string strText(static_cast<size_t>(nLength) + 1, '\0');
    std::snprintf(strText.data(), strText.size(), strFormat.c_str(), value);
    strText.resize(static_cast<size_t>(nLength));
    return strText;
}

/// Turns the words of one record into text.
class CRecord
{
public:
    CRecord(const SPrintfFormat& format, const uint32_t* pWords, size_t nWords)
        : m_Format(format), m_vTypes(ReadTypes(format.strTypes)), m_pWords(pWords), m_nWords(nWords)
    {
    }

    std::string Text();

private:
    std::string Argument(const SDirective& directive);
    std::string Vector(const SDirective& directive, const SArgumentType& type);
    std::string Element(const SDirective& directive, const SArgumentType& type, uint64_t nValue);
    std::string Integer(const SDirective& directive, const SArgumentType& type, uint64_t nValue);
    bool TakeElement(const SArgumentType& type, uint64_t& nValue);

    const SPrintfFormat& m_Format;
    const std::vector<SArgumentType> m_vTypes;
    const uint32_t* m_pWords;
    size_t m_nWords;
    size_t m_nArgument = 0;
};

bool CRecord::TakeElement(const SArgumentType& type, uint64_t& nValue)
{
    const size_t nWords = type.WordsOfElement();
    if (m_nWords < nWords)
    {
        return false;
    }
    nValue = m_pWords[0] | (nWords > 1 ? uint64_t{m_pWords[1]} << 32 : 0);
    m_pWords += nWords;
    m_nWords -= nWords;
    return true;
}

double AsDouble(unsigned int nBits, uint64_t nValue)
{
    if (nBits == 64)
    {
        double value = 0;
        std::memcpy(&value, &nValue, sizeof(value));
        return value;
    }
    const auto nWord = static_cast<uint32_t>(nValue);
    if (nBits == 16)
    {
        return HalfToFloat(static_cast<uint16_t>(nWord));
    }
    float value = 0;
    std::memcpy(&value, &nWord, sizeof(value));
    return value;
}

/// The value, narrowed if the length modifier says so.
std::string CRecord::Integer(const SDirective& directive, const SArgumentType& type, uint64_t nValue)
{
    unsigned int nBits = type.nBits;
    nBits = directive.length == "hh" ? std::min(nBits, 8u) : directive.length == "h" ? std::min(nBits, 16u) : nBits;
    const unsigned int nUnused = 64 - nBits;
    if (directive.cConversion == 'd' || directive.cConversion == 'i')
    {
        return Print(directive, "ll", static_cast<long long>(nValue << nUnused) >> nUnused);
    }
    return Print(directive, "ll", static_cast<unsigned long long>(nValue << nUnused >> nUnused));
}

std::string CRecord::Element(const SDirective& directive, const SArgumentType& type, uint64_t nValue)
{
    const char c = directive.cConversion;
    const bool bFloat = std::string_view("fFeEgGaA").find(c) != std::string_view::npos;
    if (c == 's' && type.cKind == 's')
    {
        return Print(directive, "", nValue < m_Format.vStrings.size() ? m_Format.vStrings[nValue].c_str() : "(null)");
    }
    if (c == 'p' && (type.cKind == 'p' || type.cKind == 'i'))
    {
        return Print(directive, "", reinterpret_cast<const void*>(static_cast<uintptr_t>(nValue)));
    }
    if (bFloat && type.cKind == 'f')
    {
        return Print(directive, "", AsDouble(type.nBits, nValue));
    }
    if (c == 'c' && type.cKind == 'i')
    {
        return Print(directive, "", static_cast<int>(static_cast<unsigned char>(nValue)));
    }
    if (!bFloat && c != 's' && c != 'p' && c != 'c' && type.cKind == 'i')
    {
        return Integer(directive, type, nValue);
    }
    return std::string(directive.text);
}

/// The elements, separated by commas.
std::string CRecord::Vector(const SDirective& directive, const SArgumentType& type)
{
    std::string strText;
    for (unsigned int i = 0; i < type.nElements; ++i)
    {
        uint64_t nValue = 0;
        if (!TakeElement(type, nValue))
        {
            break;
        }
        strText += i != 0 ? "," : "";
        strText += Element(directive, type, nValue);
    }
    return directive.nVector == type.nElements ? strText : std::string(directive.text);
}

std::string CRecord::Argument(const SDirective& directive)
{
    if (m_nArgument == m_vTypes.size())
    {
        return std::string(directive.text);
    }
    const SArgumentType& type = m_vTypes[m_nArgument++];
    if (type.bVector)
    {
        return Vector(directive, type);
    }
    uint64_t nValue = 0;
    return TakeElement(type, nValue) && directive.nVector == 0 ? Element(directive, type, nValue)
                                                               : std::string(directive.text);
}

std::string CRecord::Text()
{
    std::string strText;
    std::string_view rest = m_Format.strText;
    while (!rest.empty())
    {
        const size_t nPlain = std::min(rest.find('%'), rest.size());
        strText += rest.substr(0, nPlain);
        rest.remove_prefix(nPlain);
        SDirective directive;
        if (rest.substr(0, 2) == "%%")
        {
            strText += '%';
            rest.remove_prefix(2);
        }
        else if (!rest.empty() && TakeDirective(rest, directive))
        {
            strText += Argument(directive);
        }
        else if (!rest.empty())
        {
            strText += '%';
            rest.remove_prefix(1);
        }
    }
    return strText;
}

/// Where a record is in the buffer's words.
struct SRecordPlace
{
    uint32_t nGroup;
    size_t nFirst;
    size_t nWords;
};

std::vector<SRecordPlace> FindRecords(const std::vector<uint32_t>& vWords)
{
    std::vector<SRecordPlace> vPlaces;
    for (size_t n = 0; vWords.size() - n >= s_nRecordWords;)
    {
        const size_t nWords = vWords[n] / s_nWordBytes;
        if (vWords[n] % s_nWordBytes != 0 || nWords < s_nRecordWords || nWords > vWords.size() - n)
        {
            break;
        }
        vPlaces.push_back({vWords[n + 2], n, nWords});
        n += nWords;
    }
    std::stable_sort(vPlaces.begin(), vPlaces.end(),
                     [](const SRecordPlace& a, const SRecordPlace& b) { return a.nGroup < b.nGroup; });
    return vPlaces;
}

} // namespace

std::unique_ptr<CStorage> ListenToPrintf(const SCompiledKernel& kernel, SLaunch& launch)
{
    if (kernel.vFormats.empty())
    {
        return nullptr;
    }
    auto pStorage = std::make_unique<CStorage>(s_nPrintfBufferSize, nullptr);
    const cl_ulong nAddress = pStorage->GetAddress(kernel.b64BitAddresses);
    if (!pStorage->GetData() || nAddress == 0)
    {
        return nullptr;
    }
    SMemoryRange range;
    range.nAddress = nAddress;
    range.nSize = s_nPrintfBufferSize;
    range.pData = pStorage->GetData();
    const auto IsBelow = [](const SMemoryRange& a, const SMemoryRange& b) { return a.nAddress < b.nAddress; };
    launch.vMemory.insert(std::upper_bound(launch.vMemory.begin(), launch.vMemory.end(), range, IsBelow), range);
    launch.nHidden[0] = static_cast<uint32_t>(nAddress);
    launch.nHidden[1] = static_cast<uint32_t>(nAddress >> 32);
    launch.nHidden[2] = s_nPrintfBufferSize - s_nBufferHeader;
    return pStorage;
}

void PrintRecords(const std::vector<SPrintfFormat>& vFormats, const CStorage& storage)
{
    const std::string strText = FormatRecords(vFormats, storage.GetData(), s_nPrintfBufferSize);
    std::fwrite(strText.data(), 1, strText.size(), stdout);
    std::fflush(stdout);
}

std::string FormatRecords(const std::vector<SPrintfFormat>& vFormats, const unsigned char* pBuffer, size_t nBytes)
{
    if (nBytes < s_nBufferHeader)
    {
        return "";
    }
    uint32_t header[2] = {};
    std::memcpy(header, pBuffer, sizeof(header));
    std::vector<uint32_t> vWords(std::min<size_t>(header[0], nBytes - s_nBufferHeader) / s_nWordBytes);
    if (!vWords.empty())
    {
        std::memcpy(vWords.data(), pBuffer + s_nBufferHeader, vWords.size() * s_nWordBytes);
    }
    std::string strText;
    for (const SRecordPlace& place : FindRecords(vWords))
    {
        const uint32_t nFormat = vWords[place.nFirst + 1];
        if (nFormat < vFormats.size())
        {
            strText +=
                CRecord(vFormats[nFormat], vWords.data() + place.nFirst + s_nRecordWords, place.nWords - s_nRecordWords)
                    .Text();
        }
    }
    if (header[1] != 0)
    {
        strText += "[printf: " + std::to_string(header[1]) + " more that didn't fit into the buffer of " +
                   std::to_string(nBytes) + " bytes]\n";
    }
    return strText;
}

} // namespace KestrelPlatform::Runtime

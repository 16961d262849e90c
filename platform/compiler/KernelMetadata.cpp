#include "platform/compiler/KernelMetadata.h"

#include <algorithm>
#include <charconv>

namespace KestrelPlatform
{
namespace
{

const std::string_view s_WrapperPrefix = "__OpenCL_";
const std::string_view s_WrapperSuffix = "_kernel";
const uint32_t s_nElementBytes = 16;
const uint32_t s_nImageSlot = 32;
const uint32_t s_nPointerSlot = 16;

/// Offsets and slots are always lower: the constant buffer has far fewer elements.
const uint32_t s_nLargestOffset = 1u << 20;
const uint32_t s_nLargestValue = 1u << 16;
const size_t s_nLargestConstants = 1u << 16; ///< bytes in a program
const size_t s_nElementWords = 4;

struct SDataType
{
    std::string_view name;
    uint32_t nBytes;
};

const SDataType s_DataTypes[] = {{"i8", 1},  {"struct", 1}, {"union", 1}, {"i16", 2}, {"u16", 2}, {"i1", 4},
                                 {"i32", 4}, {"u32", 4},    {"float", 4}, {"i64", 8}, {"u64", 8}, {"double", 8}};

struct SMemoryType
{
    std::string_view name;
    SKernelArgument::EKind eKind;
};

const SMemoryType s_MemoryTypes[] = {{"uav", SKernelArgument::GlobalPointer},  {"g", SKernelArgument::GlobalPointer},
                                     {"c", SKernelArgument::ConstantPointer},  {"hc", SKernelArgument::ConstantPointer},
                                     {"uc", SKernelArgument::ConstantPointer}, {"hl", SKernelArgument::LocalPointer},
                                     {"l", SKernelArgument::LocalPointer}};

/// A format's line has a field for each string that it may print.
const size_t s_nMostFields = 1u << 12;

/// The length of the longest known line.
const size_t s_nUsualTokens = 12;

void Split(std::string_view line, std::vector<std::string_view>& vTokens)
{
    vTokens.clear();
    for (;;)
    {
        const size_t nColon = line.find(':');
        vTokens.push_back(line.substr(0, nColon));
        if (nColon == std::string_view::npos)
        {
            return;
        }
        line.remove_prefix(nColon + 1);
    }
}

bool Number(std::string_view token, uint32_t& nValue)
{
    const auto result = std::from_chars(token.data(), token.data() + token.size(), nValue);
    return result.ec == std::errc() && result.ptr == token.data() + token.size();
}

/// Decodes a field, whose unusual characters are written as a backslash and three octal digits.
std::string Unescape(std::string_view field)
{
    const auto IsOctal = [](char c) { return c >= '0' && c <= '7'; };
    std::string strText;
    for (size_t n = 0; n < field.size(); ++n)
    {
        if (field[n] == '\\' && field.size() - n > 3 && IsOctal(field[n + 1]) && IsOctal(field[n + 2]) &&
            IsOctal(field[n + 3]))
        {
            strText += static_cast<char>((field[n + 1] - '0') * 64 + (field[n + 2] - '0') * 8 + field[n + 3] - '0');
            n += 3;
            continue;
        }
        strText += field[n];
    }
    return strText;
}

/// Reads the lines of one block. Each object serves one block.
class CReader
{
public:
    explicit CReader(SKernelMetadata& metadata) : m_Metadata(metadata) { m_Tokens.reserve(s_nUsualTokens); }

    bool Read(std::string_view text, SDiagnostic& diag);

private:
    using Tokens = std::vector<std::string_view>;
    using LineReader = bool (CReader::*)(const Tokens&);

    struct SLineKind
    {
        std::string_view type;
        size_t nFewest; ///< number of tokens, with the type
        size_t nMost;
        LineReader pfnRead;
    };
    static const SLineKind s_LineKinds[];

    bool ReadLine(std::string_view line);
    bool ReadStart(const Tokens& tokens);
    bool ReadEnd(const Tokens& tokens);
    bool ReadVersion(const Tokens& tokens);
    bool ReadDevice(const Tokens& tokens);
    bool ReadUniqueId(const Tokens& tokens);
    bool ReadMemory(const Tokens& tokens);
    bool Read64Bit(const Tokens& tokens);
    bool ReadValue(const Tokens& tokens);
    bool ReadPointer(const Tokens& tokens);
    bool ReadImage(const Tokens& tokens);
    bool ReadSampler(const Tokens& tokens);
    bool ReadCounter(const Tokens& tokens);
    bool ReadArgumentInfo(const Tokens& tokens);
    bool ReadAttributes(const Tokens& tokens);
    bool ReadFormat(const Tokens& tokens);
    bool ReadConstants(const Tokens& tokens);

    bool ReadSlot(const Tokens& tokens, size_t nFirst, SKernelArgument& argument);
    bool ReadAccess(std::string_view token, SKernelArgument& argument);
    bool Add(const SKernelArgument& argument);
    bool Fail(const std::string& strMessage)
    {
        m_strFault = strMessage;
        return false;
    }
    bool FailNumber(std::string_view token) { return Fail("expected a number, got '" + std::string(token) + "'"); }

    SKernelMetadata& m_Metadata;
    Tokens m_Tokens; ///< of the line that is being read
    std::string m_strFault;
    std::string m_strWrapper;
    bool m_bEnded = false;
    bool m_bVersion = false;
};

const CReader::SLineKind CReader::s_LineKinds[] = {{"ARGSTART", 2, 2, &CReader::ReadStart},
                                                   {"ARGEND", 2, 2, &CReader::ReadEnd},
                                                   {"version", 4, 4, &CReader::ReadVersion},
                                                   {"device", 2, 2, &CReader::ReadDevice},
                                                   {"uniqueid", 2, 2, &CReader::ReadUniqueId},
                                                   {"memory", 2, 3, &CReader::ReadMemory},
                                                   {"mem64bitABI", 1, 1, &CReader::Read64Bit},
                                                   {"value", 6, 6, &CReader::ReadValue},
                                                   {"pointer", 9, 12, &CReader::ReadPointer},
                                                   {"image", 7, 7, &CReader::ReadImage},
                                                   {"sampler", 5, 5, &CReader::ReadSampler},
                                                   {"counter", 6, 6, &CReader::ReadCounter},
                                                   {"arginfo", 7, 7, &CReader::ReadArgumentInfo},
                                                   {"attributes", 2, 2, &CReader::ReadAttributes},
                                                   {"printf", 4, s_nMostFields, &CReader::ReadFormat},
                                                   {"constants", 3, 3, &CReader::ReadConstants}};

bool CReader::Read(std::string_view text, SDiagnostic& diag)
{
    unsigned int nLine = 0;
    while (!text.empty() && !m_bEnded)
    {
        ++nLine;
        const size_t nBreak = text.find('\n');
        std::string_view line = text.substr(0, nBreak);
        text.remove_prefix(nBreak == std::string_view::npos ? text.size() : nBreak + 1);
        if (!line.empty() && line.back() == '\r')
        {
            line.remove_suffix(1);
        }
        if (!ReadLine(line))
        {
            diag.nLine = nLine;
            diag.nColumn = 1;
            diag.strMessage = "metadata: " + m_strFault;
            return false;
        }
    }
    const char* pMissing = m_strWrapper.empty()       ? "no ARGSTART line"
                           : !m_bEnded                ? "no ARGEND line"
                           : !m_Metadata.bHasUniqueId ? "no uniqueid line"
                                                      : nullptr;
    if (pMissing != nullptr)
    {
        diag.nLine = nLine;
        diag.nColumn = 1;
        diag.strMessage = std::string("metadata: ") + pMissing;
        return false;
    }
    return true;
}

bool CReader::ReadLine(std::string_view line)
{
    if (line.empty() || line.front() != ';')
    {
        return line.empty() || Fail("expected a line that starts with ';'");
    }
    Split(line.substr(1), m_Tokens);
    const Tokens& tokens = m_Tokens;
    if (m_strWrapper.empty() && tokens[0] != "ARGSTART")
    {
        return true;
    }
    if (!m_bVersion && tokens[0] != "ARGSTART" && tokens[0] != "version")
    {
        return Fail("expected the version line after ARGSTART");
    }
    for (const SLineKind& kind : s_LineKinds)
    {
        if (tokens[0] != kind.type)
        {
            continue;
        }
        if (tokens.size() < kind.nFewest || tokens.size() > kind.nMost)
        {
            return Fail("a " + std::string(kind.type) + " line with " + std::to_string(tokens.size()) + " fields");
        }
        return (this->*kind.pfnRead)(tokens);
    }
    return true;
}

bool CReader::ReadStart(const Tokens& tokens)
{
    const std::string_view name = tokens[1];
    const size_t nAround = s_WrapperPrefix.size() + s_WrapperSuffix.size();
    if (name.size() <= nAround || name.substr(0, s_WrapperPrefix.size()) != s_WrapperPrefix ||
        name.substr(name.size() - s_WrapperSuffix.size()) != s_WrapperSuffix)
    {
        return Fail("expected __OpenCL_NAME_kernel, got '" + std::string(name) + "'");
    }
    m_strWrapper = name;
    m_Metadata.strKernel = name.substr(s_WrapperPrefix.size(), name.size() - nAround);
    return true;
}

bool CReader::ReadEnd(const Tokens& tokens)
{
    m_bEnded = true;
    return tokens[1] == m_strWrapper ||
           Fail("ARGEND names '" + std::string(tokens[1]) + "', ARGSTART '" + m_strWrapper + "'");
}

/// Revisions 87 and 100 added fields to pointers.
bool CReader::ReadVersion(const Tokens& tokens)
{
    uint32_t nRevision = 0;
    if (!Number(tokens[3], nRevision))
    {
        return FailNumber(tokens[3]);
    }
    if (m_bVersion)
    {
        return true; // the first one counts, as in a debugger
    }
    m_bVersion = true;
    m_Metadata.nPointerFields = nRevision < 87 ? 9 : nRevision < 100 ? 10 : 12;
    return true;
}

bool CReader::ReadDevice(const Tokens& tokens)
{
    m_Metadata.strDevice = tokens[1];
    return true;
}

bool CReader::ReadUniqueId(const Tokens& tokens)
{
    m_Metadata.bHasUniqueId = true;
    return Number(tokens[1], m_Metadata.nUniqueId) || FailNumber(tokens[1]);
}

bool CReader::Read64Bit(const Tokens&)
{
    m_Metadata.b64BitAddresses = true;
    return true;
}

bool CReader::ReadMemory(const Tokens& tokens)
{
    const std::string_view space = tokens[1];
    if (space == "64bitABI")
    {
        return Read64Bit(tokens);
    }
    uint32_t nBytes = 0;
    if (tokens.size() > 2 && !Number(tokens[2], nBytes))
    {
        return FailNumber(tokens[2]);
    }
    if (space == "uavprivate" || space == "hwprivate")
    {
        m_Metadata.nPrivateBytes = std::max(m_Metadata.nPrivateBytes, nBytes);
    }
    else if (space.find("local") != std::string_view::npos)
    {
        m_Metadata.nLocalBytes = std::max(m_Metadata.nLocalBytes, nBytes);
    }
    return true;
}

/// Reads an argument's constant buffer number and offset, and counts its slot.
bool CReader::ReadSlot(const Tokens& tokens, size_t nFirst, SKernelArgument& argument)
{
    if (!Number(tokens[nFirst], argument.nConstantBuffer))
    {
        return FailNumber(tokens[nFirst]);
    }
    if (!Number(tokens[nFirst + 1], argument.nConstantBufferOffset))
    {
        return FailNumber(tokens[nFirst + 1]);
    }
    if (argument.nConstantBufferOffset % s_nElementBytes != 0 || argument.nConstantBufferOffset > s_nLargestOffset)
    {
        return Fail("the constant buffer offset " + std::string(tokens[nFirst + 1]) +
                    " is no multiple of 16, or too large");
    }
    if (argument.nConstantBuffer == 1)
    {
        const uint32_t nEnd = (argument.nConstantBufferOffset + argument.nSlotSize) / s_nElementBytes;
        m_Metadata.nConstantBuffer1Elements = std::max(m_Metadata.nConstantBuffer1Elements, nEnd);
    }
    return true;
}

bool CReader::ReadAccess(std::string_view token, SKernelArgument& argument)
{
    argument.eAccess = token == "RO"   ? SKernelArgument::ReadOnly
                       : token == "WO" ? SKernelArgument::WriteOnly
                                       : SKernelArgument::ReadWrite;
    return token == "RO" || token == "WO" || token == "RW" ||
           Fail("expected RO, WO or RW, got '" + std::string(token) + "'");
}

bool CReader::Add(const SKernelArgument& argument)
{
    m_Metadata.vArguments.push_back(argument);
    return true;
}

bool CReader::ReadValue(const Tokens& tokens)
{
    SKernelArgument argument;
    argument.strName = tokens[1];
    argument.strTypeName = tokens[2];
    uint32_t nElements = 0;
    if (!Number(tokens[3], nElements) || nElements > s_nLargestValue)
    {
        return FailNumber(tokens[3]);
    }
    uint32_t nElementBytes = 0;
    for (const SDataType& type : s_DataTypes)
    {
        nElementBytes = type.name == tokens[2] ? type.nBytes : nElementBytes;
    }
    if (nElementBytes == 0)
    {
        return Fail("unknown data type '" + argument.strTypeName + "'");
    }
    argument.nSize = nElements * nElementBytes;
    argument.nSlotSize =
        (nElements * std::max(nElementBytes, 4u) + s_nElementBytes - 1) / s_nElementBytes * s_nElementBytes;
    return ReadSlot(tokens, 4, argument) && Add(argument);
}

bool CReader::ReadPointer(const Tokens& tokens)
{
    if (tokens.size() != m_Metadata.nPointerFields)
    {
        return Fail("a pointer line of this revision has " + std::to_string(m_Metadata.nPointerFields) +
                    " fields, not " + std::to_string(tokens.size()));
    }
    SKernelArgument argument;
    argument.strName = tokens[1];
    argument.strTypeName = tokens[2];
    argument.nSlotSize = s_nPointerSlot;
    const auto it = std::find_if(std::begin(s_MemoryTypes), std::end(s_MemoryTypes),
                                 [&](const SMemoryType& type) { return type.name == tokens[6]; });
    if (it == std::end(s_MemoryTypes))
    {
        return Fail("unknown memory type '" + std::string(tokens[6]) + "'");
    }
    argument.eKind = it->eKind;
    argument.eAccess =
        argument.eKind == SKernelArgument::ConstantPointer ? SKernelArgument::ReadOnly : SKernelArgument::ReadWrite;
    if (!Number(tokens[7], argument.nResource) || !Number(tokens[8], argument.nAlignment))
    {
        return FailNumber(std::string(tokens[7]) + ":" + std::string(tokens[8]));
    }
    if (tokens.size() > 9 && !ReadAccess(tokens[9], argument))
    {
        return false;
    }
    argument.bVolatile = tokens.size() > 10 && tokens[10] == "1";
    argument.bRestrict = tokens.size() > 11 && tokens[11] == "1";
    return ReadSlot(tokens, 4, argument) && Add(argument);
}

bool CReader::ReadImage(const Tokens& tokens)
{
    SKernelArgument argument;
    argument.eKind = SKernelArgument::Image;
    argument.strName = tokens[1];
    argument.strTypeName = tokens[2];
    argument.nSlotSize = s_nImageSlot;
    if (!ReadAccess(tokens[3], argument))
    {
        return false;
    }
    if (!Number(tokens[4], argument.nResource))
    {
        return FailNumber(tokens[4]);
    }
    return ReadSlot(tokens, 5, argument) && Add(argument);
}

bool CReader::ReadSampler(const Tokens& tokens)
{
    uint32_t nId = 0;
    uint32_t nLocation = 0;
    uint32_t nValue = 0;
    if (!Number(tokens[2], nId) || !Number(tokens[3], nLocation) || !Number(tokens[4], nValue) || nLocation > 1)
    {
        return Fail("expected sampler:NAME:ID:LOCATION:VALUE with a location of 0 or 1");
    }
    if (nLocation == 1)
    {
        SKernelSampler sampler;
        sampler.nSampler = nId;
        sampler.nValue = nValue;
        m_Metadata.vSamplers.push_back(sampler);
        return true;
    }
    SKernelArgument argument;
    argument.eKind = SKernelArgument::Sampler;
    argument.strName = tokens[1];
    argument.strTypeName = "sampler";
    argument.nResource = nId;
    return Add(argument);
}

/// The line has bytes in hexadecimal. Element n of the buffer is their words n to n + 3.
bool CReader::ReadConstants(const Tokens& tokens)
{
    const std::string_view digits = tokens[2];
    uint32_t nBuffer = 0;
    if (!Number(tokens[1], nBuffer) || nBuffer != s_nConstantsBuffer || digits.size() % 8 != 0 ||
        digits.size() / 2 > s_nLargestConstants)
    {
        return Fail("expected constants:2:WORDS with at most 65536 bytes");
    }
    std::vector<uint32_t> vWords(digits.size() / 8 + s_nElementWords - 1, 0);
    for (size_t n = 0; n < digits.size() / 2; ++n)
    {
        uint32_t nByte = 0;
        const char* const pDigits = digits.data() + n * 2;
        const auto result = std::from_chars(pDigits, pDigits + 2, nByte, 16);
        if (result.ec != std::errc() || result.ptr != pDigits + 2)
        {
            return Fail("expected hexadecimal digits in the constants");
        }
        vWords[n / 4] |= nByte << (n % 4 * 8);
    }
    m_Metadata.vConstants.clear();
    for (size_t n = 0; n + s_nElementWords <= vWords.size(); ++n)
    {
        m_Metadata.vConstants.insert(m_Metadata.vConstants.end(), vWords.begin() + static_cast<std::ptrdiff_t>(n),
                                     vWords.begin() + static_cast<std::ptrdiff_t>(n + s_nElementWords));
    }
    return true;
}

bool CReader::ReadCounter(const Tokens& tokens)
{
    SKernelArgument argument;
    argument.eKind = SKernelArgument::Counter;
    argument.strName = tokens[1];
    argument.strTypeName = "counter";
    if (!Number(tokens[3], argument.nResource))
    {
        return FailNumber(tokens[3]);
    }
    return ReadSlot(tokens, 4, argument) && Add(argument);
}

/// Reads how the source declares an argument, whose own line came earlier.
bool CReader::ReadArgumentInfo(const Tokens& tokens)
{
    uint32_t nArgument = 0;
    if (!Number(tokens[1], nArgument) || nArgument >= m_Metadata.vArguments.size())
    {
        return Fail("arginfo of an argument that isn't there: '" + std::string(tokens[1]) + "'");
    }
    SKernelArgument& argument = m_Metadata.vArguments[nArgument];
    argument.bSourceConst = tokens[4].find("const") != std::string_view::npos;
    argument.bVolatile = argument.bVolatile || tokens[4].find("volatile") != std::string_view::npos;
    argument.bRestrict = argument.bRestrict || tokens[4].find("restrict") != std::string_view::npos;
    argument.strSourceType = Unescape(tokens[5]);
    argument.strName = Unescape(tokens[6]);
    return true;
}

bool CReader::ReadAttributes(const Tokens& tokens)
{
    m_Metadata.strAttributes = tokens[1];
    return true;
}

/// Formats appear in the order of their numbers.
bool CReader::ReadFormat(const Tokens& tokens)
{
    uint32_t nFormat = 0;
    if (!Number(tokens[1], nFormat) || nFormat != m_Metadata.vFormats.size())
    {
        return Fail("expected the number " + std::to_string(m_Metadata.vFormats.size()) + " of a format, got '" +
                    std::string(tokens[1]) + "'");
    }
    SPrintfFormat format;
    format.strTypes = tokens[2];
    format.strText = Unescape(tokens[3]);
    for (size_t i = 4; i < tokens.size(); ++i)
    {
        format.vStrings.push_back(Unescape(tokens[i]));
    }
    m_Metadata.vFormats.push_back(std::move(format));
    return true;
}

} // namespace

bool ReadKernelMetadata(std::string_view text, SKernelMetadata& metadata, SDiagnostic& diag)
{
    metadata = SKernelMetadata();
    return CReader(metadata).Read(text, diag);
}

} // namespace KestrelPlatform

#include "tools/dap/Address.h"

#include "tools/dap/Fields.h"
#include "tools/session/debug/CommandError.h"

#include <algorithm>
#include <optional>

namespace KestrelTool
{

namespace
{

/// Lines before the first have addresses too: a client that asks for them gets marks of the same kind.
const int64_t s_nFirstAddress = 0x100000;

const std::pair<SSourceType::ESpace, const char*> s_Spaces[] = {{SSourceType::PrivateSpace, "private:"},
                                                                {SSourceType::LocalSpace, "local:"},
                                                                {SSourceType::GlobalSpace, ""},
                                                                {SSourceType::ConstantSpace, ""}};

std::optional<uint64_t> ReadHex(const std::string& strText)
{
    const size_t nMaxDigits = 16;
    const std::string strDigits = strText.compare(0, 2, "0x") == 0 ? strText.substr(2) : "";
    if (strDigits.empty() || strDigits.size() > nMaxDigits ||
        strDigits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
    {
        return std::nullopt;
    }
    return std::stoull(strDigits, nullptr, 16);
}

} // namespace

std::string MakeInstructionAddress(int64_t nLine)
{
    return FormatHex(static_cast<uint64_t>(std::max<int64_t>(0, s_nFirstAddress + nLine)));
}

unsigned int ReadInstructionAddress(const std::string& strReference, int64_t nOffset)
{
    const std::optional<uint64_t> address = ReadHex(strReference);
    const int64_t nLine =
        address && *address < 0x7FFFFFFF ? static_cast<int64_t>(*address) - s_nFirstAddress + nOffset : -1;
    if (nLine < 0 || nLine > 0x7FFFFFFF)
    {
        throw CRequestError("there is no instruction at " + strReference);
    }
    return static_cast<unsigned int>(nLine);
}

std::string MakeMemoryReference(SSourceType::ESpace eSpace, uint64_t nAddress)
{
    for (const auto& space : s_Spaces)
    {
        if (space.first == eSpace)
        {
            return space.second + FormatHex(nAddress);
        }
    }
    return FormatHex(nAddress);
}

SMemoryBytes ReadReference(CDebugger& debugger, const std::string& strReference, int64_t nOffset, size_t nBytes)
{
    SMemoryBytes memory;
    const auto* const pSpace = std::find_if(
        std::begin(s_Spaces), std::end(s_Spaces),
        [&](const auto& space)
        { return strReference.compare(0, std::char_traits<char>::length(space.second), space.second) == 0; });
    const std::optional<uint64_t> address =
        ReadHex(strReference.substr(std::char_traits<char>::length(pSpace->second)));
    if (!address)
    {
        throw CRequestError("there is no memory at " + strReference);
    }
    memory.nAddress = *address + static_cast<uint64_t>(nOffset);
    try
    {
        switch (pSpace->first)
        {
        case SSourceType::PrivateSpace:
            memory.vBytes = debugger.ReadPrivate(debugger.GetFocus(), memory.nAddress, nBytes);
            break;
        case SSourceType::LocalSpace:
            memory.vBytes =
                debugger.ReadLocal(debugger.FindDeclaredLocal(), debugger.GetExtent().GroupOf(debugger.GetFocus()),
                                   memory.nAddress, nBytes);
            break;
        default:
            memory.vBytes = debugger.ReadGlobal(memory.nAddress, nBytes);
        }
    }
    catch (const CCommandError&)
    {
        // Nothing is there that can be read.
    }
    memory.vBytes.resize(std::min(memory.vBytes.size(), nBytes));
    return memory;
}

std::string EncodeBase64(const std::vector<unsigned char>& vBytes)
{
    static const char s_szDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string strText;
    for (size_t n = 0; n < vBytes.size(); n += 3)
    {
        const size_t nLeft = vBytes.size() - n;
        const uint32_t nBits = uint32_t(vBytes[n]) << 16 | (nLeft > 1 ? uint32_t(vBytes[n + 1]) << 8 : 0) |
                               (nLeft > 2 ? uint32_t(vBytes[n + 2]) : 0);
        for (size_t nDigit = 0; nDigit < 4; ++nDigit)
        {
            strText += nDigit <= nLeft ? s_szDigits[nBits >> (18 - 6 * nDigit) & 63] : '=';
        }
    }
    return strText;
}

} // namespace KestrelTool

#include "api/RegisterLocators.h"

#include "api/ApiTrace.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

namespace Kestrel
{

namespace
{

#define DL_REGISTER_TYPE_TEXT(name, text) text,
const char* const s_RegTypeTexts[] = {DL_REGISTER_TYPES(DL_REGISTER_TYPE_TEXT)};
#undef DL_REGISTER_TYPE_TEXT

const ovkclDebugRegisterLocator s_nGeneralForm = 1ULL << 63;
const ovkclDebugRegisterLocator s_nReservedBits = 0x7FULL << 56;
const ovkclDebugRegisterLocator s_nConstantBufferForm = 0x10000;
const ovkclDebugRegisterLocator s_nConstantBufferLast = 0x1FFFF;

/// A number of up to 32 bits in decimal digits, 0 for an empty text. Nothing for any other text.
std::optional<unsigned int> ReadNumber(const std::string& strText)
{
    unsigned int nNumber = 0;
    const char* pEnd = strText.data() + strText.size();
    const auto read = std::from_chars(strText.data(), pEnd, nNumber);
    if (strText.empty() || (read.ec == std::errc() && read.ptr == pEnd))
    {
        return nNumber;
    }
    return std::nullopt;
}

std::string Compose(const std::string& strType, unsigned int nNumber)
{
    return strType + std::to_string(nNumber);
}

std::string Compose(const std::string& strType, unsigned int nNumber, unsigned int nIndex)
{
    return Compose(strType, nNumber) + "[" + std::to_string(nIndex) + "]";
}

} // namespace

std::string DLRegTypeToString(DLRegType regType)
{
    if (static_cast<unsigned int>(regType) >= DL_REGTYPE_LAST)
    {
        CLD_Break("Invalid register type");
        return std::string();
    }
    return s_RegTypeTexts[regType];
}

DLRegType StringToDLRegType(const std::string& strRegType)
{
    for (unsigned int i = 0; i < DL_REGTYPE_LAST; ++i)
    {
        if (i != DL_REGTYPE_VPRIM && strRegType == s_RegTypeTexts[i])
        {
            return static_cast<DLRegType>(i);
        }
    }
    CLD_Break("Invalid register type");
    return DL_REGTYPE_LAST;
}

bool IsRegTypeIndexed(DLRegType regType)
{
    return regType == DL_REGTYPE_ITEMP || regType == DL_REGTYPE_CONST_BUFF || regType == DL_REGTYPE_PRIVATE_UAV_ACCESS;
}

ovkclDebugRegisterLocator MakeRegisterLocator(DLRegType regType, unsigned int nNumber, unsigned int nIndex)
{
    return s_nGeneralForm | static_cast<ovkclDebugRegisterLocator>(nIndex) << 24 |
           static_cast<ovkclDebugRegisterLocator>(nNumber & 0xFFFF) << 8 | static_cast<unsigned int>(regType);
}

ovkclDebugRegisterLocator stringToDebugRegisterLocator(std::string strILRegName)
{
    const size_t nDigit = strILRegName.find_first_of("1234567890");
    if (nDigit == std::string::npos)
    {
        return s_InvalidLocator;
    }
    const DLRegType regType = StringToDLRegType(strILRegName.substr(0, nDigit));
    if (regType == DL_REGTYPE_LAST)
    {
        return s_InvalidLocator;
    }

    std::string strRegNum = strILRegName.substr(nDigit);
    std::string strRegIndex;
    const size_t nOpen = strRegNum.find('[');
    if (IsRegTypeIndexed(regType) != (nOpen != std::string::npos))
    {
        return s_InvalidLocator;
    }
    if (nOpen != std::string::npos)
    {
        const size_t nClose = strRegNum.find(']', nOpen);
        if (nClose != strRegNum.size() - 1)
        {
            return s_InvalidLocator;
        }
        strRegIndex = strRegNum.substr(nOpen + 1, nClose - nOpen - 1);
        strRegNum.resize(nOpen);
    }

    const std::optional<unsigned int> regNum = ReadNumber(strRegNum);
    const std::optional<unsigned int> regIndex = ReadNumber(strRegIndex);
    if (!regNum || !regIndex)
    {
        return s_InvalidLocator;
    }
    const unsigned int nRegNum = *regNum;
    const unsigned int nRegIndex = *regIndex;
    if (regType == DL_REGTYPE_TEMP)
    {
        return nRegNum & 0xFFFF;
    }
    if (regType == DL_REGTYPE_CONST_BUFF)
    {
        return s_nConstantBufferForm | (nRegNum & 0xF) << 12 | (nRegIndex & 0xFFF);
    }
    return MakeRegisterLocator(regType, nRegNum, nRegIndex);
}

std::string debugRegisterLocatorToString(ovkclDebugRegisterLocator debugRegisterLocator)
{
    if (debugRegisterLocator < s_nConstantBufferForm)
    {
        return Compose("r", static_cast<unsigned int>(debugRegisterLocator));
    }
    if (debugRegisterLocator <= s_nConstantBufferLast)
    {
        return Compose("cb", debugRegisterLocator >> 12 & 0xF, debugRegisterLocator & 0xFFF);
    }
    const DLRegType regType = static_cast<DLRegType>(debugRegisterLocator & 0xFF);
    if ((debugRegisterLocator & s_nGeneralForm) == 0 || (debugRegisterLocator & s_nReservedBits) != 0)
    {
        CLD_Break("Unrecognized register");
        return std::string();
    }
    const std::string strType = DLRegTypeToString(regType);
    if (strType.empty())
    {
        return std::string();
    }
    const unsigned int nNumber = debugRegisterLocator >> 8 & 0xFFFF;
    const unsigned int nIndex = debugRegisterLocator >> 24 & 0xFFFFFFFF;
    return IsRegTypeIndexed(regType) ? Compose(strType, nNumber, nIndex) : Compose(strType, nNumber);
}

} // namespace Kestrel

using namespace Kestrel;

ovkclDebugError ovkclDebugUtilStringToDebugRegisterLocator(const cl_char* registerName,
                                                           ovkclDebugRegisterLocator* debugRegisterLocator)
{
    TraceCall(__func__, registerName, debugRegisterLocator);
    return RunExported<ovkclDebugError>(__func__, OVKCLDEBUG_ERROR_OUT_OF_MEMORY, OVKCLDEBUG_ERROR_INTERNAL,
                                        [&]() -> ovkclDebugError
                                        {
                                            if (registerName == nullptr || debugRegisterLocator == nullptr)
                                            {
                                                return OVKCLDEBUG_ERROR_INVALID_ARGUMENT;
                                            }
                                            *debugRegisterLocator = stringToDebugRegisterLocator(
                                                reinterpret_cast<const char*>(registerName));
                                            return OVKCLDEBUG_SUCCESS;
                                        });
}

ovkclDebugError ovkclDebugUtilDebugRegisterLocatorToString(ovkclDebugRegisterLocator debugRegisterLocator,
                                                           size_t bufferSize, cl_char* registerNameBuffer,
                                                           size_t* bufferSizeRet)
{
    TraceCall(__func__, debugRegisterLocator, bufferSize, registerNameBuffer, bufferSizeRet);
    return RunExported<ovkclDebugError>(__func__, OVKCLDEBUG_ERROR_OUT_OF_MEMORY, OVKCLDEBUG_ERROR_INTERNAL,
                                        [&]() -> ovkclDebugError
                                        {
                                            if (bufferSize != 0 && registerNameBuffer == nullptr)
                                            {
                                                return OVKCLDEBUG_ERROR_INVALID_ARGUMENT;
                                            }
                                            const std::string strName =
                                                debugRegisterLocatorToString(debugRegisterLocator);
                                            const size_t nLength = strName.size() + 1;
                                            if (bufferSizeRet != nullptr)
                                            {
                                                *bufferSizeRet = nLength;
                                            }
                                            if (registerNameBuffer == nullptr)
                                            {
                                                return OVKCLDEBUG_SUCCESS;
                                            }
                                            if (bufferSize < nLength)
                                            {
                                                return OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL;
                                            }
                                            std::memcpy(registerNameBuffer, strName.c_str(), nLength);
                                            return OVKCLDEBUG_SUCCESS;
                                        });
}

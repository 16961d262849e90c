#include "api/Query.h"

namespace Kestrel
{

std::string ToHexadecimal(const unsigned char* pBytes, size_t nCount)
{
    static const char s_szDigits[] = "0123456789abcdef";
    std::string strText;
    strText.reserve(nCount * 3);
    for (size_t i = 0; i < nCount; ++i)
    {
        if (i != 0)
        {
            strText += ' ';
        }
        strText += s_szDigits[pBytes[i] >> 4];
        strText += s_szDigits[pBytes[i] & 0xF];
    }
    return strText;
}

} // namespace Kestrel

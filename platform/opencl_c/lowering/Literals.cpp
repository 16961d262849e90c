#include "platform/opencl_c/lowering/Literals.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

namespace KestrelOpenCL
{
namespace
{

const int32_t s_nSmall = 1 << 20; ///< integers below this are printed as integers
const float s_nSmallestFloat = 1e-9f;
const float s_nLargestFloat = 1e9f;

/// In a readable form: a small integer, a float if the bits look like one, else the bits.
std::string TextOf(uint32_t nBits)
{
    const auto nInteger = static_cast<int32_t>(nBits);
    if (nInteger > -s_nSmall && nInteger < s_nSmall)
    {
        return std::to_string(nInteger);
    }
    char text[32];
    float fValue = 0;
    std::memcpy(&fValue, &nBits, sizeof fValue);
    if (std::abs(fValue) > s_nSmallestFloat && std::abs(fValue) < s_nLargestFloat)
    {
        const auto result = std::to_chars(text, text + sizeof text, fValue, std::chars_format::fixed);
        std::string strText(text, result.ptr);
        return strText.find('.') == std::string::npos ? strText + ".0" : strText;
    }
    const auto result = std::to_chars(text, text + sizeof text, nBits, 16);
    return "0x" + std::string(text, result.ptr);
}

} // namespace

bool CLiterals::Place(SRegister& reg, llvm::ArrayRef<uint32_t> values, llvm::MutableArrayRef<unsigned> components)
{
    SRegister tried = reg;
    for (size_t n = 0; n < values.size(); ++n)
    {
        const auto itEnd = tried.values.begin() + tried.nUsed;
        const auto it = std::find(tried.values.begin(), itEnd, values[n]);
        if (it == itEnd)
        {
            if (tried.nUsed == s_nComponents)
            {
                return false;
            }
            tried.values[tried.nUsed++] = values[n];
        }
        components[n] = static_cast<unsigned>(it - tried.values.begin());
    }
    reg = tried;
    return true;
}

uint32_t CLiterals::Find(llvm::ArrayRef<uint32_t> values, llvm::MutableArrayRef<unsigned> components)
{
    std::vector<uint32_t> vKey(values.begin(), values.end());
    std::sort(vKey.begin(), vKey.end());
    vKey.erase(std::unique(vKey.begin(), vKey.end()), vKey.end());
    const auto inserted = m_mapSets.try_emplace(std::move(vKey), 0);
    if (inserted.second)
    {
        if (m_vRegisters.empty() || !Place(m_vRegisters.back(), values, components))
        {
            m_vRegisters.emplace_back();
            Place(m_vRegisters.back(), values, components);
        }
        inserted.first->second = Count() - 1;
        // Each of the values can be found by itself from now on.
        for (const uint32_t nValue : values)
        {
            m_mapSets.try_emplace({nValue}, Count() - 1);
        }
    }
    Place(m_vRegisters[inserted.first->second], values, components);
    return m_nFirst + inserted.first->second;
}

std::string CLiterals::Declare() const
{
    std::string strText;
    for (uint32_t n = 0; n < Count(); ++n)
    {
        strText += "dcl_literal l" + std::to_string(m_nFirst + n);
        for (const uint32_t nValue : m_vRegisters[n].values)
        {
            strText += ", " + TextOf(nValue);
        }
        strText += "\n";
    }
    return strText;
}

} // namespace KestrelOpenCL

#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_BYTEWRITER_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_BYTEWRITER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace KestrelOpenCL
{

/// Appends little-endian numbers and the variable-length numbers of DWARF to a string.
class CByteWriter
{
public:
    void U8(uint64_t n) { Number(n, 1); }
    void U16(uint64_t n) { Number(n, 2); }
    void U32(uint64_t n) { Number(n, 4); }
    void U64(uint64_t n) { Number(n, 8); }

    void Unsigned(uint64_t n)
    {
        for (; n > 0x7F; n >>= 7)
        {
            U8((n & 0x7F) | 0x80);
        }
        U8(n);
    }

    void Signed(int64_t n)
    {
        for (; n < -0x40 || n > 0x3F; n >>= 7)
        {
            U8((static_cast<uint64_t>(n) & 0x7F) | 0x80);
        }
        U8(static_cast<uint64_t>(n) & 0x7F);
    }

    void Bytes(std::string_view bytes) { m_strData.append(bytes); }

    /// Appends a text and a zero byte.
    void Text(std::string_view text)
    {
        Bytes(text.substr(0, text.find('\0')));
        U8(0);
    }

    /// Overwrites four bytes that were written before.
    void PatchU32(size_t nPlace, uint64_t n)
    {
        for (size_t i = 0; i < 4; ++i)
        {
            m_strData[nPlace + i] = static_cast<char>(n >> (8 * i));
        }
    }

    size_t Size() const { return m_strData.size(); }
    const std::string& Data() const { return m_strData; }

private:
    void Number(uint64_t n, int nBytes)
    {
        for (int i = 0; i < nBytes; ++i)
        {
            m_strData.push_back(static_cast<char>(n >> (8 * i)));
        }
    }

    std::string m_strData;
};

} // namespace KestrelOpenCL

#endif

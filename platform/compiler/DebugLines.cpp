#include "platform/compiler/DebugLines.h"

#include <cstddef>
#include <vector>

namespace KestrelPlatform
{
namespace
{

// The opcodes of line number programs (section 6.2.5 of the standard).
enum EOperation : uint8_t
{
    Extended = 0,
    Copy,
    AdvanceAddress,
    AdvanceLine,
    SetFile,
    SetColumn,
    NegateStatement,
    SetBasicBlock,
    AddConstantAddress,
    AdvanceFixed,
};
enum EExtendedOperation : uint8_t
{
    EndSequence = 1,
    SetAddress = 2,
};

const unsigned int s_nDwarfVersion = 4;

/// Reads numbers and strings. Past the end everything reads as 0.
class CLineReader
{
public:
    explicit CLineReader(std::string_view data) : m_Data(data) {}

    bool IsAtEnd() const { return m_Data.empty(); }

    uint64_t Number(size_t nBytes)
    {
        const std::string_view part = Take(nBytes);
        uint64_t nValue = 0;
        for (size_t n = 0; n < part.size(); ++n)
        {
            nValue |= uint64_t{static_cast<unsigned char>(part[n])} << (8 * n);
        }
        return nValue;
    }

    uint64_t Unsigned()
    {
        uint64_t nValue = 0;
        for (unsigned int nShift = 0; !IsAtEnd(); nShift += 7)
        {
            const uint64_t nByte = Number(1);
            nValue |= nShift < 64 ? (nByte & 0x7F) << nShift : 0;
            if (nByte < 0x80)
            {
                break;
            }
        }
        return nValue;
    }

    int64_t Signed()
    {
        uint64_t nValue = 0;
        uint64_t nByte = 0x80;
        unsigned int nShift = 0;
        for (; nByte >= 0x80 && !IsAtEnd(); nShift += 7)
        {
            nByte = Number(1);
            nValue |= nShift < 64 ? (nByte & 0x7F) << nShift : 0;
        }
        const bool bNegative = (nByte & 0x40) != 0 && nShift < 64;
        return static_cast<int64_t>(bNegative ? nValue | (~uint64_t{0} << nShift) : nValue);
    }

    std::string_view Text()
    {
        const std::string_view text = m_Data.substr(0, m_Data.find('\0'));
        Take(text.size() + 1);
        return text;
    }

    std::string_view Take(size_t nBytes)
    {
        const std::string_view part = m_Data.substr(0, nBytes);
        m_Data.remove_prefix(part.size());
        return part;
    }

private:
    std::string_view m_Data;
};

struct SLineRow
{
    uint64_t nAddress = 0;
    uint64_t nFile = 1;
    uint64_t nLine = 1;
};

/// One unit of a line table.
class CLineUnit
{
public:
    explicit CLineUnit(std::string_view unit) : m_Program({})
    {
        CLineReader reader(unit);
        if (reader.Number(2) != s_nDwarfVersion)
        {
            return;
        }
        CLineReader header(reader.Take(reader.Number(4)));
        m_nStep = header.Number(1);
        header.Number(2); // operations per instruction, and whether rows begin statements
        const uint64_t nLineBase = header.Number(1);
        m_nLineBase = static_cast<int64_t>(nLineBase ^ 0x80) - 0x80; // a signed byte
        m_nLineRange = header.Number(1);
        m_nFirstSpecial = header.Number(1);
        for (uint64_t n = 1; n < m_nFirstSpecial; ++n)
        {
            m_vOperands.push_back(header.Number(1));
        }
        while (!header.IsAtEnd() && !header.Text().empty())
        {
        }
        for (std::string_view name = header.Text(); !name.empty(); name = header.Text())
        {
            m_vFiles.push_back(name);
            for (int n = 0; n < 3; ++n) // folder, time, length
            {
                header.Unsigned();
            }
        }
        m_Program = reader;
    }

    std::string Find(uint64_t nAddress)
    {
        m_nWanted = nAddress;
        m_bLast = false;
        while (!m_Program.IsAtEnd() && m_nLineRange > 0 && !m_bFound)
        {
            Step();
        }
        if (!m_bFound || m_Found.nFile == 0 || m_Found.nFile > m_vFiles.size() || m_Found.nLine == 0)
        {
            return {};
        }
        return std::string(m_vFiles[m_Found.nFile - 1]) + ":" + std::to_string(m_Found.nLine);
    }

private:
    void Step()
    {
        const uint64_t nOperation = m_Program.Number(1);
        if (nOperation >= m_nFirstSpecial)
        {
            const uint64_t nSpecial = nOperation - m_nFirstSpecial;
            m_Row.nAddress += nSpecial / m_nLineRange * m_nStep;
            m_Row.nLine += static_cast<uint64_t>(m_nLineBase) + nSpecial % m_nLineRange;
            return EmitRow();
        }
        switch (nOperation)
        {
        case Extended:
            return StepExtended();
        case Copy:
            return EmitRow();
        case AdvanceAddress:
            m_Row.nAddress += m_Program.Unsigned() * m_nStep;
            return;
        case AdvanceLine:
            m_Row.nLine += static_cast<uint64_t>(m_Program.Signed());
            return;
        case SetFile:
            m_Row.nFile = m_Program.Unsigned();
            return;
        case AddConstantAddress:
            m_Row.nAddress += (255 - m_nFirstSpecial) / m_nLineRange * m_nStep;
            return;
        case AdvanceFixed:
            m_Row.nAddress += m_Program.Number(2);
            return;
        default:
            for (uint64_t n = 0; n < m_vOperands[nOperation - 1]; ++n)
            {
                m_Program.Unsigned();
            }
            return;
        }
    }

    void StepExtended()
    {
        CLineReader operands(m_Program.Take(m_Program.Unsigned()));
        switch (operands.Number(1))
        {
        case EndSequence:
            EmitRow();
            m_Row = {};
            m_bLast = false;
            return;
        case SetAddress:
            m_Row.nAddress = operands.Number(8);
            return;
        default:
            return;
        }
    }

    /// The previous row covers the addresses up to this one.
    void EmitRow()
    {
        if (m_bLast && m_nWanted >= m_Last.nAddress && m_nWanted < m_Row.nAddress)
        {
            m_bFound = true;
            m_Found = m_Last;
        }
        m_bLast = true;
        m_Last = m_Row;
    }

    CLineReader m_Program;
    uint64_t m_nStep = 1;
    int64_t m_nLineBase = 0;
    uint64_t m_nLineRange = 0;
    uint64_t m_nFirstSpecial = 1;
    std::vector<uint64_t> m_vOperands; ///< by operation, from 1
    std::vector<std::string_view> m_vFiles;
    SLineRow m_Row;
    SLineRow m_Last;
    SLineRow m_Found;
    uint64_t m_nWanted = 0;
    bool m_bLast = false;
    bool m_bFound = false;
};

} // namespace

std::string CDebugLines::Find(uint64_t nLine) const
{
    CLineReader section(m_strSection);
    while (!section.IsAtEnd())
    {
        const uint64_t nLength = section.Number(4);
        std::string strPlace = CLineUnit(section.Take(nLength)).Find(nLine);
        if (!strPlace.empty())
        {
            return strPlace;
        }
    }
    return {};
}

} // namespace KestrelPlatform

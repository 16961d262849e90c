#include "tools/source/SourcePlaces.h"

#include <elfutils/libdw.h>
#include <libelf.h>

#include <algorithm>
#include <memory>

namespace KestrelTool
{

namespace
{

/// The rows of one table, in order of their addresses.
class CPlaceTable
{
public:
    explicit CPlaceTable(size_t nLines) : m_vPlaces(nLines) {}

    void Add(Dwarf_Lines* pLines, size_t nRows)
    {
        for (size_t n = 0; n + 1 < nRows; ++n)
        {
            Dwarf_Addr nFirst = 0;
            Dwarf_Addr nEnd = 0;
            bool bEndsSequence = false;
            int nLine = 0;
            Dwarf_Line* const pRow = dwarf_onesrcline(pLines, n);
            if (dwarf_lineaddr(pRow, &nFirst) != 0 || dwarf_lineaddr(dwarf_onesrcline(pLines, n + 1), &nEnd) != 0 ||
                dwarf_lineendsequence(pRow, &bEndsSequence) != 0 || dwarf_lineno(pRow, &nLine) != 0 || bEndsSequence ||
                nLine == 0)
            {
                continue;
            }
            const char* const pszFile = dwarf_linesrc(pRow, nullptr, nullptr);
            const std::string strPlace = std::string(pszFile != nullptr ? pszFile : "?") + ":" + std::to_string(nLine);
            for (Dwarf_Addr nAddress = nFirst; nAddress < std::min<Dwarf_Addr>(nEnd, m_vPlaces.size()); ++nAddress)
            {
                m_vPlaces[nAddress] = strPlace;
            }
        }
    }

    std::vector<std::string> Take() { return std::move(m_vPlaces); }

private:
    std::vector<std::string> m_vPlaces;
};

} // namespace

std::vector<std::string> ReadSourcePlaces(const std::vector<char>& vBinary, size_t nLines)
{
    elf_version(EV_CURRENT);
    std::vector<char> vImage = vBinary; // the reader may change it
    const std::unique_ptr<Elf, int (*)(Elf*)> pElf(elf_memory(vImage.data(), vImage.size()), elf_end);
    const std::unique_ptr<Dwarf, int (*)(Dwarf*)> pDwarf(
        pElf ? dwarf_begin_elf(pElf.get(), DWARF_C_READ, nullptr) : nullptr, dwarf_end);
    if (!pDwarf)
    {
        return {};
    }
    CPlaceTable table(nLines);
    Dwarf_Off nNext = 0;
    Dwarf_CU* pUnit = nullptr;
    Dwarf_Lines* pLines = nullptr;
    size_t nRows = 0;
    for (Dwarf_Off nOffset = 0;
         dwarf_next_lines(pDwarf.get(), nOffset, &nNext, &pUnit, nullptr, nullptr, &pLines, &nRows) == 0 &&
         nNext > nOffset;
         nOffset = nNext)
    {
        table.Add(pLines, nRows);
    }
    return table.Take();
}

std::string ShortenPlace(const std::string& strPlace)
{
    return strPlace.substr(strPlace.rfind('/') + 1);
}

} // namespace KestrelTool

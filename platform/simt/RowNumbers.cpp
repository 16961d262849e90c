#include "platform/simt/RowNumbers.h"

#include <algorithm>
#include <type_traits>

namespace KestrelPlatform
{

namespace
{

template <class TRow, size_t nCount, class F>
void ForAll(TRow (&rows)[nCount], F&& visit)
{
    std::for_each(rows, rows + nCount, visit);
}

/// Calls visit with every field that holds a row number; fields without a row hold the mask's number, 0.
template <class F>
void ForEachRow(SCode& code, F&& visit)
{
    for (SMicroOp& step : code.vSteps)
    {
        // For MICRO_INDEX_STORE this field is a set of components.
        if (step.eKind != MICRO_INDEX_STORE)
        {
            ForAll(step.rows.d, visit);
        }
        ForAll(step.rows.s, visit);
    }
    for (SMicroOp& step : code.vSteadySteps)
    {
        ForAll(step.rows.d, visit);
        ForAll(step.rows.s, visit);
    }
    for (SAccess& access : code.vAccesses)
    {
        ForAll(access.nAddressRows, visit);
        visit(access.nIndexRow);
        visit(access.nScaleRow);
        ForAll(access.nBaseRows, visit);
        ForAll(access.nRows, visit);
        ForAll(access.nValueRows, visit);
    }
    for (SImageAccess& image : code.vImages)
    {
        ForAll(image.nCoordinates, visit);
        ForAll(image.nOffsets, visit);
        ForAll(image.nRows, visit);
        visit(image.nReference);
    }
    for (SIndexed& indexed : code.vIndexed)
    {
        visit(indexed.nIndexRow);
    }
    std::for_each(code.vClearRows.begin(), code.vClearRows.end(), visit);
    std::for_each(code.vUnwrittenRows.begin(), code.vUnwrittenRows.end(), visit);
}

class CRowNumbers
{
public:
    explicit CRowNumbers(SCode& code) : m_Code(code), m_vNumbers(code.nRows + 1, 0) {}

    void Run()
    {
        MarkUsed();
        uint32_t nRows = 0;
        for (uint32_t n = 0; n < m_Code.nRows; ++n)
        {
            m_vNumbers[n] = m_vNumbers[n] == 0 ? s_nUnused : nRows++;
        }
        // Where an array without elements begins.
        m_vNumbers.back() = nRows;
        DropUnused(m_Code.vConstants);
        DropUnused(m_Code.vIds);
        Renumber();
        m_Code.nRows = nRows;
    }

private:
    static constexpr uint32_t s_nUnused = ~0u;

    void Mark(uint32_t nFirst, uint32_t nCount)
    {
        std::fill_n(m_vNumbers.begin() + static_cast<ptrdiff_t>(nFirst), nCount, 1);
    }

    void MarkUsed()
    {
        Mark(s_nMaskRow, 1);
        Mark(s_nZeroRow, 1);
        ForEachRow(m_Code, [this](const auto& nRow) { m_vNumbers[nRow] = 1; });
        // An array's rows stay together, all of them.
        for (const SCode::SArray& array : m_Code.vArrays)
        {
            Mark(array.nRow, array.nElements * 4);
        }
        for (const SCode::SPrivate& area : m_Code.vPrivate)
        {
            Mark(area.nRow, (area.nBytes + 3) / 4);
        }
    }

    template <class T>
    void DropUnused(std::vector<T>& vFilled) const
    {
        const auto isUnused = [this](const T& filled) { return m_vNumbers[filled.nRow] == s_nUnused; };
        vFilled.erase(std::remove_if(vFilled.begin(), vFilled.end(), isUnused), vFilled.end());
    }

    void Renumber()
    {
        const auto renumber = [this](auto& nRow)
        { nRow = static_cast<std::remove_reference_t<decltype(nRow)>>(m_vNumbers[nRow]); };
        ForEachRow(m_Code, renumber);
        for (SCode::SConstant& constant : m_Code.vConstants)
        {
            renumber(constant.nRow);
        }
        for (SCode::SId& id : m_Code.vIds)
        {
            renumber(id.nRow);
        }
        for (SCode::SArray& array : m_Code.vArrays)
        {
            renumber(array.nRow);
        }
        for (SCode::SPrivate& area : m_Code.vPrivate)
        {
            renumber(area.nRow);
        }
    }

    SCode& m_Code;
    std::vector<uint32_t> m_vNumbers; ///< by old number: first whether the row is used, later the new number
};

} // namespace

void CloseRowGaps(SCode& code)
{
    CRowNumbers(code).Run();
}

} // namespace KestrelPlatform

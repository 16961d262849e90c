#include "fuzz/Mutator.h"

#include "fuzz/FuzzKernel.h"

#include "platform/compiler/ItemLayout.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace KestrelFuzz
{

using namespace KestrelPlatform;

namespace
{

typedef std::vector<unsigned int> Item;

constexpr unsigned int s_nBreak = 6;

/// Blocks that can be put around items of a kernel without making it malformed: if_logicalnz on r0.x, whileloop, switch
/// on r0.x with a default, and an else for the first. Each has opening and closing items.
const struct SWrapper
{
    Item open;
    Item close;
} s_Wrappers[] = {
    {{IL_OP_IF_LOGICALNZ, 0x00440000, 0}, {IL_OP_ENDIF}},
    {{IL_OP_WHILE}, {IL_OP_ENDLOOP}},
    {{IL_OP_SWITCH, 0x00440000, 0, IL_OP_CASE, 1}, {s_nBreak, IL_OP_ENDSWITCH}},
    {{IL_OP_IF_LOGICALNZ, 0x00440000, 0, IL_OP_ELSE}, {IL_OP_ENDIF}},
};

/// A stream as a list of items.
class CItemMutator
{
public:
    CItemMutator(const std::vector<unsigned int>& vTokens, unsigned int nSeed) : m_Random(nSeed)
    {
        for (size_t nPosition = std::min<size_t>(2, vTokens.size()); nPosition < vTokens.size();)
        {
            SItemLayout layout;
            const char* pszReason = nullptr;
            if (!MeasureItem(vTokens.data() + nPosition, vTokens.size() - nPosition, layout, pszReason))
            {
                m_vItems.clear();
                return;
            }
            const auto begin = vTokens.begin() + static_cast<std::ptrdiff_t>(nPosition);
            m_vItems.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(layout.nWords));
            nPosition += layout.nWords;
        }
        m_vHeader.assign(vTokens.begin(),
                         vTokens.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(2, vTokens.size())));
    }

    bool IsStream() const { return m_vItems.size() >= 2; }

    std::vector<unsigned int> Mutate()
    {
        for (unsigned int nChanges = 1 + Below(3); nChanges != 0; --nChanges)
        {
            ChangeOnce();
        }
        std::vector<unsigned int> vTokens = m_vHeader;
        for (const Item& item : m_vItems)
        {
            vTokens.insert(vTokens.end(), item.begin(), item.end());
        }
        return vTokens;
    }

private:
    unsigned int Below(size_t n) { return n == 0 ? 0 : static_cast<unsigned int>(m_Random() % n); }
    size_t AnyIndex() { return Below(m_vItems.size()); }
    Item& AnyItem() { return m_vItems[AnyIndex()]; }
    std::vector<Item>::iterator Place(size_t n) { return m_vItems.begin() + static_cast<std::ptrdiff_t>(n); }

    void ChangeOnce()
    {
        switch (Below(10))
        {
        case 0:
            std::swap(AnyItem(), AnyItem());
            break;

        case 1:
            if (m_vItems.size() > 2)
            {
                m_vItems.erase(Place(AnyIndex()));
            }
            break;

        case 2:
        {
            const Item copy = AnyItem();
            m_vItems.insert(Place(AnyIndex()), copy);
            break;
        }

        case 3:
            Wrap();
            break;

        case 4:
            CopyRange();
            break;

        case 5:
            AnyItem()[0] ^= 0x10000u << Below(14);
            break;

        case 6:
            ChangeOpcode();
            break;

        default:
            ChangeWord();
            break;
        }
    }

    /// Puts a block, or a part of one, around a run of items.
    void Wrap()
    {
        const SWrapper& wrapper = s_Wrappers[Below(std::size(s_Wrappers))];
        size_t nBegin = AnyIndex();
        size_t nEnd = std::min(m_vItems.size(), nBegin + 1 + Below(6));
        m_vItems.insert(Place(nEnd), wrapper.close);
        m_vItems.insert(Place(nBegin), wrapper.open);
    }

    void CopyRange()
    {
        const size_t nBegin = AnyIndex();
        const size_t nEnd = std::min(m_vItems.size(), nBegin + 1 + Below(8));
        const std::vector<Item> vRange(Place(nBegin), Place(nEnd));
        m_vItems.insert(Place(AnyIndex()), vRange.begin(), vRange.end());
    }

    /// Uses another opcode of the same shape, so that the item can still be decoded.
    void ChangeOpcode()
    {
        Item& item = AnyItem();
        const SInstructionShape& shape = GetInstructionShape(item[0] & s_nOpcodeMask);
        const uint32_t nOther = Below(IL_OP_LAST);
        const SInstructionShape& other = GetInstructionShape(nOther);
        if (other.pName != nullptr && other.nSources == shape.nSources && other.bDestination == shape.bDestination &&
            other.eTail == shape.eTail && other.bModifierWords == shape.bModifierWords)
        {
            item[0] = (item[0] & ~s_nOpcodeMask) | nOther;
        }
    }

    /// Changes a word after the opcode: the register's number or type, a modifier, a literal.
    void ChangeWord()
    {
        Item& item = AnyItem();
        if (item.size() < 2)
        {
            return;
        }
        unsigned int& nWord = item[1 + Below(item.size() - 1)];
        switch (Below(5))
        {
        case 0:
            nWord = (nWord & 0xFFFF0000u) | Below(16);
            break;

        case 1:
            nWord = (nWord & ~(0x3Fu << 16)) | (Below(64) << 16);
            break;

        case 2:
            nWord ^= 1u << Below(32);
            break;

        case 3:
            nWord = static_cast<unsigned int>(m_Random());
            break;

        default:
            nWord = Below(2) != 0 ? 1024 + Below(4) : Below(32);
            break;
        }
    }

    std::mt19937 m_Random;
    std::vector<unsigned int> m_vHeader;
    std::vector<Item> m_vItems;
};

} // namespace

size_t MutateTokens(uint8_t* pData, size_t nSize, size_t nMaxSize, unsigned int nSeed, MutateBytes pfnMutateBytes)
{
    CItemMutator mutator(ToWords(pData, nSize), nSeed);
    if (!mutator.IsStream() || nSeed % 8 == 0)
    {
        return pfnMutateBytes(pData, nSize, nMaxSize);
    }
    const std::vector<unsigned int> vTokens = mutator.Mutate();
    const size_t nRest = nSize % sizeof(vTokens[0]);
    const size_t nBytes = vTokens.size() * sizeof(vTokens[0]);
    if (nBytes + nRest > nMaxSize)
    {
        return pfnMutateBytes(pData, nSize, nMaxSize);
    }
    uint8_t rest[sizeof(vTokens[0])] = {};
    std::memcpy(rest, pData + nSize - nRest, nRest);
    std::memcpy(pData, vTokens.data(), nBytes);
    std::memcpy(pData + nBytes, rest, nRest);
    return nBytes + nRest;
}

} // namespace KestrelFuzz

#ifndef KESTREL_TOOLS_DEBUG_STOPMEMORY_H
#define KESTREL_TOOLS_DEBUG_STOPMEMORY_H

#include "tools/session/debug/ExpressionNode.h"

#include <map>
#include <utility>

namespace KestrelTool
{

/// The memory that expressions have read at a stop, in pieces that serve many work-items.
class CStopMemory
{
public:
    void Bind(IValueSource& source);

    /// The bytes of an argument's element.
    const unsigned char* FindElement(const SElements& elements, size_t nGroup, uint64_t nOffset);
    /// The bytes at an address, as a work-item sees it.
    /// \return false if there aren't that many
    bool Read(SSourceType::ESpace eSpace, uint64_t nAddress, size_t nItem, unsigned char* pBytes, size_t nBytes);
    /// Reads the private memory of all work-items, parts of which will be needed.
    void Prepare(uint64_t nAddress, size_t nBytes);
    /// The places, at this stop, of those bytes of a variable that the node reads.
    std::shared_ptr<const SBoundVariable> FindVariable(const SExpressionNode& node);

private:
    bool ReadPrivate(uint64_t nAddress, size_t nItem, unsigned char* pBytes, size_t nBytes);
    SBoundVariable::SPiece ReadPiece(const SValuePiece& piece, bool& bKnown);

    /// The latest piece read; the next work-item usually reads from it too.
    struct SLast
    {
        SSourceType::ESpace eSpace = SSourceType::PrivateSpace;
        size_t nGroup = 0;
        uint64_t nAddress = 0;
        size_t nBytes = 0;
        const unsigned char* pBytes = nullptr; ///< in private memory, for the first work-item
    };

    IValueSource* m_pSource = nullptr;
    size_t m_nItems = 0;
    SLast m_Last;
    std::map<std::pair<std::string, std::pair<size_t, uint64_t>>, std::vector<unsigned char>> m_mapElements;
    std::map<SSourceType::ESpace, std::vector<SMemory>> m_mapSpaces;
    /// By space, place, group and index of the piece.
    std::map<std::pair<std::pair<int, size_t>, std::pair<size_t, uint64_t>>, std::vector<unsigned char>> m_mapPieces;
    std::map<std::pair<uint64_t, size_t>, std::vector<unsigned char>> m_mapPrivate; ///< by address and size
};

} // namespace KestrelTool

#endif

#include "core/CallPath.h"

#include <utility>

namespace OVK_ShaderDebugger
{

struct CCallPath::SNode
{
    ProgramCounter call;
    std::shared_ptr<SNode> pOuter;
    size_t nDepth = 1;
};

CCallPath::const_iterator::reference CCallPath::const_iterator::operator*() const
{
    return m_pNode->call;
}

CCallPath::const_iterator& CCallPath::const_iterator::operator++()
{
    m_pNode = m_pNode->pOuter.get();
    return *this;
}

CCallPath::const_iterator CCallPath::const_iterator::operator++(int)
{
    const const_iterator before = *this;
    ++*this;
    return before;
}

CCallPath& CCallPath::operator=(CCallPath other) noexcept
{
    swap(other);
    return *this;
}

/// Node by node: if each node deleted the next one, the stack would get as deep as the path.
CCallPath::~CCallPath()
{
    while (m_pInnermost != nullptr && m_pInnermost.use_count() == 1)
    {
        m_pInnermost = std::exchange(m_pInnermost->pOuter, nullptr);
    }
}

size_t CCallPath::size() const
{
    return m_pInnermost != nullptr ? m_pInnermost->nDepth : 0;
}

void CCallPath::push_front(const ProgramCounter& call)
{
    m_pInnermost = std::make_shared<SNode>(SNode{call, m_pInnermost, size() + 1});
}

void CCallPath::pop_front()
{
    std::shared_ptr<SNode> pOuter = m_pInnermost->pOuter;
    m_pInnermost = std::move(pOuter);
}

void CCallPath::clear()
{
    CCallPath().swap(*this);
}

const ProgramCounter& CCallPath::FromOutside(size_t nCall) const
{
    return *std::next(begin(), static_cast<std::ptrdiff_t>(size() - 1 - nCall));
}

bool CCallPath::operator==(const CCallPath& other) const
{
    if (size() != other.size())
    {
        return false;
    }
    const_iterator it = begin();
    const_iterator itOther = other.begin();
    while (it != itOther && *it == *itOther)
    {
        ++it;
        ++itOther;
    }
    return it == itOther;
}

bool CCallPath::operator<(const CCallPath& other) const
{
    const_iterator it = begin();
    const_iterator itOther = other.begin();
    while (it != itOther && it != end() && itOther != end())
    {
        if (*it < *itOther || *itOther < *it)
        {
            return *it < *itOther;
        }
        ++it;
        ++itOther;
    }
    return it != itOther && it == end();
}

} // namespace OVK_ShaderDebugger

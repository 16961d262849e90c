#ifndef KESTREL_CORE_CALLPATH_H
#define KESTREL_CORE_CALLPATH_H

#include "core/ShaderDebuggerCommon.h"

#include <cstddef>
#include <iterator>
#include <memory>

namespace OVK_ShaderDebugger
{

/// Return positions, innermost first: which of its calls a function is in. Paths share the calls around the one in
/// which they differ, so copying one, and adding or removing a call, costs the same at any depth.
class CCallPath
{
    struct SNode;

public:
    class const_iterator
    {
    public:
        typedef std::forward_iterator_tag iterator_category;
        typedef ProgramCounter value_type;
        typedef std::ptrdiff_t difference_type;
        typedef const ProgramCounter* pointer;
        typedef const ProgramCounter& reference;

        const_iterator() = default;
        reference operator*() const;
        pointer operator->() const { return &**this; }
        const_iterator& operator++();
        const_iterator operator++(int);
        /// Also true for two paths that share the rest.
        bool operator==(const const_iterator& other) const = default;

    private:
        friend class CCallPath;
        explicit const_iterator(const SNode* pNode) : m_pNode(pNode) {}

        const SNode* m_pNode = nullptr;
    };

    CCallPath() = default;
    CCallPath(const CCallPath& other) = default;
    CCallPath(CCallPath&& other) noexcept = default;
    CCallPath& operator=(CCallPath other) noexcept;
    ~CCallPath();

    bool empty() const { return m_pInnermost == nullptr; }
    size_t size() const;
    const_iterator begin() const { return const_iterator(m_pInnermost.get()); }
    const_iterator end() const { return const_iterator(); }
    const ProgramCounter& front() const { return *begin(); }
    void push_front(const ProgramCounter& call);
    void pop_front();
    void clear();
    void swap(CCallPath& other) noexcept { m_pInnermost.swap(other.m_pInnermost); }

    /// The call with this number, counted from the outermost, 0; it must exist.
    const ProgramCounter& FromOutside(size_t nCall) const;

    bool operator==(const CCallPath& other) const;
    /// By the innermost call that differs.
    bool operator<(const CCallPath& other) const;

private:
    std::shared_ptr<SNode> m_pInnermost;
};

} // namespace OVK_ShaderDebugger

#endif

#ifndef KESTREL_TESTS_E2E_ITEMHISTORY_H
#define KESTREL_TESTS_E2E_ITEMHISTORY_H

#include "tests/e2e/TraceModel.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace KestrelTest
{

/// A plain run, work-item by work-item, each in its own order. It gives the expected value of a register for a
/// work-item at a place, independently of the debugger.
class CItemHistory
{
public:
    explicit CItemHistory(size_t nItems) : m_vItems(nItems) {}

    /// Runs something with the trace on.
    template <typename Run>
    void Record(const SPlatformControl& control, Run run)
    {
        control.SetTrace(&CItemHistory::OnRecord, this);
        run();
        control.SetTrace(nullptr, nullptr);
    }

    size_t GetItems() const { return m_vItems.size(); }
    /// The number of instructions that a work-item has executed before a position; -1 if it never takes part there.
    ptrdiff_t FindProgress(size_t nItem, const SPosition& position) const;
    /// The value of a register for a work-item after it has executed nProgress instructions; null if it hasn't been
    /// written.
    const Words* FindValue(size_t nItem, const std::string& strName, size_t nProgress) const;
    /// The registers that a work-item has written by then.
    std::set<std::string> GetWritten(size_t nItem, size_t nProgress) const;
    /// The work-items that take part at a position.
    std::vector<bool> GetActive(const SPosition& position) const;
    /// The positions of an instruction at which some work-item takes part.
    std::vector<SPosition> GetPositions(uint32_t nInstruction) const;

private:
    struct SWrite
    {
        size_t nOrder;
        Words vWords;
    };
    struct SItem
    {
        std::map<SPosition, size_t> mapOrder;
        std::map<std::string, std::vector<SWrite>> mapWrites;
        size_t nExecuted = 0;
    };

    static void OnRecord(const SPlatformTraceRecord* pRecord, void* pUser);
    void Add(const SPlatformTraceRecord& record);

    std::vector<SItem> m_vItems;
    std::map<uint32_t, std::set<SPosition>> m_mapPositions;
};

} // namespace KestrelTest

#endif

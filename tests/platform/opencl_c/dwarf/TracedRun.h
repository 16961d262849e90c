#ifndef KESTREL_TESTS_OPENCL_C_DWARF_TRACEDRUN_H
#define KESTREL_TESTS_OPENCL_C_DWARF_TRACEDRUN_H

#include "KestrelPlatform.h"
#include "tests/platform/opencl_c/dwarf/DwarfFile.h"
#include "tests/platform/opencl_c/dwarf/ProbedKernel.h"

#include <map>
#include <string>
#include <vector>

namespace KestrelTests
{

/// A run of a kernel under the platform's trace, of which the variables are read that a host run has noted: at the
/// first instruction of a line, where the debug data say that they are.
class CTracedRun
{
public:
    /// \param vBinary     with one kernel, built with "-g"
    /// \param expected    the lines, work-items and names to look for
    /// \param vArguments  constant buffer 1, word by word
    CTracedRun(std::vector<char> vBinary, const CVisits& expected, std::vector<uint32_t> vArguments);

    /// A trace callback; the user's pointer is the run.
    static void OnRecord(const SPlatformTraceRecord* pRecord, void* pUser);

    const CVisits& GetVisits() const { return m_Visits; }
    /// Whether any instruction belongs to the line.
    bool HasCode(int nSource) const;

private:
    /// What a run has written so far, of one work-item.
    struct SItemState
    {
        bool bActive = true;
        std::vector<uint32_t> vComponents; ///< 4 x temp + component
        std::vector<char> vPrivate;        ///< by byte offset
    };

    void FindStatements();
    void Add(const SPlatformTraceRecord& record);
    static void Write(SItemState& state, const SPlatformTraceRecord& record, uint32_t n);
    SnapShot Look(const SItemState& state, uint32_t nLine, int nSource);
    const std::vector<SDwarfVariable>& Variables(uint32_t nLine);
    std::string Read(const SItemState& state, const std::vector<Dwarf_Op>& vLocation, size_t nSize) const;
    uint32_t ReadRegister(const SItemState& state, uint64_t nRegister) const;

    CDwarfFile m_File;
    std::vector<uint32_t> m_vArguments;
    std::map<int, std::map<std::string, size_t>> m_mapNames; ///< by line, with sizes
    std::vector<uint32_t> m_vLines;                          ///< by instruction
    std::map<uint32_t, int> m_mapStatements;                 ///< line of IL to line of the source
    std::map<uint32_t, std::vector<SDwarfVariable>> m_mapVariables;
    std::map<uint64_t, SItemState> m_mapStates;
    CVisits m_Visits;
};

} // namespace KestrelTests

#endif

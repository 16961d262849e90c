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

/// Runs a kernel with the platform's trace, and reads the variables that a host run has noted: at the first instruction
/// of a line, from the places in the debug data.
class CTracedRun
{
public:
    /// \param vBinary     with one kernel, built with "-g"
    /// \param expected    the lines, work-items and names to look for
    /// \param vArguments  constant buffer 1, word by word
    CTracedRun(std::vector<char> vBinary, const CVisits& expected, std::vector<uint32_t> vArguments);

    /// A trace callback; pUser is the run.
    static void OnRecord(const SPlatformTraceRecord* pRecord, void* pUser);

    const CVisits& GetVisits() const { return m_Visits; }
    /// Whether any instruction belongs to the line.
    bool HasCode(int nSource) const;

private:
    /// Everything that one work-item has written so far.
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

#ifndef KESTREL_TOOLS_DAP_SOURCES_H
#define KESTREL_TOOLS_DAP_SOURCES_H

#include "tools/session/debug/Debugger.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace KestrelTool
{

/// What the client shows of a place: a file on the disk where there is one with this text, and else a text that is
/// served by reference: source that a program made at run time, or a kernel's IL.
class CSources
{
public:
    /// A place in a file of the source, or in IL; lines from 1.
    struct SPlace
    {
        nlohmann::json source;
        unsigned int nLine = 1;
    };

    /// Where a function of a stop stands.
    SPlace FindPlace(CDebugger& debugger, const SFrame& frame);
    /// Where an instruction comes from.
    SPlace FindInstruction(CDebugger& debugger, unsigned int nLine);
    /// The files that a launch's kernel comes from, and its IL.
    nlohmann::json List(CDebugger& debugger);
    /// The text of a reference. \throws CRequestError
    const std::string& GetText(int64_t nReference) const;

    /// The lines of IL at which a line of a client's source begins, and the line that has been taken for it.
    struct SCode
    {
        std::set<unsigned int> lines; ///< of IL; none if the kernel has no code there
        unsigned int nLine = 0;       ///< of the source
    };
    SCode FindCode(CDebugger& debugger, const nlohmann::json& source, unsigned int nLine);
    /// The lines of a client's source from which a launch's kernel has code.
    std::set<unsigned int> ListLines(CDebugger& debugger, const nlohmann::json& source);
    /// The name by which a program's kernels may know a client's source.
    std::string NameFile(const nlohmann::json& source) const;

private:
    struct SText
    {
        std::string strName;
        std::string strText;
    };

    nlohmann::json Describe(CDebugger& debugger, const std::string& strFile);
    nlohmann::json DescribeIL(CDebugger& debugger);
    nlohmann::json Serve(const std::string& strName, const std::string& strText);
    bool IsIL(CDebugger& debugger, const nlohmann::json& source);
    unsigned int FindLineOfIL(CDebugger& debugger, unsigned int nLine);
    void MatchFile(CDebugger& debugger);

    std::vector<SText> m_vTexts; ///< by reference, from 1

    // The file that a kernel's IL comes from.
    std::string m_strMatched;           ///< the kernel that it has been looked for
    std::string m_strFile;              ///< empty if none has this text
    std::vector<unsigned int> m_vLines; ///< of the file, by line of IL
};

} // namespace KestrelTool

#endif

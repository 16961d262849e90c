#ifndef KESTREL_TOOLS_DEBUG_CODEMAP_H
#define KESTREL_TOOLS_DEBUG_CODEMAP_H

#include "tools/session/launch/Listing.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace KestrelTool
{

/// The functions, loops and calls of a kernel's text, by line. Lines count from 0.
class CCodeMap
{
public:
    /// A function, or an outline macro.
    struct SFunction
    {
        unsigned int nLabel = 0;
        bool bMacro = false;
        std::string strName;     ///< from the comment after its head; may be empty
        unsigned int nHead = 0;  ///< the line of "func" or "mdef"
        unsigned int nEntry = 0; ///< where a call of it first stops
        unsigned int nEnd = 0;   ///< the line of "endfunc" or "mend"
        std::vector<unsigned int> vCallLines;
    };

    explicit CCodeMap(const CListing& listing);

    const std::vector<SFunction>& GetFunctions() const { return m_vFunctions; }
    /// The function that contains a line; null for none.
    const SFunction* FindFunction(unsigned int nLine) const;
    const SFunction* FindLabel(unsigned int nLabel) const;
    /// The function that a line calls; null if the line isn't a call.
    const SFunction* FindCallee(unsigned int nLine) const;
    const SFunction* FindName(const std::string& strName) const;
    /// The first line where a session can stop.
    unsigned int GetFirstStop() const { return m_nFirstStop; }
    /// The first lines within the loops that contain one of the lines, or a call that leads to one.
    std::set<unsigned int> FindLoopHeads(const std::set<unsigned int>& lines) const;
    /// A line within each block that one of the lines divides or ends. Without a breakpoint inside, the debugger skips
    /// a block as a whole.
    std::set<unsigned int> FindInsides(const std::set<unsigned int>& lines) const;

    /// The innermost loop around a line. \return false if there is none
    bool FindLoop(unsigned int nLine, unsigned int& nStart, unsigned int& nEnd) const;
    /// Whether a run that begins at a line and stops at some others can come to it once more without a stop.
    bool MayComeAgain(unsigned int nLine, const std::set<unsigned int>& stops) const;
    /// How many blocks open between two lines and contain the second one.
    size_t CountBlocks(unsigned int nFrom, unsigned int nLine) const;

private:
    /// A loop, an if or a switch.
    struct SBlock
    {
        bool bLoop = false;
        unsigned int nStart = 0;
        unsigned int nEnd = 0;
        unsigned int nElse = 0; ///< 0 for none
    };

    void FindFunctions(const CListing& listing);
    void FindBlocks(const CListing& listing);

    std::vector<SFunction> m_vFunctions;         ///< in the order of their heads
    std::map<unsigned int, size_t> m_mapCallees; ///< call line to function
    std::vector<SBlock> m_vBlocks;
    std::vector<unsigned int> m_vNext; ///< by line: the next instruction
    unsigned int m_nFirstStop = 0;
};

} // namespace KestrelTool

#endif

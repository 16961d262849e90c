#ifndef KESTREL_TOOLS_LISTING_H
#define KESTREL_TOOLS_LISTING_H

#include <map>
#include <string>
#include <vector>

namespace KestrelTool
{

/// The IL text of a kernel, with what front ends need to know about its lines. Lines count from 0, like program
/// counters.
class CListing
{
public:
    static constexpr unsigned int NoLine = 0xFFFFFFFF;

    /// \param vPlaces  the source place of each line; empty, or one for each line
    explicit CListing(std::vector<std::string> vLines, std::vector<std::string> vPlaces = {});

    size_t GetLineCount() const { return m_vLines.size(); }
    /// Empty for a line that doesn't exist.
    const std::string& GetLine(unsigned int nLine) const;
    /// The "file:line" that the line's instruction comes from; empty if unknown.
    const std::string& GetPlace(unsigned int nLine) const;
    /// Whether the line has an instruction rather than a comment, a declaration or a marker.
    bool IsInstruction(unsigned int nLine) const;
    /// "if_logicalnz", "add", ...; without suffixes.
    std::string GetMnemonic(unsigned int nLine) const;
    /// The register that the line's instruction writes, as the debugger names it ("r3", "x1[2]"); empty if it writes
    /// none, or if its index is only known at run time.
    std::string GetWrittenRegister(unsigned int nLine) const;
    /// The next line with an instruction; NoLine after the last.
    unsigned int GetNextInstruction(unsigned int nLine) const;
    /// The line that a debug session executes first: the main body's first instruction or, if that is a call, the first
    /// one of the callee.
    unsigned int GetEntry() const;
    /// The line where the session then stops: the instruction after the entry or, if that is a call, the callee's first
    /// one.
    unsigned int GetFirstStop() const;
    /// The instruction's number; NoLine if the line has none.
    unsigned int GetInstructionNumber(unsigned int nLine) const;
    /// The line of an instruction; NoLine for an invalid number.
    unsigned int GetLineOfInstruction(unsigned int nInstruction) const;
    /// The first instruction of a function; NoLine if there is no such label.
    unsigned int GetFunction(unsigned int nLabel) const;

private:
    /// The first line of the function that a line calls; the line itself if it isn't a call.
    unsigned int FollowCall(unsigned int nLine) const;

    std::vector<std::string> m_vLines;
    std::vector<std::string> m_vPlaces;
    std::vector<unsigned int> m_vInstructionLines;
    std::map<unsigned int, unsigned int> m_mapNumbers; ///< line to instruction
};

} // namespace KestrelTool

#endif

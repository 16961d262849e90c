#ifndef KESTREL_TOOLS_LISTING_H
#define KESTREL_TOOLS_LISTING_H

#include <map>
#include <string>
#include <vector>

namespace KestrelTool
{

/// The IL text of a kernel with what a front end needs to know of its lines. Lines count from 0, as
/// program counters do.
class CListing
{
public:
    static constexpr unsigned int NoLine = 0xFFFFFFFF;

    /// \param vPlaces  where in the source each line comes from; empty, or as many as lines
    explicit CListing(std::vector<std::string> vLines, std::vector<std::string> vPlaces = {});

    size_t GetLineCount() const { return m_vLines.size(); }
    /// Empty for a line that isn't there.
    const std::string& GetLine(unsigned int nLine) const;
    /// "file:line" of the source that the line's instruction comes from; empty if that isn't known.
    const std::string& GetPlace(unsigned int nLine) const;
    /// Whether the line holds an instruction, and not a comment, a declaration or a marker.
    bool IsInstruction(unsigned int nLine) const;
    /// "if_logicalnz", "add", ...; suffixes cut off.
    std::string GetMnemonic(unsigned int nLine) const;
    /// The register that the line's instruction writes, as the debugger names it ("r3", "x1[2]");
    /// empty if it writes none or its index is known only at run time.
    std::string GetWrittenRegister(unsigned int nLine) const;
    /// The next line with an instruction; NoLine after the last.
    unsigned int GetNextInstruction(unsigned int nLine) const;
    /// The line that a debug session executes first: the main body's first instruction, or where
    /// that leads if it is a call.
    unsigned int GetEntry() const;
    /// The line at which it stands then: the entry's next instruction, or where that leads if it is a call.
    unsigned int GetFirstStop() const;
    /// The instruction's number; NoLine for a line without one.
    unsigned int GetInstructionNumber(unsigned int nLine) const;
    /// The line of an instruction; NoLine for a number that isn't there.
    unsigned int GetLineOfInstruction(unsigned int nInstruction) const;
    /// The first instruction of a function; NoLine if there is no such label.
    unsigned int GetFunction(unsigned int nLabel) const;

private:
    /// The function that the line calls; the line itself if it is no call.
    unsigned int FollowCall(unsigned int nLine) const;

    std::vector<std::string> m_vLines;
    std::vector<std::string> m_vPlaces;
    std::vector<unsigned int> m_vInstructionLines;
    std::map<unsigned int, unsigned int> m_mapNumbers; ///< line to instruction
};

} // namespace KestrelTool

#endif

#ifndef KESTREL_TOOLS_CHECK_SUPPRESSIONS_H
#define KESTREL_TOOLS_CHECK_SUPPRESSIONS_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// Findings that nobody wants to see, from a file: a check, a kernel and a line each, any of them "*".
class CSuppressions
{
public:
    /// \throws CLaunchFileError for a line that says something else
    void Read(const std::string& strText, const std::string& strPath);
    bool Holds(const std::string& strCheck, const std::string& strKernel, unsigned int nLine) const;

private:
    struct SRule
    {
        std::string strCheck;
        std::string strKernel;
        std::string strLine;
    };
    std::vector<SRule> m_vRules;
};

/// Whether a line of a source says itself that it is meant so: "// kestrel: race intended".
bool IsIntended(const std::string& strLine, const std::string& strCheck);

} // namespace KestrelTool

#endif

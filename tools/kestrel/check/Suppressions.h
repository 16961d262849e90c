#ifndef KESTREL_TOOLS_CHECK_SUPPRESSIONS_H
#define KESTREL_TOOLS_CHECK_SUPPRESSIONS_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// Findings to hide, from a file: each line has a check, a kernel and a line, any of which may be "*".
class CSuppressions
{
public:
    /// \throws CLaunchFileError for a line of another form
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

/// Whether a source line marks the fault as intended: "// kestrel: race intended".
bool IsIntended(const std::string& strLine, const std::string& strCheck);

} // namespace KestrelTool

#endif

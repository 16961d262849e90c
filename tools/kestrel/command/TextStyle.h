#ifndef KESTREL_TOOLS_COMMAND_TEXTSTYLE_H
#define KESTREL_TOOLS_COMMAND_TEXTSTYLE_H

#include <nlohmann/json_fwd.hpp>

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A piece of text in one colour.
struct SPaintedText
{
    std::string strText;
    const char* pszColour = ""; ///< what a terminal is told; empty for its own
};

/// How text goes to a terminal: in colours, and with long lines broken between words. Elsewhere nothing is done to it.
class CTextStyle
{
public:
    /// \param nWidth  columns of the terminal; 0 for lines as long as they are
    CTextStyle(bool bColour, size_t nWidth) : m_bColour(bColour), m_nWidth(nWidth) {}
    /// For standard output as it is: a terminal or none, with NO_COLOR and TERM looked at. Other streams stay plain.
    static CTextStyle Of(const std::ostream& output);

    std::vector<SPaintedText> Paint(const nlohmann::json& answer, const std::string& strText);
    std::string Wrap(const std::string& strText) const { return Wrap(strText, m_nWidth); }
    /// Breaks lines at blanks so that none is longer than the width, unless a word is.
    static std::string Wrap(const std::string& strText, size_t nWidth);

private:
    bool HasChanged(const std::string& strName, const std::string& strValue);

    bool m_bColour;
    size_t m_nWidth;
    std::map<std::string, std::string> m_mapShown; ///< values by name, when they were shown last
};

/// Whether standard output is a terminal whose language has no Unicode.
bool NeedsAsciiPictures();

} // namespace KestrelTool

#endif

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
    const char* pszColour = ""; ///< terminal command; empty for the default colour
};

/// Formats text for a terminal: colours, and long lines wrapped between words. Other output stays unchanged.
class CTextStyle
{
public:
    /// \param nWidth  columns of the terminal; 0 to leave lines unwrapped
    CTextStyle(bool bColour, size_t nWidth) : m_bColour(bColour), m_nWidth(nWidth) {}
    /// For standard output: depends on whether it is a terminal, and on NO_COLOR and TERM. Other streams stay plain.
    static CTextStyle Of(const std::ostream& output);

    std::vector<SPaintedText> Paint(const nlohmann::json& answer, const std::string& strText);
    std::string Wrap(const std::string& strText) const { return Wrap(strText, m_nWidth); }
    /// Wraps lines at blanks to the width, except for words that are longer.
    static std::string Wrap(const std::string& strText, size_t nWidth);

private:
    bool HasChanged(const std::string& strName, const std::string& strValue);

    bool m_bColour;
    size_t m_nWidth;
    std::map<std::string, std::string> m_mapShown; ///< by name, the value when it was last shown
};

/// Whether standard output is a terminal whose locale isn't Unicode.
bool NeedsAsciiPictures();

} // namespace KestrelTool

#endif

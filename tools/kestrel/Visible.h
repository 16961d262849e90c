#ifndef KESTREL_TOOLS_VISIBLE_H
#define KESTREL_TOOLS_VISIBLE_H

#include <streambuf>
#include <string>

namespace KestrelTool
{

/// A text as it may go to a terminal: line ends, tabs and printable UTF-8 stay; every other control character, C1
/// controls, marks that change the direction of text, and bytes that are no UTF-8 become \x1b, \u009b and the like.
/// Names, comments, build logs and fields of files come from others, and could command the terminal.
std::string MakeVisible(const std::string& strText);

/// Stands between a stream and what it wrote to, and makes everything visible that goes through it.
class CVisibleBuffer : public std::streambuf
{
public:
    explicit CVisibleBuffer(std::streambuf& target) : m_Target(target) {}

    /// Writes a command to the terminal, of the program's own.
    void PutCommand(const char* pszCommand);

protected:
    int_type overflow(int_type nChar) override;
    std::streamsize xsputn(const char* pText, std::streamsize nLength) override;
    int sync() override;

private:
    std::streambuf& m_Target;
    std::string m_strHeld; ///< the beginning of a character whose end hasn't come yet
};

/// Writes a command to the terminal where a stream goes.
void PutCommand(std::ostream& stream, const char* pszCommand);

/// All that the program prints goes through one; while it lives.
class CVisibleStream
{
public:
    explicit CVisibleStream(std::ostream& stream);
    ~CVisibleStream();
    CVisibleStream(const CVisibleStream&) = delete;
    CVisibleStream& operator=(const CVisibleStream&) = delete;

private:
    std::ostream& m_Stream;
    std::streambuf* m_pOld;
    CVisibleBuffer m_Buffer;
};

} // namespace KestrelTool

#endif

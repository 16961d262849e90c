#ifndef KESTREL_TOOLS_VISIBLE_H
#define KESTREL_TOOLS_VISIBLE_H

#include <streambuf>
#include <string>

namespace KestrelTool
{

/// Makes a text safe for a terminal. Line ends, tabs and printable UTF-8 stay; other control characters, C1 controls,
/// marks that change the direction of text, and invalid UTF-8 become \x1b, \u009b and so on. Names, comments, build
/// logs and fields of files are other people's text, and could contain terminal commands.
std::string MakeVisible(const std::string& strText);

/// A stream buffer that makes everything visible before it passes it on.
class CVisibleBuffer : public std::streambuf
{
public:
    explicit CVisibleBuffer(std::streambuf& target) : m_Target(target) {}

    /// Writes one of the program's own terminal commands unchanged.
    void PutCommand(const char* pszCommand);

protected:
    int_type overflow(int_type nChar) override;
    std::streamsize xsputn(const char* pText, std::streamsize nLength) override;
    int sync() override;

private:
    std::streambuf& m_Target;
    std::string m_strHeld; ///< the beginning of an incomplete character
};

/// Writes a terminal command to a stream unchanged.
void PutCommand(std::ostream& stream, const char* pszCommand);

/// While it exists, everything printed to the stream is made visible.
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

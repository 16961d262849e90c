#ifndef KESTREL_TOOLS_DAP_FRAMING_H
#define KESTREL_TOOLS_DAP_FRAMING_H

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

namespace KestrelTool
{

/// Bytes that can't be a message; where the next one begins isn't known any more.
class CFramingError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Cuts a stream of bytes into the protocol's messages: lines of a header, of which "Content-Length: N" is the one that
/// counts, an empty line, and N bytes.
class CFrameReader
{
public:
    static constexpr size_t MaxHeader = 4096;
    static constexpr size_t MaxContent = 16 << 20;

    void Add(const char* pBytes, size_t nBytes) { m_strBytes.append(pBytes, nBytes); }
    /// The next message's text; nothing as long as it isn't there as a whole.
    /// \throws CFramingError
    std::optional<std::string> Take();

private:
    std::string m_strBytes;
};

/// A message's text with its header.
std::string MakeFrame(const std::string& strContent);

} // namespace KestrelTool

#endif

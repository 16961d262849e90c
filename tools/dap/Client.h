#ifndef KESTREL_TOOLS_DAP_CLIENT_H
#define KESTREL_TOOLS_DAP_CLIENT_H

namespace KestrelTool
{

/// What the client has said of itself.
struct SClient
{
    bool bLinesFrom1 = true;
    bool bColumnsFrom1 = true;
    bool bProgress = false;
    bool bInvalidated = false;

    /// A line or column as the client counts it, and back; ours count from 1.
    int ToClientLine(unsigned int nLine) const { return static_cast<int>(nLine) - (bLinesFrom1 ? 0 : 1); }
    int GetFirstColumn() const { return bColumnsFrom1 ? 1 : 0; }
    long long FromClientLine(long long nLine) const { return nLine + (bLinesFrom1 ? 0 : 1); }
};

} // namespace KestrelTool

#endif

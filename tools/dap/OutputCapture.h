#ifndef KESTREL_TOOLS_DAP_OUTPUTCAPTURE_H
#define KESTREL_TOOLS_DAP_OUTPUTCAPTURE_H

#include "tools/dap/Channel.h"

#include <mutex>
#include <string>
#include <thread>

namespace KestrelTool
{

/// While it lives, what kernels and programs print to the standard output and to the standard errors goes to the client
/// as output.
class COutputCapture
{
public:
    explicit COutputCapture(CChannel& channel);
    ~COutputCapture();
    COutputCapture(const COutputCapture&) = delete;
    COutputCapture& operator=(const COutputCapture&) = delete;

    /// Hands over what has been printed so far.
    void Drain();

private:
    struct SStream
    {
        int nDescriptor;
        const char* pszCategory;
        int nSaved = -1;
        int nPipe = -1;
        std::string strHeld; ///< the beginning of a character whose end hasn't come yet
    };

    void Divert(SStream& stream) const;
    void Pump();
    bool Forward(SStream& stream);

    CChannel& m_Channel;
    SStream m_Streams[2];
    int m_nEnd[2] = {-1, -1}; ///< a pipe whose closing ends the pump
    std::mutex m_Mutex;       ///< held by whoever forwards
    std::thread m_Thread;
};

} // namespace KestrelTool

#endif

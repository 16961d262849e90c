#ifndef KESTREL_BINARY_ILPROCESSINGSTATEMACHINE_H
#define KESTREL_BINARY_ILPROCESSINGSTATEMACHINE_H

namespace OVK_ShaderDebugger
{

/// A filter that tidies IL text, one character at a time: blanks at the start of a line go, and a comment
/// on the line after one that holds "func", "mdef" or "mend" joins that line. A line break that is pending at
/// the end of the text is lost. The output is never longer than the input.
class ILProcessingStateMachine
{
public:
    /// \param pIn         the text, nInputSize bytes, no terminator needed; a NUL ends it early
    /// \param nInputSize  bytes at pIn; 0 gives an empty output
    /// \param pOut        room for nInputSize bytes; may be pIn
    ILProcessingStateMachine(const char* pIn, unsigned int nInputSize, char* pOut);

    /// Runs the filter over the whole input, once.
    /// \param pOutputSize  receives the bytes written; may be null
    void execute(unsigned int* pOutputSize);

private:
    void Act();
    void CopyPlain();
    void AdvanceToNextChar();

    const char* m_in;
    char* m_out;
    unsigned int m_inputSize;
    unsigned int m_inputTraversedSoFar = 0;
    bool m_isDone = false;
    bool m_isCharInCache = false;
    char m_currentChar = 0;
    int m_nextStateNum = 0;
};

} // namespace OVK_ShaderDebugger

#endif

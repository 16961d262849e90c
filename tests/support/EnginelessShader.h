#ifndef KESTREL_TESTS_SUPPORT_ENGINELESSSHADER_H
#define KESTREL_TESTS_SUPPORT_ENGINELESSSHADER_H

#include "instrument/InstrumentedShaderIL.h"

/// Analysis and patching of a kernel without the layers above: it can't be stepped or shown.
class CEnginelessShader : public OVK_ShaderDebugger::CInstrumentedShaderIL
{
public:
    typedef OVK_ShaderDebugger::Mode Mode;
    typedef OVK_ShaderDebugger::InstructionNumber InstructionNumber;
    typedef OVK_ShaderDebugger::LineNumber LineNumber;

    using OVK_ShaderDebugger::CInstrumentedShaderIL::CInstrumentedShaderIL;

    bool GetShaderText(std::string&, Mode) override { return false; }
    bool GetShaderKeyWords(OVK_ShaderDebugger::KeyWordsList&, Mode) override { return false; }
    Mode GetMode() const override { return OVK_ShaderDebugger::DM_Asm; }
    bool SetMode(Mode) override { return true; }
    bool Step() override { return false; }
    bool Back() override { return false; }
    bool Run() override { return false; }
    bool RunBack() override { return false; }
    bool Execute(bool) override { return false; }
    bool Draw() override { return false; }
    InstructionNumber GetInstruction(LineNumber) const override { return 0; }
    LineNumber GetLine(InstructionNumber) const override { return 0; }
    LineNumber GetCurrentLine() const override { return 0; }
    LineNumber GetNextLine() const override { return 0; }
    LineNumber GetPreviousLine() const override { return 0; }
};

#endif

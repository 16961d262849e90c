#ifndef KESTREL_PLATFORM_COMPILER_KERNELCPARSER_H
#define KESTREL_PLATFORM_COMPILER_KERNELCPARSER_H

#include "platform/compiler/CTokens.h"
#include "platform/compiler/KernelCEmitter.h"

namespace KestrelPlatform
{

/// Reads one kernel after the other from preprocessed OpenCL C and has its IL emitted.
///
/// The language is what probes and small test programs use: kernels of straight-line code. Parameters are pointers
/// to float, int and uint in global or constant memory, and such values; statements are declarations, assignments, ++
/// and
/// --, and return. Expressions have the arithmetic, bit and shift operators, casts, indexed pointers and the
/// work-item functions of a constant dimension.
class CKernelCParser
{
public:
    CKernelCParser(const std::vector<SCToken>& vTokens, SDiagnostic& diag) : m_vTokens(vTokens), m_diag(diag) {}

    bool AtEnd() const { return Token().eKind == SCToken::End; }
    /// \param kernel receives the kernel's name, its parameters and its body
    bool TakeKernel(CKernelCEmitter& kernel);

private:
    const SCToken& Token() const { return m_vTokens[m_nNext]; }
    bool Accept(std::string_view text);
    bool Expect(std::string_view text);
    bool FailHere(const std::string& strMessage);
    bool TakeName(std::string& strName);
    bool TakeType(ECType& eType);
    bool AtType() const;
    bool TakeParameters();
    bool TakeParameter();
    bool TakeBody();
    bool TakeStatement();
    bool TakeDeclaration();
    bool TakeAssignment();
    bool TakePlace(SCPlace& place);
    bool TakeExpression(SCValue& value, int nLowest = 0);
    bool TakeOperand(SCValue& value);
    bool TakeUnary(SCValue& value);
    bool TakeNumber(SCValue& value);
    bool TakeCall(SCValue& value);

    const std::vector<SCToken>& m_vTokens;
    SDiagnostic& m_diag;
    size_t m_nNext = 0;
    int m_nDepth = 0;
    CKernelCEmitter* m_pKernel = nullptr;
};

} // namespace KestrelPlatform

#endif

#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_WRITER_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_WRITER_H

#include "platform/opencl_c/lowering/Allocation.h"
#include "platform/opencl_c/lowering/Literals.h"
#include "platform/opencl_c/structure/Regions.h"

#include <string>
#include <vector>

namespace KestrelOpenCL
{

/// The text of a kernel's body, and the source place of each line.
struct SBody
{
    std::string strText;
    std::vector<const llvm::DILocation*> vLines;
};

/// Writes the body of one kernel as IL text. Each object serves one call.
class CWriter
{
public:
    CWriter(const SKernelCode& code, const SAllocation& allocation, CLiterals& literals);

    /// \param vFlow what each step of the region tree stands for, as given to the allocation
    SBody Write(const std::vector<SRegionStep>& vSteps, const std::vector<SFlowStep>& vFlow);

private:
    struct SMove;

    void WriteStep(const SRegionStep& step, const SFlowStep& flow);
    void WriteBranch(const SRegionStep& step, const SFlowStep& flow);
    void WriteGuard(const SRegionStep& step, const SFlowStep& flow);
    void WriteCases(const SRegionStep& step);
    bool IsIdentity(const SInstruction& instruction) const;
    void WriteInstruction(const SInstruction& instruction);
    void WriteEdge(const SEdge& edge);

    std::string Operand(const SSource& source, unsigned nMask, unsigned nFirst);
    std::string WordOperand(const SWord& word);
    std::string TempText(const STemp& temp) const;
    std::string Register(const SWord& word) const;
    std::string Index(const SSource& source) const;
    unsigned Component(const SWord& word) const;
    static std::string Swizzle(const char (&selectors)[4]);
    void Line(std::string strLine, const llvm::DILocation* pLocation);
    const llvm::DILocation* FindLoopStart(const std::vector<SRegionStep>& vSteps, const std::vector<SFlowStep>& vFlow,
                                          size_t nLoop) const;

    const SKernelCode& m_Code;
    const SAllocation& m_Allocation;
    CLiterals& m_Literals;
    SBody m_Body;
    /// An `if` that isn't written yet: if it holds only a `break` or `continue`, both become one line.
    std::string m_strPendingIf;
    bool m_bPendingElse = false; ///< the same for an `else`, which is dropped if it is empty
    const llvm::DILocation* m_pPendingLocation = nullptr;
};

} // namespace KestrelOpenCL

#endif

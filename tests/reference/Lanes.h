#ifndef KESTREL_TESTS_REFERENCE_LANES_H
#define KESTREL_TESTS_REFERENCE_LANES_H

#include "tests/reference/State.h"

namespace KestrelTest
{

inline int32_t Signed(uint32_t nValue)
{
    return static_cast<int32_t>(nValue);
}

/// Executes instructions without control flow, for one work-item after the other.
class CLanes
{
public:
    CLanes(const CKernelText& text, const SReferenceLaunch& launch);

    size_t GetItems() const { return m_nItems; }
    const SReferenceState& GetState() const { return m_State; }
    /// An operand's four components for one work-item, after its swizzle.
    Words Read(const SOperand& operand, size_t nItem) const;
    /// \throws CReferenceError for an unknown instruction
    void Execute(const SInstruction& instruction, const Mask& active);

private:
    Words ReadRegister(const SOperand& operand, size_t nItem) const;
    Words ReadId(const std::string& strFile, size_t nItem) const;
    Words ReadConstant(const SOperand& operand) const;
    std::string NameOf(const SOperand& operand, size_t nItem) const;
    void Write(const SOperand& operand, size_t nItem, const Words& values);
    bool Calculate(const SInstruction& instruction, size_t nItem);
    bool AccessMemory(const SInstruction& instruction, size_t nItem);
    bool UpdateMemory(const SInstruction& instruction, size_t nItem);
    /// The memory at an address, nBytes long; null if it isn't within any memory.
    unsigned char* Find(const SInstruction& instruction, const Words& address, size_t nItem, size_t nBytes);

    const CKernelText& m_Text;
    const SReferenceLaunch& m_Launch;
    size_t m_nItems;
    SReferenceState m_State;
};

} // namespace KestrelTest

#endif

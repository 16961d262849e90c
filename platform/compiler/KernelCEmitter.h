#ifndef KESTREL_PLATFORM_COMPILER_KERNELCEMITTER_H
#define KESTREL_PLATFORM_COMPILER_KERNELCEMITTER_H

#include "platform/compiler/ProgramBuilder.h"

#include <map>
#include <string>
#include <vector>

namespace KestrelPlatform
{

enum class ECType
{
    Int,
    Uint,
    Float
};

/// A value in component x of a register.
struct SCValue
{
    ECType eType = ECType::Int;
    std::string strRegister; ///< "r5" or "l12"
};

struct SCVariable
{
    ECType eType = ECType::Int;
    bool bPointer = false;
    bool bConst = false; ///< of a pointer: what it points to
    std::string strRegister;
    size_t nParameter = 0; ///< of a pointer
};

/// What can be assigned to: a variable, or an element of memory whose address stands in a register.
struct SCPlace
{
    SCVariable variable;
    std::string strAddress; ///< empty for a variable
};

/// Writes the metadata and the IL of one kernel, an instruction at a time. Every value has a register of its own.
class CKernelCEmitter
{
public:
    explicit CKernelCEmitter(const SDeviceTarget& target) : m_target(target) {}

    std::string m_strName;

    /// \return false if the name is taken
    bool AddParameter(const std::string& strName, const SCVariable& variable);
    bool AddVariable(const std::string& strName, ECType eType);
    const SCVariable* Find(const std::string& strName) const;

    SCValue Constant(ECType eType, uint32_t nBits);
    SCValue Convert(const SCValue& value, ECType eType);
    /// \param strOperator one of the keys of the operator table, such as "+"; false if the type has no such operator
    bool Binary(const std::string& strOperator, SCValue& left, SCValue right);
    bool Unary(char cOperator, SCValue& value);
    /// A work-item function of a dimension, 0 to 2; false for an unknown name.
    bool WorkItem(const std::string& strFunction, uint32_t nDimension, SCValue& value);

    SCPlace Element(const SCVariable& pointer, const SCValue& index);
    SCValue Load(const SCPlace& place);
    void Store(const SCPlace& place, const SCValue& value);

    /// The kernel's block of metadata. It takes the numbers nWrapper and nWrapper + 1.
    std::string Metadata(unsigned int nWrapper) const;
    std::string Functions(unsigned int nWrapper) const;

private:
    struct SParameter
    {
        std::string strName;
        SCVariable variable;
        unsigned int nUav = 0;
    };

    std::string NewRegister();
    SCValue Emit(ECType eType, const std::string& strInstruction, const std::string& strSources);

    const SDeviceTarget& m_target;
    std::vector<SParameter> m_vParameters;
    std::map<std::string, SCVariable> m_mapVariables;
    std::map<uint32_t, std::string> m_mapLiterals;
    std::string m_strLiterals;
    std::string m_strBody;
    unsigned int m_nRegisters = 0;
    unsigned int m_nPointers = 0;
};

} // namespace KestrelPlatform

#endif

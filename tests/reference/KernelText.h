#ifndef KESTREL_TESTS_REFERENCE_KERNELTEXT_H
#define KESTREL_TESTS_REFERENCE_KERNELTEXT_H

#include "tests/reference/MachinePosition.h"

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace KestrelTest
{

inline bool StartsWith(const std::string& strText, const char* pszPrefix)
{
    return strText.rfind(pszPrefix, 0) == 0;
}

/// Text that the reference machine can't read or run.
class CReferenceError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// One operand in its written form.
struct SOperand
{
    std::string strFile; ///< "r", "x", "l", "vTidInGrp", "mem", ...
    uint32_t nNumber = 0;
    bool bIndexed = false;
    int32_t nIndex = 0;        ///< the constant part of an index
    std::string strIndex;      ///< the register of a run-time index, "" for none
    char cIndex = 'x';         ///< its component
    std::string strComponents; ///< of a source or a destination; "" for all
    std::string strNegated;    ///< components negated after swizzling
};

struct SInstruction
{
    std::string strName; ///< without suffixes: "uav_raw_store", "if_logicalnz"
    std::string strLine;
    uint32_t nId = 0; ///< of a UAV, local memory or macro
    bool bAddr64 = false;
    uint32_t nLabel = 0; ///< of a call, a function or a case
    std::vector<SOperand> vOperands;
};

/// A range of instructions: for a function from after "func" to "endfunc", for a macro all of them.
struct SBody
{
    uint32_t nFirst = 0;
    uint32_t nEnd = 0;
};

/// A parsed kernel.
class CKernelText
{
public:
    /// \param strText  one kernel with its metadata, as in a program's source
    /// \throws CReferenceError for anything unknown
    explicit CKernelText(const std::string& strText);

    const std::vector<SInstruction>& GetInstructions() const { return m_vInstructions; }
    const std::map<uint32_t, SBody>& GetFunctions() const { return m_mapFunctions; }
    const std::map<uint32_t, SBody>& GetMacros() const { return m_mapMacros; }
    const std::map<uint32_t, Words>& GetLiterals() const { return m_mapLiterals; }
    const std::map<uint32_t, uint32_t>& GetArrays() const { return m_mapArrays; }   ///< elements by array
    const std::map<uint32_t, uint32_t>& GetPrivate() const { return m_mapPrivate; } ///< bytes by private UAV
    const std::map<uint32_t, uint32_t>& GetLocal() const { return m_mapLocal; }     ///< bytes by local memory
    /// The end of the block that an instruction opens, and its else (the end if there is none).
    uint32_t GetEnd(uint32_t nStart) const { return m_mapEnds.at(nStart); }
    uint32_t GetElse(uint32_t nStart) const;

private:
    void Declare(const std::string& strLine);
    void AddInstruction(const std::string& strLine);
    void FindBlocks();

    std::vector<SInstruction> m_vInstructions;
    std::map<uint32_t, SBody> m_mapFunctions;
    std::map<uint32_t, SBody> m_mapMacros;
    std::map<uint32_t, Words> m_mapLiterals;
    std::map<uint32_t, uint32_t> m_mapArrays;
    std::map<uint32_t, uint32_t> m_mapPrivate;
    std::map<uint32_t, uint32_t> m_mapLocal;
    std::map<uint32_t, uint32_t> m_mapEnds;
    std::map<uint32_t, uint32_t> m_mapElses;
};

} // namespace KestrelTest

#endif

#include "platform/compiler/KernelCEmitter.h"

#include <algorithm>
#include <cctype>

namespace KestrelPlatform
{
namespace
{

const unsigned int s_nRawUav = 11;   ///< the older generation's one raw UAV
const unsigned int s_nFirstUav = 12; ///< of a pointer on the newer one
const uint32_t s_nSlotBytes = 16;

struct SOperator
{
    const char* pOperator;
    const char* pInt;
    const char* pUint;
    const char* pFloat; ///< null: not for floats
};

const SOperator s_Operators[] = {
    {"+", "iadd", "iadd", "add"},    {"-", "isub", "isub", "sub"},   {"*", "imul", "umul", "mul"},
    {"/", "idiv", "udiv", "div"},    {"%", "imod", "umod", nullptr}, {"&", "iand", "iand", nullptr},
    {"|", "ior", "ior", nullptr},    {"^", "ixor", "ixor", nullptr}, {"<<", "ishl", "ishl", nullptr},
    {">>", "ishr", "ushr", nullptr},
};

/// Where a work-item function finds its answer. The global id isn't one register.
struct SWorkItemFunction
{
    const char* pName;
    const char* pSource;
};

const SWorkItemFunction s_WorkItemFunctions[] = {
    {"get_local_id", "vTidInGrp"}, {"get_group_id", "vThreadGrpId"}, {"get_global_size", "cb0[0]"},
    {"get_local_size", "cb0[1]"},  {"get_num_groups", "cb0[2]"},     {"get_global_offset", "cb0[6]"},
};

const char* const s_TypeNames[] = {"i32", "u32", "float"};

std::string Lower(std::string str)
{
    std::transform(str.begin(), str.end(), str.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return str;
}

} // namespace

std::string CKernelCEmitter::NewRegister()
{
    return "r" + std::to_string(m_nRegisters++);
}

SCValue CKernelCEmitter::Emit(ECType eType, const std::string& strInstruction, const std::string& strSources)
{
    SCValue value = {eType, NewRegister()};
    m_strBody += strInstruction + " " + value.strRegister + ".x, " + strSources + "\n";
    return value;
}

bool CKernelCEmitter::AddParameter(const std::string& strName, const SCVariable& variable)
{
    SParameter parameter = {strName, variable, 0};
    parameter.variable.nParameter = m_vParameters.size();
    const std::string strSlot = "cb1[" + std::to_string(m_vParameters.size()) + "]";
    if (variable.bPointer)
    {
        parameter.nUav = m_target.bRawUavOnly ? s_nRawUav : s_nFirstUav + m_nPointers++;
        parameter.variable.strRegister = strSlot;
    }
    else
    {
        parameter.variable.strRegister = Emit(variable.eType, "mov", strSlot + ".x").strRegister;
    }
    m_vParameters.push_back(parameter);
    return m_mapVariables.emplace(strName, parameter.variable).second;
}

bool CKernelCEmitter::AddVariable(const std::string& strName, ECType eType)
{
    SCVariable variable;
    variable.eType = eType;
    variable.strRegister = NewRegister();
    return m_mapVariables.emplace(strName, variable).second;
}

const SCVariable* CKernelCEmitter::Find(const std::string& strName) const
{
    const auto it = m_mapVariables.find(strName);
    return it == m_mapVariables.end() ? nullptr : &it->second;
}

SCValue CKernelCEmitter::Constant(ECType eType, uint32_t nBits)
{
    std::string& strRegister = m_mapLiterals[nBits];
    if (strRegister.empty())
    {
        strRegister = "l" + std::to_string(m_mapLiterals.size() - 1);
        m_strLiterals += "dcl_literal " + strRegister + ", " + std::to_string(nBits) + ", 0, 0, 0\n";
    }
    return {eType, strRegister};
}

SCValue CKernelCEmitter::Convert(const SCValue& value, ECType eType)
{
    const bool bFromFloat = value.eType == ECType::Float;
    if (bFromFloat == (eType == ECType::Float))
    {
        return {eType, value.strRegister};
    }
    if (bFromFloat)
    {
        return Emit(eType, eType == ECType::Int ? "ftoi" : "ftou", value.strRegister + ".x");
    }
    return Emit(eType, value.eType == ECType::Int ? "itof" : "utof", value.strRegister + ".x");
}

bool CKernelCEmitter::Binary(const std::string& strOperator, SCValue& left, SCValue right)
{
    const SOperator* const pOperator =
        std::find_if(std::begin(s_Operators), std::end(s_Operators),
                     [&](const SOperator& each) { return strOperator == each.pOperator; });
    if (pOperator == std::end(s_Operators))
    {
        return false;
    }
    // Of two types the larger one counts; a shift has its left operand's.
    const bool bShift = strOperator == "<<" || strOperator == ">>";
    const ECType eType = bShift && right.eType != ECType::Float ? left.eType : std::max(left.eType, right.eType);
    const char* const pInstruction = eType == ECType::Int    ? pOperator->pInt
                                     : eType == ECType::Uint ? pOperator->pUint
                                                             : pOperator->pFloat;
    if (!pInstruction)
    {
        return false;
    }
    left = Convert(left, eType);
    right = bShift ? right : Convert(right, eType);
    left = Emit(eType, pInstruction, left.strRegister + ".x, " + right.strRegister + ".x");
    return true;
}

bool CKernelCEmitter::Unary(char cOperator, SCValue& value)
{
    const bool bFloat = value.eType == ECType::Float;
    switch (cOperator)
    {
    case '+':
        return true;
    case '~':
        value = bFloat ? value : Emit(value.eType, "inot", value.strRegister + ".x");
        return !bFloat;
    default:
        value = bFloat ? Emit(value.eType, "ixor",
                              value.strRegister + ".x, " + Constant(ECType::Uint, 0x80000000u).strRegister + ".x")
                       : Emit(value.eType, "inegate", value.strRegister + ".x");
        return true;
    }
}

bool CKernelCEmitter::WorkItem(const std::string& strFunction, uint32_t nDimension, SCValue& value)
{
    const std::string strComponent = std::string(".") + "xyz"[nDimension % 3];
    if (strFunction == "get_global_id")
    {
        value = Emit(ECType::Uint, "imad",
                     "vThreadGrpId" + strComponent + ", cb0[1]" + strComponent + ", vTidInGrp" + strComponent);
        value = Emit(ECType::Uint, "iadd", value.strRegister + ".x, cb0[6]" + strComponent);
        return true;
    }
    for (const SWorkItemFunction& function : s_WorkItemFunctions)
    {
        if (strFunction == function.pName)
        {
            value = Emit(ECType::Uint, "mov", function.pSource + strComponent);
            return true;
        }
    }
    return false;
}

/// Elements are words. An int index may lie in front of the pointer, so that its sign counts in 64 bits.
SCPlace CKernelCEmitter::Element(const SCVariable& pointer, const SCValue& index)
{
    const std::string strAddress = NewRegister();
    const std::string strTwo = Constant(ECType::Uint, 2).strRegister + ".x";
    if (!m_target.b64BitAddresses)
    {
        m_strBody += "ishl " + strAddress + ".x, " + index.strRegister + ".x, " + strTwo + "\n";
        m_strBody += "iadd " + strAddress + ".x, " + strAddress + ".x, " + pointer.strRegister + ".x\n";
        return {pointer, strAddress};
    }
    m_strBody += "mov " + strAddress + ".x, " + index.strRegister + ".x\n";
    if (index.eType == ECType::Int)
    {
        m_strBody += "ishr " + strAddress + ".y, " + index.strRegister + ".x, " +
                     Constant(ECType::Uint, 31).strRegister + ".x\n";
    }
    else
    {
        m_strBody += "mov " + strAddress + ".y, " + Constant(ECType::Uint, 0).strRegister + ".x\n";
    }
    m_strBody += "i64shl " + strAddress + ".xy, " + strAddress + ".xy, " + strTwo + "\n";
    m_strBody += "i64add " + strAddress + ".xy, " + strAddress + ".xy, " + pointer.strRegister + ".xy\n";
    return {pointer, strAddress};
}

SCValue CKernelCEmitter::Load(const SCPlace& place)
{
    if (place.strAddress.empty())
    {
        // A copy: the variable may change before the value is used.
        return Emit(place.variable.eType, "mov", place.variable.strRegister + ".x");
    }
    const std::string strId = std::to_string(m_vParameters[place.variable.nParameter].nUav);
    return Emit(place.variable.eType, "uav_raw_load_id(" + strId + ")" + (m_target.b64BitAddresses ? "_addr64" : ""),
                place.strAddress + (m_target.b64BitAddresses ? ".xy" : ".x"));
}

void CKernelCEmitter::Store(const SCPlace& place, const SCValue& value)
{
    const SCValue converted = Convert(value, place.variable.eType);
    if (place.strAddress.empty())
    {
        m_strBody += "mov " + place.variable.strRegister + ".x, " + converted.strRegister + ".x\n";
        return;
    }
    const std::string strId = std::to_string(m_vParameters[place.variable.nParameter].nUav);
    m_strBody += "uav_raw_store_id(" + strId + ")" + (m_target.b64BitAddresses ? "_addr64" : "") + " mem0.x, " +
                 place.strAddress + (m_target.b64BitAddresses ? ".xy" : ".x") + ", " + converted.strRegister + ".x\n";
}

std::string CKernelCEmitter::Metadata(unsigned int nWrapper) const
{
    const std::string strWrapperName = "__OpenCL_" + m_strName + "_kernel";
    std::string strText = ";ARGSTART:" + strWrapperName + "\n;version:3:1:104\n;device:" + Lower(m_target.strName) +
                          "\n;uniqueid:" + std::to_string(nWrapper) + "\n" +
                          (m_target.b64BitAddresses ? ";memory:64bitABI\n" : "") + ";memory:uavprivate:0\n";
    uint32_t nOffset = 0;
    for (const SParameter& parameter : m_vParameters)
    {
        const std::string strType = s_TypeNames[static_cast<size_t>(parameter.variable.eType)];
        const std::string strHead = parameter.strName + ":" + strType + ":1:1:" + std::to_string(nOffset);
        if (parameter.variable.bPointer)
        {
            strText += ";pointer:" + strHead + ":uav:" + std::to_string(parameter.nUav) +
                       ":4:" + (parameter.variable.bConst ? "RO" : "RW") + ":0:0\n";
        }
        else
        {
            strText += ";value:" + strHead + "\n";
        }
        nOffset += s_nSlotBytes;
    }
    return strText + ";function:1:" + std::to_string(nWrapper + 1) + "\n;uavid:" + std::to_string(s_nRawUav) +
           "\n;ARGEND:" + strWrapperName + "\n";
}

std::string CKernelCEmitter::Functions(unsigned int nWrapper) const
{
    const std::string strWrapperName = ";__OpenCL_" + m_strName + "_kernel\n";
    const std::string strFunction = std::to_string(nWrapper + 1);
    std::string strText =
        "func " + std::to_string(nWrapper) + "\n" + strWrapperName + "dcl_max_thread_per_group 256\ndcl_cb cb0[10]\n";
    if (!m_vParameters.empty())
    {
        strText += "dcl_cb cb1[" + std::to_string(m_vParameters.size()) + "]\n";
    }
    for (const SParameter& parameter : m_vParameters)
    {
        if (parameter.variable.bPointer && !m_target.bRawUavOnly)
        {
            strText += "dcl_typeless_uav_id(" + std::to_string(parameter.nUav) + ")_stride(4)_length(4)\n";
        }
    }
    strText += m_target.bRawUavOnly ? "dcl_raw_uav_id(11)\n" : "";
    return strText + "call " + strFunction + "\nret\nendfunc\n" + strWrapperName + "func " + strFunction + "\n;" +
           m_strName + "\n" + m_strLiterals + m_strBody + "ret\nendfunc\n;" + m_strName + "\n";
}

} // namespace KestrelPlatform

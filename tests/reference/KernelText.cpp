#include "tests/reference/KernelText.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <sstream>

namespace KestrelTest
{

namespace
{

uint32_t ToNumber(const std::string& strText)
{
    if (strText.find('.') != std::string::npos)
    {
        const float fValue = std::strtof(strText.c_str(), nullptr);
        uint32_t nBits = 0;
        std::memcpy(&nBits, &fValue, sizeof(nBits));
        return nBits;
    }
    return static_cast<uint32_t>(std::strtoll(strText.c_str(), nullptr, 0));
}

std::vector<std::string> Split(const std::string& strText)
{
    std::vector<std::string> vParts;
    std::istringstream stream(strText);
    for (std::string strPart; std::getline(stream, strPart, ',');)
    {
        const size_t nFirst = strPart.find_first_not_of(" \t");
        const size_t nLast = strPart.find_last_not_of(" \t");
        vParts.push_back(nFirst == std::string::npos ? "" : strPart.substr(nFirst, nLast - nFirst + 1));
    }
    return vParts;
}

/// The number in "name(12)"; 0 if the name isn't there.
uint32_t InBrackets(const std::string& strText, const std::string& strName)
{
    const size_t nStart = strText.find(strName + "(");
    return nStart != std::string::npos ? ToNumber(strText.substr(nStart + strName.size() + 1)) : 0;
}

SOperand ReadOperand(const std::string& strText)
{
    static const std::regex s_Form(
        R"(([A-Za-z]+)(\d*)(\[(?:([rx]\d+)\.([xyzw])\+?)?(-?\d+)?\])?(?:\.([xyzw01_]+?))?(?:_neg\(([xyzw]+)\))?)");
    std::smatch match;
    if (!std::regex_match(strText, match, s_Form))
    {
        throw CReferenceError("the machine doesn't read the operand " + strText);
    }
    SOperand operand;
    operand.strFile = match[1];
    operand.nNumber = match[2].length() != 0 ? ToNumber(match[2]) : 0;
    operand.bIndexed = match[3].matched;
    operand.strIndex = match[4];
    operand.cIndex = match[5].matched ? *match[5].first : 'x';
    operand.nIndex = match[6].matched ? static_cast<int32_t>(ToNumber(match[6])) : 0;
    operand.strComponents = match[7];
    operand.strNegated = match[8];
    return operand;
}

} // namespace

CKernelText::CKernelText(const std::string& strText)
{
    std::istringstream stream(strText);
    uint32_t nKernel = 0;
    uint32_t nMacro = 0;
    bool bMetadata = true;
    for (std::string strLine; std::getline(stream, strLine);)
    {
        if (StartsWith(strLine, ";uniqueid:"))
        {
            nKernel = ToNumber(strLine.substr(10));
        }
        bMetadata = bMetadata && !StartsWith(strLine, "il_cs");
        if (StartsWith(strLine, ";$$$$") && !bMetadata)
        {
            strLine = "call " + std::to_string(nKernel);
        }
        if (bMetadata || strLine.empty() || strLine[0] == ';' || StartsWith(strLine, "il_cs"))
        {
            continue;
        }
        if (StartsWith(strLine, "dcl_"))
        {
            Declare(strLine);
        }
        else if (StartsWith(strLine, "mdef"))
        {
            nMacro = InBrackets(strLine, "mdef");
            m_mapMacros[nMacro].nFirst = static_cast<uint32_t>(m_vInstructions.size());
        }
        else if (StartsWith(strLine, "mend"))
        {
            m_mapMacros[nMacro].nEnd = static_cast<uint32_t>(m_vInstructions.size());
        }
        else
        {
            AddInstruction(strLine);
        }
    }
    FindBlocks();
}

void CKernelText::Declare(const std::string& strLine)
{
    const size_t nSpace = strLine.find(' ');
    const std::vector<std::string> vParts =
        nSpace != std::string::npos ? Split(strLine.substr(nSpace)) : std::vector<std::string>();
    const auto larger = [](uint32_t& nOld, uint32_t nNew) { nOld = std::max(nOld, nNew); };
    if (StartsWith(strLine, "dcl_literal"))
    {
        Words& words = m_mapLiterals[ReadOperand(vParts[0]).nNumber];
        std::transform(vParts.begin() + 1, vParts.end(), words.begin(), ToNumber);
    }
    else if (StartsWith(strLine, "dcl_indexed_temp_array"))
    {
        const SOperand array = ReadOperand(vParts[0]);
        larger(m_mapArrays[array.nNumber], static_cast<uint32_t>(array.nIndex));
    }
    else if (strLine.find("_access(private)") != std::string::npos)
    {
        larger(m_mapPrivate[InBrackets(strLine, "_id")], (InBrackets(strLine, "_length") + 15) / 16 * 16);
    }
    else if (StartsWith(strLine, "dcl_lds"))
    {
        larger(m_mapLocal[InBrackets(strLine, "_id")], ToNumber(vParts[0]));
    }
}

void CKernelText::AddInstruction(const std::string& strLine)
{
    SInstruction instruction;
    instruction.strLine = strLine;
    const size_t nSpace = std::min(strLine.find(' '), strLine.size());
    const std::string strWord = strLine.substr(0, nSpace);
    const size_t nSuffix = std::min({strWord.find("_id("), strWord.find('('), strWord.size()});
    instruction.strName = strWord.substr(0, nSuffix);
    instruction.bAddr64 = strWord.find("_addr64") != std::string::npos;
    instruction.nId = instruction.strName == "mcall" ? InBrackets(strWord, "mcall") : InBrackets(strWord, "_id");
    const std::string& strName = instruction.strName;
    std::vector<std::string> vParts = Split(strLine.substr(nSpace));
    if (strName == "func" || strName == "case" || StartsWith(strName, "call"))
    {
        instruction.nLabel = ToNumber(vParts.back());
        vParts.pop_back();
    }
    std::transform(vParts.begin(), vParts.end(), std::back_inserter(instruction.vOperands), ReadOperand);
    if (strName == "func")
    {
        m_mapFunctions[instruction.nLabel].nFirst = static_cast<uint32_t>(m_vInstructions.size());
    }
    m_vInstructions.push_back(instruction);
}

uint32_t CKernelText::GetElse(uint32_t nStart) const
{
    const auto it = m_mapElses.find(nStart);
    return it != m_mapElses.end() ? it->second : m_mapEnds.at(nStart);
}

void CKernelText::FindBlocks()
{
    std::vector<uint32_t> vOpen;
    SBody* pFunction = nullptr;
    for (uint32_t n = 0; n < m_vInstructions.size(); ++n)
    {
        const std::string& strName = m_vInstructions[n].strName;
        if (strName == "func")
        {
            pFunction = &m_mapFunctions[m_vInstructions[n].nLabel];
        }
        const bool bEnds = strName == "endif" || strName == "endloop" || strName == "endswitch";
        if ((bEnds || strName == "else" || strName == "case" || strName == "default") && vOpen.empty())
        {
            throw CReferenceError("no block is open at " + strName);
        }
        if (StartsWith(strName, "if") || strName == "whileloop" || strName == "switch")
        {
            vOpen.push_back(n);
        }
        else if (strName == "else")
        {
            m_mapElses[vOpen.back()] = n;
        }
        else if (bEnds)
        {
            m_mapEnds[vOpen.back()] = n;
            vOpen.pop_back();
        }
        else if (strName == "endfunc")
        {
            pFunction->nEnd = n;
        }
    }
    if (!vOpen.empty())
    {
        throw CReferenceError("a block isn't ended");
    }
}

} // namespace KestrelTest

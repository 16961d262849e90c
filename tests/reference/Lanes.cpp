#include "tests/reference/Lanes.h"

#include <cstdlib>

namespace KestrelTest
{

namespace
{

const uint32_t s_nOne = 0x3F800000; // 1.0

size_t GroupOf(const SReferenceLaunch& launch, size_t nItem, uint32_t (&nGroup)[3], uint32_t (&nInGroup)[3])
{
    size_t nRest = nItem;
    size_t nIndex = 0;
    size_t nFactor = 1;
    for (int i = 0; i < 3; ++i)
    {
        const uint32_t nId = static_cast<uint32_t>(nRest % launch.nGlobalSize[i]);
        nRest /= launch.nGlobalSize[i];
        nGroup[i] = nId / launch.nLocalSize[i];
        nInGroup[i] = nId % launch.nLocalSize[i];
        nIndex += nFactor * nGroup[i];
        nFactor *= launch.nGlobalSize[i] / launch.nLocalSize[i];
    }
    return nIndex;
}

uint32_t Component(const Words& words, char cSelector)
{
    switch (cSelector)
    {
    case '0':
        return 0;
    case '1':
        return s_nOne;
    case 'w':
        return words[3];
    default:
        return words[static_cast<size_t>(cSelector - 'x')];
    }
}

} // namespace

CLanes::CLanes(const CKernelText& text, const SReferenceLaunch& launch)
    : m_Text(text), m_Launch(launch), m_nItems(launch.GetItems())
{
    m_State.vBuffers = launch.vBuffers;
    for (const auto& entry : text.GetPrivate())
    {
        m_State.mapPrivate[entry.first].assign(m_nItems, Bytes(entry.second, 0));
    }
    size_t nGroups = 1;
    for (int i = 0; i < 3; ++i)
    {
        nGroups *= launch.nGlobalSize[i] / launch.nLocalSize[i];
    }
    m_State.vLocal.resize(nGroups);
    for (auto& local : m_State.vLocal)
    {
        for (const auto& entry : text.GetLocal())
        {
            local[entry.first].assign(entry.second, 0);
        }
    }
}

Words CLanes::ReadId(const std::string& strFile, size_t nItem) const
{
    uint32_t nGroup[3];
    uint32_t nInGroup[3];
    GroupOf(m_Launch, nItem, nGroup, nInGroup);
    const uint32_t(&id)[3] = strFile == "vThreadGrpId" ? nGroup : nInGroup;
    if (strFile == "vAbsTid")
    {
        Words words = {0, 0, 0, 0};
        for (size_t i = 0; i < 3; ++i)
        {
            words[i] = nGroup[i] * m_Launch.nLocalSize[i] + nInGroup[i];
        }
        return words;
    }
    return {id[0], id[1], id[2], 0};
}

/// cb0: the global sizes in element 0, the local ones in element 1. cb1: an address in each element.
Words CLanes::ReadConstant(const SOperand& operand) const
{
    if (operand.nNumber == 0 && operand.nIndex < 2)
    {
        const uint32_t(&sizes)[3] = operand.nIndex == 0 ? m_Launch.nGlobalSize : m_Launch.nLocalSize;
        return {sizes[0], sizes[1], sizes[2], 0};
    }
    if (operand.nNumber == 1 && static_cast<size_t>(operand.nIndex) < m_Launch.vAddresses.size())
    {
        const uint64_t nAddress = m_Launch.vAddresses[static_cast<size_t>(operand.nIndex)];
        return {static_cast<uint32_t>(nAddress), static_cast<uint32_t>(nAddress >> 32), 0, 0};
    }
    throw CReferenceError("a constant that the machine doesn't know");
}

std::string CLanes::NameOf(const SOperand& operand, size_t nItem) const
{
    std::string strName = operand.strFile + std::to_string(operand.nNumber);
    if (!operand.bIndexed)
    {
        return strName;
    }
    int64_t nIndex = operand.nIndex;
    if (!operand.strIndex.empty())
    {
        const auto it = m_State.mapRegisters.find(operand.strIndex);
        nIndex +=
            it != m_State.mapRegisters.end() ? static_cast<int32_t>(Component(it->second[nItem], operand.cIndex)) : 0;
    }
    const auto array = m_Text.GetArrays().find(operand.nNumber);
    if (array == m_Text.GetArrays().end() || nIndex < 0 || nIndex >= array->second)
    {
        throw CReferenceError("an index outside of " + strName);
    }
    return strName + "[" + std::to_string(nIndex) + "]";
}

Words CLanes::ReadRegister(const SOperand& operand, size_t nItem) const
{
    if (operand.strFile == "l")
    {
        const auto it = m_Text.GetLiterals().find(operand.nNumber);
        return it != m_Text.GetLiterals().end() ? it->second : Words{0, 0, 0, 0};
    }
    if (operand.strFile == "cb")
    {
        return ReadConstant(operand);
    }
    if (operand.strFile[0] == 'v')
    {
        return ReadId(operand.strFile, nItem);
    }
    const auto it = m_State.mapRegisters.find(NameOf(operand, nItem));
    return it != m_State.mapRegisters.end() ? it->second[nItem] : Words{0, 0, 0, 0};
}

Words CLanes::Read(const SOperand& operand, size_t nItem) const
{
    const Words words = ReadRegister(operand, nItem);
    if (!operand.strNegated.empty())
    {
        throw CReferenceError("a modifier that the machine doesn't know");
    }
    if (operand.strComponents.empty())
    {
        return words;
    }
    Words swizzled = {0, 0, 0, 0};
    for (size_t i = 0; i < 4; ++i)
    {
        const size_t nLast = operand.strComponents.size() - 1;
        swizzled[i] = Component(words, operand.strComponents[i < nLast ? i : nLast]);
    }
    return swizzled;
}

/// \param values  by component of the register
void CLanes::Write(const SOperand& operand, size_t nItem, const Words& values)
{
    std::vector<Words>& vRegister = m_State.mapRegisters[NameOf(operand, nItem)];
    vRegister.resize(m_nItems, {0, 0, 0, 0});
    for (const char c : operand.strComponents.empty() ? std::string("xyzw") : operand.strComponents)
    {
        const size_t n = c == 'w' ? 3 : static_cast<size_t>(c - 'x');
        vRegister[nItem][n] = values[n];
    }
}

void CLanes::Execute(const SInstruction& instruction, const Mask& active)
{
    for (size_t i = 0; i < m_nItems; ++i)
    {
        if (active[i] && !Calculate(instruction, i) && !AccessMemory(instruction, i) && !UpdateMemory(instruction, i))
        {
            throw CReferenceError("the machine doesn't know " + instruction.strLine);
        }
    }
}

namespace
{

typedef uint32_t (*Operation)(uint32_t a, uint32_t b, uint32_t c);

uint32_t MaskOf(bool bHolds)
{
    return bHolds ? 0xFFFFFFFF : 0;
}

// Component by component, in the order of docs/il.md.
const std::map<std::string, Operation> s_Operations = {
    {"mov", [](uint32_t a, uint32_t, uint32_t) { return a; }},
    {"inot", [](uint32_t a, uint32_t, uint32_t) { return ~a; }},
    {"ior", [](uint32_t a, uint32_t b, uint32_t) { return a | b; }},
    {"ixor", [](uint32_t a, uint32_t b, uint32_t) { return a ^ b; }},
    {"iadd", [](uint32_t a, uint32_t b, uint32_t) { return a + b; }},
    {"isub", [](uint32_t a, uint32_t b, uint32_t) { return a - b; }},
    {"imad", [](uint32_t a, uint32_t b, uint32_t c) { return a * b + c; }},
    {"imax", [](uint32_t a, uint32_t b, uint32_t) { return Signed(a) > Signed(b) ? a : b; }},
    {"imin", [](uint32_t a, uint32_t b, uint32_t) { return Signed(a) < Signed(b) ? a : b; }},
    {"imul", [](uint32_t a, uint32_t b, uint32_t) { return a * b; }},
    {"ieq", [](uint32_t a, uint32_t b, uint32_t) { return MaskOf(a == b); }},
    {"ine", [](uint32_t a, uint32_t b, uint32_t) { return MaskOf(a != b); }},
    {"ige", [](uint32_t a, uint32_t b, uint32_t) { return MaskOf(Signed(a) >= Signed(b)); }},
    {"ilt", [](uint32_t a, uint32_t b, uint32_t) { return MaskOf(Signed(a) < Signed(b)); }},
    {"inegate", [](uint32_t a, uint32_t, uint32_t) { return 0 - a; }},
    {"ishl", [](uint32_t a, uint32_t b, uint32_t) { return a << (b & 31); }},
    {"ushr", [](uint32_t a, uint32_t b, uint32_t) { return a >> (b & 31); }},
    {"and", [](uint32_t a, uint32_t b, uint32_t) { return a & b; }},
};

} // namespace

bool CLanes::Calculate(const SInstruction& instruction, size_t nItem)
{
    const auto it = s_Operations.find(instruction.strName);
    if (it == s_Operations.end() && instruction.strName != "i64add")
    {
        return false;
    }
    Words sources[3] = {};
    for (size_t i = 1; i < instruction.vOperands.size() && i <= 3; ++i)
    {
        sources[i - 1] = Read(instruction.vOperands[i], nItem);
    }
    Words result = {0, 0, 0, 0};
    for (size_t n = 0; n < 4; ++n)
    {
        if (it != s_Operations.end())
        {
            result[n] = it->second(sources[0][n], sources[1][n], sources[2][n]);
        }
        else if (n % 2 == 0)
        {
            const auto pair = [&](const Words& words) { return words[n] + (uint64_t(words[n + 1]) << 32); };
            const uint64_t nSum = pair(sources[0]) + pair(sources[1]);
            result[n] = static_cast<uint32_t>(nSum);
            result[n + 1] = static_cast<uint32_t>(nSum >> 32);
        }
    }
    Write(instruction.vOperands[0], nItem, result);
    return true;
}

unsigned char* CLanes::Find(const SInstruction& instruction, const Words& address, size_t nItem, size_t nBytes)
{
    const auto inside = [&](Bytes& bytes, uint64_t nOffset) -> unsigned char*
    { return nOffset < bytes.size() && nBytes <= bytes.size() - nOffset ? &bytes[nOffset] : nullptr; };
    if (instruction.strName.compare(0, 3, "lds") == 0)
    {
        uint32_t nGroup[3];
        uint32_t nInGroup[3];
        const size_t nIndex = GroupOf(m_Launch, nItem, nGroup, nInGroup);
        return inside(m_State.vLocal[nIndex].at(instruction.nId), address[0]);
    }
    const bool bFlat = instruction.strName.compare(0, 4, "flat") == 0;
    const auto it = m_State.mapPrivate.find(instruction.nId);
    if (it != m_State.mapPrivate.end() && !bFlat)
    {
        return inside(it->second[nItem], address[0]);
    }
    const uint64_t nAddress = address[0] + (instruction.bAddr64 || bFlat ? uint64_t(address[1]) << 32 : 0);
    for (size_t i = 0; i < m_State.vBuffers.size(); ++i)
    {
        if (unsigned char* pFound = inside(m_State.vBuffers[i], nAddress - m_Launch.vAddresses[i]))
        {
            return pFound;
        }
    }
    return nullptr;
}

} // namespace KestrelTest

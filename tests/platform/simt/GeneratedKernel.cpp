#include "tests/platform/simt/GeneratedKernel.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatformTest
{
namespace
{

const uint32_t s_nFunctions = 3;
const uint32_t s_nFirstLabel = 10;
const uint32_t s_nLiteralValues[] = {0, 1, 2, 3, 7, 31, 0xFFFFFFFF, 0x80000000};

struct SPlainOp
{
    const char* pszName;
    uint32_t nSources;
    uint32_t (*pf)(uint32_t a, uint32_t b, uint32_t c);
};

int32_t S(uint32_t n)
{
    return static_cast<int32_t>(n);
}

uint32_t All(bool b)
{
    return b ? 0xFFFFFFFF : 0;
}

const SPlainOp s_PlainOps[] = {
    {"mov", 1, [](uint32_t a, uint32_t, uint32_t) { return a; }},
    {"iadd", 2, [](uint32_t a, uint32_t b, uint32_t) { return a + b; }},
    {"isub", 2, [](uint32_t a, uint32_t b, uint32_t) { return a - b; }},
    {"imul", 2, [](uint32_t a, uint32_t b, uint32_t) { return a * b; }},
    {"imad", 3, [](uint32_t a, uint32_t b, uint32_t c) { return a * b + c; }},
    {"and", 2, [](uint32_t a, uint32_t b, uint32_t) { return a & b; }},
    {"ior", 2, [](uint32_t a, uint32_t b, uint32_t) { return a | b; }},
    {"ixor", 2, [](uint32_t a, uint32_t b, uint32_t) { return a ^ b; }},
    {"inot", 1, [](uint32_t a, uint32_t, uint32_t) { return ~a; }},
    {"inegate", 1, [](uint32_t a, uint32_t, uint32_t) { return 0 - a; }},
    {"ishl", 2, [](uint32_t a, uint32_t b, uint32_t) { return a << (b % 32); }},
    {"ushr", 2, [](uint32_t a, uint32_t b, uint32_t) { return a >> (b % 32); }},
    {"ishr", 2, [](uint32_t a, uint32_t b, uint32_t) { return static_cast<uint32_t>(S(a) >> (b % 32)); }},
    {"imin", 2, [](uint32_t a, uint32_t b, uint32_t) { return S(a) < S(b) ? a : b; }},
    {"umax", 2, [](uint32_t a, uint32_t b, uint32_t) { return std::max(a, b); }},
    {"ieq", 2, [](uint32_t a, uint32_t b, uint32_t) { return All(a == b); }},
    {"ilt", 2, [](uint32_t a, uint32_t b, uint32_t) { return All(S(a) < S(b)); }},
    {"uge", 2, [](uint32_t a, uint32_t b, uint32_t) { return All(a >= b); }},
    {"udiv", 2, [](uint32_t a, uint32_t b, uint32_t) { return b ? a / b : 0xFFFFFFFF; }},
    {"umod", 2, [](uint32_t a, uint32_t b, uint32_t) { return b ? a % b : a; }},
    {"cmov_logical", 3, [](uint32_t a, uint32_t b, uint32_t c) { return a ? b : c; }},
};

struct SFloatOp
{
    const char* pszLine; ///< computes r21 from r20.x and r20.y
    float (*pf)(float a, float b);
};

const SFloatOp s_FloatOps[] = {
    {"add r21.x, r20.x, r20.y", [](float a, float b) { return a + b; }},
    {"add r21.x, r20.x, r20.y_neg(xyzw)", [](float a, float b) { return a - b; }},
    {"mul_d4 r21.x, r20.x, r20.y", [](float a, float b) { return a * b * 0.25f; }},
    {"mad r21.x, r20.x, r20.y_abs, r20.x", [](float a, float b) { return a * (b < 0 ? -b : b) + a; }},
    {"max r21.x, r20.x, r20.y", [](float a, float b) { return a > b ? a : b; }},
    {"sub r21.x, r20.x_neg(xyzw)_abs, r20.y", [](float a, float b) { return -(a < 0 ? -a : a) - b; }},
};

int32_t Truncate(float f)
{
    if (f >= 2147483648.0f)
    {
        return 0x7FFFFFFF;
    }
    return f < -2147483648.0f ? S(0x80000000) : static_cast<int32_t>(f);
}

} // namespace

CGeneratedKernel::CGeneratedKernel(uint32_t nSeed) : m_Random(nSeed)
{
    m_vFunctions.resize(s_nFunctions);
    for (uint32_t n = s_nFunctions; n-- > 0;)
    {
        m_nBudget = 12;
        m_vFunctions[n] = RandomBlock(2, false, false, static_cast<int>(n));
    }
    m_nBudget = 60;
    m_Main = RandomBlock(4, false, false, -1);
}

CGeneratedKernel::SOperand CGeneratedKernel::RandomOperand()
{
    SOperand operand;
    operand.bLiteral = Random(4) == 0;
    operand.nLiteral = Random(8);
    operand.nRegister = Random(s_nRegisters);
    for (uint32_t& nComponent : operand.nComponents)
    {
        nComponent = Random(4);
    }
    return operand;
}

CGeneratedKernel::Nodes CGeneratedKernel::RandomBlock(uint32_t nDepth, bool bInLoop, bool bInSwitch, int nFunction)
{
    Nodes nodes;
    const uint32_t nCount = 1 + Random(nDepth == 4 ? 8 : 4);
    for (uint32_t n = 0; n < nCount && m_nBudget > 0; ++n)
    {
        --m_nBudget;
        nodes.push_back(RandomNode(nDepth, bInLoop, bInSwitch, nFunction));
    }
    return nodes;
}

std::unique_ptr<CGeneratedKernel::SNode> CGeneratedKernel::RandomNode(uint32_t nDepth, bool bInLoop, bool bInSwitch,
                                                                      int nFunction)
{
    auto pNode = std::make_unique<SNode>();
    for (SOperand& source : pNode->sources)
    {
        source = RandomOperand();
    }
    pNode->nDestination = Random(s_nRegisters);
    pNode->nMask = 1 + Random(15);
    pNode->bConditional = Random(3) != 0;
    pNode->bIfZero = Random(2) != 0;
    const uint32_t nChoice = Random(20);
    if (nDepth > 0 && nChoice < 4)
    {
        pNode->eKind = If;
        pNode->bHasElse = Random(2) != 0;
        pNode->body = RandomBlock(nDepth - 1, bInLoop, bInSwitch, nFunction);
        if (pNode->bHasElse)
        {
            pNode->other = RandomBlock(nDepth - 1, bInLoop, bInSwitch, nFunction);
        }
    }
    else if (nDepth > 0 && nChoice < 6)
    {
        pNode->eKind = Loop;
        pNode->nCounter = 30 + m_nCounters++;
        pNode->body = RandomBlock(nDepth - 1, true, false, nFunction);
    }
    else if (nDepth > 0 && nChoice < 8)
    {
        pNode->eKind = Switch;
        const uint32_t nCases = 1 + Random(4);
        const uint32_t nDefault = Random(nCases + 2);
        for (uint32_t n = 0; n < nCases; ++n)
        {
            SCase part;
            part.bDefault = n == nDefault;
            part.nValue = n;
            part.bBreaks = Random(3) != 0;
            if (Random(4) != 0)
            {
                part.body = RandomBlock(nDepth - 1, bInLoop, true, nFunction);
            }
            pNode->vCases.push_back(std::move(part));
        }
    }
    else if (nChoice == 8 && (bInLoop || bInSwitch))
    {
        pNode->eKind = Break;
    }
    else if (nChoice == 9 && bInLoop)
    {
        pNode->eKind = Continue;
    }
    else if (nChoice == 10 && nFunction + 1 < static_cast<int>(s_nFunctions))
    {
        pNode->eKind = Call;
        pNode->nFunction =
            static_cast<uint32_t>(nFunction + 1) + Random(s_nFunctions - static_cast<uint32_t>(nFunction + 1));
    }
    else if (nChoice == 11 && nFunction >= 0)
    {
        pNode->eKind = Return;
    }
    else if (nChoice == 12)
    {
        pNode->eKind = FloatChain;
    }
    else if (nChoice == 13)
    {
        pNode->eKind = ArrayStore;
    }
    else if (nChoice == 14)
    {
        pNode->eKind = ArrayLoad;
    }
    pNode->nOp = Random(pNode->eKind == FloatChain ? std::size(s_FloatOps) : std::size(s_PlainOps));
    return pNode;
}

std::string CGeneratedKernel::Print(const SOperand& operand)
{
    if (operand.bLiteral)
    {
        return "l" + std::to_string(operand.nLiteral / 4) + "." + "xyzw"[operand.nLiteral % 4];
    }
    std::string str = "r" + std::to_string(operand.nRegister) + ".";
    for (uint32_t nComponent : operand.nComponents)
    {
        str += "xyzw"[nComponent];
    }
    return str;
}

void CGeneratedKernel::Print(const Nodes& nodes, std::string& str)
{
    for (const auto& pNode : nodes)
    {
        Print(*pNode, str);
    }
}

void CGeneratedKernel::Print(const SNode& node, std::string& str)
{
    std::string strDestination = "r" + std::to_string(node.nDestination) + ".";
    for (uint32_t n = 0; n < 4; ++n)
    {
        strDestination += node.nMask & (1u << n) ? "xyzw"[n] : '_';
    }
    const std::string strLogical = node.bIfZero ? "_logicalz " : "_logicalnz ";
    const std::string strA = Print(node.sources[0]);
    const std::string strB = Print(node.sources[1]);
    const std::string strCondition = strLogical + strA + "\n";
    switch (node.eKind)
    {
    case Plain:
    {
        const SPlainOp& op = s_PlainOps[node.nOp];
        str += std::string(op.pszName) + " " + strDestination + ", " + strA;
        for (uint32_t n = 1; n < op.nSources; ++n)
        {
            str += ", " + Print(node.sources[n]);
        }
        str += "\n";
        break;
    }
    case FloatChain:
        str += "itof r20.x, " + strA + "\nitof r20._y__, " + strB + "\n" + s_FloatOps[node.nOp].pszLine + "\nftoi " +
               strDestination + ", r21.x\n";
        break;
    case ArrayStore:
        str += "and r22.x, " + strA + ", l0.w\nmov x1[r22.x]" + strDestination.substr(strDestination.find('.')) + ", " +
               strB + "\n";
        break;
    case ArrayLoad:
        str += "and r22.x, " + strA + ", l0.w\nmov " + strDestination + ", x1[r22.x].wxyz\n";
        break;
    case If:
        str += "if" + strCondition;
        Print(node.body, str);
        if (node.bHasElse)
        {
            str += "else\n";
        }
        Print(node.other, str);
        str += "endif\n";
        break;
    case Loop:
    {
        const std::string strCounter = "r" + std::to_string(node.nCounter);
        str += "mov " + strCounter + ".x, l0.x\nand " + strCounter + "._y__, " + strA + ", l0.w\nwhileloop\nige " +
               strCounter + ".__z_, " + strCounter + ".x, " + strCounter + ".y\nbreak_logicalnz " + strCounter +
               ".z\niadd " + strCounter + ".x, " + strCounter + ".x, l0.y\n";
        Print(node.body, str);
        str += "endloop\n";
        break;
    }
    case Switch:
        str += "and r23.x, " + strA + ", l0.w\nswitch r23.x\n";
        for (const SCase& part : node.vCases)
        {
            str += part.bDefault ? "default\n" : "case " + std::to_string(part.nValue) + "\n";
            Print(part.body, str);
            str += part.bBreaks ? "break\n" : "";
        }
        str += "endswitch\n";
        break;
    case Break:
        str += "break" + (node.bConditional ? strCondition : "\n");
        break;
    case Continue:
        str += "continue" + (node.bConditional ? strCondition : "\n");
        break;
    case Return:
        str += node.bConditional ? "ret" + strCondition : "ret_dyn\n";
        break;
    case Call:
        str += (node.bConditional ? "call" + strLogical + strA + ", " : "call ") +
               std::to_string(s_nFirstLabel + node.nFunction) + "\n";
        break;
    }
}

std::string CGeneratedKernel::Text() const
{
    std::string str =
        "il_cs_2_0\ndcl_cb cb0[10]\ndcl_cb cb1[8]\ndcl_indexed_temp_array x1[4]\n"
        "dcl_literal l0, 0, 1, 2, 3\ndcl_literal l1, 7, 31, -1, 0x80000000\ndcl_literal l100, 7, 16, 32, 48\n";
    for (uint32_t n = 0; n < s_nRegisters; ++n)
    {
        str += "imad r" + std::to_string(n) + ", vAbsTidFlat.x, l" + std::to_string(n % 2) + ".yzwx, l" +
               std::to_string((n + 1) % 2) + "\n";
    }
    Print(m_Main, str);
    str += "ishl r100.x, vAbsTidFlat.x, l100.x\niadd r100.x, r100.x, cb1[0].x\n";
    for (uint32_t n = 0; n < s_nRegisters; ++n)
    {
        str += "uav_raw_store_id(11) mem0, r100.x, r" + std::to_string(n) + "\niadd r100.x, r100.x, l100.y\n";
    }
    str += "endmain\n";
    for (uint32_t n = 0; n < s_nFunctions; ++n)
    {
        str += "func " + std::to_string(s_nFirstLabel + n) + "\n";
        Print(m_vFunctions[n], str);
        str += "ret\nendfunc\n";
    }
    return str + "end\n";
}

uint32_t CGeneratedKernel::Read(const SState& state, const SOperand& operand, uint32_t nComponent)
{
    if (operand.bLiteral)
    {
        return s_nLiteralValues[operand.nLiteral];
    }
    return state.registers[operand.nRegister][operand.nComponents[nComponent]];
}

CGeneratedKernel::Registers CGeneratedKernel::Execute(uint32_t nItem) const
{
    SState state;
    for (uint32_t n = 0; n < s_nRegisters; ++n)
    {
        for (uint32_t c = 0; c < 4; ++c)
        {
            state.registers[n][c] =
                nItem * s_nLiteralValues[n % 2 * 4 + (c + 1) % 4] + s_nLiteralValues[(n + 1) % 2 * 4 + c];
        }
    }
    Execute(m_Main, state);
    return state.registers;
}

CGeneratedKernel::EFlow CGeneratedKernel::Execute(const Nodes& nodes, SState& state) const
{
    for (const auto& pNode : nodes)
    {
        const EFlow eFlow = Execute(*pNode, state);
        if (eFlow != Next)
        {
            return eFlow;
        }
    }
    return Next;
}

CGeneratedKernel::EFlow CGeneratedKernel::ExecuteSwitch(const SNode& node, SState& state) const
{
    const uint32_t nSelector = Read(state, node.sources[0], 0) & 3;
    size_t nFirst = node.vCases.size();
    for (size_t n = 0; n < node.vCases.size(); ++n)
    {
        if (node.vCases[n].bDefault && nFirst == node.vCases.size())
        {
            nFirst = n;
        }
        if (!node.vCases[n].bDefault && node.vCases[n].nValue == nSelector)
        {
            nFirst = n;
            break;
        }
    }
    for (size_t n = nFirst; n < node.vCases.size(); ++n)
    {
        const EFlow eFlow = Execute(node.vCases[n].body, state);
        if (eFlow == Broke)
        {
            return Next;
        }
        if (eFlow != Next)
        {
            return eFlow;
        }
        if (node.vCases[n].bBreaks)
        {
            return Next;
        }
    }
    return Next;
}

CGeneratedKernel::EFlow CGeneratedKernel::Execute(const SNode& node, SState& state) const
{
    const bool bHolds = (Read(state, node.sources[0], 0) == 0) == node.bIfZero;
    std::array<uint32_t, 4> result = {};
    switch (node.eKind)
    {
    case Plain:
        for (uint32_t c = 0; c < 4; ++c)
        {
            result[c] = s_PlainOps[node.nOp].pf(Read(state, node.sources[0], c), Read(state, node.sources[1], c),
                                                Read(state, node.sources[2], c));
        }
        break;
    case FloatChain:
    {
        // itof reads the component that it writes: x for r20.x, y for r20.y.
        const float a = static_cast<float>(S(Read(state, node.sources[0], 0)));
        const float b = static_cast<float>(S(Read(state, node.sources[1], 1)));
        result.fill(static_cast<uint32_t>(Truncate(s_FloatOps[node.nOp].pf(a, b))));
        break;
    }
    case ArrayStore:
    {
        std::array<uint32_t, 4>& element = state.array[Read(state, node.sources[0], 0) & 3];
        for (uint32_t c = 0; c < 4; ++c)
        {
            element[c] = node.nMask & (1u << c) ? Read(state, node.sources[1], c) : element[c];
        }
        return Next;
    }
    case ArrayLoad:
    {
        const std::array<uint32_t, 4>& element = state.array[Read(state, node.sources[0], 0) & 3];
        result = {element[3], element[0], element[1], element[2]};
        break;
    }
    case If:
        return Execute(bHolds ? node.body : node.other, state);
    case Loop:
    {
        const uint32_t nPasses = Read(state, node.sources[0], 1) & 3;
        for (uint32_t n = 0; n < nPasses; ++n)
        {
            const EFlow eFlow = Execute(node.body, state);
            if (eFlow == Returned)
            {
                return eFlow;
            }
            if (eFlow == Broke)
            {
                break;
            }
        }
        return Next;
    }
    case Switch:
        return ExecuteSwitch(node, state);
    case Break:
        return !node.bConditional || bHolds ? Broke : Next;
    case Continue:
        return !node.bConditional || bHolds ? Continued : Next;
    case Return:
        return !node.bConditional || bHolds ? Returned : Next;
    case Call:
        if (!node.bConditional || bHolds)
        {
            Execute(m_vFunctions[node.nFunction], state);
        }
        return Next;
    }
    for (uint32_t c = 0; c < 4; ++c)
    {
        if (node.nMask & (1u << c))
        {
            state.registers[node.nDestination][c] = result[c];
        }
    }
    return Next;
}

} // namespace KestrelPlatformTest

#include "instrument/AnalyzedShaderIL.h"
#include "instrument/OperandTokens.h"

#include "core/Log.h"
#include "il/ShaderDebuggerUtilsIL.h"

namespace OVK_ShaderDebugger
{

namespace
{

typedef std::array<unsigned int, 4> Values; ///< by component

constexpr unsigned int s_Components[] = {0, 1, 2, 3};

/// An instruction whose result is known when its sources are.
struct SFoldable
{
    ILOpCode op;
    unsigned int nSources;
    unsigned int (*pfnValue)(unsigned int, unsigned int);
};

constexpr SFoldable s_Foldables[] = {
    {IL_OP_I_ADD, 2, [](unsigned int a, unsigned int b) { return a + b; }},
    {IL_OP_I_SHR, 2, [](unsigned int a, unsigned int b) { return a >> (b % 32); }},
    {IL_OP_MOV, 1, [](unsigned int a, unsigned int) { return a; }},
};

const SFoldable* FindFoldable(ILOpCode op)
{
    for (const SFoldable& foldable : s_Foldables)
    {
        if (foldable.op == op)
        {
            return &foldable;
        }
    }

    return nullptr;
}

/// Ends the search: of the code before these it isn't known whether, how often or for which work-items it ran.
bool IsBarrier(ILOpCode op)
{
    switch (op)
    {
    case IL_OP_FUNC:
    case IL_OP_ENDFUNC:
    case IL_OP_ENDMAIN:
    case IL_OP_WHILE:
    case IL_OP_ENDLOOP:
    case IL_OP_ENDIF:
    case IL_OP_ENDSWITCH:
    case IL_OP_CALL:
    case IL_OP_CALLNZ:
    case IL_OP_CALL_LOGICALZ:
    case IL_OP_CALL_LOGICALNZ:
    case IL_OP_MACROCALL:
        return true;

    default:
        return false;
    }
}

bool IsDivider(ILOpCode op)
{
    return op == IL_OP_ELSE || op == IL_OP_CASE || op == IL_OP_DEFAULT;
}

/// Where a block opens: of its branches, the one before a dividing instruction hasn't run on the way to what follows.
InstructionNumber StartOf(const CIL_FCConstruct& construct)
{
    if (const CIL_IfElseEndif* pIf = construct.AsIfElseEndif())
    {
        return pIf->GetIf();
    }

    const CIL_Switch* pSwitch = construct.AsSwitch();
    return pSwitch != nullptr ? pSwitch->GetStart() : 0;
}

/// The bits of a source's modifier word that only select components.
constexpr IL s_nSwizzleBits = 0x7777;

/// The bits of a destination's modifier word that only choose which components are written.
constexpr IL s_nWriteBits = 0x55;

unsigned int Selector(const SOperand& operand, unsigned int nComponent)
{
    return operand.bHasModifier ? (operand.modifier >> (4 * nComponent)) & 7u : nComponent;
}

/// Follows the components of temps back to the instructions that wrote them, and evaluates those.
class CIndexResolver
{
public:
    CIndexResolver(const std::vector<CShaderDebuggerInstructionIL>& vInstructions,
                   const std::map<InstructionNumber, CIL_FCConstruct*>& flowControl,
                   const std::map<unsigned int, std::vector<SLiteralDeclaration>>& literals, CShaderDebuggerHost* pHost)
        : m_vInstructions(vInstructions), m_FlowControl(flowControl), m_Literals(literals), m_pHost(pHost)
    {
    }

    /// Finds the instructions that make the index.
    bool Collect(const Register& index, InstructionNumber nInst, size_t nMaxDepth)
    {
        if (!Need(index.reg.type, index.reg.number, index.mask))
        {
            return false;
        }

        for (size_t nLooked = 0; !m_Needed.empty() && nLooked < nMaxDepth && nInst != 0;)
        {
            const CShaderDebuggerInstructionIL& instruction = m_vInstructions[--nInst];

            if (IsBarrier(instruction.GetOpCode()))
            {
                return false;
            }

            if (IsDivider(instruction.GetOpCode()))
            {
                nInst = StartOf(*m_FlowControl.at(nInst));
                continue;
            }

            if (instruction.GetDestRegTokenOffset() != 0)
            {
                ++nLooked;

                if (!Track(instruction))
                {
                    return false;
                }
            }
        }

        return m_Needed.empty() || Warn("Expression could not be reduced to literals.");
    }

    /// The value of the index, after a successful Collect.
    unsigned int Evaluate(const Register& index)
    {
        for (auto it = m_vTracked.rbegin(); it != m_vTracked.rend(); ++it)
        {
            Apply(*it);
        }

        unsigned int nComponent = 0;

        while (GetComponent(nComponent) != index.mask)
        {
            ++nComponent;
        }

        return index.reg.type == RT_Temp ? m_Temps[index.reg.number][nComponent]
                                         : LiteralOf(index.reg.number)[nComponent];
    }

private:
    struct STracked
    {
        const CShaderDebuggerInstructionIL* pInstruction;
        unsigned int nTemp;
        RegisterMask mask; ///< the components that matter
    };

    bool Need(RegisterType type, unsigned int nNumber, RegisterMask mask)
    {
        if (type == RT_LITERAL)
        {
            // Of several declarations the last one before the reading instruction would count.
            const auto it = m_Literals.find(nNumber);
            return it == m_Literals.end() || it->second.size() == 1 ||
                   Warn("Expression could not be reduced to literals.");
        }

        if (type != RT_Temp)
        {
            return Warn(type == RT_IndexableTemp ? "Can only track across simple registers."
                                                 : "Expression could not be reduced to literals.");
        }

        m_Needed[nNumber] |= mask;
        return true;
    }

    /// Takes the instruction if it writes what is needed, and needs its sources instead.
    bool Track(const CShaderDebuggerInstructionIL& instruction)
    {
        const SOperand dest = ReadOperand(instruction, instruction.GetDestRegTokenOffset());
        const auto it = dest.type == IL_REGTYPE_TEMP ? m_Needed.find(dest.nNumber) : m_Needed.end();

        if (it == m_Needed.end())
        {
            return true;
        }

        if (dest.nIndexOffset != 0 || (dest.modifier & ~s_nWriteBits) != 0)
        {
            return Warn("Can only track across simple registers.");
        }

        const RegisterMask mask = it->second & WriteMask(dest);

        if (mask == COMP_None)
        {
            return true;
        }

        it->second &= ~mask;

        if (it->second == COMP_None)
        {
            m_Needed.erase(it);
        }

        m_vTracked.push_back({&instruction, dest.nNumber, mask});
        return NeedSources(instruction, mask);
    }

    bool NeedSources(const CShaderDebuggerInstructionIL& instruction, RegisterMask mask)
    {
        const SFoldable* pFoldable = FindFoldable(instruction.GetOpCode());

        for (unsigned int i = 0; pFoldable != nullptr && i < pFoldable->nSources; ++i)
        {
            const SOperand source = ReadOperand(instruction, instruction.GetSrcRegTokenOffset(i));
            RegisterMask sourceMask = COMP_None;
            bool bPlain = source.nIndexOffset == 0 && (source.modifier & ~s_nSwizzleBits) == 0;

            for (const unsigned int nComponent : s_Components)
            {
                if ((mask & GetComponent(nComponent)) != 0)
                {
                    const unsigned int nSelector = Selector(source, nComponent);
                    sourceMask |= GetComponent(nSelector);
                    bPlain = bPlain && nSelector <= IL_COMPSEL_W_A;
                }
            }

            if (!bPlain)
            {
                pFoldable = nullptr;
            }
            else if (!Need(ShaderDebuggerUtilsIL::ILtoSDRegisterType(source.type), source.nNumber, sourceMask))
            {
                return false;
            }
        }

        return pFoldable != nullptr || WarnUnresolvable(instruction);
    }

    static RegisterMask WriteMask(const SOperand& dest)
    {
        const RegisterMask all = COMP_All;
        return dest.bHasModifier ? ShaderDebuggerUtilsIL::GetMask(IL_Dst_Mod{dest.modifier}) : all;
    }

    void Apply(const STracked& tracked)
    {
        const CShaderDebuggerInstructionIL& instruction = *tracked.pInstruction;
        const SFoldable& foldable = *FindFoldable(instruction.GetOpCode());
        Values result = m_Temps[tracked.nTemp];

        for (const unsigned int nComponent : s_Components)
        {
            if ((tracked.mask & GetComponent(nComponent)) != 0)
            {
                unsigned int sources[2] = {};

                for (unsigned int i = 0; i < foldable.nSources; ++i)
                {
                    sources[i] = ValueOf(ReadOperand(instruction, instruction.GetSrcRegTokenOffset(i)), nComponent);
                }

                result[nComponent] = foldable.pfnValue(sources[0], sources[1]);
            }
        }

        m_Temps[tracked.nTemp] = result;
    }

    unsigned int ValueOf(const SOperand& source, unsigned int nComponent)
    {
        const unsigned int nSelector = Selector(source, nComponent);
        return source.type == IL_REGTYPE_TEMP ? m_Temps[source.nNumber][nSelector]
                                              : LiteralOf(source.nNumber)[nSelector];
    }

    /// Zeros for a literal that isn't declared.
    Values LiteralOf(unsigned int nNumber) const
    {
        const auto it = m_Literals.find(nNumber);
        if (it == m_Literals.end())
        {
            return Values{};
        }

        const Vec4& value = it->second.front().value;
        return Values{value.x, value.y, value.z, value.w};
    }

    bool Warn(const char* pszText) const
    {
        SD_Log(m_pHost, logWARNING, "%s", pszText);
        return false;
    }

    bool WarnUnresolvable(const CShaderDebuggerInstructionIL& instruction) const
    {
        SD_Log(m_pHost, logWARNING, "Cannot resolve instruction %u.",
               static_cast<unsigned int>(instruction.GetOpCode()));
        return false;
    }

    const std::vector<CShaderDebuggerInstructionIL>& m_vInstructions;
    const std::map<InstructionNumber, CIL_FCConstruct*>& m_FlowControl;
    const std::map<unsigned int, std::vector<SLiteralDeclaration>>& m_Literals;
    CShaderDebuggerHost* m_pHost;
    std::map<unsigned int, RegisterMask> m_Needed; ///< components of temps whose writer is still looked for
    std::vector<STracked> m_vTracked;              ///< the newest first
    std::map<unsigned int, Values> m_Temps;
};

bool IsOneComponent(RegisterMask mask)
{
    return mask == COMP_x || mask == COMP_y || mask == COMP_z || mask == COMP_w;
}

} // namespace

bool CAnalyzedShaderIL::ResolveIndexRegisterToConstant(Register* reg, InstructionNumber nInst, size_t nMaxDepth)
{
    if (reg == nullptr || !IsRegTypeIndexed(reg->reg.type) || nInst > m_Instructions.size())
    {
        return false;
    }

    const Register* pIndex = reg->reg.pIndexRegister;

    if (pIndex == nullptr)
    {
        return true;
    }

    CIndexResolver resolver(m_Instructions, m_FlowControl, m_LiteralDeclarations, GetHost());

    if (!IsOneComponent(pIndex->mask) || !resolver.Collect(*pIndex, nInst, nMaxDepth))
    {
        return false;
    }

    // The immediate index of the operand counts on top of the register's value.
    reg->reg.index += resolver.Evaluate(*pIndex);
    SD_SAFE_DELETE(reg->reg.pIndexRegister);
    return true;
}

} // namespace OVK_ShaderDebugger

#include "platform/simt/Lowering.h"

namespace KestrelPlatform
{

namespace
{

/// Shape of a memory instruction.
struct SMemoryRow
{
    ILOpCode eOpCode;
    SAccess::ESpace eSpace;
    SAccess::EOperation eOperation;
    uint8_t nBytes;
    bool bSigned;
    EAtomic eAtomic;
};

const SAccess::ESpace G = SAccess::Global;
const SAccess::ESpace L = SAccess::Local;
const EAtomic s_None = ATOMIC_ADD;

const SMemoryRow s_MemoryRows[] = {
    {IL_OP_UAV_RAW_LOAD, G, SAccess::Load, 4, false, s_None},
    {IL_OP_UAV_STRUCT_LOAD, G, SAccess::Load, 4, false, s_None},
    {IL_OP_UAV_ARENA_LOAD, G, SAccess::Load, 4, false, s_None},
    {IL_OP_SRV_RAW_LOAD, G, SAccess::Load, 4, false, s_None},
    {IL_OP_FLAT_ADDR_LOAD, G, SAccess::Load, 4, false, s_None},
    {IL_OP_LOAD_DWORD_AT_ADDR, G, SAccess::Load, 4, false, s_None},
    {IL_OP_UAV_BYTE_LOAD, G, SAccess::Load, 1, true, s_None},
    {IL_OP_UAV_SHORT_LOAD, G, SAccess::Load, 2, true, s_None},
    {IL_OP_UAV_UBYTE_LOAD, G, SAccess::Load, 1, false, s_None},
    {IL_OP_UAV_USHORT_LOAD, G, SAccess::Load, 2, false, s_None},
    {IL_OP_UAV_RAW_STORE, G, SAccess::Store, 4, false, s_None},
    {IL_OP_UAV_STRUCT_STORE, G, SAccess::Store, 4, false, s_None},
    {IL_OP_UAV_ARENA_STORE, G, SAccess::Store, 4, false, s_None},
    {IL_OP_FLAT_ADDR_STORE, G, SAccess::Store, 4, false, s_None},
    {IL_OP_UAV_BYTE_STORE, G, SAccess::Store, 1, false, s_None},
    {IL_OP_UAV_SHORT_STORE, G, SAccess::Store, 2, false, s_None},
    {IL_OP_LDS_LOAD, L, SAccess::Load, 4, false, s_None},
    {IL_OP_LDS_LOAD_VEC, L, SAccess::Load, 4, false, s_None},
    {IL_OP_LDS_LOAD_BYTE, L, SAccess::Load, 1, true, s_None},
    {IL_OP_LDS_LOAD_SHORT, L, SAccess::Load, 2, true, s_None},
    {IL_OP_LDS_LOAD_UBYTE, L, SAccess::Load, 1, false, s_None},
    {IL_OP_LDS_LOAD_USHORT, L, SAccess::Load, 2, false, s_None},
    {IL_OP_LDS_LOAD_B64, L, SAccess::Load, 4, false, s_None},
    {IL_OP_LDS_STORE, L, SAccess::Store, 4, false, s_None},
    {IL_OP_LDS_STORE_VEC, L, SAccess::Store, 4, false, s_None},
    {IL_OP_LDS_STORE_BYTE, L, SAccess::Store, 1, false, s_None},
    {IL_OP_LDS_STORE_SHORT, L, SAccess::Store, 2, false, s_None},
    {IL_OP_LDS_STORE_B64, L, SAccess::Store, 4, false, s_None},
#define KESTREL_ATOMIC(name, space, bytes, atomic) {name, space, SAccess::Atomic, bytes, false, atomic},
#define KESTREL_ATOMICS(prefix, suffix, space, bytes)                                                                  \
    KESTREL_ATOMIC(prefix##ADD##suffix, space, bytes, ATOMIC_ADD)                                                      \
    KESTREL_ATOMIC(prefix##SUB##suffix, space, bytes, ATOMIC_SUB)                                                      \
    KESTREL_ATOMIC(prefix##RSUB##suffix, space, bytes, ATOMIC_RSUB)                                                    \
    KESTREL_ATOMIC(prefix##MIN##suffix, space, bytes, ATOMIC_MIN)                                                      \
    KESTREL_ATOMIC(prefix##MAX##suffix, space, bytes, ATOMIC_MAX)                                                      \
    KESTREL_ATOMIC(prefix##UMIN##suffix, space, bytes, ATOMIC_UMIN)                                                    \
    KESTREL_ATOMIC(prefix##UMAX##suffix, space, bytes, ATOMIC_UMAX)                                                    \
    KESTREL_ATOMIC(prefix##AND##suffix, space, bytes, ATOMIC_AND)                                                      \
    KESTREL_ATOMIC(prefix##OR##suffix, space, bytes, ATOMIC_OR)                                                        \
    KESTREL_ATOMIC(prefix##XOR##suffix, space, bytes, ATOMIC_XOR)                                                      \
    KESTREL_ATOMIC(prefix##FMIN##suffix, space, bytes, ATOMIC_FMIN)                                                    \
    KESTREL_ATOMIC(prefix##FMAX##suffix, space, bytes, ATOMIC_FMAX)
    KESTREL_ATOMICS(IL_OP_UAV_, , G, 4) KESTREL_ATOMICS(IL_OP_UAV_READ_, , G, 4) KESTREL_ATOMICS(IL_OP_LDS_, , L, 4)
        KESTREL_ATOMICS(IL_OP_LDS_READ_, , L, 4) KESTREL_ATOMICS(IL_OP_LDS_, _B64, L, 8)
            KESTREL_ATOMICS(IL_OP_LDS_READ_, _B64, L, 8) KESTREL_ATOMIC(IL_OP_UAV_CMP, G, 4, ATOMIC_CMP_XCHG)
                KESTREL_ATOMIC(IL_OP_UAV_UINC, G, 4, ATOMIC_INC) KESTREL_ATOMIC(IL_OP_UAV_UDEC, G, 4, ATOMIC_DEC)
                    KESTREL_ATOMIC(IL_OP_UAV_READ_UINC, G, 4, ATOMIC_INC) KESTREL_ATOMIC(
                        IL_OP_UAV_READ_UDEC, G, 4, ATOMIC_DEC) KESTREL_ATOMIC(IL_OP_UAV_READ_XCHG, G, 4, ATOMIC_XCHG)
                        KESTREL_ATOMIC(IL_OP_UAV_READ_CMP_XCHG, G, 4,
                                       ATOMIC_CMP_XCHG) KESTREL_ATOMIC(IL_OP_UAV_READ_FCMP_XCHG, G, 4, ATOMIC_FCMP_XCHG)
                            KESTREL_ATOMIC(IL_OP_LDS_INC, L, 4, ATOMIC_INC) KESTREL_ATOMIC(
                                IL_OP_LDS_DEC, L, 4, ATOMIC_DEC) KESTREL_ATOMIC(IL_OP_LDS_READ_INC, L, 4, ATOMIC_INC)
                                KESTREL_ATOMIC(IL_OP_LDS_READ_DEC, L, 4, ATOMIC_DEC) KESTREL_ATOMIC(
                                    IL_OP_LDS_MSKOR, L, 4, ATOMIC_MSKOR) KESTREL_ATOMIC(IL_OP_LDS_READ_MSKOR, L,
                                                                                        4, ATOMIC_MSKOR)
                                    KESTREL_ATOMIC(IL_OP_LDS_CMP, L, 4, ATOMIC_CMP_XCHG) KESTREL_ATOMIC(
                                        IL_OP_LDS_READ_CMP_XCHG, L, 4,
                                        ATOMIC_CMP_XCHG) KESTREL_ATOMIC(IL_OP_LDS_READ_XCHG, L, 4, ATOMIC_XCHG)
                                        KESTREL_ATOMIC(IL_OP_LDS_FCMP, L, 4, ATOMIC_FCMP_XCHG) KESTREL_ATOMIC(
                                            IL_OP_LDS_READ_FCMP_XCHG, L, 4, ATOMIC_FCMP_XCHG)
                                            KESTREL_ATOMIC(IL_OP_LDS_WRAP_RTN_B32, L, 4, ATOMIC_WRAP) KESTREL_ATOMIC(
                                                IL_OP_LDS_CONDXCHG32_RTN_B64, L, 8,
                                                ATOMIC_CONDXCHG) KESTREL_ATOMIC(IL_OP_LDS_INC_B64, L, 8, ATOMIC_INC)
                                                KESTREL_ATOMIC(IL_OP_LDS_DEC_B64, L, 8, ATOMIC_DEC) KESTREL_ATOMIC(
                                                    IL_OP_LDS_READ_INC_B64,
                                                    L, 8,
                                                    ATOMIC_INC) KESTREL_ATOMIC(IL_OP_LDS_READ_DEC_B64, L, 8, ATOMIC_DEC)
                                                    KESTREL_ATOMIC(IL_OP_LDS_MSKOR_B64, L, 8, ATOMIC_MSKOR)
                                                        KESTREL_ATOMIC(IL_OP_LDS_READ_MSKOR_B64, L, 8, ATOMIC_MSKOR)
                                                            KESTREL_ATOMIC(IL_OP_LDS_CMP_B64, L, 8, ATOMIC_CMP_XCHG)
                                                                KESTREL_ATOMIC(IL_OP_LDS_READ_CMP_XCHG_B64, L, 8,
                                                                               ATOMIC_CMP_XCHG)
                                                                    KESTREL_ATOMIC(IL_OP_LDS_READ_XCHG_B64, L, 8,
                                                                                   ATOMIC_XCHG)
                                                                        KESTREL_ATOMIC(IL_OP_LDS_FCMP_B64, L, 8,
                                                                                       ATOMIC_FCMP_XCHG)
                                                                            KESTREL_ATOMIC(IL_OP_LDS_READ_FCMP_XCHG_B64,
                                                                                           L, 8, ATOMIC_FCMP_XCHG)
#undef KESTREL_ATOMICS
#undef KESTREL_ATOMIC
};

const SMemoryRow* FindMemoryRow(ILOpCode eOpCode)
{
    static const std::vector<const SMemoryRow*> s_vByOpCode = []
    {
        std::vector<const SMemoryRow*> vRows(IL_OP_LAST, nullptr);
        for (const SMemoryRow& row : s_MemoryRows)
        {
            vRows[row.eOpCode] = &row;
        }
        return vRows;
    }();
    return s_vByOpCode[eOpCode];
}

/// Stores whose destination names memory in its token; its mask gives the number of words.
bool StoresByMask(ILOpCode eOpCode)
{
    return eOpCode == IL_OP_UAV_RAW_STORE || eOpCode == IL_OP_UAV_STRUCT_STORE || eOpCode == IL_OP_LDS_STORE_VEC;
}

} // namespace

/// Sets global memory, the private memory of a UAV declared as such, or the area of a local memory id.
bool CLowering::SetSpace(SAccess& access)
{
    if (access.eSpace == SAccess::Local)
    {
        const uint32_t nId = m_pItem->Controls();
        const auto inserted = m_mapLocalAreas.emplace(nId, static_cast<uint32_t>(m_Code.vLocalAreas.size()));
        if (inserted.second)
        {
            m_Code.vLocalAreas.push_back({nId, m_Code.nLocalBytes, 0});
        }
        access.nArea = inserted.first->second;
        return true;
    }
    const ILOpCode eOpCode = m_pItem->eOpCode;
    const bool bFlat =
        eOpCode == IL_OP_FLAT_ADDR_LOAD || eOpCode == IL_OP_FLAT_ADDR_STORE || eOpCode == IL_OP_LOAD_DWORD_AT_ADDR;
    access.b64BitAddress = bFlat || ((m_pItem->nToken >> 29) & 1) != 0;
    const auto it = m_mapPrivate.find(m_pItem->UavId());
    if (bFlat || eOpCode == IL_OP_SRV_RAW_LOAD || it == m_mapPrivate.end())
    {
        return true;
    }
    access.eSpace = SAccess::Private;
    access.b64BitAddress = false;
    access.nArea = it->second;
    if (access.eOperation == SAccess::Atomic)
    {
        return Fail("atomics on private memory have no meaning on this device");
    }
    return true;
}

void CLowering::SetAddress(SAccess& access, const SOperand& operand)
{
    access.nAddressRows[0] = Source(operand, 0, T::U);
    access.nAddressRows[1] = access.b64BitAddress ? Source(operand, 1, T::U) : s_nZeroRow;
}

/// Sets an address that is the sum of two sources.
void CLowering::SetSum(SAccess& access, const SOperand& operand, const SOperand& offset)
{
    if (!access.b64BitAddress)
    {
        access.nAddressRows[0] = Binary(LANE_IL_OP_I_ADD, Source(operand, 0, T::U), Source(offset, 0, T::U));
        return;
    }
    SLaneRows rows;
    rows.d[0] = ToRow(Scratch());
    rows.d[1] = ToRow(Scratch());
    rows.s[0] = ToRow(Source(operand, 0, T::U));
    rows.s[1] = ToRow(Source(operand, 1, T::U));
    rows.s[2] = ToRow(Source(offset, 0, T::U));
    rows.s[3] = s_nZeroRow;
    EmitLane(LANE_IL_OP_I64_ADD, rows);
    access.nAddressRows[0] = rows.d[0];
    access.nAddressRows[1] = rows.d[1];
}

/// Component x of the address is the element, y the byte within it.
bool CLowering::SetStructAddress(SAccess& access)
{
    const auto it = m_mapStrides.find(m_pItem->UavId());
    if (it == m_mapStrides.end())
    {
        return Fail("UAV " + std::to_string(m_pItem->UavId()) + " has no stride");
    }
    access.b64BitAddress = false;
    const SOperand& operand = Operand(0);
    access.nAddressRows[0] =
        Ternary(LANE_IL_OP_U_MAD, Source(operand, 0, T::U), ConstantRow(it->second), Source(operand, 1, T::U));
    return true;
}

/// Whether the access always goes to the same rows of private memory.
bool CLowering::IsFixedPlace(const SAccess& access) const
{
    if (access.eSpace != SAccess::Private || access.nElementBytes != 4)
    {
        return false;
    }
    const auto it = m_mapRowValues.find(access.nAddressRows[0]);
    if (it == m_mapRowValues.end() && access.nAddressRows[0] != s_nZeroRow)
    {
        return false;
    }
    const uint64_t nAddress = it == m_mapRowValues.end() ? 0 : it->second;
    return nAddress % 4 == 0 && nAddress + access.nWords * 4 <= m_Code.vPrivate[access.nArea].nBytes;
}

bool CLowering::EmitAccess(const SAccess& access)
{
    if (IsFixedPlace(access))
    {
        const auto it = m_mapRowValues.find(access.nAddressRows[0]);
        const uint32_t nFirst = m_Code.vPrivate[access.nArea].nRow + (it == m_mapRowValues.end() ? 0 : it->second / 4);
        for (uint32_t n = 0; n < access.nWords; ++n)
        {
            if (access.eOperation == SAccess::Load)
            {
                EmitMove(access.nRows[n], nFirst + n);
            }
            else
            {
                EmitMove(nFirst + n, access.nRows[n]);
            }
        }
        return !m_bFailed;
    }
    SMicroOp step;
    step.eKind = MICRO_ACCESS;
    step.nInstruction = m_nInstruction;
    step.nAux = static_cast<uint32_t>(m_Code.vAccesses.size());
    m_Code.vAccesses.push_back(access);
    m_Code.vSteps.push_back(step);
    return !m_bFailed;
}

bool CLowering::EmitLoad(SAccess& access)
{
    if (!BeginDestination(T::U, {}))
    {
        return false;
    }
    access.nWords = 0;
    bool bOverlaps = false;
    for (uint32_t n = 0; n < 4; ++n)
    {
        if (!Writes(n))
        {
            continue;
        }
        access.nRows[access.nWords++] = Target(n);
        bOverlaps = bOverlaps || Target(n) == access.nAddressRows[0] || Target(n) == access.nAddressRows[1];
    }
    // A narrow element goes to every component that is written.
    if (access.nElementBytes < 4)
    {
        const uint8_t nWritten = access.nWords;
        access.nWords = nWritten ? 1 : 0;
        if (nWritten && !EmitAccess(access))
        {
            return false;
        }
        for (uint32_t n = 1; n < nWritten; ++n)
        {
            EmitMove(access.nRows[n], access.nRows[0]);
        }
        FinishDestination();
        return !m_bFailed;
    }
    if (bOverlaps && access.nWords > 1)
    {
        for (uint32_t& nRow : access.nAddressRows)
        {
            nRow = nRow == s_nZeroRow ? nRow : Unary(LANE_Mov, nRow);
        }
    }
    if (access.nWords && !EmitAccess(access))
    {
        return false;
    }
    FinishDestination();
    return !m_bFailed;
}

bool CLowering::EmitStore(SAccess& access, const SOperand& value, bool bMask)
{
    access.nWords = 0;
    for (uint32_t n = 0; n < 4; ++n)
    {
        if (bMask ? Writes(n) : n == 0)
        {
            access.nRows[access.nWords++] = Source(value, n, T::U);
        }
    }
    if (m_pItem->eOpCode == IL_OP_LDS_STORE_B64)
    {
        access.nRows[access.nWords++] = Source(value, 1, T::U);
    }
    if (m_bTrace && access.eSpace == SAccess::Private)
    {
        m_Trace.eKind = STraceInfo::PrivateMemory;
        m_Trace.nType = IL_REGTYPE_GENERIC_MEM;
        m_Trace.nNumber = m_pItem->UavId();
        m_Trace.nComponents = (1u << access.nWords) - 1;
        m_Trace.nAddressRow = access.nAddressRows[0];
        m_Trace.nArea = access.nArea;
    }
    return access.nWords == 0 || EmitAccess(access);
}

bool CLowering::LowerAtomic()
{
    const SMemoryRow& row = *FindMemoryRow(m_pItem->eOpCode);
    SAccess access;
    access.eSpace = row.eSpace;
    access.eOperation = SAccess::Atomic;
    access.eAtomic = row.eAtomic;
    access.nElementBytes = row.nBytes;
    if (!SetSpace(access))
    {
        return false;
    }
    SetAddress(access, Operand(0));
    for (uint32_t n = 1; n < m_pItem->nSources && n < 3; ++n)
    {
        const SOperand& operand = Operand(n);
        access.nValueRows[(n - 1) * 2] = Source(operand, 0, T::U);
        access.nValueRows[(n - 1) * 2 + 1] = row.nBytes == 8 ? Source(operand, 1, T::U) : s_nZeroRow;
    }
    access.bReturns = m_pItem->bDestination;
    if (!access.bReturns)
    {
        return EmitAccess(access);
    }
    // A 32-bit old value goes to every component; a 64-bit one to x and y, and to z and w.
    access.nRows[0] = Scratch();
    access.nRows[1] = row.nBytes == 8 ? Scratch() : access.nRows[0];
    if (!EmitAccess(access))
    {
        return false;
    }
    const uint32_t nRows[] = {access.nRows[0], access.nRows[1], access.nRows[0], access.nRows[1]};
    return WriteRows(T::U, nRows);
}

bool CLowering::LowerAccess()
{
    const SMemoryRow* pRow = FindMemoryRow(m_pItem->eOpCode);
    if (!pRow)
    {
        return Fail("has no meaning on this device");
    }
    if (pRow->eOperation == SAccess::Atomic)
    {
        return LowerAtomic();
    }
    SAccess access;
    access.eSpace = pRow->eSpace;
    access.eOperation = pRow->eOperation;
    access.nElementBytes = pRow->nBytes;
    access.bSigned = pRow->bSigned;
    if (!SetSpace(access))
    {
        return false;
    }
    uint32_t nValue = 1;
    switch (m_pItem->eOpCode)
    {
    case IL_OP_UAV_STRUCT_LOAD:
    case IL_OP_UAV_STRUCT_STORE:
        if (!SetStructAddress(access))
        {
            return false;
        }
        break;
    case IL_OP_LDS_LOAD_VEC:
    case IL_OP_LDS_STORE_VEC:
    case IL_OP_LOAD_DWORD_AT_ADDR:
        SetSum(access, Operand(0), Operand(1));
        nValue = 2;
        break;
    default:
        SetAddress(access, Operand(0));
        break;
    }
    if (access.eOperation == SAccess::Load)
    {
        return EmitLoad(access);
    }
    return EmitStore(access, Operand(nValue), StoresByMask(m_pItem->eOpCode));
}

} // namespace KestrelPlatform

#include "tests/e2e/KernelGenerator.h"

#include <algorithm>

namespace KestrelTest
{

namespace
{

// l0: 2, 1, 0, -1; l1: small numbers for counting and comparing; l2: bit masks; l3: addresses in private memory.
const char s_szLiterals[] = R"(il_cs_2_0
dcl_cb cb0[10]
dcl_cb cb1[1]
dcl_literal l0, 2, 1, 0, -1
dcl_literal l1, 3, 5, 7, 4
dcl_literal l2, 1, 2, 4, 3
dcl_literal l3, 0, 16, 32, 48
)";

// l4: words of a work-item's own part of the buffer, l5 the same for bytes and shorts; l6 to l8: shared words; l9:
// sizes of parts, numbers to exchange.
const char s_szMoreLiterals[] = R"(dcl_literal l4, 16, 20, 28, 40
dcl_literal l5, 16, 18, 25, 40
dcl_literal l6, 0, 4, 8, 12
dcl_literal l7, 16, 20, 24, 28
dcl_literal l8, 32, 36, 40, 44
dcl_literal l9, 6, 64, 255, 128
)";

const char s_szPrivate[] = "dcl_typeless_uav_id(8)_stride(4)_length(64)_access(private)\n";

} // namespace

bool CKernelGenerator::IsMore() const
{
    return m_Features.bMore || m_Features.bReturns || m_Features.bLeaves || m_Features.bMemory || m_Features.bLocal ||
           m_Features.bMacros || m_Features.bPrivateInMain || m_Features.bOlder;
}

std::string CKernelGenerator::Metadata() const
{
    const std::string strUav = m_Features.bOlder ? "11" : "10";
    return ";ARGSTART:__OpenCL_generated_kernel\n;version:3:1:104\n;device:" +
           std::string(m_Features.bOlder ? "kiln" : "quench") + "\n;uniqueid:1024\n" +
           (m_Features.bOlder ? ";memory:hwprivate:64\n;uavid:11\n"
                              : ";memory:64bitABI\n;memory:uavprivate:64\n;privateid:8\n") +
           (m_Features.bLocal ? ";memory:hwlocal:256\n" : "") + ";pointer:out:i32:1:1:0:uav:" + strUav +
           ":4:RW:0:0\n;function:1:1030\n;ARGEND:__OpenCL_generated_kernel\n";
}

/// r0.x is the work-item's number, r2 the address of its part of the buffer, r23.x that of its part of local memory.
std::string CKernelGenerator::Head() const
{
    std::string strText = s_szLiterals;
    strText += IsMore() ? s_szMoreLiterals : "";
    strText += m_Features.bPrivateInMain && !m_Features.bOlder ? s_szPrivate : "";
    strText += ";$$$$$$$$$$\nendmain\nfunc 1024\n;__OpenCL_generated_kernel\ndcl_max_thread_per_group 256\n";
    strText += m_Features.bOlder ? "dcl_raw_uav_id(11)\n" : "dcl_typeless_uav_id(10)_stride(4)_length(4)\n";
    strText += m_Features.bMemory && !m_Features.bOlder ? "dcl_typed_uav_id(12) 0x8\n" : "";
    strText += m_Features.bPrivateInMain || m_Features.bOlder ? "" : s_szPrivate;
    strText += m_Features.bLocal ? "dcl_lds_id(1) 256\n" : "";
    strText += "dcl_indexed_temp_array x1[4]\n"
               "imad r0.xyz, vThreadGrpId, cb0[1], vTidInGrp\n"
               "imad r0.x, r0.y, cb0[0].x, r0.x\n";
    if (!IsMore())
    {
        return strText + "ishl r1.x, r0.x, l0.x\nishl r1.x, r1.x, l0.y\ni64add r2.xy, cb1[0].xy, r1.x000\n";
    }
    strText += "imad r1.x, r0.x, l9.y, l9.y\n";
    strText += m_Features.bOlder ? "iadd r2.x, cb1[0].x, r1.x\n" : "i64add r2.xy, cb1[0].xy, r1.x000\n";
    strText += "imad r10.x, r0.x, l1.x, l1.y\nixor r11.x, r0.x, l1.x\nisub r12.x, l1.z, r0.x\n";
    return strText + (m_Features.bLocal ? "ishl r23.x, vTidInGrp.x, l1.w\n" : "");
}

/// \return false if nothing was written
bool CKernelGenerator::More(const SScope& scope)
{
    const unsigned int nChoice = Below(100);
    if (nChoice < 18 && m_Features.bReturns)
    {
        ReturnAnywhere(scope);
    }
    else if (nChoice < 36 && m_Features.bLeaves && (scope.bInLoop || scope.bInSwitch))
    {
        LeaveAnywhere(scope);
    }
    else if (nChoice < 62 && m_Features.bMemory)
    {
        GlobalAccess();
    }
    else if (nChoice < 80 && m_Features.bLocal)
    {
        const bool bTogether = m_bInMain && scope.nDepth == 0 && !m_bReturned;
        bTogether&& Chance(50) ? Exchange() : LocalAccess();
    }
    else if (nChoice < 92 && m_Features.bMacros && !scope.bInMacro)
    {
        CallMacro(scope);
    }
    else
    {
        return false;
    }
    return true;
}

void CKernelGenerator::ReturnAnywhere(const SScope& scope)
{
    m_bReturned = m_bReturned || m_bInMain;
    m_bMaySkip = true;
    // A guard that most work-items pass, or any condition.
    if (scope.nDepth == 0 && Chance(60))
    {
        static const char* const s_Limits[] = {"l1.x", "l1.y", "l1.z", "l9.x"};
        Line("ige r5.x, r0.x, " + std::string(Pick(s_Limits, Below(4))));
    }
    else
    {
        Condition();
    }
    if (m_Features.bReturnsIf && Chance(30))
    {
        Line(Chance(50) ? "ret_logicalnz r5.x" : "ret_logicalz r5.x");
        return;
    }
    Line(Chance(60) ? "if_logicalnz r5.x" : "if_logicalz r5.x");
    if (Chance(40))
    {
        Arithmetic();
    }
    const bool bInElse = Chance(30);
    if (bInElse)
    {
        Arithmetic();
        Line("else");
    }
    Line(Chance(70) ? "ret" : "ret_dyn");
    if (!bInElse && Chance(30))
    {
        Line("else");
        Arithmetic();
    }
    Line("endif");
}

void CKernelGenerator::LeaveAnywhere(const SScope& scope)
{
    m_bMaySkip = true;
    const bool bContinue = scope.bInLoop && Chance(50);
    const std::string strWord = bContinue ? "continue" : "break";
    Condition();
    if (Chance(35))
    {
        Line(strWord + (Chance(50) ? "_logicalnz" : "_logicalz") + " r5.x");
        return;
    }
    Line(Chance(50) ? "if_logicalnz r5.x" : "if_logicalz r5.x");
    Arithmetic();
    if (Chance(40))
    {
        Line(strWord);
        Line("else");
        Arithmetic();
        if (Chance(30))
        {
            Line(scope.bInLoop && Chance(50) ? "continue" : "break");
        }
    }
    else if (Chance(50))
    {
        Line("else");
        Line(strWord);
    }
    else
    {
        Line(strWord);
    }
    Line("endif");
}

/// The end of an if's part, where all remaining work-items may leave.
void CKernelGenerator::LeavePart(const SScope& scope)
{
    if (m_Features.bLeaves && (scope.bInLoop || scope.bInSwitch) && Chance(15))
    {
        m_bMaySkip = true;
        Line(scope.bInLoop && Chance(50) ? "continue" : "break");
    }
    else if (m_Features.bReturns && Chance(5))
    {
        m_bMaySkip = true;
        m_bReturned = m_bReturned || m_bInMain;
        Line("ret");
    }
}

/// Puts an address in the work-item's own part into r20.
void CKernelGenerator::OwnAddress(bool bAligned)
{
    const std::string strOffset = std::string(bAligned ? "l4." : "l5.") + "xyzw"[Below(4)];
    Line(m_Features.bOlder ? "iadd r20.x, r2.x, " + strOffset : "i64add r20.xy, r2.xy, " + strOffset + "000");
}

void CKernelGenerator::GlobalAccess()
{
    switch (Below(5))
    {
    case 0:
        return StoreOwn();
    case 1:
        return LoadOwn();
    case 2:
        return UpdateOwn();
    default:
        return UpdateShared();
    }
}

void CKernelGenerator::StoreOwn()
{
    const unsigned int nKind = Below(m_Features.bOlder ? 4 : 7);
    OwnAddress(nKind != 1 && nKind != 2);
    switch (nKind)
    {
    case 0:
        Line("uav_raw_store" + Uav() + " mem0." + (Chance(50) ? "x" : "xyz") + ", r20.xy, " + Variable());
        break;
    case 1:
        Line("uav_byte_store" + Uav() + " mem0.x, r20.xy, " + Source());
        break;
    case 2:
        Line("uav_short_store" + Uav() + " mem0.x, r20.xy, " + Source());
        break;
    case 3:
        Line("uav_arena_store" + Uav() + " r20.xy, " + Source());
        break;
    case 4:
        Line("uav_store_id(12)_addr64 r20.xy, " + Variable());
        break;
    case 5:
        Line("uav_store_mask_id(12)_addr64 mem0." + std::string(Chance(50) ? "x_z_" : "_y_w") + ", r20.xy, " +
             Variable());
        break;
    default:
        Line("flat_store r20.xy, " + Source());
        break;
    }
}

void CKernelGenerator::LoadOwn()
{
    static const char* const s_Loads[] = {"uav_raw_load",   "uav_raw_load",    "uav_byte_load",
                                          "uav_ubyte_load", "uav_ushort_load", "uav_short_load"};
    const unsigned int nLoad = Below(6);
    OwnAddress(nLoad < 2);
    Line(Pick(s_Loads, nLoad) + Uav() + " " + Variable() + "." + (nLoad == 1 ? "xz" : "x") + ", r20.xy");
}

/// Any kind of atomic will do, as no other work-item uses the place.
void CKernelGenerator::UpdateOwn()
{
    static const char* const s_Updates[] = {"add", "sub", "rsub", "min",  "max",  "umin", "umax", "and",
                                            "or",  "xor", "uinc", "udec", "fmin", "fmax", "cmp"};
    const std::string strUpdate = Pick(s_Updates, Below(15));
    const bool bReads = Chance(50) && (m_Features.bAllReading || strUpdate[0] == 'f');
    OwnAddress(true);
    std::string strValue = Source();
    if (strUpdate[0] == 'f')
    {
        strValue = "l9." + std::string(1, "xyz"[Below(3)]); // not a NaN as a float
    }
    if (strUpdate == "cmp")
    {
        strValue += ", " + Source();
    }
    if (bReads && strUpdate == "or" && Chance(50))
    {
        Line("uav_read_xchg" + Uav() + " " + Variable() + ".x, r20.xy, " + strValue);
    }
    else if (bReads)
    {
        Line("uav_read_" + strUpdate + (strUpdate == "cmp" ? "_xchg" : "") + Uav() + " " + Variable() + ".x, r20.xy, " +
             strValue);
    }
    else
    {
        Line("uav_" + strUpdate + Uav() + " r20.xy, " + strValue);
    }
}

/// In shared words, each word only gets one kind of operation, whose old value isn't used. So the order of the
/// work-items doesn't matter.
void CKernelGenerator::UpdateShared()
{
    static const char* const s_Updates[] = {"add",  "and",  "or",   "xor",  "min",  "max",
                                            "umin", "umax", "uinc", "udec", "fmin", "fmax"};
    const unsigned int nUpdate = Below(12);
    const std::string strOffset = "l" + std::to_string(6 + nUpdate / 4) + "." + "xyzw"[nUpdate % 4];
    Line(m_Features.bOlder ? "iadd r21.x, cb1[0].x, " + strOffset : "i64add r21.xy, cb1[0].xy, " + strOffset + "000");
    std::string strValue = Source();
    if (nUpdate >= 10)
    {
        strValue = "l9." + std::string(1, "xyz"[Below(3)]);
    }
    else if (nUpdate >= 8)
    {
        strValue = "l9.x"; // the same limit for all
    }
    const std::string strUpdate = nUpdate == 0 && Chance(30) ? "sub" : Pick(s_Updates, nUpdate);
    Line("uav_" + strUpdate + Uav() + " r21.xy, " + strValue);
}

/// In the work-item's own 16 bytes, or in the last 128 that the group shares.
void CKernelGenerator::LocalAccess()
{
    const bool bShared = Chance(30);
    Line(bShared ? "iadd r24.x, l9.w, l3." + std::string(1, "xyzw"[Below(4)])
                 : "iadd r24.x, r23.x, l6." + std::string(1, "xyzw"[Below(4)]));
    switch (Below(bShared ? 4 : 8))
    {
    case 0:
        return Line("lds_store_id(1) r24.x, " + Source());
    case 1:
        return Line("lds_load_id(1) " + Variable() + ".x, r24.x");
    case 2:
        return Line(std::string("lds_store_") + (Chance(50) ? "byte" : "short") + "_id(1) r24.x, " + Source());
    case 3:
        return Line(std::string("lds_") + (Chance(50) ? "add" : "umax") + "_id(1) r24.x, " + Source());
    case 4:
        return Line("lds_store_vec_id(1) mem0." + std::string(Chance(50) ? "xy" : "x_z_") + ", r23.x, " +
                    (Chance(50) ? "l6.x" : "l6.z") + ", " + Variable());
    case 5:
        return Line("lds_load_vec_id(1) " + Variable() + ".xz, r23.x, " + (Chance(50) ? "l6.y" : "l6.z"));
    default:
        return UpdateLocal();
    }
}

void CKernelGenerator::UpdateLocal()
{
    static const char* const s_Updates[] = {"add", "sub", "rsub", "min", "max", "umin", "umax",
                                            "and", "or",  "xor",  "inc", "dec", "cmp",  "mskor"};
    const std::string strUpdate = Pick(s_Updates, Below(14));
    const std::string strValue = Source() + (strUpdate == "cmp" || strUpdate == "mskor" ? ", " + Source() : "");
    if (Chance(50) && (m_Features.bAllReading || strUpdate[0] == 'f'))
    {
        Line("lds_read_" + strUpdate + (strUpdate == "cmp" ? "_xchg" : "") + "_id(1) " + Variable() + ".x, r24.x, " +
             strValue);
        return;
    }
    Line("lds_" + strUpdate + "_id(1) r24.x, " + strValue);
}

/// Each work-item reads what its neighbour has stored.
void CKernelGenerator::Exchange()
{
    Line("lds_store_id(1) r23.x, " + Variable() + ".x");
    Line("fence_threads_lds");
    Line("ixor r24.x, r23.x, l3.y");
    Line("lds_load_id(1) " + Variable() + ".x, r24.x");
    Line("fence_threads_lds");
}

void CKernelGenerator::CallMacro(const SScope& scope)
{
    m_nMacros = std::max(m_nMacros, 1 + Below(2));
    const unsigned int nMacro = Below(m_nMacros);
    m_nMacroDepth[nMacro] = std::max(m_nMacroDepth[nMacro], scope.nDepth + 1);
    Line("mcall(" + std::to_string(3 + nMacro) + ")_in(0)");
}

} // namespace KestrelTest

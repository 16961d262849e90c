#ifndef KESTREL_CORE_SHADERDEBUGGERCOMMON_H
#define KESTREL_CORE_SHADERDEBUGGERCOMMON_H

#include "core/SUCommon.h"

#include <deque>
#include <map>
#include <string>
#include <vector>

/// Deletes through the virtual destructor if the pointer is set, and clears it in every case.
#define SD_SAFE_DELETE(p)                                                                                              \
    do                                                                                                                 \
    {                                                                                                                  \
        delete (p);                                                                                                    \
        (p) = nullptr;                                                                                                 \
    } while (false)

/// The vocabulary of the debugger: what a position in a kernel is, what a register is, and the
/// enumerations that every layer passes around.
namespace OVK_ShaderDebugger
{

using ShaderUtils::BufferDesc;
using ShaderUtils::BufferFormat;
using ShaderUtils::BufferType;
using ShaderUtils::BufferUsage;
using ShaderUtils::DataType;
using ShaderUtils::KeyWords;
using ShaderUtils::ShaderType;
using ShaderUtils::ThreadID;

typedef unsigned int InstructionNumber; ///< index of an instruction in the decoded shader
typedef unsigned int LineNumber;        ///< line of the shader text
typedef unsigned short RegisterMask;    ///< set of Component values
typedef std::vector<std::string> ShaderLinkage;
typedef std::map<unsigned int, unsigned int> ProfileResults;
typedef std::vector<KeyWords> KeyWordsList;

enum Component
{
    COMP_None = 0,
    COMP_x = 1,
    COMP_y = 2,
    COMP_z = 4,
    COMP_w = 8,
    COMP_r = COMP_x,
    COMP_g = COMP_y,
    COMP_b = COMP_z,
    COMP_a = COMP_w,
    COMP_xy = COMP_x | COMP_y,
    COMP_zw = COMP_z | COMP_w,
    COMP_xyz = COMP_xy | COMP_z,
    COMP_All = COMP_xyz | COMP_w
};

/// The component with an index from 0 to 3; COMP_None for any other.
Component GetComponent(unsigned int nIndex);

/// How the lanes of a source that a mask leaves uncovered are filled.
enum ComponentExtend
{
    EXTD_Repeat = 0,     ///< the selected components repeat as a pattern
    EXTD_RepeatLast = 1, ///< the last selected component repeats
    EXTD_ZeroFill = 2,
    EXTD_OneFill = 3
};

/// The level of a debugging view; a bit set in ShaderInfo.
enum Mode
{
    DM_Unknown = 0,
    DM_Current = 0, ///< as an argument: the mode now in force
    DM_Asm = 1,
    DM_Mixed = 2,
    DM_Source = 4
};

enum Platform
{
    PLT_OpenGL = 0,
    PLT_QRL = 1,
    PLT_OpenCL = 2
};

/// Levels come from the environment without a range check, so every int is a value.
enum LogType : int
{
    NA_LOG_TYPE = 0,
    logRAW = 1,
    logASSERT = 2,
    logERROR = 3,
    logWARNING = 4,
    logMESSAGE = 5,
    logTRACE = 6,
    logVERBOSE = 7,
    logMAX = 8
};

enum LogTraceType
{
    NA_LOGTRACE_TYPE = 0,
    traceENTER = 1,
    traceEXIT = 2,
    traceMESSAGE = 3
};

/// The kind of a flow control construct.
enum FC_Type
{
    FC_IfElseEndif = 0,
    FC_Loop = 1,
    FC_Switch = 2
};

enum VariableIDType
{
    VID_LastTouched = 0, ///< the result most recently written by the engine
    VID_ByRegister = 1,  ///< finds nothing
    VID_ByName = 2
};

/// The debugger's register files. The mixed-case and the upper-case families differ.
enum RegisterType
{
    RT_Unknown,
    RT_Temp,
    RT_Input,
    RT_Output,
    RT_IndexableTemp,
    RT_Immediate,
    RT_Sampler,
    RT_Resource,
    RT_Constant,
    RT_ConstantInt,
    RT_ConstantBool,
    RT_OutputDepth,
    RT_Null,
    RT_OutputCoverageMask,
    RT_OutputStructured,
    RT_OutputRaw,
    RT_ThreadID,
    RT_ThreadIDFlattened,
    RT_ThreadGroupID,
    RT_ThreadGroupIDFlattened,
    RT_ThreadIDinGroup,
    RT_ThreadIDinGroupFlattened,
    RT_PrivateUAVAccess,
    RT_INPUT_ARG,
    RT_OUTPUT_ARG,
    RT_IMMED_CONST_BUFF,
    RT_CONST_BUFF,
    RT_CONST_BOOL,
    RT_CONST_FLOAT,
    RT_CONST_INT,
    RT_ADDR,
    RT_VERTEX,
    RT_INDEX,
    RT_BARYCENTRIC_COORD,
    RT_PRIMITIVE_INDEX,
    RT_QUAD_INDEX,
    RT_SPRITE,
    RT_POS,
    RT_VOUTPUT,
    RT_PINPUT,
    RT_INTERP,
    RT_FOG,
    RT_TEXCOORD,
    RT_PRICOLOR,
    RT_SECCOLOR,
    RT_PS_OUT_FOG,
    RT_OBJECT_INDEX,
    RT_SPRITECOORD,
    RT_FACE,
    RT_WINCOORD,
    RT_PRIMCOORD,
    RT_PRIMTYPE,
    RT_PCOLOR,
    RT_STENCIL,
    RT_CLIP,
    RT_LITERAL,
    RT_OUTPUT,
    RT_INPUT,
    RT_OMASK,
    RT_PERSIST,
    RT_GLOBAL,
    RT_SHARED_TEMP,
    RT_GENERIC_MEM,
    RT_INPUTCP,
    RT_PATCHCONST,
    RT_DOMAINLOCATION,
    RT_OUTPUTCP,
    RT_OCP_ID,
    RT_SHADER_INSTANCE_ID,
    RT_THIS,
    RT_EDGEFLAG,
    RT_DEPTH_LE,
    RT_DEPTH_GE,
    RT_INPUT_COVERAGE_MASK,
    RT_TIMER,
    RT_LINE_STIPPLE,
    RT_MAX = RT_LINE_STIPPLE
};

static_assert(RT_PrivateUAVAccess == 22 && RT_CONST_BUFF == 26 && RT_LITERAL == 55 && RT_MAX == 75,
              "register files are stored and compared as numbers");

/// True for the files whose registers carry an index: indexed temps, constant buffers and
/// private memory.
bool IsRegTypeIndexed(RegisterType type);

/// One entry of a position's loop stack.
struct LoopState
{
    InstructionNumber nLoopStart; ///< instruction that opens the loop
    InstructionNumber nLoopEnd;   ///< instruction that closes it
    unsigned int nLoopIteration;  ///< 0 for the first pass
};

bool operator==(const LoopState& lhs, const LoopState& rhs);
bool operator!=(const LoopState& lhs, const LoopState& rhs);

/// A position in the dynamic execution: the same instruction in a later pass of a loop is a
/// different, later position.
class ProgramCounter
{
public:
    ProgramCounter() : m_nPos(0) {}
    explicit ProgramCounter(InstructionNumber nPos) : m_nPos(nPos) {}

    /// Pushes a loop at its first pass, unless it is the innermost already.
    void AddLoop(InstructionNumber nLoopStart, InstructionNumber nLoopEnd);

    /// Copies the outermost entry with this start into loopState.
    /// \return false, with loopState unchanged, if there is none
    bool GetLoopState(InstructionNumber nLoopStart, LoopState& loopState) const;

    InstructionNumber m_nPos;
    std::vector<LoopState> m_LoopStack; ///< outermost first
};

bool operator==(const ProgramCounter& lhs, const ProgramCounter& rhs);
bool operator!=(const ProgramCounter& lhs, const ProgramCounter& rhs);
/// Orders by the common part of the loop stacks (start, then iteration), then by position. The
/// length of a stack never decides.
bool operator<(const ProgramCounter& lhs, const ProgramCounter& rhs);
bool operator>(const ProgramCounter& lhs, const ProgramCounter& rhs);

class Register;

/// The identity of a register. Owns a deep copy of its index register.
class RegisterID
{
public:
    RegisterID() : RegisterID(RT_Unknown, 0, 0, nullptr) {}
    RegisterID(RegisterType regType, unsigned int nNumber, unsigned int nIndex, const Register* pIndex);
    RegisterID(const RegisterID& other);
    RegisterID(RegisterID&& other) noexcept;
    RegisterID& operator=(const RegisterID& other);
    RegisterID& operator=(RegisterID&& other) noexcept;
    ~RegisterID();

    RegisterType type;
    unsigned int number;
    unsigned int index;       ///< constant index, for indexed files
    Register* pIndexRegister; ///< holds a dynamic index; owned, may be null
};

bool operator==(const RegisterID& lhs, const RegisterID& rhs);
bool operator!=(const RegisterID& lhs, const RegisterID& rhs);
bool operator<(const RegisterID& lhs, const RegisterID& rhs);

/// Components of a register.
class Register
{
public:
    Register() : mask(0) {}
    Register(const RegisterID& id, RegisterMask regMask) : reg(id), mask(regMask) {}
    Register(RegisterType type, unsigned int nNumber, RegisterMask regMask, unsigned int nIndex = 0)
        : reg(type, nNumber, nIndex, nullptr), mask(regMask)
    {
    }

    RegisterID reg;
    RegisterMask mask;
};

bool operator==(const Register& lhs, const Register& rhs);
bool operator!=(const Register& lhs, const Register& rhs);
bool operator<(const Register& lhs, const Register& rhs);

/// The registers that a skipped stretch has written, each with the position of its last write.
typedef std::map<Register, ProgramCounter> RegPCMap;

/// Where a patched kernel must capture values, and what.
struct PatchPoint
{
    explicit PatchPoint(const ProgramCounter& pc) : m_pc(pc) {}
    PatchPoint(const ProgramCounter& pc, const Register& reg) : m_pc(pc), m_registers(1, reg) {}

    ProgramCounter m_pc;
    std::deque<Register> m_registers;
};

/// Names what a result query wants.
struct VariableID
{
    VariableIDType type = VID_LastTouched;
    std::string strName; ///< for VID_ByName
};

/// What a decoded shader reports about itself.
struct ShaderInfo
{
    unsigned int textModes = 0;  ///< bit set of Mode: text forms that the shader can show
    unsigned int debugModes = 0; ///< bit set of Mode: modes in which it can be debugged
    std::string strFunction;
    LineNumber nFunctionLine = 0;
    std::string strHash;
    std::string strDebugErrorAsm; ///< why it can't be debugged in DM_Asm; empty if it can
    std::string strDebugErrorMixed;
    std::string strDebugErrorSource;
    ShaderType shaderType = ShaderUtils::ST_Unknown;
    unsigned int versionMajor = 0;
    unsigned int versionMinor = 0;

    union
    {
        struct
        {
            bool bOutputsColor;
            bool bOutputsDepth;
            bool bOutputsCoverageMask;
        } PS;
        struct
        {
            bool bOutputsStructured;
            bool bOutputsRaw;
            unsigned int nThreadGroupSize[3];
        } CS;
        struct
        {
            bool bOutputsPosition;
            unsigned int nPositionReg;
        } VS;
    };

    ShaderInfo() : CS{false, false, {0, 0, 0}} {}
};

/// Fixed values. They depend on each other, and are set in this order when the library is loaded.
extern const LineNumber g_INVALID_LINE_NUMBER;
extern const InstructionNumber g_Inst_NULL;
extern const ProgramCounter g_PC_NULL; ///< position g_Inst_NULL, no loops
extern const RegisterID g_RegID_NULL;
extern const Register g_Reg_NULL; ///< no register: an instruction without a destination

/// Marks the entry of a longer operation for a profiler. It has no effect.
class ShaderDebuggerPerfMarker
{
public:
    explicit ShaderDebuggerPerfMarker(const char* pszName, const char* pszGroup = nullptr);
};

/// Would load the profiler's library. There is one in the process.
class ShaderDebuggerPerfMarkerLoader
{
public:
    static ShaderDebuggerPerfMarkerLoader& Instance();
};

} // namespace OVK_ShaderDebugger

#endif

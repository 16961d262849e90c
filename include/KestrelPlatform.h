#ifndef KESTREL_INCLUDE_KESTRELPLATFORM_H
#define KESTREL_INCLUDE_KESTRELPLATFORM_H

#include <stdint.h>

/// The access to the software platform's own settings, counters and trace, for tests and tools. It compiles as C and as
/// C++. Get the table from the runtime with
///   KestrelPlatformControlFunction door =
///       (KestrelPlatformControlFunction)clGetExtensionFunctionAddress(KESTREL_PLATFORM_CONTROL);
///   const struct SPlatformControl* control = door != NULL ? door() : NULL;
/// There is none on another platform, and an older platform's table is shorter: compare nSize. The table is the
/// runtime's and stays. All of its functions may be called from any thread.

/// One pass of one open loop.
struct SPlatformLoopPass
{
    uint32_t nCallDepth; ///< number of calls open around the loop: 0 in the main body
    uint32_t nStart;     ///< instruction that opens the loop
    uint32_t nEnd;       ///< instruction that closes it
    uint32_t nIteration; ///< 0 for the first pass
};

/// One instruction, executed for some work-items at once. The pointers live during the call.
/// Instructions count from 0 over the whole stream; comments, declarations and macro markers
/// don't count. Work-items are linear indices in the dispatch, x fastest, offset left out.
struct SPlatformTraceRecord
{
    uint32_t nInstruction;
    uint32_t nOpCode;
    uint32_t nCalls;            ///< open calls
    const uint32_t* pCallSites; ///< their call instructions, outermost first
    uint32_t nLoops;
    const struct SPlatformLoopPass* pLoops; ///< outermost first, over all open calls
    uint32_t nItems;
    const uint32_t* pItems;  ///< every work-item of the block, active or not
    const uint32_t* pActive; ///< 1 if active once the instruction has taken effect, else 0
    uint32_t nRegisterType;  ///< register type of the destination as in the token; 0xFFFFFFFF for none
    uint32_t nRegisterNumber;
    uint32_t nComponents;     ///< bit set of the components written
    const uint32_t* pIndices; ///< element (array) or byte address (private memory) by item; null if not indexed
    const uint32_t* pValues;  ///< the whole register after the write, four words an item; null without a destination
};

typedef void (*PlatformTraceCallback)(const struct SPlatformTraceRecord* pRecord, void* pUser);

enum EPlatformCounter
{
    PLATFORM_COUNTER_KERNEL_RUNS = 0,
    PLATFORM_COUNTER_BUILDS,
    PLATFORM_COUNTER_BYTES_READ,    ///< device to host
    PLATFORM_COUNTER_BYTES_WRITTEN, ///< host to device
    PLATFORM_COUNTER_BYTES_COPIED,  ///< on the device
    PLATFORM_COUNTER_CONTEXTS,      ///< objects alive, from here on
    PLATFORM_COUNTER_QUEUES,
    PLATFORM_COUNTER_PROGRAMS,
    PLATFORM_COUNTER_KERNELS,
    PLATFORM_COUNTER_MEM_OBJECTS,
    PLATFORM_COUNTER_SAMPLERS,
    PLATFORM_COUNTER_EVENTS,
    PLATFORM_COUNTER_MAPPINGS,
    PLATFORM_COUNTER_LAST
};

/// What the last kernel run did that it shouldn't have.
struct SPlatformFault
{
    uint64_t nBadAccesses;
    uint32_t nInstruction;
    uint64_t nWorkItem;
    uint64_t nAddress;
    int32_t bWrite;
    uint64_t nUnreachedBarriers;
};

/// What an access meant.
enum EPlatformMemory
{
    PLATFORM_MEMORY_GLOBAL = 0,
    PLATFORM_MEMORY_LOCAL,     ///< the address counts from the start of its declared area
    PLATFORM_MEMORY_PRIVATE,   ///< a private UAV of the work-item
    PLATFORM_MEMORY_REGISTERS, ///< an array of registers or a constant buffer; the address is the element
    PLATFORM_MEMORY_IMAGE      ///< the address is the x coordinate
};

/// One fault of it. Each work-item's at each instruction is kept once, the lowest work-items first, 64 at most.
struct SPlatformFaultRecord
{
    uint32_t nInstruction;
    int32_t bBarrier; ///< a barrier that part of a work-group didn't reach; else an access outside memory
    int32_t bWrite;
    uint64_t nWorkItem; ///< of a barrier: the first of its group that didn't reach it
    uint64_t nAddress;
    uint32_t nMemory; ///< an EPlatformMemory
};

/// Where a kernel run had the buffer of a pointer argument.
struct SPlatformBuffer
{
    uint32_t nArgument;
    uint64_t nAddress;
    uint64_t nSize; ///< bytes
};

/// How a kernel run ended.
enum EPlatformEnd
{
    PLATFORM_END_COMPLETE = 0,
    PLATFORM_END_LIMIT,  ///< a work-group came to the limit of instructions
    PLATFORM_END_BROKEN, ///< broken off by BreakRuns
    PLATFORM_END_MEMORY  ///< there wasn't enough memory for it
};

struct SPlatformEnd
{
    uint32_t nEnd;         ///< an EPlatformEnd
    uint32_t nInstruction; ///< of a run that was stopped under way: where one of its blocks was
    uint64_t nWorkItem;    ///< the first one that was active there; ~0 if the run was never under way
};

/// Where work-items were when a kernel run was stopped under way.
enum EPlatformWhere
{
    PLATFORM_WHERE_AT = 0,   ///< at an instruction: the end of a loop or the head of a function
    PLATFORM_WHERE_BARRIER,  ///< at a barrier, waiting for others of their work-group
    PLATFORM_WHERE_BESIDE,   ///< waiting for others with which they go on together, or at the end before them
    PLATFORM_WHERE_ENDED,    ///< with their whole work-group
    PLATFORM_WHERE_NOT_BEGUN ///< in work-groups that hadn't begun
};

struct SPlatformPlace
{
    uint32_t nWhere;       ///< an EPlatformWhere
    uint32_t nInstruction; ///< of the first two kinds; else ~0
    uint64_t nItems;
    uint64_t nWorkItem; ///< the lowest of them; ~0 if that isn't known
    uint64_t nLeast;    ///< of the end of a loop: its passes since it was entered last, the fewest and the most
    uint64_t nMost;
};

/// The sizes of a kernel run; 1 for dimensions that it hasn't got.
struct SPlatformSizes
{
    uint32_t nDimensions;
    uint64_t global[3];
    uint64_t local[3]; ///< as the runtime chose it where the launch didn't say
    uint64_t offset[3];
};

/// What a kernel run did at one instruction. A wave is 64 consecutive work-items of a work-group, or what is left of
/// it.
struct SPlatformProfile
{
    uint64_t nItems;   ///< work-items that came to it, over all passes of loops and all calls
    uint64_t nWaves;   ///< waves of which any work-item came
    uint64_t nLanes;   ///< work-items of those waves, whether they came or not
    uint64_t nGoOn;    ///< of nItems, those that go on after it, into an if or on in a loop; else what left or skipped
    uint64_t nBranch;  ///< not 0: it sends some one way and others another, by a condition
    uint64_t nEntries; ///< of what opens a loop: work-items that came from before it; nItems counts passes
    uint64_t nLeast;   ///< passes that a work-item began, the fewest and the most
    uint64_t nMost;
    uint64_t nLoaded[3]; ///< bytes by EPlatformMemory, global, local and private; an atomic loads and stores
    uint64_t nStored[3];
    uint64_t nAccesses; ///< waves that accessed global memory
    uint64_t nLines;    ///< aligned pieces of 64 bytes that each of these touched, summed
};

/// Bytes whose accesses are reported one by one.
struct SPlatformWatch
{
    uint32_t nMemory;   ///< an EPlatformMemory: global, local or private
    uint32_t nArgument; ///< of global memory: whose buffer; of local memory the block's number, or ~0 for any
    uint64_t nAddress;  ///< of global memory the offset in the buffer; else as the kernel's instructions have it
    uint64_t nBytes;
};

enum EPlatformAccess
{
    PLATFORM_ACCESS_LOAD = 0,
    PLATFORM_ACCESS_STORE,
    PLATFORM_ACCESS_ATOMIC
};

/// An access of a work-item that touches watched bytes.
struct SPlatformAccess
{
    uint32_t nInstruction;
    uint32_t nKind; ///< an EPlatformAccess
    uint64_t nWorkItem;
    uint64_t nPass;    ///< how often the work-item has executed the instruction before
    int64_t nOffset;   ///< from the first watched byte to the first one accessed
    uint32_t nBytes;   ///< accessed
    uint32_t words[4]; ///< loaded or stored, an element each; of an atomic its operand
    uint8_t before[8]; ///< of global memory: the first watched bytes before the instruction
    uint8_t after[8];  ///< and after it, when all work-items that execute it together have
};

/// What kernel runs are checked for, as a set.
enum EPlatformCheck
{
    PLATFORM_CHECK_MEMORY = 1,  ///< accesses outside memory, misaligned atomics, writes to what is read only
    PLATFORM_CHECK_RACE = 2,    ///< work-items that meet at the same bytes
    PLATFORM_CHECK_BARRIER = 4, ///< barriers that part of a work-group didn't reach, and runs that don't end
    PLATFORM_CHECK_ALIGNMENT =
        8, ///< other accesses that are misaligned: a compiler makes such ones of packed structures
    /// Values that come from bytes nobody wrote, where a branch, an address or an output depends on them. Buffers that
    /// are made without contents while it is set count as such bytes.
    PLATFORM_CHECK_INIT = 16,
    PLATFORM_CHECK_NAN = 32 ///< what makes NaN or infinity of other numbers, and integers that have no right result
};

enum EPlatformFinding
{
    PLATFORM_FINDING_OUTSIDE = 0,
    PLATFORM_FINDING_READ_ONLY,
    PLATFORM_FINDING_MISALIGNED,
    PLATFORM_FINDING_RACE,
    PLATFORM_FINDING_BARRIER,
    PLATFORM_FINDING_HANG, ///< stopped at the limit of instructions
    PLATFORM_FINDING_INIT,
    PLATFORM_FINDING_NAN
};

/// What is wrong at the place of a finding of PLATFORM_CHECK_INIT or PLATFORM_CHECK_NAN.
enum EPlatformFault
{
    PLATFORM_FAULT_BRANCH = 0, ///< depends on bytes that nobody wrote; so do the next four
    PLATFORM_FAULT_ADDRESS,
    PLATFORM_FAULT_OUTPUT,
    PLATFORM_FAULT_ATOMIC, ///< works on them
    PLATFORM_FAULT_NAN,    ///< is made of numbers
    PLATFORM_FAULT_INFINITY,
    PLATFORM_FAULT_DIVISION, ///< of integers by 0
    PLATFORM_FAULT_SHIFT,    ///< by the width or more
    PLATFORM_FAULT_RANGE,    ///< a conversion of a number that the integer can't hold
    PLATFORM_FAULT_CARRIED   ///< NaN or infinity that was in a buffer is passed on (FollowNumbers)
};

/// Whose bytes nobody wrote.
enum EPlatformOrigin
{
    PLATFORM_ORIGIN_REGISTER = 1,
    PLATFORM_ORIGIN_ARRAY,
    PLATFORM_ORIGIN_PRIVATE,
    PLATFORM_ORIGIN_LOCAL,
    PLATFORM_ORIGIN_BUFFER
};

/// What a check has found at one place, as it was for the lowest work-item.
struct SPlatformFinding
{
    uint32_t nKind; ///< an EPlatformFinding
    uint32_t nInstruction;
    /// Of a race: the other access's instruction, which may be the same. Of PLATFORM_FINDING_INIT: the one that read
    /// the bytes. Of a barrier: the one that all others have come to, if there is one. Else ~0.
    uint32_t nOther;
    uint32_t nMemory; ///< an EPlatformMemory
    int32_t bWrite;
    int32_t bOtherWrite;
    int32_t bUnequal; ///< of a race: there is more than writes of the same values
    int32_t bGroups;  ///< of a race: between groups; else within one, between two of its barriers
    int32_t bValues;  ///< of a race: whether values holds something
    uint32_t nBytes;
    uint64_t nCount;         ///< how often
    uint64_t nWorkItem;      ///< of a barrier: the first of its group that didn't reach it
    uint64_t nOtherItem;     ///< of a race
    uint64_t nAddress;       ///< as of a fault's record
    uint32_t values[2];      ///< that both write
    uint32_t nItems;         ///< of items
    uint64_t items[8];       ///< the lowest work-items of all, in order
    uint32_t nFault;         ///< an EPlatformFault
    uint32_t nOrigin;        ///< an EPlatformOrigin, of PLATFORM_FINDING_INIT
    uint64_t nOriginAddress; ///< of a buffer whose bytes they are, or that PLATFORM_FAULT_CARRIED was in
    uint64_t nOriginBytes;   ///< its size
    uint32_t nChain;         ///< of chain
    uint32_t chain[8];       ///< of PLATFORM_FINDING_NAN: the instructions that pass it on, in order
    uint32_t nOutputs;       ///< of outputs
    uint64_t outputs[4];     ///< addresses that it reaches, one of each instruction that stores it
};

/// What the checks of a kernel run have left out.
struct SPlatformCheckLimits
{
    uint32_t nSkipped; ///< of EPlatformCheck: race, for a kernel of 65,535 accesses or more
    int32_t bMore;     ///< something was found at more places than are kept
};

struct SPlatformControl
{
    uint32_t nSize; ///< sizeof(SPlatformControl)
    /// All settings back to what they are at load. Counters of objects alive stay true.
    void (*Reset)(void);
    /// N of "OpenCL 1.2 (N.0)"; 1800 at load.
    void (*SetBuildNumber)(uint32_t nBuild);
    /// Switches "cl_ovk_event_callback", "cl_ovk_object_metadata" or "cl_ext_object_metadata" on or
    /// off, both in the extension string and as function addresses. At load the first two are on.
    void (*SetExtensionEnabled)(const char* pszName, int32_t bEnabled);
    /// A build whose options hold this text fails with CL_INVALID_BUILD_OPTIONS; null clears.
    void (*SetRefusedBuildOption)(const char* pszText);
    /// The nCall-th call (from 1, counted from now) of the named entry point gives nCode and does
    /// nothing else; with bForever so does every later one. Null as the name means any entry point.
    void (*FailCall)(const char* pszEntryPoint, uint64_t nCall, int32_t nCode, int32_t bForever);
    void (*ClearFailures)(void);
    /// Entry point calls since the last ClearFailures or FailCall, for finding the last nCall.
    uint64_t (*GetCallCount)(void);
    uint64_t (*GetCounter)(enum EPlatformCounter eCounter);
    /// Sets the running counters (runs, builds, bytes) to 0.
    void (*ClearCounters)(void);
    /// Records every kernel run from now on; null ends it.
    void (*SetTrace)(PlatformTraceCallback pCallback, void* pUser);
    /// Instructions that a work-group may execute; 0 means no limit.
    void (*SetInstructionLimit)(uint64_t nInstructions);
    void (*GetLastFault)(struct SPlatformFault* pFault);
    /// The faults of the last kernel run one by one, up to nRecords of them. \return how many are kept
    uint32_t (*GetFaultRecords)(struct SPlatformFaultRecord* pRecords, uint32_t nRecords);
    /// From now on kernel runs take their work-groups in shuffled orders, with pauses of their threads; 0 ends it.
    void (*SetSchedule)(uint64_t nSeed);
    /// Not 0: kernel runs under way, and those to come, end at once with CL_OUT_OF_RESOURCES; their memory holds
    /// whatever they have written. 0 ends it. A block of work-items checks it once a pass of a loop.
    void (*BreakRuns)(int32_t bBreak);
    /// How the last kernel run ended.
    void (*GetLastEnd)(struct SPlatformEnd* pEnd);
    /// The sizes of the last kernel run; before the first, those of one work-item.
    void (*GetLastSizes)(struct SPlatformSizes* pSizes);
    /// The buffers of the last kernel run, up to nBuffers of them. \return how many there were
    uint32_t (*GetLastBuffers)(struct SPlatformBuffer* pBuffers, uint32_t nBuffers);
    /// Where in its source an instruction of the last kernel run's program stands, "kernel.cl:14", as a text of at most
    /// nBytes with its zero; "" if that isn't known. \return the bytes that the whole text takes
    uint32_t (*GetSourcePlace)(uint32_t nInstruction, char* pszPlace, uint32_t nBytes);
    /// Not 0: kernel runs from now on count how many work-items come to each of their instructions. Off at load.
    void (*CountVisits)(int32_t bCount);
    /// The counts of the last kernel run that was counted and came to its end, by instruction, over all passes of
    /// loops and all calls: the sum of what a trace has as active. Up to nCounts of them; those that aren't there are
    /// 0. \return how many there are; 0 if none was counted. A run that is traced, or whose kernel is too large to be
    ///         traced, isn't counted
    uint32_t (*GetVisits)(uint64_t* pCounts, uint32_t nCounts);
    /// Not 0: kernel runs from now on keep a profile; they aren't counted for GetVisits then. Off at load.
    void (*KeepProfile)(int32_t bKeep);
    /// The profile of the last kernel run that kept one and came to its end, by instruction; up to nRows of it.
    /// \return how many rows there are; 0 if none was kept. A run that is traced keeps none
    uint32_t (*GetProfile)(struct SPlatformProfile* pRows, uint32_t nRows);
    /// From now on kernel runs report accesses to some bytes; null ends it. Such a run has one thread, and its
    /// work-groups run one after the other.
    void (*WatchAccesses)(const struct SPlatformWatch* pWatch);
    /// The accesses of the last run that reported any and came to its end, in their order; up to nAccesses of them.
    /// \return how many are kept, 65,536 at most
    uint32_t (*GetAccesses)(struct SPlatformAccess* pAccesses, uint32_t nAccesses);
    /// From now on kernel runs are checked, for a set of EPlatformCheck; 0 ends it. Results are the same as without. A
    /// run that is traced, counted, watched or keeps a profile isn't checked.
    void (*SetChecks)(uint32_t nChecks);
    /// What has been found in the last kernel run, ordered by instruction; up to nFindings of it. It is the same
    /// whatever the order of groups. \return how many there are, 4,096 at most
    uint32_t (*GetFindings)(struct SPlatformFinding* pFindings, uint32_t nFindings);
    /// Where the work-items of the last kernel run were, if it was stopped under way, by BreakRuns or at the limit of
    /// instructions; up to nPlaces places. Together they have all work-items. \return how many there are
    uint32_t (*GetPlaces)(struct SPlatformPlace* pPlaces, uint32_t nPlaces);
    /// Of the last kernel run.
    void (*GetCheckLimits)(struct SPlatformCheckLimits* pLimits);
    /// From now on PLATFORM_CHECK_NAN also follows NaN and infinity that kernel runs load from the buffers of these
    /// arguments. Where they are passed on, the instruction that has loaded them has a finding with
    /// PLATFORM_FAULT_CARRIED. No arguments end it.
    void (*FollowNumbers)(const uint32_t* pArguments, uint32_t nArguments);
};

/// The function that gives the table: its name, and its type.
#define KESTREL_PLATFORM_CONTROL "kestrelPlatformControl"
typedef const struct SPlatformControl* (*KestrelPlatformControlFunction)(void);

#endif

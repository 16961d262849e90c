#ifndef KESTREL_INCLUDE_OVKKESTREL_H
#define KESTREL_INCLUDE_OVKKESTREL_H

/*
 * Kestrel: single-stepping of OpenCL kernels in software.
 *
 * This is the library's whole interface. It compiles as C and as C++.
 *
 * A session, from start to end
 * ----------------------------
 *   1. Make contexts, queues and kernels, and set kernel arguments, through the ovkclIntercept
 *      functions. Each takes and gives what the OpenCL function of the same stem does. Build the
 *      program with debug information ("-g").
 *   2. Call ovkclDebugEnqueueNDRangeKernel in place of clEnqueueNDRangeKernel, with a callback.
 *   3. The callback gets events and answers with commands:
 *
 *        event      meaning                                   what the answer does
 *        STARTED    the kernel is decoded, no stop yet        the first move
 *        HALTED     stopped at a program counter              the next move
 *        FINISHED   the run is over                           ignored
 *        ERROR      debugging could not begin                 ignored
 *
 *      The first event is STARTED or ERROR, the last FINISHED or ERROR, and each HALTED is one stop.
 *      A step that reaches the kernel's end gives FINISHED and no HALTED.
 *   4. After FINISHED the kernel's outputs are in the client's buffers and the event of the
 *      enqueue is complete, as after a plain launch.
 *
 * What a stop promises
 * --------------------
 * All work-items share one position, and the instructions have an order: that of the text, with the passes of a loop
 * one after the other, a part of an if after the part before it, and a called function at its call. At a stop every
 * work-item has executed what comes before the position, and nothing else. The mask tells which work-items took part in
 * the last instruction; registers, private, local and global memory are those of that moment, for every work-item.
 *   - What isn't known has a code in place of a value: a register that isn't tracked or hasn't been read, the result of
 *     a macro inside it.
 *   - Every stop is computed by runs of the kernel from its start. Where results depend on the order in which
 *     work-groups run, on a device that runs them in no fixed order, two runs may differ, and a stop shows what one of
 *     them did. At the end of the session the outputs are compared with those of a run of the client's kernel as it is,
 *     where that costs no more than reading them. The session's own runs are compared in how many work-items come to
 *     each place. If anything differs, ovkclDebugUtilGetLastError says so at FINISHED.
 *   - The outputs are those of that last run, whatever the stops have shown.
 *
 * Two paths
 * ---------
 * Where the platform has a command intercept and object metadata, the enqueue returns at once; the
 * session and the callback run on a thread of the OpenCL runtime when the launch reaches the head of
 * its queue. Otherwise the enqueue call itself is the session: it blocks, and the callback runs on the
 * calling thread, with the client's event complete before the first call of it.
 *
 * What ends how
 * -------------
 *   CONTINUE without breakpoints   the debug run is dropped and the client's kernel runs, unpatched
 *   any unknown answer             the same
 *   ERROR, first path              the client's kernel runs as if it had been enqueued plainly
 *   ERROR, second path             the enqueue gives OVKCLDEBUG_ENQUEUE_FAILED, the kernel doesn't run
 * The client's buffers stay as they were at the launch until the session ends.
 *
 * Who owns what, and for how long
 * -------------------------------
 *   - The debug context is the library's. It is valid from the first call of the callback to the
 *     return of the callback from FINISHED or ERROR; later it gives
 *     OVKCLDEBUG_ERROR_INVALID_CONTEXT. Contexts may be reused by later sessions.
 *   - Pointers from ovkclDebugGetExecutionMask and ovkclDebugGetRegisterValues are the library's and
 *     live until the callback returns. Everything else is copied into memory of the client's.
 *   - The library retains no memory object: kernel, arguments and their memory objects have to stay
 *     alive, and the arguments unchanged, from the enqueue to the last event.
 *   - An event that the enqueue hands out is the client's, to be released with clReleaseEvent. On the
 *     second path it is handed out even if the call fails later.
 *
 * Which calls are allowed at which event
 * --------------------------------------
 *   STARTED    breakpoints, tracking, kernel binary, last error
 *   HALTED     everything but tracking
 *   FINISHED   kernel binary, last error
 *   ERROR      kernel binary, last error
 * Each function's comment names its events; at another one it gives OVKCLDEBUG_ERROR_INVALID_STATE.
 *
 * Checks come in a fixed order: context, then event, then pointers, then the rest. A call that fails
 * has changed nothing, unless its comment says otherwise.
 *
 * Threads
 * -------
 * Every function may be called from any thread. Sessions never step at the same time, and a query from
 * another thread than the callback's waits until the step in progress has ended. A callback must not
 * wait for a queue or an event that depends on the launch being debugged. From inside an OpenCL
 * notification that the library's own work has caused (a context's pfn_notify), queries don't wait but
 * give OVKCLDEBUG_ERROR_INVALID_STATE.
 *
 * Work-items
 * ----------
 * Arrays over all work-items of the dispatch are in linear order, x fastest: the work-item (x, y, z),
 * counted without the global offset, has the index (z * size_y + y) * size_x + x.
 *
 * Log
 * ---
 * The environment variable OVK_CL_DEBUG_LOG_LEVEL, default 3, steers the log files. They lie in the
 * folder that OVK_CL_DEBUG_LOG_FOLDER names, else in the working directory. From level 6 on
 * "OVKKestrelUsage.log" holds each call with its arguments and result, and the reason of each refusal;
 * "OVKKestrel.log" holds the messages of the sessions.
 */

/* The interface is that of OpenCL 1.2. For the names of another version, define this first. */
#ifndef CL_TARGET_OPENCL_VERSION
#define CL_TARGET_OPENCL_VERSION 120
#endif

#include <CL/cl_icd.h>

#if defined(__GNUC__)
#define OVKCL_API __attribute__((visibility("default")))
#else
#define OVKCL_API
#endif

#ifdef __cplusplus
extern "C"
{
#endif

    /* ------------------------------------------------------------------------------------------ types */

    /** The dispatch table of an OpenCL runtime, as the Khronos headers define it. */
    typedef cl_icd_dispatch cl_icd_dispatch_table;

#ifndef CL_VERSION_2_0
    typedef cl_ulong cl_queue_properties;
#endif

    /** A session's handle, handed to the callback. */
    typedef void* ovkclDebugContext;

    /** A program counter: the number of a line of the kernel's IL text, as the disassembler prints it. */
    typedef cl_uint ovkclDebugPC;

    /**
     * A register, encoded:
     *   0 to 0xFFFF             temp register: "r" and the number
     *   0x10000 to 0x1FFFF      constant buffer: bits 12 to 15 its number, bits 0 to 11 the element, "cb1[12]"
     *   bit 63 set              bits 0 to 7 the register type, 8 to 23 the number, 24 to 55 the index, 56 to 62
     *                           zero: "vTidInGrp0", "x1[7]"
     *   all ones                no register
     * Use the two conversions below; no other value is a register.
     */
    typedef cl_ulong ovkclDebugRegisterLocator;

    /** The number of a global memory resource (UAV), or one of the extensions below. */
    typedef cl_uint ovkclDebugMemoryResource;

    /** A byte address, in a resource or in a work-item's private memory. */
    typedef cl_ulong ovkclDebugMemoryAddress;

/** Extension: the resource that is the local memory block which the kernel declares under a number (dcl_lds_id). */
#define OVKCLDEBUG_EXT_LOCAL_BLOCK(number) ((ovkclDebugMemoryResource)(0x80000000u | (cl_uint)(number)))
/** Extension: the resource that is the local memory of an argument, which the host gave its size. */
#define OVKCLDEBUG_EXT_LOCAL_ARGUMENT(index) ((ovkclDebugMemoryResource)(0xC0000000u | (cl_uint)(index)))
/** The address of a byte of either, counted from where the block or the argument begins, in a work-group: groups count
 *  in linear order, x fastest, as work-items do. */
#define OVKCLDEBUG_EXT_LOCAL_ADDRESS(group, offset)                                                                    \
    (((ovkclDebugMemoryAddress)(cl_uint)(group) << 32) | (ovkclDebugMemoryAddress)(cl_uint)(offset))

    /** A range of valid global memory. */
    typedef struct ovkclDebugMemoryRegion
    {
        ovkclDebugMemoryResource resource;
        ovkclDebugMemoryAddress first;
        ovkclDebugMemoryAddress last; /**< the last valid byte */
    } ovkclDebugMemoryRegion;

/** Extension: in place of a list of registers to track; see ovkclDebugSetTrackingRegisters. */
#define OVKCLDEBUG_EXT_VALUES_ON_DEMAND (~(ovkclDebugRegisterLocator)1)

    /** What the client is told. */
    typedef enum ovkclDebugEvent
    {
        OVKCLDEBUG_EVENT_UNINITIALIZED = 0, /**< never sent */
        OVKCLDEBUG_EVENT_STARTED = 1,
        OVKCLDEBUG_EVENT_HALTED = 2,
        OVKCLDEBUG_EVENT_FINISHED = 3,
        OVKCLDEBUG_EVENT_ERROR = 4,
        OVKCLDEBUG_EVENT_MAX = 5
    } ovkclDebugEvent;

    /** What the client answers. */
    typedef enum ovkclDebugCommand
    {
        OVKCLDEBUG_COMMAND_UNINITIALIZED = 0, /**< no answer; treated as an unknown one */
        OVKCLDEBUG_COMMAND_CONTINUE = 1,      /**< run to the next breakpoint, or to the end */
        OVKCLDEBUG_COMMAND_STEP = 2,          /**< run one step */
        OVKCLDEBUG_COMMAND_MAX = 3,

        /**
         * Extension: go back one stop. All registers read as they did there. At the first stop, and at
         * STARTED, the session halts at the place where it is.
         */
        OVKCLDEBUG_COMMAND_EXT_STEP_BACK = 0x100,
        /**
         * Extension: go back to the newest earlier stop that has a breakpoint, or to the first stop. At the
         * first stop, and at STARTED, as above.
         */
        OVKCLDEBUG_COMMAND_EXT_RUN_BACK = 0x101
    } ovkclDebugCommand;

    /**
     * The client's callback. See above for what may be called from it.
     * \param debugContext  the session
     * \param debugEvent    what has happened
     * \param user_data     what was passed to the enqueue
     * \return              the next command; looked at for STARTED and HALTED only
     */
    typedef ovkclDebugCommand(CL_CALLBACK* ovkclDebugCallback)(ovkclDebugContext debugContext,
                                                               ovkclDebugEvent debugEvent, void* user_data);

    /** The result of the query functions: one of the codes below. */
    typedef cl_int ovkclDebugError;

/** The call did what it was asked for. */
#define OVKCLDEBUG_SUCCESS 0
/** An operation that should have worked failed inside the debugger. */
#define OVKCLDEBUG_ERROR_INTERNAL 1
/** The context isn't that of an open session. */
#define OVKCLDEBUG_ERROR_INVALID_CONTEXT 2
/** The session's last event doesn't allow this call, or the value isn't there at this stop. */
#define OVKCLDEBUG_ERROR_INVALID_STATE 3
/** The debugger refused the operation. */
#define OVKCLDEBUG_ERROR_OPERATION_FAILED 4
/** The register or memory that was named doesn't exist or has no value. */
#define OVKCLDEBUG_ERROR_INVALID_LOCATION 5
/** The caller's array or buffer is too small. */
#define OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL 6
/** Host memory was exhausted. */
#define OVKCLDEBUG_ERROR_OUT_OF_MEMORY 7
/** A required pointer is null. */
#define OVKCLDEBUG_ERROR_INVALID_ARGUMENT 9

/* What the two enqueue functions give besides OpenCL's own codes. */

/** Any failure that has no code of its own; the log says which. */
#define OVKCLDEBUG_ENQUEUE_FAILED (-5000)
/** The queue's platform isn't the vendor's ("Oberon Vector Kinetics, Inc."). */
#define OVKCLDEBUG_ENQUEUE_WRONG_PLATFORM (-5001)
/** The queue's device isn't a GPU. */
#define OVKCLDEBUG_ENQUEUE_WRONG_DEVICE (-5002)
/** The kernel was built without debug information. */
#define OVKCLDEBUG_ENQUEUE_NOT_DEBUGGABLE (-5003)
/** The queue wasn't made by ovkclInterceptCreateCommandQueue or its twin, or the platform has no
 *  command intercept. */
#define OVKCLDEBUG_ENQUEUE_NO_INTERCEPT (-5004)

/**
 * Extension: the code that functions of the client's own dispatch table (ovkclDebugSetDispatchTable) give in place of
 * one of OpenCL's to break a kernel run off: clEnqueueNDRangeKernel doesn't make the run, or clFinish or
 * clWaitForEvents returns from one that was broken off. The movement ends, and the session halts where the movement
 * began, also before the first instruction; a way back halts at the earliest stop that it had come to. The client's
 * buffers hold what they held before. Registers that the movement had already read are read again when they are asked
 * for.
 */
#define OVKCLDEBUG_EXT_RUN_BROKEN_OFF (-5100)

    /* ------------------------------------------------------------------------- the OpenCL runtime in use */

    /**
     * Copies out the table of OpenCL functions that the library calls. Slots that the library has no use
     * for are left alone.
     * \return CL_INVALID_VALUE for a null pointer
     */
    OVKCL_API cl_int ovkclDebugGetDispatchTable(cl_icd_dispatch_table* pCLDispatchTable);

    /**
     * Makes the library call the client's functions from now on. Call it before any other use, or at least
     * with no session open. The table may be incomplete: a function that isn't there is never called, and
     * what needs it fails with an error.
     * \return CL_INVALID_VALUE for a null pointer, with nothing changed
     */
    OVKCL_API cl_int ovkclDebugSetDispatchTable(const cl_icd_dispatch_table* pCLDispatchTable);

    /* ------------------------------------------------------------------- contexts, queues and kernels */

    /**
     * clCreateContext, with the command intercept if the platform has one.
     * \return null, and CL_INVALID_DEVICE, also if devices is null or holds a device of no platform
     */
    OVKCL_API cl_context ovkclInterceptCreateContext(
        const cl_context_properties* properties, cl_uint num_devices, const cl_device_id* devices,
        void(CL_CALLBACK* pfn_notify)(const char*, const void*, size_t, void*), void* user_data, cl_int* errcode_ret);

    /** clCreateContextFromType, with the command intercept if the platform has one. */
    OVKCL_API cl_context ovkclInterceptCreateContextFromType(
        const cl_context_properties* properties, cl_device_type device_type,
        void(CL_CALLBACK* pfn_notify)(const char*, const void*, size_t, void*), void* user_data, cl_int* errcode_ret);

    /** clCreateCommandQueue, with the command intercept (bit 63 of the properties) if the platform has one. */
    OVKCL_API cl_command_queue ovkclInterceptCreateCommandQueue(cl_context context, cl_device_id device,
                                                                cl_command_queue_properties properties,
                                                                cl_int* errcode_ret);

    /** clCreateCommandQueueWithProperties, likewise; CL_INVALID_OPERATION on a runtime that lacks it. */
    OVKCL_API cl_command_queue ovkclInterceptCreateCommandQueueWithProperties(cl_context context, cl_device_id device,
                                                                              const cl_queue_properties* properties,
                                                                              cl_int* errcode_ret);

    /** clCreateKernel. Only kernels made here can be debugged, since only their arguments are recorded. */
    OVKCL_API cl_kernel ovkclInterceptCreateKernel(cl_program program, const char* kernel_name, cl_int* errcode_ret);

    /** clCreateKernelsInProgram, likewise. */
    OVKCL_API cl_int ovkclInterceptCreateKernelsInProgram(cl_program program, cl_uint num_kernels, cl_kernel* kernels,
                                                          cl_uint* num_kernels_ret);

    /** clRetainKernel. */
    OVKCL_API cl_int ovkclInterceptRetainKernel(cl_kernel kernel);

    /** clReleaseKernel. */
    OVKCL_API cl_int ovkclInterceptReleaseKernel(cl_kernel kernel);

    /** clSetKernelArg. Every argument of a kernel to be debugged has to be set here. */
    OVKCL_API cl_int ovkclInterceptSetKernelArg(cl_kernel kernel, cl_uint arg_index, size_t arg_size,
                                                const void* arg_value);

    /* ------------------------------------------------------------------------------------------ launch */

    /**
     * clEnqueueNDRangeKernel under the debugger.
     * \param work_dim   1 to 3; anything else gives OVKCLDEBUG_ENQUEUE_FAILED
     * \param event      may be null; see above for who owns it
     * \param callback   called for each event of the session; must not be null
     * \param user_data  handed to the callback
     * \return CL_SUCCESS, a code of the OpenCL runtime, CL_INVALID_VALUE without a callback or a
     *         global_work_size, or one of the OVKCLDEBUG_ENQUEUE codes. With any code but CL_SUCCESS no
     *         session is open. On the second path wait lists with user events give
     *         OVKCLDEBUG_ENQUEUE_FAILED.
     */
    OVKCL_API cl_int ovkclDebugEnqueueNDRangeKernel(cl_command_queue command_queue, cl_kernel kernel, cl_uint work_dim,
                                                    const size_t* global_work_offset, const size_t* global_work_size,
                                                    const size_t* local_work_size, cl_uint num_events_in_wait_list,
                                                    const cl_event* event_wait_list, cl_event* event,
                                                    ovkclDebugCallback callback, void* user_data);

    /** The same for one work-item: one dimension, global and local size 1. */
    OVKCL_API cl_int ovkclDebugEnqueueTask(cl_command_queue command_queue, cl_kernel kernel,
                                           cl_uint num_events_in_wait_list, const cl_event* event_wait_list,
                                           cl_event* event, ovkclDebugCallback callback, void* user_data);

    /* ------------------------------------------------------------------- program counter, breakpoints */

    /** At HALTED: the line that the kernel executes next. */
    OVKCL_API ovkclDebugError ovkclDebugGetProgramCounter(ovkclDebugContext debugContext, ovkclDebugPC* programCounter);

    /**
     * At STARTED and HALTED: sets a breakpoint on a line, or on the first of the lookAhead lines after it that
     * can hold one.
     * A continue passes over a block without a breakpoint as a whole. One on the line that divides or ends a block
     * (else, endif, endloop, endswitch) or begins a later pass of a loop is met as by steps.
     * \param actualPC  receives the line taken; may be null
     * \return OVKCLDEBUG_ERROR_OPERATION_FAILED if none of the lines can hold a breakpoint
     */
    OVKCL_API ovkclDebugError ovkclDebugSetBreakpoint(ovkclDebugContext debugContext, ovkclDebugPC programCounter,
                                                      cl_uint lookAhead, ovkclDebugPC* actualPC);

    /**
     * At STARTED and HALTED.
     * \return OVKCLDEBUG_ERROR_OPERATION_FAILED for a line that can hold none
     */
    OVKCL_API ovkclDebugError ovkclDebugClearBreakpoint(ovkclDebugContext debugContext, ovkclDebugPC programCounter);

    /** At STARTED and HALTED. */
    OVKCL_API ovkclDebugError ovkclDebugClearAllBreakpoints(ovkclDebugContext debugContext);

    /** At STARTED and HALTED. */
    OVKCL_API ovkclDebugError ovkclDebugGetNumBreakpoints(ovkclDebugContext debugContext, size_t* numBreakpoints);

    /**
     * At STARTED and HALTED: the lines with a breakpoint, in ascending order.
     * \param listLength  elements of the list
     * \return OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL, with the list filled, if there are more
     */
    OVKCL_API ovkclDebugError ovkclDebugGetAllBreakpoints(ovkclDebugContext debugContext, ovkclDebugPC* breakpointList,
                                                          size_t listLength);

    /* -------------------------------------------------------------------------------- kernel binary */

    /** At any event: bytes of the kernel binary, an ELF image with the IL text in ".debugil". */
    OVKCL_API ovkclDebugError ovkclDebugGetKernelBinarySize(ovkclDebugContext debugContext, size_t* debugBinarySize);

    /**
     * At any event: copies the kernel binary.
     * \param debugBinarySize  bytes of the buffer
     * \return OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL, with nothing copied, if the binary is larger
     */
    OVKCL_API ovkclDebugError ovkclDebugGetKernelBinary(ovkclDebugContext debugContext, void* debugBinary,
                                                        size_t debugBinarySize);

    /* --------------------------------------------------------------------------- work-items, registers */

    /**
     * At HALTED: which work-items took part in the last executed step.
     * \param executionMask  receives a pointer to one cl_bool a work-item, non-zero for an active one
     * \param numElements    receives their number
     *
     * Extension: with values on demand (see ovkclDebugSetTrackingRegisters) executionMask may be null. Then numElements
     * receives how many work-items are active, and nothing is allocated for each of them.
     * \return OVKCLDEBUG_ERROR_INVALID_STATE if this stop has no mask
     */
    OVKCL_API ovkclDebugError ovkclDebugGetExecutionMask(ovkclDebugContext debugContext, const cl_bool** executionMask,
                                                         size_t* numElements);

    /**
     * At STARTED: keeps only these registers up to date at the stops, which saves kernel runs. Private memory
     * comes with them unless ovkclDebugSetTrackPrivateMemory has switched it off. A null list with a count of 0
     * tracks all registers again, which is how a session starts.
     *
     * Extension: with a list of one OVKCLDEBUG_EXT_VALUES_ON_DEMAND registers are read when a query asks for them, and
     * not before. A stop makes a run for its mask, or none where the mask can't have changed. The first query of a
     * register at a stop makes a run that stores it for all work-items, and others with it as there is room: those that
     * were asked for at the stop before, then those written last. A query gives what the registers hold at the stop,
     * for work-items that aren't active as well. Private memory is read in the same way. All registers that work-items
     * may have written have values; ovkclDebugGetActiveRegisters names them without a run.
     *
     * Extension: the same list with a null context, before an enqueue, is for the next launch of the calling thread.
     * Its first instruction is then executed by the first movement, and until then nothing is allocated for each
     * work-item; a failure there ends the session with FINISHED. At STARTED the client may still choose another way.
     * \return OVKCLDEBUG_ERROR_INVALID_ARGUMENT for a null list with a count,
     *         OVKCLDEBUG_ERROR_INVALID_LOCATION, with nothing changed, if a locator names no register
     */
    OVKCL_API ovkclDebugError ovkclDebugSetTrackingRegisters(ovkclDebugContext debugContext,
                                                             const ovkclDebugRegisterLocator* debugRegisterLocators,
                                                             size_t numDebugRegisterLocators);

    /** At STARTED: whether private memory counts among the tracked registers; CL_TRUE is how a session starts. */
    OVKCL_API ovkclDebugError ovkclDebugSetTrackPrivateMemory(ovkclDebugContext debugContext, cl_bool track);

    /** At HALTED: how many registers have a value. */
    OVKCL_API ovkclDebugError ovkclDebugGetNumberOfActiveRegisters(ovkclDebugContext debugContext,
                                                                   size_t* numActiveRegisters);

    /**
     * At HALTED: the registers that have a value.
     * \param debugRegisterLocators  may be null with a count of 0
     * \param numActiveRegisters     elements of the array
     * \return OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL, with nothing written, if there are more
     */
    OVKCL_API ovkclDebugError ovkclDebugGetActiveRegisters(ovkclDebugContext debugContext,
                                                           ovkclDebugRegisterLocator* debugRegisterLocators,
                                                           size_t numActiveRegisters);

    /**
     * At HALTED: a register's value for all work-items.
     * \param outputBuffer  receives a pointer to one element a work-item: its four 32-bit components x, y, z, w
     * \param outputStride  receives the bytes of an element, 16
     * \param numElements   receives the number of elements
     * \return OVKCLDEBUG_ERROR_INVALID_LOCATION if there is no such register or it has no value yet
     */
    OVKCL_API ovkclDebugError ovkclDebugGetRegisterValues(ovkclDebugContext debugContext,
                                                          ovkclDebugRegisterLocator debugRegisterLocator,
                                                          const void** outputBuffer, size_t* outputStride,
                                                          size_t* numElements);

    /* ----------------------------------------------------------------------------------------- memory */

    /**
     * At HALTED: private memory of every work-item. What the kernel hasn't written yet reads as 0.
     * \param address     the first byte
     * \param count       bytes for each work-item; the range may start and end anywhere
     * \param buffer      receives count bytes for work-item 0, then count bytes for work-item 1, and so on; may be
     *                    null with a count of 0
     * \param outputSize  receives the number of all bytes written; must not be null
     * \return OVKCLDEBUG_ERROR_INVALID_ARGUMENT also for a range that passes the end of the address space,
     *         OVKCLDEBUG_ERROR_INVALID_STATE if private memory isn't tracked
     */
    OVKCL_API ovkclDebugError ovkclDebugGetPrivateMemoryValues(ovkclDebugContext debugContext,
                                                               ovkclDebugMemoryAddress address, size_t count,
                                                               void* buffer, size_t* outputSize);

    /**
     * At HALTED: global memory as it is at this stop.
     * If that takes a run, it is made at the first query of a stop, and serves all others there.
     * \param resource    the UAV through which the kernel reaches it. On devices of the older generation a miss
     *                    with 0, 8 or 11 is tried with 11 and 8 as well. OVKCLDEBUG_EXT_LOCAL_BLOCK and
     *                    OVKCLDEBUG_EXT_LOCAL_ARGUMENT name local memory
     * \param address     as the kernel sees it; of local memory OVKCLDEBUG_EXT_LOCAL_ADDRESS
     * \param count       bytes
     * \param buffer      receives them; null with a count of 0 to ask for the size of the buffer, block or argument
     *                    that holds the address
     * \param outputSize  receives the number of bytes written, which is less than count where the buffer ends
     *                    earlier; may be null
     * \return OVKCLDEBUG_ERROR_INVALID_LOCATION if no argument's buffer holds the address, and for a block, an argument
     *         or a group that isn't there; OVKCLDEBUG_ERROR_OPERATION_FAILED if the run that is needed fails
     */
    OVKCL_API ovkclDebugError ovkclDebugGetGlobalMemoryValues(ovkclDebugContext debugContext,
                                                              ovkclDebugMemoryResource resource,
                                                              ovkclDebugMemoryAddress address, size_t count,
                                                              void* buffer, size_t* outputSize);

    /* ------------------------------------------------------------------------------------- utilities */

    /**
     * Reads a register's name ("r3", "cb1[12]", "x1[7]", "vTidInGrp0"). Needs no session.
     * \param debugRegisterLocator  receives the locator, or all ones for what isn't a name
     * \return OVKCLDEBUG_ERROR_INVALID_ARGUMENT if a pointer is null
     */
    OVKCL_API ovkclDebugError ovkclDebugUtilStringToDebugRegisterLocator(
        const cl_char* registerName, ovkclDebugRegisterLocator* debugRegisterLocator);

    /**
     * Writes a register's name. Needs no session.
     * \param bufferSize          bytes of the buffer
     * \param registerNameBuffer  receives the name with its NUL; may be null with a size of 0
     * \param bufferSizeRet       receives the bytes needed, the NUL included; may be null
     * \return OVKCLDEBUG_ERROR_INVALID_ARGUMENT for a null buffer with a size, OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL with
     *         nothing written. What isn't a register has the empty name.
     */
    OVKCL_API ovkclDebugError ovkclDebugUtilDebugRegisterLocatorToString(ovkclDebugRegisterLocator debugRegisterLocator,
                                                                         size_t bufferSize, cl_char* registerNameBuffer,
                                                                         size_t* bufferSizeRet);

    /**
     * At any event: the reason of the last failure inside the session.
     * \param bufferSize     bytes of the buffer
     * \param buffer         receives the text with its NUL; may be null with a size of 0. Untouched if there is no text
     * \param bufferSizeRet  receives the bytes needed, the NUL included, or 0 if there is no text; may be null
     * \return OVKCLDEBUG_ERROR_INVALID_ARGUMENT for a null context or a null buffer with a size,
     *         OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL with nothing written
     */
    OVKCL_API ovkclDebugError ovkclDebugUtilGetLastError(ovkclDebugContext debugContext, size_t bufferSize,
                                                         char* buffer, size_t* bufferSizeRet);

#ifdef __cplusplus
}
#endif

#endif

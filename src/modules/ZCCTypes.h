#ifndef KESTREL_MODULES_ZCCTYPES_H
#define KESTREL_MODULES_ZCCTYPES_H

#include <stddef.h>

/// The interface of the compiler library: what it exports and what travels across. This header is what
/// both sides are compiled against, the loader of the library and a library of our own; it needs no
/// other header of the project.
///
/// A binary object holds named blocks of bytes, "symbols", by section. The IL of a program stands in
/// section zccINTERNAL, as text under "__debugil_text" and as 32-bit tokens under "__debugil_binary";
/// zccCompile makes one from the other.

extern "C"
{

    typedef struct zccCompiler zccCompiler; ///< the library's own
    typedef struct zccBinary zccBinary;     ///< the library's own

    typedef struct zccCompilerOptions zccCompilerOptions; ///< always passed as null
    typedef struct zccBinaryOptions zccBinaryOptions;     ///< always passed as null

    typedef enum zcc_error
    {
        ZCC_SUCCESS = 0,
        ZCC_ERROR = 1,
        ZCC_INVALID_ARG = 2,
        ZCC_OUT_OF_MEM = 3, ///< also: the size of the binary structure isn't the library's
        ZCC_INVALID_TARGET = 4,
        ZCC_NO_SYMBOL = 5,
        ZCC_UNSUPPORTED = 6,
        ZCC_INVALID_FILE = 7
    } zcc_error;

    typedef enum zccType
    {
        ZCC_TYPE_OVKIL_TEXT = 6,
        ZCC_TYPE_OVKIL_BINARY = 7
    } zccType;

    typedef enum zccSections
    {
        zccLLVMIR = 0,
        zccSOURCE,
        zccILTEXT,
        zccASTEXT,
        zccQRL,
        zccDLL,
        zccSTRTAB,
        zccSYMTAB,
        zccRODATA,
        zccSHSTRTAB,
        zccNOTES,
        zccCOMMENT,
        zccILDEBUG,
        zccDEBUG_INFO,
        zccDEBUG_ABBREV,
        zccDEBUG_LINE,
        zccDEBUG_PUBNAMES,
        zccDEBUG_PUBTYPES,
        zccDEBUG_LOC,
        zccDEBUG_ARANGES,
        zccDEBUG_RANGES,
        zccDEBUG_MACINFO,
        zccDEBUG_STR,
        zccDEBUG_FRAME,
        zccJITBINARY,
        zccCODEGEN,
        zccTEXT,
        zccINTERNAL,
        zccSPIR,
        zccHEADER,
        zccBRIGcode,
        zccBRIGdirs,
        zccBRIGoprs,
        zccBRIGstrs,
        zccHSADEBUG,
        zccLAST
    } zccSections;

    /// What zccQueryInfo can be asked.
    typedef enum zccQueryType
    {
        RT_DEVICE_NAME = 1,
        RT_GPU_FUNC_ID = 4,
        RT_ARGUMENT_ARRAY = 8
    } zccQueryType;

    /// A target, as zccGetTargetInfo fills it in for zccBinaryInit. Passed by value.
    typedef struct zccTargetInfo
    {
        size_t struct_size; ///< sizeof(zccTargetInfo)
        char family[16];    ///< "ovkil", NUL-terminated
        char device[64];    ///< the device's name, NUL-terminated; empty if the target is unknown
        unsigned int device_id;
    } zccTargetInfo;

    /// Receives a build message; may be null.
    typedef void (*zccLogFunction)(const char* szMessage, size_t nSize);

/// The exports: X(name without "zcc", result, parameters), in the order of ZCCModule's members.
///
///   GetTargetInfo       a family and a device that the library doesn't know give ZCC_INVALID_TARGET
///   CompilerInit        both pointers may be null; null on failure
///   ReadFromMem         copies; null on failure. BinaryFini ends what it, ReadFromFile and BinaryInit gave
///   BinaryInit          the first parameter is the size that the caller takes a binary structure to have; a size that
///                       isn't the library's gives ZCC_OUT_OF_MEM
///   WriteToMem          *ppMem is from malloc and is the caller's to free
///   Insert...           copies the bytes, replacing what was there under the name
///   Extract...          gives the library's own bytes, valid until the symbol changes or the binary ends
///   QueryInfo           with null data gives the size alone
///   Compile, Disassemble ... the log function may be null
///
/// Every zcc_error pointer may be null.
#define ZCC_ENTRY_POINTS(X)                                                                                            \
    X(GetTargetInfo, zccTargetInfo, (const char* szFamily, const char* szDevice, zcc_error* pError))                   \
    X(CompilerInit, zccCompiler*, (const zccCompilerOptions* pOptions, zcc_error* pError))                             \
    X(CompilerFini, zcc_error, (zccCompiler * pCompiler))                                                              \
    X(ReadFromMem, zccBinary*, (const void* pMem, size_t nSize, zcc_error* pError))                                    \
    X(ReadFromFile, zccBinary*, (const char* szFile, zcc_error* pError))                                               \
    X(BinaryInit, zccBinary*,                                                                                          \
      (size_t nBinarySize, const zccTargetInfo* pTarget, const zccBinaryOptions* pOptions, zcc_error* pError))         \
    X(BinaryFini, zcc_error, (zccBinary * pBinary))                                                                    \
    X(WriteToMem, zcc_error, (zccBinary * pBinary, void** ppMem, size_t* pSize))                                       \
    X(WriteToFile, zcc_error, (zccBinary * pBinary, const char* szFile))                                               \
    X(InsertSection, zcc_error,                                                                                        \
      (zccCompiler * pCompiler, zccBinary * pBinary, const void* pData, size_t nSize, zccSections id))                 \
    X(ExtractSection, const void*,                                                                                     \
      (zccCompiler * pCompiler, zccBinary * pBinary, size_t * pSize, zccSections id, zcc_error * pError))              \
    X(RemoveSection, zcc_error, (zccCompiler * pCompiler, zccBinary * pBinary, zccSections id))                        \
    X(QueryInfo, zcc_error,                                                                                            \
      (zccCompiler * pCompiler, zccBinary * pBinary, zccQueryType query, const char* szKernel, void* pData,            \
       size_t* pSize))                                                                                                 \
    X(DbgAddArgument, zcc_error,                                                                                       \
      (zccCompiler * pCompiler, zccBinary * pBinary, const char* szKernel, const char* szName, bool bByVal))           \
    X(ExtractSymbol, const void*,                                                                                      \
      (zccCompiler * pCompiler, zccBinary * pBinary, size_t * pSize, zccSections id, const char* szSymbol,             \
       zcc_error* pError))                                                                                             \
    X(InsertSymbol, zcc_error,                                                                                         \
      (zccCompiler * pCompiler, zccBinary * pBinary, const void* pData, size_t nSize, zccSections id,                  \
       const char* szSymbol))                                                                                          \
    X(RemoveSymbol, zcc_error, (zccCompiler * pCompiler, zccBinary * pBinary, zccSections id, const char* szSymbol))   \
    X(Compile, zcc_error,                                                                                              \
      (zccCompiler * pCompiler, zccBinary * pBinary, const char* szOptions, zccType eFrom, zccType eTo,                \
       zccLogFunction pfnLog))                                                                                         \
    X(Disassemble, zcc_error,                                                                                          \
      (zccCompiler * pCompiler, zccBinary * pBinary, const char* szKernel, zccLogFunction pfnLog))

/// The exports as functions (for a library that defines them) and as pointer types (PFNzccCompile, ...).
#define ZCC_DECLARE_ENTRY(name, result, parameters)                                                                    \
    __attribute__((visibility("default"))) result zcc##name parameters;                                                \
    typedef result(*PFNzcc##name) parameters;
    ZCC_ENTRY_POINTS(ZCC_DECLARE_ENTRY)
#undef ZCC_DECLARE_ENTRY
}

static_assert(zccILDEBUG == 12 && zccTEXT == 26 && zccINTERNAL == 27 && zccLAST == 35, "the section ids are fixed");

#endif

#ifndef KESTREL_MODULES_QRLTYPES_H
#define KESTREL_MODULES_QRLTYPES_H

/// The interface of the low-level compute runtime, as far as this project calls it: starting it, asking
/// for its private compiler extension, and the extension's conversion of IL. This header is what both
/// sides are compiled against; it needs no other header of the project.
///
/// Every other export is known by its name alone: it is looked up, because the runtime counts as loaded
/// only with all of its names, and never called, so that it has the type QRLunusedEntry.

extern "C"
{

    typedef unsigned int QRLuint;

    typedef enum QRLresult
    {
        QRL_RESULT_OK = 0,
        QRL_RESULT_ERROR = 1,
        QRL_RESULT_INVALID_PARAMETER = 2,
        QRL_RESULT_NOT_SUPPORTED = 3,
        QRL_RESULT_ALREADY = 4, ///< from qrlInit: it has been called before, which is no failure
        QRL_RESULT_NOT_INITIALIZED = 5
    } QRLresult;

    typedef enum QRLlanguage
    {
        QRL_LANGUAGE_IL = 1
    } QRLlanguage;

    /// Extension ids, for qrlExtSupported and qrlExtGetProc.
    enum
    {
        QRL_PRIVATE_EXT_COMPILER = 0x8013
    };

    typedef void (*QRLextproc)(void);

    typedef QRLresult (*PFNqrlInit)(void);
    typedef QRLresult (*PFNqrlShutdown)(void);
    typedef QRLresult (*PFNqrlExtSupported)(QRLuint nExtension);
    typedef QRLresult (*PFNqrlExtGetProc)(QRLextproc* pProc, QRLuint nExtension, const char* szName);
    typedef QRLresult (*QRLunusedEntry)(void);

    /// "qrlConvertTextToBinary" of the compiler extension: IL text, NUL-terminated, to 32-bit tokens.
    /// \param ppBinary  receives the tokens, to be freed by qrlFreeTextBinary
    /// \param pnSize    receives their size in bytes
    typedef QRLresult (*PFNqrlConvertTextToBinary)(void** ppBinary, QRLuint* pnSize, QRLlanguage eLanguage,
                                                   const char* szText);

    /// "qrlConvertBinaryToText": nSize bytes of tokens to IL text.
    /// \param ppText  receives the text, NUL-terminated, to be freed by qrlFreeTextBinary
    typedef QRLresult (*PFNqrlConvertBinaryToText)(const void* pBinary, QRLuint nSize, QRLlanguage eLanguage,
                                                   char** ppText);

    /// "qrlFreeTextBinary": frees what either conversion gave.
    typedef QRLresult (*PFNqrlFreeTextBinary)(void* pTextOrBinary);
}

/// The exports of "libovkqrlrt.so": X(name without "qrl", pointer type).
#define QRL_RT_ENTRY_POINTS(X)                                                                                         \
    X(CtxCreate, QRLunusedEntry)                                                                                       \
    X(CtxDestroy, QRLunusedEntry)                                                                                      \
    X(CtxFlush, QRLunusedEntry)                                                                                        \
    X(CtxGetMem, QRLunusedEntry)                                                                                       \
    X(CtxIsEventDone, QRLunusedEntry)                                                                                  \
    X(CtxReleaseMem, QRLunusedEntry)                                                                                   \
    X(CtxRunProgram, QRLunusedEntry)                                                                                   \
    X(CtxRunProgramGrid, QRLunusedEntry)                                                                               \
    X(CtxRunProgramGridArray, QRLunusedEntry)                                                                          \
    X(CtxSetMem, QRLunusedEntry)                                                                                       \
    X(DeviceClose, QRLunusedEntry)                                                                                     \
    X(DeviceGetAttribs, QRLunusedEntry)                                                                                \
    X(DeviceGetCount, QRLunusedEntry)                                                                                  \
    X(DeviceGetInfo, QRLunusedEntry)                                                                                   \
    X(DeviceGetStatus, QRLunusedEntry)                                                                                 \
    X(DeviceOpen, QRLunusedEntry)                                                                                      \
    X(ExtGetProc, PFNqrlExtGetProc)                                                                                    \
    X(ExtGetVersion, QRLunusedEntry)                                                                                   \
    X(ExtSupported, PFNqrlExtSupported)                                                                                \
    X(GetErrorString, QRLunusedEntry)                                                                                  \
    X(GetVersion, QRLunusedEntry)                                                                                      \
    X(ImageFree, QRLunusedEntry)                                                                                       \
    X(ImageRead, QRLunusedEntry)                                                                                       \
    X(Init, PFNqrlInit)                                                                                                \
    X(MemCopy, QRLunusedEntry)                                                                                         \
    X(ModuleGetEntry, QRLunusedEntry)                                                                                  \
    X(ModuleGetFuncInfo, QRLunusedEntry)                                                                               \
    X(ModuleGetName, QRLunusedEntry)                                                                                   \
    X(ModuleLoad, QRLunusedEntry)                                                                                      \
    X(ModuleUnload, QRLunusedEntry)                                                                                    \
    X(ResAllocLocal1D, QRLunusedEntry)                                                                                 \
    X(ResAllocLocal2D, QRLunusedEntry)                                                                                 \
    X(ResAllocRemote1D, QRLunusedEntry)                                                                                \
    X(ResAllocRemote2D, QRLunusedEntry)                                                                                \
    X(ResFree, QRLunusedEntry)                                                                                         \
    X(ResMap, QRLunusedEntry)                                                                                          \
    X(ResUnmap, QRLunusedEntry)                                                                                        \
    X(Shutdown, PFNqrlShutdown)

/// The exports of "libovkqrlcl.so": X(name without "qrlcl", pointer type).
#define QRL_CL_ENTRY_POINTS(X)                                                                                         \
    X(AssembleObject, QRLunusedEntry)                                                                                  \
    X(Compile, QRLunusedEntry)                                                                                         \
    X(DisassembleImage, QRLunusedEntry)                                                                                \
    X(DisassembleObject, QRLunusedEntry)                                                                               \
    X(ExtGetProc, QRLunusedEntry)                                                                                      \
    X(ExtSupported, QRLunusedEntry)                                                                                    \
    X(FreeImage, QRLunusedEntry)                                                                                       \
    X(FreeObject, QRLunusedEntry)                                                                                      \
    X(GetErrorString, QRLunusedEntry)                                                                                  \
    X(GetVersion, QRLunusedEntry)                                                                                      \
    X(ImageGetSize, QRLunusedEntry)                                                                                    \
    X(ImageWrite, QRLunusedEntry)                                                                                      \
    X(Link, QRLunusedEntry)

/// The exports of "libovkqrldd.so": X(name without "qrlddi", pointer type).
#define QRL_DD_ENTRY_POINTS(X)                                                                                         \
    X(GetExport, QRLunusedEntry)                                                                                       \
    X(GetVersion, QRLunusedEntry)                                                                                      \
    X(Init, QRLunusedEntry)

#endif

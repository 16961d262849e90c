#ifndef KESTREL_FUZZ_TARGETS_H
#define KESTREL_FUZZ_TARGETS_H

#include <cstddef>
#include <cstdint>
#include <string>

/// The fuzz targets: one function for each reader of bytes from outside. A function accepts any bytes, and aborts with
/// a message if a property of the reader doesn't hold for them. The fuzzers and the replay of the corpus call the same
/// functions. One thread at a time.
namespace KestrelFuzz
{

void FuzzElf(const uint8_t* pData, size_t nSize);         ///< an image: read, changed in every way, read again
void FuzzIL(const uint8_t* pData, size_t nSize);          ///< a token stream: decoded and analysed
void FuzzPatch(const uint8_t* pData, size_t nSize);       ///< a token stream: patched at every position
void FuzzDisassemble(const uint8_t* pData, size_t nSize); ///< a token stream: to text and back
void FuzzAssemble(const uint8_t* pData, size_t nSize);    ///< a text: to tokens, to text, and back
void FuzzMetadata(const uint8_t* pData, size_t nSize);    ///< a metadata block: parsed, changed, printed
void FuzzLaunch(const uint8_t* pData, size_t nSize);      ///< a launch file of the tool
void FuzzProgram(const uint8_t* pData, size_t nSize);     ///< the software platform's compiler: source or binary
void FuzzOpenCL(const uint8_t* pData, size_t nSize);      ///< the compiler of OpenCL C: source
void FuzzLlvm(const uint8_t* pData, size_t nSize);        ///< the same, starting from LLVM's intermediate code
void FuzzCommands(const uint8_t* pData, size_t nSize);    ///< command lines and expressions of the tool's prompt
void FuzzFrames(const uint8_t* pData, size_t nSize);      ///< messages to the debug adapter, and launch requests

struct STarget
{
    const char* pszName; ///< of the folder in the corpus, and of the program after fuzz_
    void (*pfnRun)(const uint8_t*, size_t);
};

constexpr STarget s_Targets[] = {
    {"elf", FuzzElf},           {"il", FuzzIL},
    {"patch", FuzzPatch},       {"disassemble", FuzzDisassemble},
    {"assemble", FuzzAssemble}, {"metadata", FuzzMetadata},
    {"launch", FuzzLaunch},     {"program", FuzzProgram},
    {"opencl", FuzzOpenCL},     {"commands", FuzzCommands},
    {"llvm", FuzzLlvm},         {"frames", FuzzFrames},
};

/// The name of the input, which Require prints; empty for none.
void SetInputName(const std::string& strName);

/// Aborts with the property's name and details if it doesn't hold.
void Require(bool bHolds, const char* pszProperty, const std::string& strDetails = std::string());

} // namespace KestrelFuzz

#endif

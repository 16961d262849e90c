#include "platform/opencl_c/driver/ObjectModules.h"

#include <llvm/ADT/Triple.h>
#include <llvm/Bitcode/BitcodeReader.h>
#include <llvm/Bitcode/BitcodeWriter.h>
#include <llvm/IR/DiagnosticInfo.h>
#include <llvm/IR/DiagnosticPrinter.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>
#include <llvm/IR/Verifier.h>
#include <llvm/Linker/Linker.h>
#include <llvm/Support/MemoryBuffer.h>
#include <llvm/Support/raw_ostream.h>

namespace KestrelOpenCL
{
namespace
{

/// Writes the linker's complaints to a log instead of ending the process.
class CLogDiagnostics : public llvm::DiagnosticHandler
{
public:
    explicit CLogDiagnostics(std::string& strLog) : m_strLog(strLog) {}

    bool handleDiagnostics(const llvm::DiagnosticInfo& info) override
    {
        if (info.getSeverity() == llvm::DS_Error)
        {
            llvm::raw_string_ostream log(m_strLog);
            llvm::DiagnosticPrinterRawOStream printer(log);
            log << "error: ";
            info.print(printer);
            log << "\n";
        }
        return true;
    }

private:
    std::string& m_strLog;
};

std::unique_ptr<llvm::Module> ReadObject(llvm::LLVMContext& context, std::string_view object, bool b64BitAddresses,
                                         std::string& strLog)
{
    // Copied, since bitcode must be aligned to words, and an object may lie anywhere in an image.
    const std::unique_ptr<llvm::MemoryBuffer> pBytes =
        llvm::MemoryBuffer::getMemBufferCopy(llvm::StringRef(object.data(), object.size()), "object");
    llvm::Expected<std::unique_ptr<llvm::Module>> module = llvm::parseBitcodeFile(*pBytes, context);
    if (!module)
    {
        strLog += "error: an object can't be read: " + llvm::toString(module.takeError()) + "\n";
        return nullptr;
    }
    std::string strFault;
    llvm::raw_string_ostream fault(strFault);
    if (llvm::verifyModule(**module, &fault))
    {
        strLog += "error: an object is damaged: " + strFault + "\n";
        return nullptr;
    }
    if (llvm::Triple((*module)->getTargetTriple()).getArch() !=
        (b64BitAddresses ? llvm::Triple::spir64 : llvm::Triple::spir))
    {
        strLog += "error: an object is for a device with addresses of another width\n";
        return nullptr;
    }
    return std::move(*module);
}

} // namespace

std::string WriteObject(const llvm::Module& module)
{
    std::string strObject;
    llvm::raw_string_ostream stream(strObject);
    llvm::WriteBitcodeToFile(module, stream);
    stream.flush();
    return strObject;
}

std::unique_ptr<llvm::Module> LinkObjects(llvm::LLVMContext& context, const std::vector<std::string_view>& vObjects,
                                          bool b64BitAddresses, std::string& strLog)
{
    context.setDiagnosticHandler(std::make_unique<CLogDiagnostics>(strLog));
    std::unique_ptr<llvm::Module> pWhole;
    for (const std::string_view object : vObjects)
    {
        std::unique_ptr<llvm::Module> pPart = ReadObject(context, object, b64BitAddresses, strLog);
        if (!pPart)
        {
            return nullptr;
        }
        if (!pWhole)
        {
            pWhole = std::move(pPart);
        }
        else if (llvm::Linker::linkModules(*pWhole, std::move(pPart)))
        {
            return nullptr;
        }
    }
    return pWhole;
}

} // namespace KestrelOpenCL

#include "platform/opencl_c/driver/LinkBuiltins.h"

#include "platform/opencl_c/driver/BuiltinArchive.h"

#include <llvm/Bitcode/BitcodeReader.h>
#include <llvm/IR/Module.h>
#include <llvm/Linker/Linker.h>
#include <llvm/Support/MemoryBufferRef.h>

#include <set>

namespace KestrelOpenCL
{
namespace
{

/// The members that define what the module calls but doesn't define, except those already linked.
std::set<std::string_view> FindMembers(const llvm::Module& module, const CBuiltinArchive& archive)
{
    std::set<std::string_view> members;
    for (const llvm::Function& function : module)
    {
        if (function.isDeclaration() && !function.isIntrinsic() && !function.use_empty())
        {
            const llvm::StringRef name = function.getName();
            const std::string_view member = archive.FindMember(std::string_view(name.data(), name.size()));
            if (!member.empty())
            {
                members.insert(member);
            }
        }
    }
    return members;
}

/// Links the functions of a member that are called. Their bitcode is read when the linker moves them.
bool LinkMember(llvm::Module& module, std::string_view member, std::string& strLog)
{
    const llvm::MemoryBufferRef bytes(llvm::StringRef(member.data(), member.size()), "builtins");
    llvm::Expected<std::unique_ptr<llvm::Module>> library =
        llvm::getLazyBitcodeModule(bytes, module.getContext(), true);
    if (!library)
    {
        strLog += "error: the built-in functions can't be read: " + llvm::toString(library.takeError()) + "\n";
        return false;
    }
    (*library)->setDataLayout(module.getDataLayout());
    (*library)->setTargetTriple(module.getTargetTriple());
    if (llvm::Linker::linkModules(module, std::move(*library), llvm::Linker::LinkOnlyNeeded))
    {
        strLog += "error: the built-in functions can't be linked\n";
        return false;
    }
    return true;
}

} // namespace

bool LinkBuiltins(llvm::Module& module, bool b64BitAddresses, std::string& strLog)
{
    const CBuiltinArchive& archive = CBuiltinArchive::Get(b64BitAddresses);
    // The next round finds what a member calls in others.
    for (;;)
    {
        const std::set<std::string_view> members = FindMembers(module, archive);
        if (members.empty())
        {
            return true;
        }
        for (const std::string_view member : members)
        {
            if (!LinkMember(module, member, strLog))
            {
                return false;
            }
        }
    }
}

} // namespace KestrelOpenCL

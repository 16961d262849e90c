#include "fuzz/CompilerLibrary.h"
#include "fuzz/FuzzKernel.h"
#include "fuzz/Targets.h"

#include "binary/CLMetadata.h"
#include "binary/ElfUtils.h"
#include "platform/compiler/Assembler.h"
#include "platform/compiler/KernelMetadata.h"

namespace KestrelFuzz
{

using namespace OVK_ShaderDebugger;

namespace
{

const std::string s_strKernel = "il_cs_2_0\ndcl_cb cb0[10]\ncall 1024\nendmain\nfunc 1024\n"
                                "dcl_max_thread_per_group 64\nmov r0, vTidInGrp\nret\nendfunc\nend\n";

/// Makes all queries. Their results only matter to the sanitizers.
void Query(const CCLMetadata& metadata)
{
    unsigned int nNumbers[3] = {};
    metadata.GetVersion(&nNumbers[0], &nNumbers[1], &nNumbers[2]);
    metadata.GetDeviceName();
    metadata.GetFunctionName();
    metadata.GetFunctionNumber();
    metadata.GetFunctionLabel();
    metadata.Uses64BitABI();
    metadata.GetPrivateMemoryLocation();
    metadata.GetPrivateMemoryNumber();
    metadata.GetUavNumber();
    metadata.GetNextConstantBufferOffset();
    for (CCLMetadataEntry* pEntry : metadata.GetArgumentEntries())
    {
        Require(CCLMetadata::IsArgumentEntry(pEntry), "the arguments are arguments", pEntry->ToString());
        const auto* pValue = dynamic_cast<const CCLMetadataValueEntry*>(pEntry);
        if (pValue != nullptr)
        {
            pValue->GetElementSize();
        }
    }
}

std::string Reparse(const std::string& strText)
{
    CCLMetadata metadata;
    Require(metadata.FromString(strText), "metadata that was printed is parsed", strText);
    return metadata.ToString();
}

void Change(CCLMetadata& metadata)
{
    const bool bFramed = metadata.SetUavNumber(7);
    const size_t nArguments = metadata.GetArgumentEntries().size();
    if (!bFramed)
    {
        return;
    }
    Require(metadata.SetLDSLimit(0), "a block with a frame takes a limit");
    auto* pPointer = new CCLMetadataPointerEntryR100;
    Require(metadata.AddArgumentEntry(pPointer), "a block with a frame takes an argument");
    const std::vector<CCLMetadataEntry*> vArguments = metadata.GetArgumentEntries();
    Require(vArguments.size() == nArguments + 1, "an argument that was added is one of the arguments");
    Require(metadata.RemoveEntry(pPointer), "an argument that was added can be taken out");
    delete pPointer;
    const std::string strText = metadata.ToString();
    Require(Reparse(strText) == strText, "changed metadata is parsed as it was printed", strText);
    Require(metadata.AddFunctionLabel(77), "a block with a frame takes a label");
    metadata.ToString();
}

/// Prepares metadata as for a patched kernel: the debugger's arguments are added, and the compiler reads the result.
void Patch(const std::string& strMetadata)
{
    static const std::vector<unsigned int> s_vTokens = []()
    {
        std::vector<unsigned int> vTokens;
        KestrelPlatform::SDiagnostic diagnostic;
        KestrelPlatform::AssembleIL(s_strKernel.data(), s_strKernel.size(), vTokens, diagnostic);
        return vTokens;
    }();
    CFuzzKernel kernel(s_vTokens, strMetadata);
    if (!kernel.Analyze())
    {
        return;
    }
    const auto* pImage = reinterpret_cast<const char*>(
        kernel.Shader().CreatePatchedShader(ProgramCounter(2), {Register(RT_Temp, 0, COMP_All)}));
    if (pImage == nullptr)
    {
        return;
    }
    std::string strPatched;
    const std::vector<char> vImage(pImage, pImage + kernel.Shader().GetPatchedShaderSize());
    Require(OVK_ElfUtils::ExtractMetadataFromElf(vImage, "k", &strPatched), "a patched image has its metadata");

    KestrelPlatform::SKernelMetadata before;
    KestrelPlatform::SKernelMetadata after;
    KestrelPlatform::SDiagnostic diagnostic;
    if (KestrelPlatform::ReadKernelMetadata(strMetadata, before, diagnostic))
    {
        Require(KestrelPlatform::ReadKernelMetadata(strPatched, after, diagnostic),
                "patched metadata is read by the compiler, if the kernel's was",
                diagnostic.ToString() + "\n" + strPatched);
        Require(after.vArguments.size() == before.vArguments.size() + 3, "three arguments are added", strPatched);
    }
}

} // namespace

void FuzzMetadata(const uint8_t* pData, size_t nSize)
{
    OpenCompilerLibrary();
    // A block ends at its first NUL.
    const std::string strText = std::string(reinterpret_cast<const char*>(pData), nSize).c_str();
    KestrelPlatform::SKernelMetadata read;
    KestrelPlatform::SDiagnostic diagnostic;
    const bool bRead = KestrelPlatform::ReadKernelMetadata(strText, read, diagnostic);
    Require(bRead || !diagnostic.strMessage.empty(), "metadata that the compiler refuses has a reason");

    CCLMetadata metadata;
    if (!metadata.FromString(strText))
    {
        Require(metadata.GetEntries().empty(), "metadata that is refused leaves nothing");
        return;
    }
    Query(metadata);
    // Only a block with its end can be read back.
    if (metadata.GetEntries().empty() ||
        metadata.GetEntries().back()->GetEntryType() != CCLMetadataArgEndEntry::ClassEntryType)
    {
        return;
    }
    const std::string strPrinted = metadata.ToString();
    Require(Reparse(strPrinted) == strPrinted, "metadata is parsed as it was printed", strPrinted);
    Change(metadata);
    Patch(strText);
}

} // namespace KestrelFuzz

#include "platform/compiler/FrontEnd.h"
#include "platform/compiler/KernelCParser.h"

namespace KestrelPlatform
{
namespace
{

/// Number of the first kernel's wrapper function. Each kernel takes two numbers, the wrapper's and the function's.
const unsigned int s_nFirstNumber = 1024;

class CKernelCFrontEnd : public IFrontEnd
{
public:
    bool Accepts(std::string_view) const override { return true; }

    bool Compile(std::string_view source, const SDeviceTarget& target, SModule& module,
                 SDiagnostic& diag) const override
    {
        std::vector<SCToken> vTokens;
        if (!PreprocessC(SplitC(source), vTokens, diag))
        {
            return false;
        }
        CKernelCParser parser(vTokens, diag);
        std::string strFunctions;
        do
        {
            CKernelCEmitter kernel(target);
            if (!parser.TakeKernel(kernel))
            {
                return false;
            }
            const unsigned int nWrapper = s_nFirstNumber + 2 * static_cast<unsigned int>(module.vKernels.size());
            SModuleKernel moduleKernel;
            moduleKernel.strMetadata = kernel.Metadata(nWrapper);
            if (!ReadKernelMetadata(moduleKernel.strMetadata, moduleKernel.metadata, diag))
            {
                return false;
            }
            module.vKernels.push_back(std::move(moduleKernel));
            strFunctions += kernel.Functions(nWrapper);
        } while (!parser.AtEnd());
        module.strText = "il_cs_2_0\n" + std::string(s_Placeholder) + "\nendmain\n" + strFunctions + "end\n";
        return true;
    }
};

} // namespace

const IFrontEnd* GetKernelCFrontEnd()
{
    static const CKernelCFrontEnd s_FrontEnd;
    return &s_FrontEnd;
}

const IFrontEnd* FindFrontEnd(std::string_view source)
{
    for (const IFrontEnd* pFrontEnd : {GetILModuleFrontEnd(), GetKernelCFrontEnd()})
    {
        if (pFrontEnd->Accepts(source))
        {
            return pFrontEnd;
        }
    }
    return GetKernelCFrontEnd();
}

} // namespace KestrelPlatform

#include "platform/opencl_c/lowering/KernelWrapper.h"

#include "platform/opencl_c/lowering/ValueTypes.h"

#include "llvm/IR/Constants.h"
#include "llvm/IR/Function.h"
#include "llvm/IR/Metadata.h"

#include <algorithm>
#include <set>

namespace KestrelOpenCL
{
namespace
{

struct SImageShape
{
    const char* pszToken;
    const char* pszType; ///< of `dcl_resource`
    unsigned nType;      ///< of `dcl_typed_uav`
};

const SImageShape s_ImageShapes[] = {
    {"1D", "1d", 1}, {"2D", "2d", 2}, {"3D", "3d", 3}, {"1DA", "1darray", 4}, {"2DA", "2darray", 5}};

const SImageShape& ShapeOf(const std::string& strToken)
{
    const auto it = std::find_if(std::begin(s_ImageShapes), std::end(s_ImageShapes),
                                 [&](const SImageShape& shape) { return strToken == shape.pszToken; });
    return it == std::end(s_ImageShapes) ? s_ImageShapes[1] : *it;
}

std::string GroupSize(const llvm::Function& kernel, const KestrelPlatform::SDeviceTarget& target)
{
    const llvm::MDNode* const pSize = kernel.getMetadata("reqd_work_group_size");
    if (pSize == nullptr || pSize->getNumOperands() != 3)
    {
        return "dcl_max_thread_per_group " + std::to_string(target.nMaxGroupSize) + "\n";
    }
    std::string strLine = "dcl_num_thread_per_group";
    for (unsigned n = 0; n < 3; ++n)
    {
        const auto* const pNumber = llvm::mdconst::extract<llvm::ConstantInt>(pSize->getOperand(n));
        strLine += (n == 0 ? " " : ", ") + std::to_string(pNumber->getZExtValue());
    }
    return strLine + "\n";
}

std::string Declarations(const std::vector<SKernelParameter>& vParameters, const KestrelPlatform::SDeviceTarget& target)
{
    std::string strText;
    std::set<uint32_t> uavs;
    uint32_t nElements = 0;
    for (const SKernelParameter& parameter : vParameters)
    {
        nElements = std::max(nElements, (parameter.nOffset + parameter.nSlot) / 16);
        const std::string strNumber = std::to_string(parameter.nNumber);
        if (parameter.eKind == SKernelParameter::Image)
        {
            const SImageShape& shape = ShapeOf(parameter.strType);
            strText += parameter.strAccess == "RO"
                           ? "dcl_resource_id(" + strNumber + ")_type(" + shape.pszType + ") 0x0\n"
                           : "dcl_typed_uav_id(" + strNumber + ")_access(wo) " + std::to_string(shape.nType) + "\n";
        }
        const bool bBuffer = parameter.eKind == SKernelParameter::Pointer && parameter.nSpace != SpaceLocal;
        if (bBuffer && !target.bRawUavOnly && uavs.insert(parameter.nNumber).second)
        {
            strText += "dcl_typeless_uav_id(" + strNumber + ")_stride(4)_length(4)\n";
        }
    }
    strText += target.bRawUavOnly ? "dcl_raw_uav_id(" + std::to_string(s_nRawUav) + ")\n" : "";
    return (nElements != 0 ? "dcl_cb cb1[" + std::to_string(nElements) + "]\n" : "") + strText;
}

} // namespace

std::string WriteWrapper(const llvm::Function& kernel, uint32_t nWrapper,
                         const std::vector<SKernelParameter>& vParameters, const SKernelNeeds& needs,
                         const KestrelPlatform::SDeviceTarget& target, bool bLocal)
{
    const std::string strName = ";__OpenCL_" + kernel.getName().str() + "_kernel\n";
    std::string strText = "func " + std::to_string(nWrapper) + "\n" + strName + GroupSize(kernel, target);
    strText += "dcl_cb cb0[10]\n" + Declarations(vParameters, target);
    if (needs.nPrivateBytes != 0)
    {
        strText += "dcl_typeless_uav_id(" + std::to_string(s_nPrivateUav) + ")_stride(4)_length(" +
                   std::to_string(needs.nPrivateBytes) + ")_access(private)\n";
    }
    for (size_t n = 0; n < needs.vArrays.size(); ++n)
    {
        strText += "dcl_indexed_temp_array x" + std::to_string(n + 1) + "[" + std::to_string(needs.vArrays[n]) + "]\n";
    }
    if (bLocal)
    {
        strText += "dcl_lds_id(" + std::to_string(s_nLocalId) + ") " + std::to_string(needs.nLocalBytes) + "\n";
    }
    if (!needs.vConstants.empty())
    {
        const std::string strElements = std::to_string((needs.vConstants.size() + 3) / 4);
        strText += "dcl_cb cb" + std::to_string(KestrelPlatform::s_nConstantsBuffer) + "[" + strElements + "]\n";
    }
    return strText + "call " + std::to_string(nWrapper + 1) + "\nret\nendfunc\n" + strName;
}

} // namespace KestrelOpenCL

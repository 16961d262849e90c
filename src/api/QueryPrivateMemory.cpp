#include "api/Query.h"

#include "api/RegisterLocators.h"
#include "core/ShaderDebuggerBuffer.h"

#include <algorithm>
#include <cstring>
#include <limits>

using namespace Kestrel;
using OVK_ShaderDebugger::CShaderDebuggerBuffer;

namespace
{

const size_t s_nRowSize = 16;
const size_t s_nTracedBytes = 800;

/// The engine's values for the row that holds an address: one element a work-item.
/// \return null if the engine has none
const CShaderDebuggerBuffer* GetRow(CKernelDebugState& state, ovkclDebugMemoryAddress address)
{
    const ovkclDebugMemoryAddress nRow = address / s_nRowSize;
    if (nRow > std::numeric_limits<unsigned int>::max())
    {
        return nullptr;
    }
    const ovkclDebugRegisterLocator locator =
        state.HasPrivateUAV() ? MakeRegisterLocator(DL_REGTYPE_PRIVATE_UAV_ACCESS, 8, static_cast<unsigned int>(nRow))
                              : MakeRegisterLocator(DL_REGTYPE_ITEMP, 1, static_cast<unsigned int>(nRow));
    OVK_ShaderDebugger::VariableID variableID = VariableByName(debugRegisterLocatorToString(locator));
    return state.m_pShaderDebuggerHost->GetRegisterResultsBuffer(variableID);
}

void DumpPrivateMemoryToLog(CKernelDebugState& state)
{
    std::string strDump = "First " + std::to_string(s_nTracedBytes) + " bytes of private memory for work item 0:\n";
    for (size_t nAddress = 0; nAddress < s_nTracedBytes; nAddress += s_nRowSize)
    {
        const CShaderDebuggerBuffer* pRow = GetRow(state, nAddress);
        const bool bThere = pRow != nullptr && pRow->GetSize() >= s_nRowSize;
        strDump += (bThere ? ToHexadecimal(pRow->GetData(), s_nRowSize) : "Zeros") + "\n";
    }
    GetLogger() << strDump;
}

/// Copies, for each work-item, a piece of its row to its stretch of the client's buffer.
void ScatterRow(const CShaderDebuggerBuffer* pRow, size_t nInRow, size_t nPiece, size_t nWorkItems,
                unsigned char* pOutput, size_t nStretch)
{
    for (size_t i = 0; i < nWorkItems; ++i)
    {
        if (pRow != nullptr)
        {
            std::memcpy(pOutput + i * nStretch, pRow->GetData() + i * s_nRowSize + nInRow, nPiece);
        }
        else
        {
            std::memset(pOutput + i * nStretch, 0, nPiece);
        }
    }
}

} // namespace

ovkclDebugError ovkclDebugGetPrivateMemoryValues(ovkclDebugContext debugContext, ovkclDebugMemoryAddress address,
                                                 size_t count, void* buffer, size_t* outputSize)
{
    TraceCall(__func__, debugContext, address, count, buffer, outputSize);
    const bool bInRange = count <= std::numeric_limits<ovkclDebugMemoryAddress>::max() - address;
    return RunQuery(__func__, debugContext, EAllowedAt::Halted,
                    (buffer != nullptr || count == 0) && outputSize != nullptr && bInRange,
                    [&](CKernelDebugState& state) -> ovkclDebugError
                    {
                        Trace([&] { DumpPrivateMemoryToLog(state); });

                        if (state.m_pShaderDebuggerHost->GetEnableTrackingVariables() && !state.m_bTrackPrivateMemory)
                        {
                            return OVKCLDEBUG_ERROR_INVALID_STATE;
                        }
                        const size_t nWorkItems = state.GetNumWorkItems();
                        size_t nPiece = 0;
                        for (size_t nOffset = 0; nOffset < count; nOffset += nPiece)
                        {
                            const size_t nInRow = (address + nOffset) % s_nRowSize;
                            nPiece = std::min(s_nRowSize - nInRow, count - nOffset);
                            const CShaderDebuggerBuffer* pRow = GetRow(state, address + nOffset);
                            if (pRow != nullptr && pRow->GetSize() != nWorkItems * s_nRowSize)
                            {
                                return OVKCLDEBUG_ERROR_INTERNAL;
                            }
                            if (pRow == nullptr)
                            {
                                CLD_Log("Zeros\n");
                            }
                            ScatterRow(pRow, nInRow, nPiece, nWorkItems, static_cast<unsigned char*>(buffer) + nOffset,
                                       count);
                        }
                        *outputSize = nWorkItems * count;
                        return OVKCLDEBUG_SUCCESS;
                    });
}

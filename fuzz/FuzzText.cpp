#include "fuzz/FuzzKernel.h"
#include "fuzz/Targets.h"
#include "fuzz/TextRoad.h"

#include "platform/compiler/Assembler.h"

#include <algorithm>

namespace KestrelFuzz
{

void FuzzDisassemble(const uint8_t* pData, size_t nSize)
{
    CheckTextRoad(ToWords(pData, nSize));
}

void FuzzAssemble(const uint8_t* pData, size_t nSize)
{
    const char* pText = reinterpret_cast<const char*>(pData);
    const auto nLines = static_cast<unsigned int>(std::count(pText, pText + nSize, '\n')) + 1;
    std::vector<unsigned int> vTokens;
    std::vector<uint32_t> vLines;
    KestrelPlatform::SDiagnostic diagnostic;
    if (!KestrelPlatform::AssembleIL(pText, nSize, vTokens, diagnostic, &vLines))
    {
        Require(!diagnostic.strMessage.empty() && diagnostic.nLine <= nLines + 1 && vTokens.empty(),
                "a text that is refused has a reason and a place", diagnostic.ToString());
        return;
    }
    Require(std::is_sorted(vLines.begin(), vLines.end()) && (vLines.empty() || vLines.back() <= nLines),
            "instructions stand on the lines of the text, in order");
    Require(CheckTextRoad(vTokens), "what is assembled is disassembled");
}

} // namespace KestrelFuzz

#include "bench/BenchConversions.h"

#include "platform/compiler/Assembler.h"
#include "platform/compiler/Disassembler.h"

#include <stdexcept>

namespace KestrelBench
{

void ForgetConversions()
{
    static const std::string s_strText = "il_cs_2_0\nend\n";
    std::vector<uint32_t> vTokens;
    std::string strText;
    std::string strError;
    KestrelPlatform::SDiagnostic diagnostic;
    if (!KestrelPlatform::AssembleIL(s_strText.data(), s_strText.size(), vTokens, diagnostic) ||
        !KestrelPlatform::DisassembleIL(vTokens.data(), vTokens.size(), strText, strError))
    {
        throw std::runtime_error("the smallest kernel doesn't convert");
    }
}

} // namespace KestrelBench

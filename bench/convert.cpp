// The cost of the IL conversions at a stop: text to tokens, tokens to text, and tokens to the form that
// runs. The figures are milliseconds, and how they grow when a kernel is ten times as long.

#include "bench/BenchConversions.h"
#include "bench/BenchReport.h"
#include "platform/compiler/Assembler.h"
#include "platform/compiler/Disassembler.h"
#include "platform/simt/WideLaunch.h"

#include <cstdio>
#include <stdexcept>

using namespace KestrelBench;
using namespace KestrelPlatform;

namespace
{

const unsigned int s_nRuns = 15;

std::string MakeText(unsigned int nInstructions)
{
    std::string strText = "il_cs_2_0\ndcl_cb cb0[10]\ndcl_literal l0, 2, 1, 0, -1\ncall 1024\nendmain\nfunc 1024\n";
    for (unsigned int i = 0; i < nInstructions; i += 4)
    {
        const std::string strTarget = "r" + std::to_string(i % 40);
        strText += "iadd " + strTarget + ".x, r0.y, l0.x\nmul " + strTarget + ", r1.xxyy, r2\n";
        strText += "ilt r50.x, " + strTarget + ".x, l0.y\nmov r3.xy, " + strTarget + "\n";
    }
    return strText + "ret\nendfunc\nend\n";
}

struct SConversions
{
    std::vector<double> vAssemble;
    std::vector<double> vDisassemble;
    std::vector<double> vDecode;
};

void Require(bool bDone)
{
    if (!bDone)
    {
        throw std::runtime_error("the benchmark's kernel doesn't convert");
    }
}

SConversions Measure(unsigned int nInstructions)
{
    const std::string strText = MakeText(nInstructions);
    std::vector<uint32_t> vTokens;
    SDiagnostic diagnostic;
    std::string strOutput;
    std::string strError;
    SDecodeError decodeError;

    SConversions conversions;
    const auto assemble = [&] { Require(AssembleIL(strText.data(), strText.size(), vTokens, diagnostic)); };
    const auto disassemble = [&] { Require(DisassembleIL(vTokens.data(), vTokens.size(), strOutput, strError)); };
    conversions.vAssemble = Scaled(Time(s_nRuns, assemble, ForgetConversions), 1000);
    conversions.vDisassemble = Scaled(Time(s_nRuns, disassemble, ForgetConversions), 1000);
    conversions.vDecode = Scaled(
        Time(s_nRuns, [&] { Require(DecodeProgram(vTokens.data(), vTokens.size(), decodeError) != nullptr); }), 1000);
    return conversions;
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        CReport report("convert", argc, argv);
        const SConversions small = Measure(1000);
        const SConversions large = Measure(10000);
        report.Add("assemble 1,000 instructions, ms", small.vAssemble, 0);
        report.Add("disassemble 1,000 instructions, ms", small.vDisassemble, 0);
        report.Add("decode 1,000 instructions, ms", small.vDecode, 0);
        report.Add("assemble, 10,000 over 1,000", Ratios(large.vAssemble, small.vAssemble), 11);
        report.Add("disassemble, 10,000 over 1,000", Ratios(large.vDisassemble, small.vDisassemble), 11);
        report.Add("decode, 10,000 over 1,000", Ratios(large.vDecode, small.vDecode), 11);
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
}

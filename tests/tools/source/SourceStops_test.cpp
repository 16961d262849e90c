// Compares the variables of generated kernels, as a debugging session shows them at breakpoints on lines and after
// steps by line, with a run of the same source on the host. KESTREL_OPENCL_C_KERNELS=N  number of kernels
// KESTREL_OPENCL_C_SEED=N     only the kernel of this seed; its text is printed if it fails

#include "tests/platform/opencl_c/generated/HostBuild.h"
#include "tests/platform/opencl_c/generated/KernelMaker.h"
#include "tests/support/Folders.h"
#include "tests/support/Stride.h"
#include "tools/session/debug/LineStepper.h"
#include "tools/session/debug/SourceValues.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <filesystem>
#include <random>
#include <unistd.h>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

const size_t s_nEach = 3; ///< every third work-item is looked at

/// The bytes of variables before a statement, by name.
using SnapShot = std::map<std::string, std::string>;

/// For a work-item and a source line, the variables at each visit of the line.
using Visits = std::map<std::pair<size_t, unsigned int>, std::vector<SnapShot>>;

Visits* s_pHostVisits = nullptr;

void NoteOnHost(int nItem, int nLine, const char* pszName, const void* pValue, unsigned long nSize)
{
    if (nItem % s_nEach != 0)
    {
        return;
    }
    std::vector<SnapShot>& vVisits = (*s_pHostVisits)[{nItem, nLine}];
    if (vVisits.empty() || vVisits.back().count(pszName) != 0)
    {
        vVisits.emplace_back();
    }
    vVisits.back()[pszName] = std::string(static_cast<const char*>(pValue), nSize);
}

std::vector<int32_t> MakeInput(uint64_t nSeed)
{
    std::mt19937 random(static_cast<unsigned int>(nSeed));
    std::vector<int32_t> vIn(g_nInputs);
    for (int32_t& nIn : vIn)
    {
        nIn = static_cast<int32_t>(random()) >> (random() % 31);
    }
    return vIn;
}

SArgument MakeArgument(SArgument::EKind eKind, const char* pszType, const void* pBytes, size_t nBytes)
{
    SArgument argument;
    argument.eKind = eKind;
    argument.pType = FindElementType(pszType);
    const unsigned char* const pFirst = static_cast<const unsigned char*>(pBytes);
    argument.vContents.assign(pFirst, pFirst + nBytes);
    return argument;
}

SLaunchFile MakeLaunch(const std::string& strText, const std::string& strKernel, const std::string& strDevice,
                       uint64_t nSeed)
{
    SLaunchFile file;
    file.strSource = std::string("#pragma OPENCL FP_CONTRACT OFF\n#define P(name)\n#line 1 \"prelude.h\"\n") +
                     g_pszCommonPrelude + "#line 1 \"probed.cl\"\n" + strText;
    file.strKernel = strKernel;
    file.strDevice = strDevice;
    file.strOptions = "-g";
    file.nGlobalSize[0] = g_nItems;
    file.nLocalSize[0] = g_nGroupSize;
    file.bHasLocalSize = true;
    const std::vector<int32_t> vIn = MakeInput(nSeed);
    const std::vector<char> vOut(g_nItems * g_nOutputs * 4), vSums(g_nSums * 4);
    file.vArguments = {MakeArgument(SArgument::Buffer, "int", vIn.data(), vIn.size() * 4),
                       MakeArgument(SArgument::Buffer, "uint", vOut.data(), vOut.size()),
                       MakeArgument(SArgument::Buffer, "uint", vSums.data(), vSums.size()),
                       MakeArgument(SArgument::Value, "int", &g_nArgumentN, sizeof g_nArgumentN),
                       MakeArgument(SArgument::Value, "float", &g_fArgumentF, sizeof g_fArgumentF),
                       MakeArgument(SArgument::Value, "uint", g_nArgumentV, sizeof g_nArgumentV)};
    return file;
}

const CLibraries& GetLibraries()
{
    static const CLibraries s_Libraries(KestrelTest::PlatformFolder(),
                                        KestrelTest::BuiltFile("lib/libOVKKestrel.so.1"));
    return s_Libraries;
}

class CSilence : public IEventSink
{
public:
    void OnEvent(const nlohmann::json&) override {}
};

/// Bytes in hexadecimal, for messages about differences; longer texts as they are.
std::string Hex(const std::string& strBytes)
{
    std::string strText;
    for (const char c : strBytes.find("has no") == 0 || strBytes.find("isn't") == 0 ? std::string() : strBytes)
    {
        strText += "0123456789abcdef"[static_cast<unsigned char>(c) >> 4];
        strText += "0123456789abcdef"[c & 15];
    }
    return strText.empty() ? strBytes : strText;
}

/// A session that stops at lines and compares the shown values with those of the host's run.
class CComparedSession
{
public:
    CComparedSession(const SLaunchFile& file, const Visits& expected, const CLayouts& layouts, bool bByLines)
        : m_Debugger(GetLibraries(), file, m_Silence), m_Expected(expected), m_Layouts(layouts), m_bByLines(bByLines)
    {
        for (const auto& entry : expected)
        {
            const unsigned int nSource = entry.first.second;
            for (const unsigned int nLine :
                 FindSourceLines(m_Debugger.GetListing(), m_Debugger.GetDebugInfo(), nullptr, {"probed.cl", nSource}))
            {
                if (ReadSourceLine(m_Debugger.GetListing().GetPlace(nLine))->nLine == nSource)
                {
                    m_mapLines[nLine] = nSource;
                }
            }
        }
        for (const auto& line : m_mapLines)
        {
            if (!bByLines)
            {
                m_Debugger.GetBreakpoints().Add({line.first}, false);
            }
        }
    }

    /// \return the first difference; empty for none
    std::string Run()
    {
        m_Debugger.Start();
        bool bMoved = true;
        while (m_Debugger.IsLive() && m_strDifference.empty())
        {
            if (bMoved && m_mapLines.count(m_Debugger.GetLine()) != 0)
            {
                LookAt(m_Debugger.GetLine());
                bMoved = m_Debugger.IsLive() && m_mapLines.count(m_Debugger.GetLine()) != 0;
                continue;
            }
            m_bByLines ? CLineStepper(m_Debugger).Step(1) : m_Debugger.Continue(1);
            bMoved = true;
        }
        return m_strDifference;
    }

    size_t CountMatched() const { return m_nMatched; }

private:
    /// The next instruction shows which work-items have reached the line.
    void LookAt(unsigned int nLine)
    {
        const unsigned int nSource = m_mapLines[nLine];
        std::map<size_t, SnapShot> mapFound;
        for (size_t nItem = 0; nItem < g_nItems; nItem += s_nEach)
        {
            const auto itExpected = m_Expected.find({nItem, nSource});
            if (itExpected != m_Expected.end())
            {
                mapFound[nItem] = Read(nItem, itExpected->second.front());
            }
        }
        m_Debugger.Step(1);
        if (!m_Debugger.IsLive())
        {
            return;
        }
        const SMaskView mask = m_Debugger.GetActive();
        for (const auto& found : mapFound)
        {
            if (mask.pActive[found.first] != 0)
            {
                Match(found.first, nSource, found.second);
            }
        }
    }

    SnapShot Read(size_t nItem, const SnapShot& names)
    {
        SnapShot found;
        CSourceValues values(m_Debugger);
        const std::vector<SSourceVariable> vVariables = values.List();
        for (const auto& name : names)
        {
            const auto itVariable =
                std::find_if(vVariables.begin(), vVariables.end(),
                             [&](const SSourceVariable& variable) { return variable.strName == name.first; });
            if (itVariable == vVariables.end())
            {
                found[name.first] = "isn't in scope";
                continue;
            }
            const SSourceValue value = values.Read(*itVariable, nItem);
            const std::string strBytes(value.vBytes.begin(), value.vBytes.end());
            found[name.first] = value.IsKnown() ? SettleBytes(strBytes, m_Layouts.at(name.first)) : "has no value";
        }
        return found;
    }

    /// Some visits have no stop of their own, if the first instruction of a line is a jump.
    void Match(size_t nItem, unsigned int nSource, const SnapShot& found)
    {
        const std::vector<SnapShot>& vVisits = m_Expected.at({nItem, nSource});
        size_t& nNext = m_mapNext[{nItem, nSource}];
        for (size_t n = nNext; n < vVisits.size(); ++n)
        {
            const bool bSame = std::all_of(
                vVisits[n].begin(), vVisits[n].end(),
                [&](const auto& value)
                {
                    const auto it = found.find(value.first);
                    return it != found.end() && it->second == SettleBytes(value.second, m_Layouts.at(value.first));
                });
            if (bSame)
            {
                nNext = n + 1;
                ++m_nMatched;
                return;
            }
        }
        m_strDifference = "work-item " + std::to_string(nItem) + ", line " + std::to_string(nSource) + ", visit " +
                          std::to_string(nNext) + " of " + std::to_string(vVisits.size());
        for (const auto& value : nNext < vVisits.size() ? vVisits[nNext] : SnapShot())
        {
            const auto it = found.find(value.first);
            const bool bSame = it != found.end() && it->second == SettleBytes(value.second, m_Layouts.at(value.first));
            m_strDifference += bSame ? ""
                                     : ", " + value.first + " is " + (it != found.end() ? Hex(it->second) : "missing") +
                                           " in place of " + Hex(value.second);
        }
    }

    CSilence m_Silence;
    CDebugger m_Debugger;
    const Visits& m_Expected;
    const CLayouts& m_Layouts;
    const bool m_bByLines;
    std::map<unsigned int, unsigned int> m_mapLines; ///< line of IL to the source line that begins there
    std::map<std::pair<size_t, unsigned int>, size_t> m_mapNext;
    size_t m_nMatched = 0;
    std::string m_strDifference;
};

size_t CountVisits(const Visits& visits)
{
    size_t nVisits = 0;
    for (const auto& entry : visits)
    {
        nVisits += entry.second.size();
    }
    return nVisits;
}

} // namespace

TEST(SourceStops, ShowWhatAHostRunFindsAtTheLine)
{
    const uint64_t nOne = ReadStride("KESTREL_OPENCL_C_SEED", 0);
    const uint64_t nFirst = nOne != 0 ? nOne : 1;
    const uint64_t nLast = nOne != 0 ? nOne : ReadStride("KESTREL_OPENCL_C_KERNELS", s_bSanitized ? 1 : 8);
    const std::filesystem::path folder =
        std::filesystem::path(testing::TempDir()) / ("kestrel-stops-" + std::to_string(getpid()));
    size_t nVisits = 0;
    size_t nMatched = 0;
    for (uint64_t nSeed = nFirst; nSeed <= nLast; ++nSeed)
    {
        const std::string strName = "k" + std::to_string(nSeed);
        CLayouts layouts;
        const std::string strText = MakeProbedKernel(nSeed, strName, layouts);
        std::filesystem::create_directories(folder);
        const CHostBuild host("#line 1\n" + strText, {strName}, folder.string());
        Visits expected;
        s_pHostVisits = &expected;
        std::vector<uint32_t> vOut(g_nItems * g_nOutputs), vSums(g_nSums);
        host.Run(strName, MakeInput(nSeed).data(), vOut.data(), vSums.data(), NoteOnHost);
        CComparedSession session(MakeLaunch(strText, strName, nSeed % 4 < 2 ? "Quench" : "Kiln", nSeed), expected,
                                 layouts, nSeed % 2 == 0);
        EXPECT_EQ(session.Run(), "") << "KESTREL_OPENCL_C_SEED=" << nSeed << " "
                                     << KestrelTest::BuiltFile("bin/tools_source_tests")
                                     << (nOne != 0 ? "\n" + strText : "");
        nVisits += CountVisits(expected);
        nMatched += session.CountMatched();
    }
    std::filesystem::remove_all(folder);
    EXPECT_GT(nMatched * 10, nVisits * 8) << nMatched << " of " << nVisits;
    RecordProperty("visits", static_cast<int>(nMatched));
}

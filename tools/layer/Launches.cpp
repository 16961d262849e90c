#include "tools/layer/Launches.h"

#include "tools/layer/Complaints.h"
#include "tools/layer/Connection.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace KestrelLayer
{

using nlohmann::json;

namespace
{

/// Counts the process's launches, in all and by kernel name.
class CLaunchCount
{
public:
    struct SCount
    {
        uint64_t nNumber;
        uint64_t nTurn;
    };

    SCount Next(const std::string& strKernel)
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        return {++m_nLaunches, ++m_mapTurns[strKernel]};
    }

    static CLaunchCount& Get()
    {
        static CLaunchCount* const s_pCount = new CLaunchCount;
        return *s_pCount;
    }

private:
    std::mutex m_Lock;
    uint64_t m_nLaunches = 0;
    std::unordered_map<std::string, uint64_t> m_mapTurns;
};

/// Writes the JSON text by hand: every launch is reported, but hardly any report is looked at.
std::string DescribeLaunch(const SKernel& kernel, const CLaunchCount::SCount& count, const SLaunchCall& call)
{
    static const auto s_Begin = std::chrono::steady_clock::now();
    const auto passed = std::chrono::steady_clock::now() - s_Begin;
    std::string strText = "{\"what\":\"launch\"";
    const auto append = [&](const char* pszName, uint64_t nValue)
    { strText.append(",\"").append(pszName).append("\":").append(std::to_string(nValue)); };
    append("number", count.nNumber);
    append("turn", count.nTurn);
    append("kernel", kernel.nId);
    append("microseconds",
           static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(passed).count()));
    const std::pair<const char*, const size_t*> sizes[] = {
        {"global", call.pGlobal}, {"local", call.pLocal}, {"offset", call.pOffset}};
    for (const auto& [pszName, pSizes] : sizes)
    {
        strText.append(",\"").append(pszName).append("\":");
        pSizes != nullptr ? AppendNumbers(pSizes, call.nDimensions, strText) : void(strText += "null");
    }
    strText += ",\"arguments\":";
    AppendArguments(kernel, strText);
    return strText += '}';
}

} // namespace

SNotedLaunch NoteLaunch(cl_kernel object, const SLaunchCall& call)
{
    const bool bSizes = call.pGlobal != nullptr && call.nDimensions >= 1 && call.nDimensions <= 3;
    std::shared_ptr<const SKernel> pKernel = bSizes ? CObjects::Get().FindKernel(object) : nullptr;
    if (pKernel == nullptr)
    {
        return {}; // the runtime will report the fault
    }
    const CLaunchCount::SCount count = CLaunchCount::Get().Next(pKernel->strName);
    const std::string strLaunch = DescribeLaunch(*pKernel, count, call);
    CConnection& connection = CConnection::Get();
    connection.TakeUnasked();
    if (connection.Wants(pKernel->strName, pKernel->nProgram, count.nNumber, count.nTurn))
    {
        json header = json::parse(strLaunch);
        std::vector<unsigned char> vBlob;
        header["what"] = "stop";
        CaptureContents(object, *pKernel, call, header, vBlob);
        connection.Ask(header, vBlob);
    }
    else
    {
        connection.Tell(strLaunch);
    }
    return {std::move(pKernel), count.nNumber};
}

void NoteOutcome(const SNotedLaunch& launch, cl_int nCode)
{
    if (launch.pKernel == nullptr)
    {
        return;
    }
    if (nCode == CL_SUCCESS)
    {
        CObjects::Get().NoteLaunched(*launch.pKernel);
    }
    else
    {
        TellRefusedLaunch(*launch.pKernel, launch.nNumber, nCode);
    }
}

} // namespace KestrelLayer

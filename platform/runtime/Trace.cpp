#include "platform/runtime/Trace.h"

#include <cstdio>
#include <mutex>

namespace KestrelPlatform::Runtime
{

namespace
{

class CCallbackTrace : public ITraceSink
{
public:
    CCallbackTrace(PlatformTraceCallback pCallback, void* pUser) : m_pCallback(pCallback), m_pUser(pUser) {}

    void OnRecord(const SPlatformTraceRecord& record) override
    {
        // Launches of several queues may be traced at once.
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_pCallback(&record, m_pUser);
    }

private:
    std::mutex m_Mutex;
    PlatformTraceCallback m_pCallback;
    void* m_pUser;
};

class CFileTrace : public ITraceSink
{
public:
    explicit CFileTrace(std::FILE* pFile) : m_pFile(pFile) {}
    ~CFileTrace() override { std::fclose(m_pFile); }

    void OnRecord(const SPlatformTraceRecord& record) override
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        WritePosition(record);
        if (record.nRegisterType != 0xFFFFFFFFu && record.pValues)
        {
            WriteValues(record);
        }
        std::fflush(m_pFile);
    }

private:
    void WritePosition(const SPlatformTraceRecord& record)
    {
        std::fprintf(m_pFile, "instruction %u opcode %u", record.nInstruction, record.nOpCode);
        for (uint32_t i = 0; i < record.nCalls; ++i)
        {
            std::fprintf(m_pFile, " call %u", record.pCallSites[i]);
        }
        for (uint32_t i = 0; i < record.nLoops; ++i)
        {
            std::fprintf(m_pFile, " loop %u-%u pass %u", record.pLoops[i].nStart, record.pLoops[i].nEnd,
                         record.pLoops[i].nIteration);
        }
        uint32_t nActive = 0;
        for (uint32_t i = 0; i < record.nItems; ++i)
        {
            nActive += record.pActive[i];
        }
        std::fprintf(m_pFile, " active %u of %u", nActive, record.nItems);
        if (record.nRegisterType != 0xFFFFFFFFu)
        {
            std::fprintf(m_pFile, " writes register type %u number %u components 0x%x", record.nRegisterType,
                         record.nRegisterNumber, record.nComponents);
        }
        std::fputc('\n', m_pFile);
    }

    void WriteValues(const SPlatformTraceRecord& record)
    {
        for (uint32_t i = 0; i < record.nItems; ++i)
        {
            if (!record.pActive[i])
            {
                continue;
            }
            const uint32_t* pWords = record.pValues + size_t{4} * i;
            std::fprintf(m_pFile, "  item %u", record.pItems[i]);
            if (record.pIndices)
            {
                std::fprintf(m_pFile, " index %u", record.pIndices[i]);
            }
            std::fprintf(m_pFile, ": %08x %08x %08x %08x\n", pWords[0], pWords[1], pWords[2], pWords[3]);
        }
    }

    std::mutex m_Mutex;
    std::FILE* m_pFile;
};

} // namespace

std::shared_ptr<ITraceSink> MakeCallbackTrace(PlatformTraceCallback pCallback, void* pUser)
{
    return std::make_shared<CCallbackTrace>(pCallback, pUser);
}

std::shared_ptr<ITraceSink> MakeFileTrace(const std::string& strPath)
{
    std::FILE* pFile = std::fopen(strPath.c_str(), "a");
    return pFile ? std::make_shared<CFileTrace>(pFile) : nullptr;
}

} // namespace KestrelPlatform::Runtime

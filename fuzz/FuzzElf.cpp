#include "fuzz/ElfChanges.h"
#include "fuzz/Targets.h"

#include "platform/compiler/ElfReader.h"

#include "fuzz/CompilerLibrary.h"

namespace KestrelFuzz
{

void FuzzElf(const uint8_t* pData, size_t nSize)
{
    OpenCompilerLibrary();
    const std::vector<char> vImage(pData, pData + nSize);
    ChangeImage(vImage, CheckWritten);

    KestrelPlatform::CElfReader reader;
    std::string strError;
    const bool bRead = reader.Read(vImage.data(), vImage.size(), strError);
    Require(bRead || !strError.empty(), "an image that the platform refuses has a reason");
}

} // namespace KestrelFuzz

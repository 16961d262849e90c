#include "modules/QRLModules.h"

namespace
{

template <class Entry>
bool LookUpEntry(const DynamicLibraryModule& library, const char* szName, Entry& entry)
{
    entry = reinterpret_cast<Entry>(library.GetProcAddress(szName));
    return entry != nullptr;
}

} // namespace

#define QRL_LOOK_UP_RT(name, type) bAll = LookUpEntry(library, "qrl" #name, name) && bAll;
#define QRL_LOOK_UP_CL(name, type) bAll = LookUpEntry(library, "qrlcl" #name, name) && bAll;
#define QRL_LOOK_UP_DD(name, type) bAll = LookUpEntry(library, "qrlddi" #name, name) && bAll;

bool SQRLRTEntryPoints::LookUp(const DynamicLibraryModule& library)
{
    bool bAll = true;
    QRL_RT_ENTRY_POINTS(QRL_LOOK_UP_RT)
    return bAll;
}

bool SQRLCLEntryPoints::LookUp(const DynamicLibraryModule& library)
{
    bool bAll = true;
    QRL_CL_ENTRY_POINTS(QRL_LOOK_UP_CL)
    return bAll;
}

bool SQRLDDEntryPoints::LookUp(const DynamicLibraryModule& library)
{
    bool bAll = true;
    QRL_DD_ENTRY_POINTS(QRL_LOOK_UP_DD)
    return bAll;
}

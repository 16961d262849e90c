#ifndef KESTREL_TOOLS_COMMAND_PROMPTSETTINGS_H
#define KESTREL_TOOLS_COMMAND_PROMPTSETTINGS_H

#include "tools/session/debug/Debugger.h"

namespace KestrelTool
{

/// A setting by name; set throws CCommandError for an invalid value.
struct SSetting
{
    const char* pszName;
    const char* pszText;
    std::string (*get)(const SSettings& settings);
    void (*set)(SSettings& settings, const std::string& strValue);
};

extern const SSetting g_Settings[];
extern const size_t g_nSettings;

} // namespace KestrelTool

#endif

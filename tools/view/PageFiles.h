#ifndef KESTREL_TOOLS_VIEW_PAGEFILES_H
#define KESTREL_TOOLS_VIEW_PAGEFILES_H

namespace KestrelTool
{

/// A file of the page, as tools/view/page has it.
struct SPageFile
{
    const char* pszName; ///< in the page's address; empty for the page itself
    const char* pszType;
    const char* pszText;
};

extern const SPageFile g_PageFiles[6];

} // namespace KestrelTool

#endif

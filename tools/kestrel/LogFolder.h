#ifndef KESTREL_TOOLS_LOGFOLDER_H
#define KESTREL_TOOLS_LOGFOLDER_H

namespace KestrelTool
{

/// Leads the library's logs out of the current folder, unless OVK_CL_DEBUG_LOG_FOLDER says where they go: into
/// "kestrel" in the user's folder for state, XDG_STATE_HOME or ~/.local/state (XDG Base Directory Specification). A
/// session's log that has grown past 1 MiB begins anew, and the old one is kept beside it. Where there is no such
/// folder, and none can be made, nothing is logged. Call it before the library is opened.
void ChooseLogFolder();

} // namespace KestrelTool

#endif

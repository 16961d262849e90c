#ifndef KESTREL_TOOLS_LOGFOLDER_H
#define KESTREL_TOOLS_LOGFOLDER_H

namespace KestrelTool
{

/// Sets the folder of the library's logs, unless OVK_CL_DEBUG_LOG_FOLDER does: "kestrel" in the user's state folder,
/// XDG_STATE_HOME or ~/.local/state (XDG Base Directory Specification). A session that finds a log larger than 1 MiB
/// starts a new one, and keeps the old one beside it. If the folder doesn't exist and can't be created, nothing is
/// logged. To be called before the library is opened.
void ChooseLogFolder();

} // namespace KestrelTool

#endif

#ifndef KESTREL_API_COMMANDINTERCEPT_H
#define KESTREL_API_COMMANDINTERCEPT_H

#include <CL/cl.h>

/// The hook that the OpenCL runtime calls on a thread of its own for each command of an intercepted queue, when
/// the command is about to run. A launch that carries an open session is debugged here.
/// \param errcode_ret  receives the code that the command ends with; may be null
/// \return 1 if the command has been dealt with, 0 if the runtime shall run it
extern "C" cl_int CL_CALLBACK CommandInterceptCallback(cl_event event, cl_int* errcode_ret);

#endif

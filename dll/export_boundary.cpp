// Every export enters the DLL here. The build binds each name of
// exports/Tessel_CA.def to a thunk of its own (export_thunks.inc, made from
// the .def), which runs the action through AtBoundary. Only the DLL links
// this unit: test programs call the actions of the static library directly.
#include "frame/frame.h"

namespace {

// What Windows reports for a C++ exception: the code the Microsoft
// compiler's throw raises.
const DWORD kCppExceptionCode = 0xE06D7363;

typedef UINT(__stdcall* Action)(MSIHANDLE);

// An exception that escapes an action leaves the DLL as Windows knows an
// escaping C++ exception: a noncontinuable structured exception with the C++
// code, which the host's unhandled-exception filter sees. Whatever runtime
// built the DLL, its own way of throwing never reaches the host.
UINT AtBoundary(Action action, MSIHANDLE session)
{
    UINT result = ERROR_INSTALL_FAILURE;
    try {
        result = action(session);
    } catch (...) {
        RaiseException(kCppExceptionCode, EXCEPTION_NONCONTINUABLE, 0, NULL);
    }
    return result;
}

}  // namespace

#define TESSEL_EXPORT(name)                                       \
    extern "C" UINT __stdcall name(MSIHANDLE);                    \
    extern "C" UINT __stdcall name##AtBoundary(MSIHANDLE session) \
    {                                                             \
        return AtBoundary(name, session);                         \
    }
#include "dll/export_thunks.inc"

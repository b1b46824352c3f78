// Everything the library builds when it is loaded, in one translation unit so
// that the order below is the order of construction (and the reverse of
// destruction at unload). There is no DllMain of our own. Only the DLL links
// this unit: programs that link the static library make their own.
#include "frame/frame.h"
#include "framework/exception_handler.h"
#include "framework/kestra_logger.h"
#include "toolkit/registry.h"

// 1. The standard library's own objects come first, before this unit.

// 2. The process-wide list of key names; starts empty.
std::vector<std::wstring> g_keyNameList;

// 3. IsWow64Process as the loader found it. Kept, though IsWow64 looks the
//    function up again on every call.
FARPROC g_isWow64Process =
    GetProcAddress(GetModuleHandleW(L"kernel32"), "IsWow64Process");

// 4. The crash reporter: from here on an exception that nobody in the host
//    handles is reported beside the host's executable.
CExceptionHandler g_exceptionHandler;

// 5. The logger facade, which opens nothing yet.
KestraLogger g_kestraLogger;

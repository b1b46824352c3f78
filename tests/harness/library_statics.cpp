// The library's process-wide objects for programs that link the static library
// instead of loading the DLL. The DLL builds its own at load, with the crash
// reporter among them; a test program must not install that.
#include "framework/kestra_logger.h"
#include "toolkit/registry.h"

std::vector<std::wstring> g_keyNameList;
KestraLogger g_kestraLogger;

// Stands in for the installer's custom-action host: calls one export of
// Tessel_CA.dll on a thread of its own, in a session with the given properties.
//   action_host.exe EXPORT [NAME=VALUE ...]
// Its unhandled-exception filter is the one the DLL installs when it loads:
// an exception that escapes the action is reported in action_host.RPT beside
// it, and the process ends with the exception's code. Otherwise it exits with
// the action's result.
#include "harness/harness.h"

namespace {

harness::Rows g_properties;
std::string g_export;

DWORD WINAPI CallExport(LPVOID)
{
    harness::Session session(g_properties, {});
    return session.Call(g_export.c_str());
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    const std::wstring name = argv[1];
    g_export.assign(name.begin(), name.end());
    for (int i = 2; i < argc; ++i) {
        const std::wstring property = argv[i];
        const size_t equals = property.find(L'=');
        g_properties.push_back({property.substr(0, equals), property.substr(equals + 1)});
    }
    HANDLE thread = CreateThread(NULL, 0, CallExport, NULL, 0, NULL);
    WaitForSingleObject(thread, INFINITE);
    DWORD result = 0;
    GetExitCodeThread(thread, &result);
    return static_cast<int>(result);
}

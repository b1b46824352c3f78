// A stand-in for the shell extension library: registering it writes its
// class key with its own path, as regsvr32 has a real library do.
#include <windows.h>

#include <string>

namespace {

const wchar_t kClassKey[] = L"CLSID\\{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5}";
HMODULE g_self = NULL;

}  // namespace

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
        g_self = instance;
    return TRUE;
}

extern "C" __declspec(dllexport) HRESULT __stdcall DllRegisterServer()
{
    wchar_t path[MAX_PATH];
    const DWORD chars = GetModuleFileNameW(g_self, path, MAX_PATH);
    const std::wstring key = std::wstring(kClassKey) + L"\\InprocServer32";
    return HRESULT_FROM_WIN32(RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), NULL, REG_SZ, path,
                                              (chars + 1) * sizeof(wchar_t)));
}

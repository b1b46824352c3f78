// A stand-in for the shell extension library: registering it writes its
// class key with its own path, as regsvr32 has a real library do.
#include <windows.h>

#include <string>

extern "C" __declspec(dllexport) HRESULT __stdcall DllRegisterServer()
{
    HMODULE self = NULL;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&DllRegisterServer), &self);
    wchar_t path[MAX_PATH];
    const DWORD chars = GetModuleFileNameW(self, path, MAX_PATH);
    const std::wstring key = L"CLSID\\{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5}\\InprocServer32";
    return HRESULT_FROM_WIN32(RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), NULL, REG_SZ, path,
                                              (chars + 1) * sizeof(wchar_t)));
}

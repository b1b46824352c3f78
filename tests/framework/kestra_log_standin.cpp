// A stand-in for the suite's kestraLog.dll: reports the level in
// KESTRALOG_LEVEL (2 if unset) and appends each line it is given, behind its
// level and a "|", to C:\tessel\scratch\kestraLog.lines (UTF-16). Built
// without Log_WriteLogW as a second stand-in.
#include <windows.h>

#include <string>

extern "C" __declspec(dllexport) int __cdecl Log_getLogLevel(void*)
{
    wchar_t value[16];
    DWORD length = GetEnvironmentVariableW(L"KESTRALOG_LEVEL", value, 16);
    return (length > 0 && length < 16) ? _wtoi(value) : 2;
}

#ifndef STANDIN_WITHOUT_WRITE
extern "C" __declspec(dllexport) BOOL __cdecl Log_WriteLogW(void*, const wchar_t* line, int level)
{
    std::wstring record = std::to_wstring(level) + L"|" + line;
    HANDLE file = CreateFileW(L"C:\\tessel\\scratch\\kestraLog.lines", FILE_APPEND_DATA, FILE_SHARE_READ, NULL,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
    DWORD written = 0;
    BOOL wrote = WriteFile(file, record.data(), static_cast<DWORD>(record.size() * sizeof(wchar_t)), &written, NULL);
    CloseHandle(file);
    return wrote;
}
#endif

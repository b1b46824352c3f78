// The recording program: appends its own command line, as one UTF-8 line, to
// "<its path>.cmdline", or to RECORDER_FILE when that is set, then exits.
// RECORDER_DELAY_MS makes it wait first and RECORDER_EXIT_CODE sets its exit code.
#include <windows.h>

#include <cstdlib>
#include <string>

namespace {

DWORD NumberFromEnvironment(const wchar_t* name)
{
    wchar_t value[32];
    DWORD length = GetEnvironmentVariableW(name, value, 32);
    return (length > 0 && length < 32) ? static_cast<DWORD>(wcstoul(value, NULL, 10)) : 0;
}

}  // namespace

int wmain()
{
    wchar_t path[MAX_PATH];
    DWORD length = GetEnvironmentVariableW(L"RECORDER_FILE", path, MAX_PATH);
    std::wstring recordPath;
    if (length > 0 && length < MAX_PATH) {
        recordPath.assign(path, length);
    } else {
        length = GetModuleFileNameW(NULL, path, MAX_PATH);
        recordPath = std::wstring(path, length) + L".cmdline";
    }

    const wchar_t* commandLine = GetCommandLineW();
    int bytes = WideCharToMultiByte(CP_UTF8, 0, commandLine, -1, NULL, 0, NULL, NULL);
    std::string line(bytes > 0 ? bytes - 1 : 0, '\0');
    WideCharToMultiByte(CP_UTF8, 0, commandLine, -1, &line[0], bytes, NULL, NULL);
    line += '\n';

    // Retry while another copy holds the file: runs may overlap.
    for (int attempt = 0; attempt < 200; ++attempt) {
        HANDLE file = CreateFileW(recordPath.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, NULL, OPEN_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, NULL);
        if (file != INVALID_HANDLE_VALUE) {
            DWORD written = 0;
            WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, NULL);
            CloseHandle(file);
            break;
        }
        Sleep(10);
    }

    Sleep(NumberFromEnvironment(L"RECORDER_DELAY_MS"));
    return static_cast<int>(NumberFromEnvironment(L"RECORDER_EXIT_CODE"));
}

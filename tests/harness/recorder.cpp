// The recording program: appends its own command line, as one UTF-8 line, to
// "<its path>.cmdline", or to RECORDER_FILE when that is set, then exits.
// RECORDER_DELAY_MS makes it wait first.
#include <windows.h>

#include <cstdlib>
#include <string>

int wmain()
{
    wchar_t self[MAX_PATH];
    GetModuleFileNameW(NULL, self, MAX_PATH);
    const wchar_t* file = _wgetenv(L"RECORDER_FILE");
    const std::wstring recordPath = file ? std::wstring(file) : std::wstring(self) + L".cmdline";

    const wchar_t* commandLine = GetCommandLineW();
    int bytes = WideCharToMultiByte(CP_UTF8, 0, commandLine, -1, NULL, 0, NULL, NULL);
    std::string line(bytes > 0 ? bytes - 1 : 0, '\0');
    WideCharToMultiByte(CP_UTF8, 0, commandLine, -1, &line[0], bytes, NULL, NULL);
    line += '\n';

    // Retry while another copy holds the file: runs may overlap.
    for (int attempt = 0; attempt < 200; ++attempt, Sleep(10)) {
        HANDLE record = CreateFileW(recordPath.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, NULL, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, NULL);
        if (record != INVALID_HANDLE_VALUE) {
            DWORD written = 0;
            WriteFile(record, line.data(), static_cast<DWORD>(line.size()), &written, NULL);
            CloseHandle(record);
            break;
        }
    }
    const wchar_t* delay = _wgetenv(L"RECORDER_DELAY_MS");
    Sleep(delay ? wcstoul(delay, NULL, 10) : 0);
    return 0;
}

// Running child programs and the recording program's side of the harness.
#include "harness/harness.h"

#include <shlobj.h>

#include <stdexcept>

namespace harness {

DWORD RunToExit(const std::wstring& commandLine)
{
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    std::wstring line = commandLine;
    if (!CreateProcessW(NULL, &line[0], NULL, NULL, FALSE, 0, NULL, NULL, &startup, &process))
        throw std::runtime_error("CreateProcessW failed");
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD exitCode = 0;
    GetExitCodeProcess(process.hProcess, &exitCode);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return exitCode;
}

std::wstring RecordFileFor(const std::wstring& programPath)
{
    return programPath + L".cmdline";
}

void InstallRecorder(const std::wstring& targetPath)
{
    std::wstring folder = targetPath.substr(0, targetPath.find_last_of(L'\\'));
    SHCreateDirectoryExW(NULL, folder.c_str(), NULL);
    if (!CopyFileW((ProgramFolder() + L"recorder.exe").c_str(), targetPath.c_str(), FALSE))
        throw std::runtime_error("the recording program could not be copied");
    DeleteFileW(RecordFileFor(targetPath).c_str());
}

std::vector<std::wstring> RecordedCommandLines(const std::wstring& programPath)
{
    std::vector<std::wstring> lines;
    HANDLE file = CreateFileW(RecordFileFor(programPath).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              NULL, OPEN_EXISTING, 0, NULL);
    if (file == INVALID_HANDLE_VALUE)
        return lines;
    std::string bytes;
    char chunk[4096];
    DWORD read = 0;
    while (ReadFile(file, chunk, sizeof(chunk), &read, NULL) && read > 0)
        bytes.append(chunk, read);
    CloseHandle(file);

    // One UTF-8 line per run.
    size_t start = 0;
    for (size_t end; (end = bytes.find('\n', start)) != std::string::npos; start = end + 1) {
        std::string utf8 = bytes.substr(start, end - start);
        int length = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), NULL, 0);
        std::wstring line(length, L'\0');
        MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), &line[0], length);
        lines.push_back(line);
    }
    return lines;
}

}  // namespace harness

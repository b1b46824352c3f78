// Running child programs and the recording program's side of the harness.
#include "harness/harness.h"

#include <stdexcept>

namespace harness {

DWORD RunToExit(const std::wstring& commandLine, DWORD timeoutMs)
{
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    std::wstring line = commandLine;
    if (!CreateProcessW(NULL, &line[0], NULL, NULL, FALSE, 0, NULL, NULL, &startup, &process))
        throw std::runtime_error("CreateProcessW failed");
    DWORD exitCode = STILL_ACTIVE;
    if (WaitForSingleObject(process.hProcess, timeoutMs) == WAIT_TIMEOUT)
        TerminateProcess(process.hProcess, STILL_ACTIVE);
    WaitForSingleObject(process.hProcess, INFINITE);
    GetExitCodeProcess(process.hProcess, &exitCode);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return exitCode;
}

void InstallRecorder(const std::wstring& targetPath)
{
    MakeFolders(targetPath.substr(0, targetPath.find_last_of(L'\\')));
    if (!CopyFileW((ProgramFolder() + L"recorder.exe").c_str(), targetPath.c_str(), FALSE))
        throw std::runtime_error("the recording program could not be copied");
    DeleteFileW((targetPath + L".cmdline").c_str());
}

std::vector<std::wstring> RecordedCommandLines(const std::wstring& programPath)
{
    // One UTF-8 line per run.
    const std::string bytes = ReadFileBytes(programPath + L".cmdline");
    std::vector<std::wstring> lines;
    for (size_t start = 0, end; bytes != "<missing>" && (end = bytes.find('\n', start)) != std::string::npos;
         start = end + 1) {
        const int count = static_cast<int>(end - start);
        std::wstring line(MultiByteToWideChar(CP_UTF8, 0, &bytes[start], count, NULL, 0), L'\0');
        MultiByteToWideChar(CP_UTF8, 0, &bytes[start], count, &line[0], static_cast<int>(line.size()));
        lines.push_back(line);
    }
    return lines;
}

}  // namespace harness

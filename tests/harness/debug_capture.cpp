// Capturing what a program sends to the debugger: Wine shows OutputDebugString
// texts nowhere else, so the test becomes the program's debugger.
#include "harness/harness.h"

#include <cstring>
#include <stdexcept>

namespace harness {

namespace {

const UINT kEndedByCapture = 0xDEAD;

// WaitForDebugEvent hands every debug string over as narrow text, its null counted.
std::wstring ReadDebugString(HANDLE process, const OUTPUT_DEBUG_STRING_INFO& info)
{
    std::string buffer(info.nDebugStringLength, '\0');
    SIZE_T read = 0;
    ReadProcessMemory(process, info.lpDebugStringData, &buffer[0], buffer.size(), &read);
    buffer.resize(strnlen(buffer.c_str(), read));
    std::wstring text(MultiByteToWideChar(CP_ACP, 0, buffer.data(), static_cast<int>(buffer.size()), NULL, 0), L'\0');
    MultiByteToWideChar(CP_ACP, 0, buffer.data(), static_cast<int>(buffer.size()), &text[0],
                        static_cast<int>(text.size()));
    return text;
}

}  // namespace

DebugOutput RunUnderDebugger(const std::wstring& commandLine, DWORD timeoutMs)
{
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    std::wstring line = commandLine;
    if (!CreateProcessW(NULL, &line[0], NULL, NULL, FALSE, DEBUG_ONLY_THIS_PROCESS, NULL, NULL, &startup,
                        &process))
        throw std::runtime_error("CreateProcessW failed");
    CloseHandle(process.hThread);

    DebugOutput output;
    output.finished = true;
    const DWORD begin = GetTickCount();
    bool exited = false;
    while (!exited) {
        // Out of time: end the program, then drain its last events.
        DWORD wait = 5000;
        if (output.finished) {
            DWORD elapsed = GetTickCount() - begin;
            if (elapsed >= timeoutMs) {
                output.finished = false;
                TerminateProcess(process.hProcess, kEndedByCapture);
            } else {
                wait = timeoutMs - elapsed;
            }
        }
        DEBUG_EVENT event = {};
        if (!WaitForDebugEvent(&event, wait)) {
            if (!output.finished)
                throw std::runtime_error("the debugged program did not end after it was terminated");
            continue;
        }
        DWORD continueStatus = DBG_CONTINUE;
        switch (event.dwDebugEventCode) {
        case CREATE_PROCESS_DEBUG_EVENT:
            if (event.u.CreateProcessInfo.hFile != NULL)
                CloseHandle(event.u.CreateProcessInfo.hFile);
            break;
        case LOAD_DLL_DEBUG_EVENT:
            if (event.u.LoadDll.hFile != NULL)
                CloseHandle(event.u.LoadDll.hFile);
            break;
        case OUTPUT_DEBUG_STRING_EVENT:
            output.messages.push_back(ReadDebugString(process.hProcess, event.u.DebugString));
            break;
        case EXCEPTION_DEBUG_EVENT:
            // The loader's breakpoint is ours to pass; anything else is the program's.
            if (event.u.Exception.ExceptionRecord.ExceptionCode != EXCEPTION_BREAKPOINT)
                continueStatus = DBG_EXCEPTION_NOT_HANDLED;
            break;
        case EXIT_PROCESS_DEBUG_EVENT:
            output.exitCode = event.u.ExitProcess.dwExitCode;
            exited = true;
            break;
        default:
            break;
        }
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId, continueStatus);
    }
    CloseHandle(process.hProcess);
    return output;
}

}  // namespace harness

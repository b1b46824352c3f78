// Starting child processes. A launch counts as done when the process exists;
// what it returns is never read.
#include "toolkit/process.h"

#include "frame/frame.h"
#include "frame/platform.h"

#include <sddl.h>
#include <shellapi.h>
#include <shlobj.h>

#include <sstream>

namespace {

// Generic all for Local System, the administrators and the creator owner;
// read, write and execute for interactive users.
const wchar_t kChildProcessDescriptor[] =
    L"D:(A;OICI;GA;;;SY)(A;OICI;GA;;;BA)(A;OICI;GA;;;CO)(A;OICI;GRGWGX;;;IU)";

const wchar_t* ShellErrorText(INT_PTR code)
{
    switch (code) {
    case 0:
        return L"The operating system is out of memory or resources";
    case SE_ERR_FNF:
        return L"File not found.";
    case SE_ERR_PNF:
        return L"Path not found.";
    case SE_ERR_ACCESSDENIED:
        return L"Access denied.";
    case SE_ERR_OOM:
        return L"Out of memory.";
    case SE_ERR_SHARE:
        return L"Cannot share an open file.";
    case SE_ERR_ASSOCINCOMPLETE:
        return L"File association information not complete.";
    case SE_ERR_DDETIMEOUT:
        return L" The DDE transaction could not be completed because the request timed out";
    case SE_ERR_DDEFAIL:
        return L"DDE operation failed.";
    case SE_ERR_DDEBUSY:
        return L"DDE operation is busy.";
    case SE_ERR_NOASSOC:
        return L"File association not available.";
    case SE_ERR_DLLNOTFOUND:
        return L"Dynamic-link library not found.";
    default:
        return L"Unknown error, could be SE_ERR_FNF, or SE_ERR_PNF";
    }
}

// Runs the system's task killer with `switches`. The quotes enclose the whole
// line, switches included, as the suite has always launched it.
bool RunTaskKill(const std::wstring& switches)
{
    std::wstring systemFolder;
    GetSpecialFolder(CSIDL_SYSTEM, systemFolder);
    std::wostringstream line;
    line << L"\"" << systemFolder << L"\\" << L"TaskKill.exe" << switches << L"\"";
    return LaunchCommandLine(LaunchProcess, line.str(), true);
}

}  // namespace

bool LaunchCommandLine(Launcher launch, const std::wstring& line, bool wait)
{
    wchar_t commandLine[kCommandLineChars + 1];
    BoundedCopy(commandLine, kCommandLineChars, line.c_str(), kCommandLineChars);
    return launch(commandLine, line, wait);
}

bool LaunchProcess(wchar_t* commandLine, const std::wstring&, bool wait)
{
    STARTUPINFOW startup;
    ZeroMemory(&startup, sizeof(startup));
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process;
    ZeroMemory(&process, sizeof(process));

    // A failed launch shows only in the result; the caller reports it.
    if (!CreateProcessW(NULL, commandLine, NULL, NULL, FALSE, CREATE_NO_WINDOW, NULL, NULL, &startup, &process))
        return false;
    if (wait)
        WaitForSingleObject(process.hProcess, INFINITE);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return true;
}

bool LaunchProcessSecured(wchar_t* commandLine, const std::wstring&, bool wait)
{
    STARTUPINFOW startup;
    ZeroMemory(&startup, sizeof(startup));
    startup.cb = sizeof(startup);
    SECURITY_ATTRIBUTES attributes;
    attributes.nLength = sizeof(attributes);
    attributes.lpSecurityDescriptor = NULL;
    attributes.bInheritHandle = TRUE;

    // Without the descriptor the child still starts, with the default security.
    // The converted descriptor stays for the life of the process.
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(kChildProcessDescriptor, SDDL_REVISION_1,
                                                              &attributes.lpSecurityDescriptor, NULL)) {
        wchar_t message[400];
        wsprintfW(message, L"TESSEL_CA Failed to ConvertStringSecurityDescriptorToSecurityDescriptor: error = %d\n",
                  GetLastError());
        LogMessage(g_hSession, L"%s", message);
    } else {
        LogMessage(g_hSession, L"TESSEL_CA Security String converted");
    }

    PROCESS_INFORMATION process;
    ZeroMemory(&process, sizeof(process));
    if (!CreateProcessW(NULL, commandLine, &attributes, NULL, FALSE, 0, NULL, NULL, &startup, &process)) {
        DWORD error = GetLastError();
        std::wostringstream failure;
        failure << L"\nTESSEL_CA Failed to lauch >" << commandLine << L"<\n Last error return: " << error << L"\n";
        LogMessage(g_hSession, L"%s", failure.str().c_str());
        return false;
    }
    if (wait) {
        LogMessage(g_hSession, L"CreateProcess successfully launched %s \nWaitng for process to return...", commandLine);
        WaitForSingleObject(process.hProcess, INFINITE);
        LogMessage(g_hSession, L"CreateProcess successfully returned from wait after launching %s \n", commandLine);
    } else {
        LogMessage(g_hSession, L"CreateProcess successfully launched %s \nWating flag was not set.", commandLine);
    }
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return true;
}

bool ShellLaunch(const wchar_t* file, const wchar_t* parameters, bool wait)
{
    SHELLEXECUTEINFOW info;
    ZeroMemory(&info, sizeof(info));
    info.cbSize = sizeof(info);
    info.fMask = SEE_MASK_NOCLOSEPROCESS;
    info.lpVerb = L"open";
    info.lpFile = file;
    info.lpParameters = parameters;
    info.nShow = SW_SHOWNORMAL;

    if (!ShellExecuteExW(&info)) {
        LogMessage(g_hSession, L"Tessel_CA failed to launch the following: %s",
                   ShellErrorText(reinterpret_cast<INT_PTR>(info.hInstApp)));
        return false;
    }
    // The process handle is left open, as it always has been.
    if (wait) {
        LogMessage(g_hSession, L"Tessel_CA launched the following successfully: %s \nWaiting for process to end...",
                   file);
        WaitForSingleObject(info.hProcess, INFINITE);
        LogMessage(g_hSession, L"Tessel_CA Process: %s \nsuccessfully ended launching", file);
    } else {
        LogMessage(g_hSession, L"Tessel_CA launched the following successfully: %s", file);
    }
    return true;
}

UINT KillMarlinSettings()
{
    return RunTaskKill(L" /IM MarlinSettings.exe /F") ? kResultSuccess : kResultInstallFailure;
}

bool KillProcessByImage(const std::wstring& imageName)
{
    return RunTaskKill(L" /IM " + imageName + L" /F");
}

void FormatSystemMessage(DWORD messageId, wchar_t* buffer, DWORD length)
{
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, NULL, messageId,
                   MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), buffer, length, NULL);
}

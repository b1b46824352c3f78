// Child processes: the three launchers, the kills by image name and the
// system's message texts. A launcher's result says the child was started;
// no exit code is ever read, and no wait has a time-out. LaunchProcessSecured
// and ShellLaunch log through g_hSession: store the session first.
#pragma once

#include <windows.h>

#include <string>

// `commandLine` must be writable: CreateProcessW may change it. `text` carries
// the same line as the caller built it and is not looked at.
bool LaunchProcess(wchar_t* commandLine, const std::wstring& text, bool wait);
bool LaunchProcessSecured(wchar_t* commandLine, const std::wstring& text, bool wait);
bool ShellLaunch(const wchar_t* file, const wchar_t* parameters, bool wait);

// Copies a composed command line through BoundedCopy into its fixed buffer and
// hands it to `launch` (LaunchProcess or LaunchProcessSecured). A line of 519
// characters or more ends the process in the copy.
typedef bool (*Launcher)(wchar_t* commandLine, const std::wstring& text, bool wait);
bool LaunchCommandLine(Launcher launch, const std::wstring& line, bool wait);

UINT KillMarlinSettings();
bool KillProcessByImage(const std::wstring& imageName);

void FormatSystemMessage(DWORD messageId, wchar_t* buffer, DWORD length);

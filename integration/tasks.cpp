// The settings application's scheduled tasks: each definition the package
// carries is registered with schtasks, then the task's action is pointed at
// the program where it was installed; at removal the tasks are deleted. None
// of these actions looks at its session: results are all they report.
#include "frame/frame.h"
#include "frame/platform.h"
#include "integration/integration.h"
#include "toolkit/process.h"
#include "toolkit/registry.h"

#include <shlobj.h>
#include <shlwapi.h>

#include <string>

namespace {

// schtasks' command lines are formatted into a buffer of this many characters.
const size_t kTaskCommandChars = 260;

const wchar_t kCreateFormat[] = L"schtasks /Create /TN \"%s\" /XML \"%s\"";
// The task's action is the quoted program and its argument: an empty argument
// leaves a quote and a blank at the end.
const wchar_t kChangeFormat[] = L"schtasks /change /TN \"%s\" /TR \"\\\"%s\\\" %s\"";
const wchar_t kDeleteFormat[] = L"schtasks /delete /TN \"%s\" /F";

const std::wstring kLocation = std::wstring(kHalyardInstallKey) + L"\\Location";

struct Task {
    const wchar_t* name;  // also the name of the Run value the task replaces
    const wchar_t* definition;
    const wchar_t* program;
    const wchar_t* argument;
};

const Task kHalyardTask = {L"StartHalyard", L"StartHalyard.xml", L"halyardcmd.exe", L"startwithdelay"};
const Task kDvrTask = {L"StartDVR", L"StartDVR.xml", L"CaptureServCmd.exe", L""};
const Task kBenchmarkTask = {L"StartHalyardBM", L"StartHalyardBM.xml", L"halyardcmd.exe", L"benchmark"};

// schtasks' exit code is never read: true when it could be started.
bool RunTaskCommand(bool wait, const wchar_t* format, const wchar_t* name, const wchar_t* first = L"",
                    const wchar_t* second = L"")
{
    wchar_t commandLine[kTaskCommandChars] = L"";
    BoundedFormat(commandLine, kTaskCommandChars, format, name, first, second);
    return LaunchProcess(commandLine, commandLine, wait);
}

std::wstring ApplicationFolder()
{
    return registry_string(kLocation).read();
}

std::wstring DefinitionPath(const Task& task)
{
    const std::wstring folder = ApplicationFolder();
    return folder + PathSeparatorFor(folder.c_str()) + task.definition;
}

// The task must exist before it is changed; the change itself runs detached.
void RegisterTask(const Task& task, const std::wstring& definition)
{
    RunTaskCommand(true, kCreateFormat, task.name, definition.c_str());
    // Always a backslash here: a folder that ends in one gives two.
    const std::wstring program = ApplicationFolder() + L"\\" + task.program;
    RunTaskCommand(false, kChangeFormat, task.name, program.c_str(), task.argument);
}

// The system folder is asked for and its answer never used, as it always was.
void AskForSystemFolder()
{
    std::wstring systemFolder;
    GetSpecialFolder(CSIDL_SYSTEM, systemFolder);
}

UINT CreateLogonTask(const Task& task)
{
    AskForSystemFolder();
    // The task takes the Run value's place, also when the action then fails.
    DeleteRunValue(task.name);
    if (!registry_value(kLocation).exists())
        return kResultInstallFailure;
    RegisterTask(task, DefinitionPath(task));
    return kResultSuccess;
}

UINT DeleteTask(const wchar_t* name)
{
    return RunTaskCommand(true, kDeleteFormat, name) ? kResultOne : kResultSuccess;
}

}  // namespace

extern "C" UINT __stdcall CreateLogonSchTask(MSIHANDLE /*hInstall*/)
{
    return CreateLogonTask(kHalyardTask);
}

extern "C" UINT __stdcall CreateDVRLogonSchTask(MSIHANDLE /*hInstall*/)
{
    return CreateLogonTask(kDvrTask);
}

extern "C" UINT __stdcall CreateBenchMarkRunOnceSchTask(MSIHANDLE /*hInstall*/)
{
    AskForSystemFolder();
    // The user ran the benchmark already: only the text "1" says so.
    registry_string benchmark(L"SOFTWARE\\Orvel\\Halyard\\GiBenchmark");
    benchmark.hive = HKEY_CURRENT_USER;
    if (benchmark.exists() && benchmark.read() == L"1")
        return kResultSuccess;
    if (!registry_value(kLocation).exists())
        return kResultSuccess;
    const std::wstring definition = DefinitionPath(kBenchmarkTask);
    if (!PathFileExistsW(definition.c_str()))
        return kResultSuccess;

    // The copy, with its start moved to tomorrow, is what gets registered; it
    // stays in the temporary folder. Without one the copy's path is empty.
    wchar_t tempFolder[MAX_PATH] = L"";
    std::wstring copy;
    if (GetTempPathW(MAX_PATH, tempFolder) > 0)
        copy = std::wstring(tempFolder) + kBenchmarkTask.definition;
    RewriteStartBoundary(definition, copy);
    RegisterTask(kBenchmarkTask, copy);
    return kResultSuccess;
}

// The removals pass on whether schtasks could be started: 1 when it was.
extern "C" UINT __stdcall RemoveHalyardSchedularTask(MSIHANDLE /*hInstall*/)
{
    return DeleteTask(kHalyardTask.name);
}

extern "C" UINT __stdcall RemoveDVRSchedularTask(MSIHANDLE /*hInstall*/)
{
    return DeleteTask(kDvrTask.name);
}

extern "C" UINT __stdcall RemoveBenchMarkRunOnceSchedularTask(MSIHANDLE /*hInstall*/)
{
    return DeleteTask(kBenchmarkTask.name);
}

// The updater's task; nothing here creates it.
extern "C" UINT __stdcall RemoveSchedularTask(MSIHANDLE /*hInstall*/)
{
    return DeleteTask(L"Orvel Updater");
}

// A branded install that starts lazily has no logon task.
extern "C" UINT __stdcall DeleteSchedTaskonBranding(MSIHANDLE /*hInstall*/)
{
    HKEY key = NULL;
    DWORD lazeStart = 0;
    DWORD bytes = sizeof(lazeStart);
    // The key is left open, as it always was.
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel\\Halyard", 0, KEY_READ, &key) == ERROR_SUCCESS &&
        RegQueryValueExW(key, L"LazeStart", NULL, NULL, reinterpret_cast<BYTE*>(&lazeStart), &bytes) ==
            ERROR_SUCCESS &&
        lazeStart == 1)
        RunTaskCommand(true, kDeleteFormat, kHalyardTask.name);
    return kResultSuccess;
}

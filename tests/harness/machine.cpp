// The machine the tests run on: setting up and checking registry values and
// files one way for every test, clearing what a test program's actions touch
// (with the lock that keeps test programs run side by side under ctest -j off
// each other), and running child programs and the recording program.
#include "harness/harness.h"

#include <shellapi.h>
#include <shlobj.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace harness {

namespace {

struct KeyCloser {
    void operator()(HKEY key) const { RegCloseKey(key); }
};
typedef std::unique_ptr<std::remove_pointer<HKEY>::type, KeyCloser> OpenKey;

// Null when the key can't be opened.
OpenKey Open(HKEY root, const std::wstring& path, REGSAM access)
{
    HKEY key = NULL;
    RegOpenKeyExW(root, path.c_str(), 0, access, &key);
    return OpenKey(key);
}

// RegGetValueW names the views with the same bits, eight places up.
DWORD ViewFlag(REGSAM view)
{
    return static_cast<DWORD>(view) << 8;
}

Lines Enumerate(HKEY root, const std::wstring& key, REGSAM view, bool values)
{
    Lines names;
    OpenKey open = Open(root, key, KEY_READ | view);
    wchar_t name[1024];
    for (DWORD i = 0, chars = 1024; open != NULL; ++i, chars = 1024) {
        if ((values ? RegEnumValueW(open.get(), i, name, &chars, NULL, NULL, NULL, NULL)
                    : RegEnumKeyExW(open.get(), i, name, &chars, NULL, NULL, NULL, NULL)) != ERROR_SUCCESS)
            break;
        names.push_back(name);
    }
    return names;
}

void DeleteFolderTree(const std::wstring& folder)
{
    // SHFileOperationW wants a list ending in two nulls.
    const std::wstring from = folder + L'\0';
    SHFILEOPSTRUCTW operation = {};
    operation.wFunc = FO_DELETE;
    operation.pFrom = from.c_str();
    operation.fFlags = FOF_NO_UI;
    if (Exists(folder))
        SHFileOperationW(&operation);
}

// Stops a test service, ending its process if it won't stop, and deletes it.
void RemoveService(SC_HANDLE manager, const wchar_t* name)
{
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_ALL_ACCESS);
    if (service == NULL)
        return;
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    SERVICE_STATUS ignored = {};
    ControlService(service, SERVICE_CONTROL_STOP, &ignored);
    for (int poll = 0; poll < 20; ++poll, Sleep(50))
        if (!QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status), sizeof(status),
                                  &needed) ||
            status.dwCurrentState == SERVICE_STOPPED)
            break;
    // Wine goes on reporting an ended process's last state; the delete works all the same.
    if (HANDLE process = status.dwCurrentState == SERVICE_STOPPED
                             ? NULL
                             : OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, status.dwProcessId)) {
        TerminateProcess(process, 1);
        WaitForSingleObject(process, 5000);
        CloseHandle(process);
    }
    DeleteService(service);
    CloseServiceHandle(service);
    // The name is free once the manager has let the service go.
    for (int attempt = 0; attempt < 100 && (service = OpenServiceW(manager, name, SERVICE_QUERY_STATUS)); ++attempt) {
        CloseServiceHandle(service);
        Sleep(50);
    }
}

HANDLE MachineLock()
{
    static HANDLE mutex = CreateMutexW(NULL, FALSE, L"Local\\TesselCA.MachineState");
    return mutex;
}

}  // namespace

void SetValue(HKEY root, const std::wstring& key, const std::wstring& name, DWORD type, const void* data,
              DWORD bytes, REGSAM view)
{
    HKEY handle;
    if (RegCreateKeyExW(root, key.c_str(), 0, NULL, 0, KEY_ALL_ACCESS | view, NULL, &handle, NULL) != ERROR_SUCCESS)
        throw std::runtime_error("RegCreateKeyExW failed");
    if (data != NULL)
        RegSetValueExW(handle, name.c_str(), 0, type, static_cast<const BYTE*>(data), bytes);
    RegCloseKey(handle);
}

void SetText(HKEY root, const std::wstring& key, const std::wstring& name, const std::wstring& text, REGSAM view)
{
    SetValue(root, key, name, REG_SZ, text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)), view);
}

void SetDword(HKEY root, const std::wstring& key, const std::wstring& name, DWORD value, REGSAM view)
{
    SetValue(root, key, name, REG_DWORD, &value, sizeof(value), view);
}

void CreateKey(HKEY root, const std::wstring& key, REGSAM view)
{
    SetValue(root, key, L"", REG_NONE, NULL, 0, view);
}

bool KeyExists(HKEY root, const std::wstring& key, REGSAM view)
{
    return Open(root, key, KEY_READ | view) != NULL;
}

bool HasValue(HKEY root, const std::wstring& key, const std::wstring& name, REGSAM view)
{
    return RegGetValueW(root, key.c_str(), name.c_str(), RRF_RT_ANY | ViewFlag(view), NULL, NULL, NULL) ==
           ERROR_SUCCESS;
}

std::wstring TextOf(HKEY root, const std::wstring& key, const std::wstring& name, REGSAM view)
{
    // Zeroed, so that a text stored without its terminator ends all the same.
    wchar_t data[2048] = L"";
    DWORD bytes = sizeof(data) - sizeof(wchar_t), type = 0;
    if (RegGetValueW(root, key.c_str(), name.c_str(), RRF_RT_ANY | RRF_NOEXPAND | ViewFlag(view), &type, data,
                     &bytes) != ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ))
        return L"<missing>";
    return data;
}

DWORD DwordOf(HKEY root, const std::wstring& key, const std::wstring& name, REGSAM view)
{
    DWORD value = 0, bytes = sizeof(value);
    if (RegGetValueW(root, key.c_str(), name.c_str(), RRF_RT_REG_DWORD | ViewFlag(view), NULL, &value, &bytes) !=
        ERROR_SUCCESS)
        return kMissingDword;
    return value;
}

Lines SubKeysOf(HKEY root, const std::wstring& key, REGSAM view)
{
    return Enumerate(root, key, view, false);
}

Lines ValueNamesOf(HKEY root, const std::wstring& key, REGSAM view)
{
    return Enumerate(root, key, view, true);
}

void DeleteRegTree(HKEY root, const std::wstring& key, REGSAM view)
{
    if (OpenKey open = Open(root, key, KEY_ALL_ACCESS | view))
        RegDeleteTreeW(open.get(), NULL);
    RegDeleteKeyExW(root, key.c_str(), view, 0);
}

void MakeFolders(const std::wstring& path)
{
    SHCreateDirectoryExW(NULL, path.c_str(), NULL);
}

void MakeFile(const std::wstring& path, const std::string& content, DWORD attributes)
{
    MakeFolders(path.substr(0, path.rfind(L'\\')));
    WriteFileBytes(path, content);
    if (attributes != 0)
        SetFileAttributesW(path.c_str(), attributes);
}

bool Exists(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::function<void()> Make(const Lines& paths)
{
    return [paths] {
        for (const std::wstring& path : paths)
            path.back() == L'\\' ? MakeFolders(path) : MakeFile(path);
    };
}

std::function<void(Session&)> Present(const Lines& there, const Lines& gone)
{
    return [there, gone](Session&) {
        for (const std::wstring& path : there)
            EXPECT_TRUE(Exists(path)) << "gone: " << ::testing::PrintToString(path);
        for (const std::wstring& path : gone)
            EXPECT_FALSE(Exists(path)) << "there: " << ::testing::PrintToString(path);
    };
}

std::wstring PendingRenames()
{
    std::wstring data(8192, L'\0');
    DWORD bytes = static_cast<DWORD>(data.size() * sizeof(wchar_t));
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, L"PendingFileRenameOperations", RRF_RT_REG_MULTI_SZ, NULL,
                     &data[0], &bytes) != ERROR_SUCCESS)
        return std::wstring();
    data.resize(bytes / sizeof(wchar_t));
    return data;
}

void WriteFileBytes(const std::wstring& path, const std::string& bytes)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
    if (file == INVALID_HANDLE_VALUE)
        throw std::runtime_error("a test file could not be written");
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, NULL);
    CloseHandle(file);
}

std::string ReadFileBytes(const std::wstring& path)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING, 0,
                              NULL);
    if (file == INVALID_HANDLE_VALUE)
        return "<missing>";
    std::string bytes(GetFileSize(file, NULL), '\0');
    DWORD read = 0;
    ReadFile(file, &bytes[0], static_cast<DWORD>(bytes.size()), &read, NULL);
    CloseHandle(file);
    return bytes;
}

void InstallTestService(const std::wstring& name, const std::wstring& behaviour, bool running)
{
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS);
    const std::wstring path = L"\"" + ProgramFolder() + L"test_service.exe\" \"" + name + L"\" " + behaviour;
    SC_HANDLE service = CreateServiceW(manager, name.c_str(), name.c_str(), SERVICE_ALL_ACCESS,
                                       SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE,
                                       path.c_str(), NULL, NULL, NULL, NULL, NULL);
    if (service == NULL)
        throw std::runtime_error("the test service could not be registered");
    if (running)
        StartServiceW(service, 0, NULL);
    for (int poll = 0; poll < 200 && running && ServiceState(name) != SERVICE_RUNNING; ++poll)
        Sleep(50);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
}

DWORD ServiceState(const std::wstring& name)
{
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_CONNECT);
    SC_HANDLE service = OpenServiceW(manager, name.c_str(), SERVICE_QUERY_STATUS);
    SERVICE_STATUS status = {};
    if (service == NULL || !QueryServiceStatus(service, &status))
        status.dwCurrentState = 0;
    if (service != NULL)
        CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return status.dwCurrentState;
}

void ClearArea(const Area& area)
{
    for (const KeyTree& tree : area.keys) {
        DeleteRegTree(tree.root, tree.path, KEY_WOW64_64KEY);
        DeleteRegTree(tree.root, tree.path, KEY_WOW64_32KEY);
    }
    DeleteFolderTree(kScratchFolder);
    for (const std::wstring& folder : area.folders)
        DeleteFolderTree(folder);
    // The prefix is the tests' own: whatever a test queued for the restart goes.
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, L"PendingFileRenameOperations");
    SC_HANDLE manager = area.services.empty() ? NULL : OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS);
    if (manager == NULL)
        return;
    for (const std::wstring& service : area.services)
        RemoveService(manager, service.c_str());
    CloseServiceHandle(manager);
}

void ActionTest::SetUp()
{
    // An abandoned lock (a test program that died) is ours all the same.
    WaitForSingleObject(MachineLock(), INFINITE);
    ClearArea(area_);
}

void ActionTest::TearDown()
{
    SetCurrentDirectoryW(ProgramFolder().c_str());
    ClearArea(area_);
    ReleaseMutex(MachineLock());
}

std::wstring TempFolder()
{
    wchar_t folder[MAX_PATH] = L"";
    GetTempPathW(MAX_PATH, folder);
    return folder;
}

bool EnterThrowAwayDrive()
{
    // Written through C: and read back through Q:, which proves Q: is that folder.
    MakeFile(kThrowAwayFile, "throw-away");
    return ReadFileBytes(L"Q:\\kept.txt") == "throw-away" && SetCurrentDirectoryW(L"Q:\\");
}

namespace {

PROCESS_INFORMATION Start(std::wstring line)
{
    STARTUPINFOW startup = {sizeof(startup)};
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(NULL, &line[0], NULL, NULL, FALSE, 0, NULL, NULL, &startup, &process))
        throw std::runtime_error("CreateProcessW failed");
    return process;
}

DWORD EndOf(const PROCESS_INFORMATION& process, DWORD timeoutMs)
{
    DWORD exitCode = STILL_ACTIVE;
    if (WaitForSingleObject(process.hProcess, timeoutMs) == WAIT_TIMEOUT)
        TerminateProcess(process.hProcess, STILL_ACTIVE);
    WaitForSingleObject(process.hProcess, INFINITE);
    GetExitCodeProcess(process.hProcess, &exitCode);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return exitCode;
}

}  // namespace

DWORD RunToExit(const std::wstring& commandLine, DWORD timeoutMs)
{
    return EndOf(Start(commandLine), timeoutMs);
}

DWORD RunCapturingDebugText(const std::wstring& commandLine, Lines& texts, DWORD timeoutMs)
{
    // A debug monitor's side of the system's buffer: a writer waits for
    // BUFFER_READY, puts its process id and text in, and sets DATA_READY.
    HANDLE bufferReady = CreateEventW(NULL, FALSE, FALSE, L"DBWIN_BUFFER_READY");
    HANDLE dataReady = CreateEventW(NULL, FALSE, FALSE, L"DBWIN_DATA_READY");
    HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, NULL, PAGE_READWRITE, 0, 4096, L"DBWIN_BUFFER");
    const DWORD* buffer = static_cast<const DWORD*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 4096));
    const PROCESS_INFORMATION process = Start(commandLine);
    const HANDLE events[2] = {dataReady, process.hProcess};
    // A text given before the end comes first: the lower index wins.
    for (SetEvent(bufferReady); WaitForMultipleObjects(2, events, FALSE, timeoutMs) == WAIT_OBJECT_0;
         SetEvent(bufferReady)) {
        const char* text = reinterpret_cast<const char*>(buffer + 1);
        if (buffer[0] == process.dwProcessId)
            texts.push_back(std::wstring(text, text + strlen(text)));
    }
    UnmapViewOfFile(buffer);
    for (HANDLE handle : {mapping, dataReady, bufferReady})
        CloseHandle(handle);
    return EndOf(process, 0);
}

void InstallRecorder(const std::wstring& targetPath)
{
    MakeFolders(targetPath.substr(0, targetPath.find_last_of(L'\\')));
    // A copy started detached by the test before may still be running.
    for (int attempt = 0; !CopyFileW((ProgramFolder() + L"recorder.exe").c_str(), targetPath.c_str(), FALSE);
         ++attempt, Sleep(10))
        if (attempt == 500)
            throw std::runtime_error("the recording program could not be copied");
    DeleteFileW((targetPath + L".cmdline").c_str());
}

StandIn::StandIn(const std::wstring& path) : path_(path), original_(path)
{
    // The file comes back under its own name, in its own case.
    WIN32_FIND_DATAW found;
    HANDLE find = FindFirstFileW(path.c_str(), &found);
    if (find != INVALID_HANDLE_VALUE) {
        original_ = path.substr(0, path.rfind(L'\\') + 1) + found.cFileName;
        FindClose(find);
    }
    MoveFileExW(path.c_str(), (path + L".saved").c_str(), MOVEFILE_REPLACE_EXISTING);
    InstallRecorder(path);
}

StandIn::~StandIn()
{
    for (const std::wstring& file : {path_, path_ + L".cmdline"})
        DeleteFileW(file.c_str());
    MoveFileExW((path_ + L".saved").c_str(), original_.c_str(), 0);
}

std::vector<std::wstring> RecordedCommandLines(const std::wstring& programPath, size_t atLeast)
{
    std::string bytes = ReadFileBytes(programPath + L".cmdline");
    for (int wait = 0; wait < 1000 && static_cast<size_t>(std::count(bytes.begin(), bytes.end(), '\n')) < atLeast;
         ++wait, Sleep(10))
        bytes = ReadFileBytes(programPath + L".cmdline");
    // One UTF-8 line per run.
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

// The machine state that the library's actions touch, and the lock that
// keeps test programs running side by side under ctest -j off each other.
#include "harness/harness.h"

#include <shellapi.h>

#include <stdexcept>

namespace harness {

namespace {

struct KeyTree {
    HKEY root;
    const wchar_t* path;
};

// Cleared in both registry views.
const KeyTree kKeyTrees[] = {
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\TesselTest"},
    {HKEY_CLASSES_ROOT, L"SOFTWARE\\TesselTest"},
    {HKEY_CURRENT_USER, L"SOFTWARE\\TesselTest"},
    // The suite's own records, which the removal actions clear.
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\OrvelBranding"},
    {HKEY_CURRENT_USER, L"SOFTWARE\\Orvel"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Orvel Quillon Install Manager"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\All Kestra Software"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\" TESSEL_TEST_PRODUCT_1},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\" TESSEL_TEST_PRODUCT_2},
};

// Folders removed whole.
const wchar_t* const kFolders[] = {
    L"C:\\tessel\\scratch",
    // Where the removal actions look for the suite's folders.
    L"C:\\Program Files\\Orvel",
    L"C:\\Program Files\\Kestra Technologies",
    L"C:\\Program Files\\Common Files\\Kestra Technologies",
    L"C:\\Program Files (x86)\\Kestra Technologies",
    L"C:\\ProgramData\\Orvel",
};

void DeleteFolderTree(const wchar_t* folder)
{
    // SHFileOperationW wants a list ending in two nulls.
    std::wstring from = std::wstring(folder) + L'\0';
    SHFILEOPSTRUCTW operation = {};
    operation.wFunc = FO_DELETE;
    operation.pFrom = from.c_str();
    operation.fFlags = FOF_NO_UI;
    if (GetFileAttributesW(folder) != INVALID_FILE_ATTRIBUTES)
        SHFileOperationW(&operation);
}

// Deletes queued for the restart (pairs of source and empty target) of files
// under `folder`; the others stay, and an emptied list goes.
void ClearPendingDeletesUnder(const std::wstring& folder)
{
    const wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
    const wchar_t kValue[] = L"PendingFileRenameOperations";
    HKEY key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS)
        return;
    DWORD bytes = 0;
    if (RegQueryValueExW(key, kValue, NULL, NULL, NULL, &bytes) == ERROR_SUCCESS && bytes > 0) {
        std::wstring data(bytes / sizeof(wchar_t), L'\0');
        RegQueryValueExW(key, kValue, NULL, NULL, reinterpret_cast<BYTE*>(&data[0]), &bytes);
        std::wstring kept;
        for (size_t at = 0; at < data.size();) {
            std::wstring source = data.c_str() + at;
            at += source.size() + 1;
            std::wstring target = at < data.size() ? std::wstring(data.c_str() + at) : std::wstring();
            at += target.size() + 1;
            std::wstring path = source.compare(0, 4, L"\\??\\") == 0 ? source.substr(4) : source;
            if (source.empty() || _wcsnicmp(path.c_str(), folder.c_str(), folder.size()) == 0)
                continue;
            kept += source + L'\0' + target + L'\0';
        }
        if (kept.empty())
            RegDeleteValueW(key, kValue);
        else
            RegSetValueExW(key, kValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(kept.c_str()),
                           static_cast<DWORD>((kept.size() + 1) * sizeof(wchar_t)));
    }
    RegCloseKey(key);
}

// Services the tests create: stopped (ended if they won't stop) and deleted.
const wchar_t* const kServices[] = {
    L"TesselTestServiceA",
    L"TesselTestServiceB",
    L"TesselTestServiceC",
};

// Polls for SERVICE_STOPPED for up to `timeoutMs`; `status` is the last read.
bool WaitForServiceStopped(SC_HANDLE service, DWORD timeoutMs, SERVICE_STATUS_PROCESS& status)
{
    const DWORD begin = GetTickCount();
    for (;;) {
        DWORD needed = 0;
        if (!QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status),
                                  sizeof(status), &needed))
            return false;
        if (status.dwCurrentState == SERVICE_STOPPED)
            return true;
        if (GetTickCount() - begin >= timeoutMs)
            return false;
        Sleep(50);
    }
}

void RemoveService(SC_HANDLE manager, const wchar_t* name)
{
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_ALL_ACCESS);
    if (service == NULL)
        return;
    SERVICE_STATUS_PROCESS status = {};
    if (!WaitForServiceStopped(service, 0, status)) {
        // A running one may stop by itself; a pending or stubborn one is ended.
        SERVICE_STATUS ignored = {};
        bool stopped = status.dwCurrentState == SERVICE_RUNNING &&
                       ControlService(service, SERVICE_CONTROL_STOP, &ignored) &&
                       WaitForServiceStopped(service, 2000, status);
        if (!stopped && status.dwProcessId != 0) {
            HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, status.dwProcessId);
            // Wine goes on reporting the ended process's last state; the
            // delete below works all the same.
            if (process != NULL) {
                TerminateProcess(process, 1);
                WaitForSingleObject(process, 5000);
                CloseHandle(process);
            }
        }
    }
    DeleteService(service);
    CloseServiceHandle(service);
    // The name is free once the manager has let the service go.
    for (int attempt = 0; attempt < 100; ++attempt) {
        SC_HANDLE again = OpenServiceW(manager, name, SERVICE_QUERY_STATUS);
        if (again == NULL)
            break;
        CloseServiceHandle(again);
        Sleep(50);
    }
}

HANDLE MachineLock()
{
    static HANDLE mutex = CreateMutexW(NULL, FALSE, L"Local\\TesselCA.MachineState");
    return mutex;
}

}  // namespace

void MachineState::Clear()
{
    for (const KeyTree& tree : kKeyTrees) {
        DeleteRegTree(tree.root, tree.path, KEY_WOW64_64KEY);
        DeleteRegTree(tree.root, tree.path, KEY_WOW64_32KEY);
    }
    for (const wchar_t* folder : kFolders)
        DeleteFolderTree(folder);
    ClearPendingDeletesUnder(kScratchFolder);
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS);
    if (manager != NULL) {
        for (const wchar_t* service : kServices)
            RemoveService(manager, service);
        CloseServiceHandle(manager);
    }
}

void ActionTest::SetUp()
{
    // An abandoned lock (a test program that died) is ours all the same.
    WaitForSingleObject(MachineLock(), INFINITE);
    MachineState::Clear();
}

void ActionTest::TearDown()
{
    MachineState::Clear();
    ReleaseMutex(MachineLock());
}

void WriteRegString(HKEY root, const std::wstring& key, const std::wstring& name, const std::wstring& value,
                    REGSAM view)
{
    HKEY handle;
    if (RegCreateKeyExW(root, key.c_str(), 0, NULL, 0, KEY_ALL_ACCESS | view, NULL, &handle, NULL) !=
        ERROR_SUCCESS)
        throw std::runtime_error("RegCreateKeyExW failed");
    RegSetValueExW(handle, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                   static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(handle);
}

bool ReadRegString(HKEY root, const std::wstring& key, const std::wstring& name, std::wstring& value,
                   REGSAM view)
{
    HKEY handle;
    if (RegOpenKeyExW(root, key.c_str(), 0, KEY_READ | view, &handle) != ERROR_SUCCESS)
        return false;
    wchar_t data[2048];
    DWORD bytes = sizeof(data) - sizeof(wchar_t);
    DWORD type = 0;
    LSTATUS status = RegQueryValueExW(handle, name.c_str(), NULL, &type, reinterpret_cast<BYTE*>(data), &bytes);
    RegCloseKey(handle);
    if (status != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ))
        return false;
    data[bytes / sizeof(wchar_t)] = L'\0';
    value = data;
    return true;
}

void DeleteRegTree(HKEY root, const std::wstring& key, REGSAM view)
{
    HKEY handle;
    if (RegOpenKeyExW(root, key.c_str(), 0, KEY_ALL_ACCESS | view, &handle) != ERROR_SUCCESS)
        return;
    RegDeleteTreeW(handle, NULL);
    RegCloseKey(handle);
    RegDeleteKeyExW(root, key.c_str(), view, 0);
}

}  // namespace harness

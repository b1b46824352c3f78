// The test harness: a real Windows Installer session per test, the installer's
// log as it sees it, exports called by name from the built DLL, and a clean
// machine before and after every test.
#pragma once

#include <windows.h>
#include <msi.h>
#include <msiquery.h>
#include <setupapi.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace harness {

struct Row {
    std::wstring name;
    std::wstring value;
};
typedef std::vector<Row> Rows;

// A package built in the temp folder and opened as a session. `properties` go
// into the Property table, `kestraRows` into Kestra_InstallProperties.
// The installer's UI handler is process-wide: a message goes to the session
// being opened or called, else to the newest live one, so that sessions of an
// immediate and a deferred action can live side by side in one test.
class Session {
public:
    Session(std::initializer_list<Row> properties = {}, std::initializer_list<Row> kestraRows = {})
        : Session(Rows(properties), Rows(kestraRows)) {}
    Session(const Rows& properties, const Rows& kestraRows);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    MSIHANDLE handle() const { return handle_; }

    // Calls an export of Tessel_CA.dll with this session, as the installer does.
    UINT Call(const char* exportName);

    std::wstring Property(const std::wstring& name) const;

    // INFO lines the library wrote, in order (the installer's own banner left out).
    std::vector<std::wstring> Log() const;
    // USER messages, in order.
    const std::vector<std::wstring>& UserMessages() const { return userMessages_; }

private:
    static INT CALLBACK OnMessage(LPVOID context, UINT type, LPCWSTR text);

    std::wstring path_;
    MSIHANDLE handle_;
    std::vector<std::wstring> infoLines_;
    std::vector<std::wstring> userMessages_;
};

// The built Tessel_CA.dll, loaded once per test program from beside it.
HMODULE TesselDll();
typedef UINT(__stdcall* ActionFn)(MSIHANDLE);
ActionFn Export(const char* name);

// While alive, `module`'s import of `function` from `dll` calls `standIn`.
class ImportPatch {
public:
    ImportPatch(HMODULE module, const char* dll, const char* function, void* standIn);
    ~ImportPatch();
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

private:
    void** slot_;
    void* original_;
};

// While alive, Tessel_CA.dll's MsiSetPropertyW fails for these names.
class RefusedPropertySets {
public:
    RefusedPropertySets(std::initializer_list<std::wstring> names);
    ~RefusedPropertySets();
    RefusedPropertySets(const RefusedPropertySets&) = delete;
    RefusedPropertySets& operator=(const RefusedPropertySets&) = delete;

private:
    ImportPatch patch_;
};

// While alive, `module`'s CreateProcessW fails with access denied; the
// command lines it was given are kept, in order.
class RefusedProcessStarts {
public:
    explicit RefusedProcessStarts(HMODULE module = TesselDll());
    static std::vector<std::wstring> CommandLines();

private:
    ImportPatch patch_;
};

// While alive, Wine runs these programs (as "regsvr32.exe") from the files
// found, not its built-in ones, so that a recording program can stand in.
class NativePrograms {
public:
    explicit NativePrograms(std::initializer_list<std::wstring> programs);
    ~NativePrograms();
    NativePrograms(const NativePrograms&) = delete;
    NativePrograms& operator=(const NativePrograms&) = delete;

private:
    std::vector<std::wstring> programs_;
};

// While alive, the recording program stands at `path` in place of the file
// there (a system tool: hold NativePrograms for it too), which comes back after.
class StandIn {
public:
    explicit StandIn(const std::wstring& path);
    ~StandIn();
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

private:
    std::wstring path_, original_;
};

// A tree of keys cleared in both registry views.
struct KeyTree {
    HKEY root;
    std::wstring path;
};

// What one test program's actions may touch on this machine: cleared before
// and after each test, so that no test sees another's leftovers. The scratch
// folder and the restart queue's entries under it are always cleared.
struct Area {
    std::vector<KeyTree> keys;
    std::vector<std::wstring> folders;
    std::vector<std::wstring> services;  // stopped (ended if need be) and deleted
};
void ClearArea(const Area& area);

typedef std::vector<std::wstring> Lines;

// How a case checks the action's own log lines.
struct LogCheck {
    enum Mode { kUnchecked, kExact, kIncludes };
    Mode mode = kUnchecked;
    Lines lines;
};
inline LogCheck Exactly(const Lines& lines) { return {LogCheck::kExact, lines}; }
// Each line appears, in this order, among others.
inline LogCheck Includes(const Lines& lines) { return {LogCheck::kIncludes, lines}; }

// One row of an action table: a fresh session with `properties` (a deferred
// action's CustomActionData is one of them), `arrange` run first, then the
// export called; its result, its log and `check` on the effects. A failure
// names the row.
struct ActionCase {
    std::string row;
    const char* action;
    Rows properties;
    std::function<void()> arrange;
    UINT result;
    LogCheck log;
    std::function<void(Session&)> check;
    Rows kestraRows;
};

// The base of every test that touches the machine or opens a session: holds
// the machine lock, and starts and ends on a cleared area.
class ActionTest : public ::testing::Test {
protected:
    explicit ActionTest(Area area) : area_(std::move(area)) {}
    void SetUp() override;
    void TearDown() override;
    // Runs each case on a cleared area.
    void RunCases(const std::vector<ActionCase>& cases);

private:
    Area area_;
};

// Registry helpers for setting up and checking state. `view` is 0 (native),
// KEY_WOW64_32KEY or KEY_WOW64_64KEY; keys are created as needed.
void SetValue(HKEY root, const std::wstring& key, const std::wstring& name, DWORD type, const void* data,
              DWORD bytes, REGSAM view = 0);
void SetText(HKEY root, const std::wstring& key, const std::wstring& name, const std::wstring& text,
             REGSAM view = 0);
void SetDword(HKEY root, const std::wstring& key, const std::wstring& name, DWORD value, REGSAM view = 0);
void CreateKey(HKEY root, const std::wstring& key, REGSAM view = 0);
bool KeyExists(HKEY root, const std::wstring& key, REGSAM view = 0);
bool HasValue(HKEY root, const std::wstring& key, const std::wstring& name, REGSAM view = 0);
// "<missing>" when the value is absent or no text.
std::wstring TextOf(HKEY root, const std::wstring& key, const std::wstring& name, REGSAM view = 0);
const DWORD kMissingDword = 0xDEADBEEF;
DWORD DwordOf(HKEY root, const std::wstring& key, const std::wstring& name, REGSAM view = 0);
// Names of the sub-keys, or of the values, in the registry's order.
Lines SubKeysOf(HKEY root, const std::wstring& key, REGSAM view = 0);
Lines ValueNamesOf(HKEY root, const std::wstring& key, REGSAM view = 0);
void DeleteRegTree(HKEY root, const std::wstring& key, REGSAM view = 0);

// File helpers. Folders are made with their parents.
void MakeFolders(const std::wstring& path);
void MakeFile(const std::wstring& path, const std::string& content = "x", DWORD attributes = 0);
bool Exists(const std::wstring& path);
// For a case: an arrange step that makes each path, a folder when it ends in a
// backslash, else a file; a check that `there` are there and `gone` are not.
std::function<void()> Make(const Lines& paths);
std::function<void(Session&)> Present(const Lines& there, const Lines& gone = {});
// A deferred action's only property.
inline Rows Data(const std::wstring& value) { return {{L"CustomActionData", value}}; }
// The restart queue as stored: source, target, source, ..., each ending in a null.
std::wstring PendingRenames();

// While alive, `module`'s Sleep and GetTickCount run on a clock of their own:
// a sleep advances it without waiting, and each tick read advances it by a
// millisecond, so that a spin ends too.
class FakeClock {
public:
    explicit FakeClock(HMODULE module = TesselDll());
    ~FakeClock();
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;
    // Milliseconds the clock has moved since it was made.
    static ULONGLONG Elapsed();

private:
    ImportPatch sleep_;
    ImportPatch tick_;
};

// While alive, a present display adapter (class Display) made by `manufacturer`,
// with a driver key that holds DriverVersion unless `driverVersion` is empty.
// When it goes, so do its driver key and the values named after its instance
// in the class key above ("0001DalDCELogFilePath").
class DisplayAdapter {
public:
    DisplayAdapter(const std::wstring& manufacturer, const std::wstring& driverVersion,
                   const std::wstring& description = L"");
    ~DisplayAdapter();
    DisplayAdapter(const DisplayAdapter&) = delete;

    std::wstring driverKey;  // under HKLM: "SYSTEM\...\Class\{class}\0001"
    HDEVINFO devices;        // the device as SetupAPI knows it
    SP_DEVINFO_DATA device;
};

// Product codes whose uninstall entries tests may create.
#define TESSEL_TEST_PRODUCT_1 L"{7E57C0DE-0000-4000-8000-000000000001}"
#define TESSEL_TEST_PRODUCT_2 L"{7E57C0DE-0000-4000-8000-000000000002}"

const wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";

// A folder for a test's own files, removed before and after each test.
const wchar_t kScratchFolder[] = L"C:\\tessel\\scratch\\";

// Q:, the throw-away drive that ctest's fixture maps to C:\tessel\q\
// (tests/harness/drive_and_links.sh), made the current directory: a lone "\"
// or "Q:" then reaches nothing but that folder, which holds kThrowAwayFile.
// False, and the current directory left alone, when Q: isn't that folder.
// ActionTest's TearDown goes back to the program's folder.
const wchar_t kThrowAwayFile[] = L"C:\\tessel\\q\\kept.txt";
bool EnterThrowAwayDrive();

// Folder of the running test program, and the temporary folder, each with a trailing backslash.
std::wstring ProgramFolder();
std::wstring TempFolder();

// A whole file as bytes; "<missing>" when it can't be opened.
void WriteFileBytes(const std::wstring& path, const std::string& bytes);
std::string ReadFileBytes(const std::wstring& path);

// A string of `count` copies of `c`.
inline std::wstring Repeat(wchar_t c, size_t count) { return std::wstring(count, c); }

// Registers the service tests' program (tests/toolkit/test_service.cpp) as the
// service `name`, demand start, with its `behaviour` words, and starts it if
// `running`. List the name in the test's Area so that it goes again.
void InstallTestService(const std::wstring& name, const std::wstring& behaviour = L"", bool running = false);
// SERVICE_STOPPED, SERVICE_RUNNING, ...; 0 when there is no such service.
DWORD ServiceState(const std::wstring& name);

// Runs a program to its end, or ends it after `timeoutMs`; returns its exit code (STILL_ACTIVE when ended).
DWORD RunToExit(const std::wstring& commandLine, DWORD timeoutMs = INFINITE);
// The same, with each text the program gave OutputDebugStringW/A added to
// `texts` as a debug monitor sees it. No debugger is attached: under one, an
// unhandled exception would go to the debugger instead of the program's filter.
DWORD RunCapturingDebugText(const std::wstring& commandLine, Lines& texts, DWORD timeoutMs = 10000);

// The recording program: copies of it append their command line to a file
// beside them. Installing a copy clears its record.
void InstallRecorder(const std::wstring& targetPath);
// `atLeast`: waits up to ten seconds for that many, for programs started detached.
std::vector<std::wstring> RecordedCommandLines(const std::wstring& programPath, size_t atLeast = 0);

}  // namespace harness

// The test harness: a real Windows Installer session per test, the installer's
// log as it sees it, exports called by name from the built DLL, and a clean
// machine before and after every test.
#pragma once

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include <gtest/gtest.h>

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
    void SetProperty(const std::wstring& name, const std::wstring& value);
    // What a deferred action receives.
    void SetCustomActionData(const std::wstring& value) { SetProperty(L"CustomActionData", value); }

    // INFO lines the library wrote, in order (the installer's own banner left out).
    std::vector<std::wstring> Log() const;
    // USER messages, in order.
    const std::vector<std::wstring>& UserMessages() const { return userMessages_; }
    // Every INFO line as the installer sent it, banner included.
    const std::vector<std::wstring>& RawLog() const { return infoLines_; }

private:
    static INT CALLBACK OnMessage(LPVOID context, UINT type, LPCWSTR text);

    std::wstring path_;
    MSIHANDLE handle_;
    INSTALLUI_HANDLERW previousHandler_;
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
    bool active_;
    ImportPatch patch_;
};

// What the library's actions may touch on this machine. Cleared before and
// after each test so that no test sees another's leftovers.
class MachineState {
public:
    static void Clear();
};

// The base of every test that touches the machine or opens a session.
class ActionTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

// Registry helpers for setting up and checking state; both take an
// explicit view (0, KEY_WOW64_32KEY or KEY_WOW64_64KEY).
void WriteRegString(HKEY root, const std::wstring& key, const std::wstring& name, const std::wstring& value,
                    REGSAM view = 0);
bool ReadRegString(HKEY root, const std::wstring& key, const std::wstring& name, std::wstring& value,
                   REGSAM view = 0);
void DeleteRegTree(HKEY root, const std::wstring& key, REGSAM view = 0);

// Product codes whose uninstall entries tests may create; the fixture clears them.
#define TESSEL_TEST_PRODUCT_1 L"{7E57C0DE-0000-4000-8000-000000000001}"
#define TESSEL_TEST_PRODUCT_2 L"{7E57C0DE-0000-4000-8000-000000000002}"

// A folder for a test's own files, removed before and after each test.
const wchar_t kScratchFolder[] = L"C:\\tessel\\scratch\\";

// Folder of the running test program, with a trailing backslash.
std::wstring ProgramFolder();

// A whole file as bytes; "<missing>" when it can't be opened.
void WriteFileBytes(const std::wstring& path, const std::string& bytes);
std::string ReadFileBytes(const std::wstring& path);

// A string of `count` copies of `c`.
inline std::wstring Repeat(wchar_t c, size_t count) { return std::wstring(count, c); }

// Runs a program to its end; returns its exit code.
DWORD RunToExit(const std::wstring& commandLine);

// The recording program: copies of it append their command line to the file
// RecordFileFor(their path). Installing a copy clears its record.
void InstallRecorder(const std::wstring& targetPath);
std::wstring RecordFileFor(const std::wstring& programPath);
std::vector<std::wstring> RecordedCommandLines(const std::wstring& programPath);

}  // namespace harness

namespace harness {

// What a program sent to the debugger (OutputDebugString), captured by running
// it under a small debugger loop: Wine shows these texts nowhere else.
struct DebugOutput {
    std::vector<std::wstring> messages;  // in order, each as sent
    DWORD exitCode = 0;
    bool finished = false;  // false: still running after the time-out, so it was ended
};
DebugOutput RunUnderDebugger(const std::wstring& commandLine, DWORD timeoutMs);

}  // namespace harness

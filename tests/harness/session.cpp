// A real installer session per test, built the way Windows Installer's own
// conformance tests build theirs.
#include "harness/harness.h"

#include <gmock/gmock.h>
#include <msidefs.h>
#include <objbase.h>

#include <algorithm>
#include <stdexcept>

namespace harness {

namespace {

void Check(UINT result, const char* what)
{
    if (result != ERROR_SUCCESS)
        throw std::runtime_error(std::string(what) + " failed with " + std::to_string(result));
}

void Execute(MSIHANDLE database, const wchar_t* query, MSIHANDLE parameters = 0)
{
    PMSIHANDLE view;
    Check(MsiDatabaseOpenViewW(database, query, &view), "MsiDatabaseOpenViewW");
    Check(MsiViewExecute(view, parameters), "MsiViewExecute");
    MsiViewClose(view);
}

void CreatePairTable(MSIHANDLE database, const std::wstring& table, const std::wstring& keyColumn,
                     const Rows& rows)
{
    std::wstring create = L"CREATE TABLE `" + table + L"` (`" + keyColumn +
                          L"` CHAR(72) NOT NULL, `Value` CHAR(0) PRIMARY KEY `" + keyColumn + L"`)";
    Execute(database, create.c_str());
    std::wstring insert = L"INSERT INTO `" + table + L"` (`" + keyColumn + L"`, `Value`) VALUES (?, ?)";
    for (const auto& row : rows) {
        PMSIHANDLE record = MsiCreateRecord(2);
        MsiRecordSetStringW(record, 1, row.name.c_str());
        MsiRecordSetStringW(record, 2, row.value.c_str());
        Execute(database, insert.c_str(), record);
    }
}

void WriteSummary(MSIHANDLE database)
{
    PMSIHANDLE summary;
    Check(MsiGetSummaryInformationW(database, NULL, 20, &summary), "MsiGetSummaryInformationW");
    GUID guid;
    CoCreateGuid(&guid);
    wchar_t revision[40];
    StringFromGUID2(guid, revision, 40);
    Check(MsiSummaryInfoSetPropertyW(summary, PID_TEMPLATE, VT_LPSTR, 0, NULL, L"x64;1033"), "template");
    Check(MsiSummaryInfoSetPropertyW(summary, PID_REVNUMBER, VT_LPSTR, 0, NULL, revision), "revision");
    Check(MsiSummaryInfoSetPropertyW(summary, PID_PAGECOUNT, VT_I4, 200, NULL, NULL), "page count");
    Check(MsiSummaryInfoSetPropertyW(summary, PID_WORDCOUNT, VT_I4, 2, NULL, NULL), "word count");
    Check(MsiSummaryInfoPersist(summary), "MsiSummaryInfoPersist");
}

std::wstring TempPackagePath()
{
    wchar_t folder[MAX_PATH], path[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    GetTempFileNameW(folder, L"tca", 0, path);
    DeleteFileW(path);
    return path;
}

// Sessions alive, oldest first, and those being opened or called, innermost last.
std::vector<Session*> g_live;
std::vector<Session*> g_active;

// Marks a session as the one the installer is talking to, for one scope.
class Activation {
public:
    explicit Activation(Session* session) { g_active.push_back(session); }
    ~Activation() { g_active.pop_back(); }
    Activation(const Activation&) = delete;
    Activation& operator=(const Activation&) = delete;
};

void ExpectLog(const Session& session, const LogCheck& check)
{
    const Lines log = session.Log();
    switch (check.mode) {
    case LogCheck::kUnchecked:
        break;
    case LogCheck::kExact:
        EXPECT_EQ(check.lines, log);
        break;
    case LogCheck::kIncludes: {
        Lines::const_iterator at = log.begin();
        for (const std::wstring& line : check.lines) {
            at = std::find(at, log.end(), line);
            if (at == log.end()) {
                ADD_FAILURE() << "the log lacks, in this order: " << ::testing::PrintToString(line)
                              << "\nlog: " << ::testing::PrintToString(log);
                return;
            }
            ++at;
        }
        break;
    }
    }
}

}  // namespace

Session::Session(const Rows& properties, const Rows& kestraRows) : path_(TempPackagePath()), handle_(0)
{
    {
        PMSIHANDLE database;
        Check(MsiOpenDatabaseW(path_.c_str(), MSIDBOPEN_CREATE, &database), "MsiOpenDatabaseW");
        CreatePairTable(database, L"Property", L"Property", properties);
        CreatePairTable(database, L"Kestra_InstallProperties", L"Property", kestraRows);
        WriteSummary(database);
        Check(MsiDatabaseCommit(database), "MsiDatabaseCommit");
    }
    static bool handlerSet = false;
    if (!handlerSet) {
        MsiSetInternalUI(INSTALLUILEVEL_NONE, NULL);
        MsiSetExternalUIW(OnMessage, INSTALLLOGMODE_INFO | INSTALLLOGMODE_USER, NULL);
        handlerSet = true;
    }
    {
        Activation opening(this);
        Check(MsiOpenPackageExW(path_.c_str(), MSIOPENPACKAGEFLAGS_IGNOREMACHINESTATE, &handle_),
              "MsiOpenPackageExW");
    }
    g_live.push_back(this);
}

Session::~Session()
{
    MsiCloseHandle(handle_);
    g_live.erase(std::find(g_live.begin(), g_live.end(), this));
    DeleteFileW(path_.c_str());
}

INT CALLBACK Session::OnMessage(LPVOID, UINT type, LPCWSTR text)
{
    Session* session = !g_active.empty() ? g_active.back() : !g_live.empty() ? g_live.back() : NULL;
    if (session == NULL)
        return 0;
    std::wstring line = text ? text : L"";
    switch (type & 0xFF000000) {
    case INSTALLMESSAGE_INFO:
        session->infoLines_.push_back(line);
        break;
    case INSTALLMESSAGE_USER:
        session->userMessages_.push_back(line);
        break;
    default:
        return 0;
    }
    return IDOK;
}

UINT Session::Call(const char* exportName)
{
    ActionFn action = Export(exportName);
    Activation calling(this);
    return action(handle_);
}

std::wstring Session::Property(const std::wstring& name) const
{
    wchar_t value[4096] = L"";
    DWORD count = 4096;
    Check(MsiGetPropertyW(handle_, name.c_str(), value, &count), "MsiGetPropertyW");
    return value;
}

std::vector<std::wstring> Session::Log() const
{
    std::vector<std::wstring> lines;
    for (const std::wstring& line : infoLines_)
        if (line.compare(0, 4, L"=== ") != 0)
            lines.push_back(line);
    return lines;
}

HMODULE TesselDll()
{
    static HMODULE module = LoadLibraryW((ProgramFolder() + L"Tessel_CA.dll").c_str());
    if (module == NULL)
        throw std::runtime_error("Tessel_CA.dll could not be loaded");
    return module;
}

ActionFn Export(const char* name)
{
    ActionFn action = reinterpret_cast<ActionFn>(reinterpret_cast<void*>(GetProcAddress(TesselDll(), name)));
    if (action == NULL)
        throw std::runtime_error(std::string("Tessel_CA.dll has no export ") + name);
    return action;
}

std::wstring ProgramFolder()
{
    wchar_t path[MAX_PATH];
    DWORD length = GetModuleFileNameW(NULL, path, MAX_PATH);
    std::wstring folder(path, length);
    return folder.substr(0, folder.find_last_of(L'\\') + 1);
}

void ActionTest::RunCases(const std::vector<ActionCase>& cases)
{
    for (size_t i = 0; i < cases.size(); ++i) {
        const ActionCase& row = cases[i];
        SCOPED_TRACE("row \"" + row.row + "\" (" + row.action + ")");
        if (i > 0)
            ClearArea(area_);
        if (row.arrange)
            row.arrange();
        Session session(row.properties, row.kestraRows);
        EXPECT_EQ(row.result, session.Call(row.action));
        ExpectLog(session, row.log);
        if (row.check)
            row.check(session);
    }
}

}  // namespace harness

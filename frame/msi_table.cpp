// Reading the package's private table, Kestra_InstallProperties.
#include "frame/frame.h"

#include <shlwapi.h>

const wchar_t kKestraPropertyQuery[] =
    L"SELECT `Value` FROM `Kestra_InstallProperties` WHERE `Property` = '%s'";

namespace {

const int kQueryChars = 520;
// The value read accepts up to 1041 characters.
const DWORD kTableValueChars = 1042;

}  // namespace

bool GetFromMSITable(const std::wstring& queryFormat, const std::wstring& propertyName,
                     std::wstring& value)
{
    wchar_t query[kQueryChars];
    wnsprintfW(query, kQueryChars, queryFormat.c_str(), propertyName.c_str());
    wchar_t valueBuffer[kTableValueChars] = L"";

    LogMessage(g_hSession, L"Tessel_CA GetFromMSITable(), Reading Property table\n ");

    // Declared in this order so that the holders close database, record, view.
    PMSIHANDLE view;
    PMSIHANDLE record;
    PMSIHANDLE database;

    database = MsiGetActiveDatabase(g_hSession);
    if (database == 0) {
        LogMessage(g_hSession, L"Tessel_CA GetFromMSITable() failed at MsiGetActiveDatabase %s \n",
                   valueBuffer);
        return false;
    }

    bool fetched = false;
    DWORD count = kTableValueChars;
    if (MsiDatabaseOpenViewW(database, query, &view) == ERROR_SUCCESS &&
        MsiViewExecute(view, 0) == ERROR_SUCCESS &&
        MsiViewFetch(view, &record) == ERROR_SUCCESS &&
        MsiRecordGetStringW(record, 1, valueBuffer, &count) == ERROR_SUCCESS) {
        LogMessage(g_hSession, L"Tessel_CA GetFromMSITable() PackageRead Property Value is %s \n",
                   valueBuffer);
        value = valueBuffer;
        fetched = true;
    }

    MsiCloseHandle(record);
    MsiCloseHandle(view);
    MsiCloseHandle(database);
    return fetched;
}

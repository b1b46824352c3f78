// Free registry operations that only one or two actions need.
#include "toolkit/registry.h"

#include "frame/frame.h"

#include <aclapi.h>

#include <cstdio>
#include <cwchar>

namespace {

const wchar_t kOrvelKey[] = L"SOFTWARE\\Orvel";
const wchar_t kRunKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";

const DWORD kClassChars = 260;
const DWORD kValueNameChars = 8192;

void SetDWord(HKEY key, const std::wstring& name, DWORD data)
{
    RegSetValueExW(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&data), sizeof(data));
}

}  // namespace

int CreateRegDWValue(const std::wstring& name, DWORD data)
{
    // Traces for a debugger's eyes; they never reach the log.
    wchar_t trace[1024];
    wchar_t error[100];
    swprintf_s(trace, 1024, L"TESSEL_CA Before RegOpenKeyEx and dwData is %ld \n", data);

    HKEY key = NULL;
    LSTATUS opened = RegOpenKeyExW(HKEY_CURRENT_USER, kOrvelKey, 0, kNativeViewAccess, &key);
    if (opened == ERROR_SUCCESS) {
        try {
            swprintf_s(trace, 1024, L"TESSEL_CA Inside RegOpenKeyEx and dwData is %ld \n", data);
            SetDWord(key, name, data);
            RegCloseKey(key);
            return 1;
        } catch (...) {
            LogMessage(g_hSession, L"TESSEL_CA Inside catch CreateRegDWValue \n");
            return 0;
        }
    }

    swprintf_s(error, 100, L"Error %d", static_cast<int>(opened));
    swprintf_s(trace, 1024, L"TESSEL_CA Inside ELSE RegOpenKeyEx and dwData is %ld \n", data);
    if (RegCreateKeyExW(HKEY_CURRENT_USER, kOrvelKey, 0, NULL, 0, kNativeViewAccess, NULL, &key, NULL) !=
        ERROR_SUCCESS)
        return 0;
    swprintf_s(trace, 1024, L"TESSEL_CA Before ELSE RegSetValueEx and dwData is %ld \n", data);
    SetDWord(key, name, data);
    RegCloseKey(key);
    return 1;
}

int CreateRegStringValue(const std::wstring& subkey, const std::wstring& name, const std::wstring& text,
                         HKEY createRoot)
{
    HKEY key = NULL;
    // The key is looked for under HKLM but, unless the caller says otherwise, made
    // under HKCR: callers rely on this pairing.
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, subkey.c_str(), 0, kNativeViewAccess, &key) != ERROR_SUCCESS &&
        RegCreateKeyExW(createRoot, subkey.c_str(), 0, NULL, 0, kNativeViewAccess, NULL, &key, NULL) !=
            ERROR_SUCCESS)
        return 0;
    if (RegSetValueExW(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                       TextBytes(text)) == ERROR_SUCCESS)
        LogMessage(g_hSession, L"Tessel_CA CreateBrioContextMenu() - Successfully created GUID");
    RegCloseKey(key);
    return 0;
}

void DeleteKeyValues(HKEY key, const std::wstring& /*name*/)
{
    // Whatever the caller names, the value named by one blank is the one kept.
    wchar_t className[kClassChars] = L"";
    DWORD classChars = kClassChars;
    DWORD valueCount = 0;
    RegQueryInfoKeyW(key, className, &classChars, NULL, NULL, NULL, NULL, &valueCount, NULL, NULL, NULL, NULL);

    // Gathered first, deleted afterwards, so that the enumeration isn't disturbed.
    std::vector<std::wstring> doomed;
    std::vector<wchar_t> valueName(kValueNameChars);
    for (DWORD index = 0; index < valueCount; ++index) {
        valueName[0] = L'\0';
        DWORD nameChars = kValueNameChars;
        LSTATUS status = RegEnumValueW(key, index, valueName.data(), &nameChars, NULL, NULL, NULL, NULL);
        if (status == ERROR_NO_MORE_ITEMS)
            continue;
        std::wstring found(valueName.data());
        if (found.empty() || found == L" ")
            continue;
        doomed.push_back(found);
    }
    for (const std::wstring& name : doomed)
        RegDeleteValueW(key, name.c_str());
}

void DeleteKeyInBothViews(HKEY hive, const std::wstring& path)
{
    registry_value value(path);
    value.hive = hive;
    registry_value::delete_key32(value.hive, value.subkey);
    registry_value::delete_key(value.hive, value.subkey);
}

bool DeleteRunValue(const std::wstring& name)
{
    HKEY key = NULL;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kRunKey, 0, kNativeViewAccess, &key) != ERROR_SUCCESS)
        return false;
    bool deleted = RegDeleteValueW(key, name.c_str()) == ERROR_SUCCESS;
    RegCloseKey(key);
    return deleted;
}

void QueryKeyNames(HKEY key)
{
    wchar_t className[kClassChars] = L"";
    DWORD classChars = kClassChars;
    DWORD subKeyCount = 0;
    DWORD valueCount = 0;
    RegQueryInfoKeyW(key, className, &classChars, NULL, &subKeyCount, NULL, NULL, &valueCount, NULL, NULL, NULL,
                     NULL);

    // A key name is at most 255 characters; one that long doesn't fit with its terminator.
    wchar_t subKeyName[256];
    for (DWORD index = 0; index < subKeyCount; ++index) {
        DWORD nameChars = 255;
        if (RegEnumKeyExW(key, index, subKeyName, &nameChars, NULL, NULL, NULL, NULL) == ERROR_SUCCESS)
            g_keyNameList.push_back(subKeyName);
    }

    std::vector<wchar_t> valueName(kValueNameChars);
    for (DWORD index = 0; index < valueCount; ++index) {
        DWORD nameChars = kValueNameChars;
        DWORD type = 0;
        if (RegEnumValueW(key, index, valueName.data(), &nameChars, NULL, &type, NULL, NULL) != ERROR_SUCCESS ||
            type != REG_SZ)
            continue;
        // 260 bytes: a longer text fails the query and is left out.
        wchar_t text[131] = L"";
        DWORD bytes = 260;
        if (RegQueryValueExW(key, valueName.data(), NULL, NULL, reinterpret_cast<BYTE*>(text), &bytes) !=
            ERROR_SUCCESS)
            continue;
        std::wstring entry(text);
        for (wchar_t& c : entry) {
            if (c == L'\\')
                c = L'/';
        }
        g_keyNameList.push_back(entry);
    }
}

int DeleteKeyRecursive32(wchar_t* path)
{
    if (RegDeleteKeyExW(HKEY_LOCAL_MACHINE, path, KEY_WOW64_32KEY, 0) == ERROR_SUCCESS)
        return 1;

    HKEY key = NULL;
    LSTATUS opened = RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, kView32Access, &key);
    if (opened != ERROR_SUCCESS) {
        if (opened == ERROR_ACCESS_DENIED) {
            if (key != NULL)
                RegCloseKey(key);
            key = NULL;
            opened = RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, kView32Access, &key);
            if (opened == ERROR_SUCCESS)
                RegCloseKey(key);
        }
        return opened == ERROR_FILE_NOT_FOUND ? 1 : 0;
    }

    // Children are named in place behind the path and a backslash; the
    // caller's text is given back as it came.
    size_t length = wcslen(path);
    size_t stem = length;
    if (length == 0 || path[length - 1] != L'\\') {
        if (length + 1 < kKeyPathChars) {
            path[stem++] = L'\\';
            path[stem] = L'\0';
        }
    }
    bool canNameChildren = stem > 0 && path[stem - 1] == L'\\' && stem + 1 < kKeyPathChars;

    wchar_t name[MAX_PATH];
    DWORD nameChars = MAX_PATH;
    LSTATUS enumerated = canNameChildren ? RegEnumKeyExW(key, 0, name, &nameChars, NULL, NULL, NULL, NULL)
                                         : ERROR_NO_MORE_ITEMS;
    while (enumerated == ERROR_SUCCESS) {
        path[stem] = L'\0';
        // A name cut short would name another key, and the walk would never end.
        if (wcsncat_s(path + stem, kKeyPathChars - stem, name, _TRUNCATE) != 0)
            break;
        if (DeleteKeyRecursive32(path) == 0)
            break;
        nameChars = MAX_PATH;
        enumerated = RegEnumKeyExW(key, 0, name, &nameChars, NULL, NULL, NULL, NULL);
    }
    path[length] = L'\0';
    RegCloseKey(key);
    return RegDeleteKeyExW(HKEY_LOCAL_MACHINE, path, KEY_WOW64_32KEY, 0) == ERROR_SUCCESS ? 1 : 0;
}

namespace {

// What CreateKeyWithAcl allocates, freed on every way out.
struct AclParts {
    PSID everyone = NULL;
    PSID administrators = NULL;
    PACL acl = NULL;
    PSECURITY_DESCRIPTOR descriptor = NULL;

    ~AclParts()
    {
        if (everyone != NULL)
            FreeSid(everyone);
        if (administrators != NULL)
            FreeSid(administrators);
        if (acl != NULL)
            LocalFree(acl);
        if (descriptor != NULL)
            LocalFree(descriptor);
    }
};

void FullAccessFor(PSID sid, TRUSTEE_TYPE type, EXPLICIT_ACCESSW& entry)
{
    entry.grfAccessPermissions = KEY_ALL_ACCESS;
    entry.grfAccessMode = SET_ACCESS;
    entry.grfInheritance = NO_INHERITANCE;
    entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry.Trustee.TrusteeType = type;
    entry.Trustee.ptstrName = static_cast<LPWSTR>(sid);
}

// The one line of CreateKeyWithAcl, on standard output and not in the log.
bool PrintFailure(const char* format)
{
    printf(format, static_cast<unsigned>(GetLastError()));
    return false;
}

}  // namespace

bool CreateKeyWithAcl(const std::wstring& subkey)
{
    AclParts parts;
    EXPLICIT_ACCESSW entries[2] = {};

    SID_IDENTIFIER_AUTHORITY worldAuthority = SECURITY_WORLD_SID_AUTHORITY;
    if (!AllocateAndInitializeSid(&worldAuthority, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &parts.everyone))
        return PrintFailure("AllocateAndInitializeSid Error %u\n");
    FullAccessFor(parts.everyone, TRUSTEE_IS_WELL_KNOWN_GROUP, entries[0]);

    SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
    if (!AllocateAndInitializeSid(&ntAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0,
                                  0, 0, 0, &parts.administrators))
        return PrintFailure("AllocateAndInitializeSid Error %u\n");
    FullAccessFor(parts.administrators, TRUSTEE_IS_GROUP, entries[1]);

    // SetEntriesInAclW returns its error; the line reports the last error all the same.
    if (SetEntriesInAclW(2, entries, NULL, &parts.acl) != ERROR_SUCCESS)
        return PrintFailure("SetEntriesInAcl Error %u\n");

    parts.descriptor = static_cast<PSECURITY_DESCRIPTOR>(LocalAlloc(LPTR, SECURITY_DESCRIPTOR_MIN_LENGTH));
    if (parts.descriptor == NULL)
        return PrintFailure("LocalAlloc Error %u\n");
    if (!InitializeSecurityDescriptor(parts.descriptor, SECURITY_DESCRIPTOR_REVISION))
        return PrintFailure("InitializeSecurityDescriptor Error %u\n");
    if (!SetSecurityDescriptorDacl(parts.descriptor, TRUE, parts.acl, FALSE))
        return PrintFailure("SetSecurityDescriptorDacl Error %u\n");

    SECURITY_ATTRIBUTES attributes;
    attributes.nLength = sizeof(SECURITY_ATTRIBUTES);
    attributes.lpSecurityDescriptor = parts.descriptor;
    attributes.bInheritHandle = FALSE;
    wchar_t emptyClass[] = L"";
    HKEY key = NULL;
    LSTATUS result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, subkey.c_str(), 0, emptyClass, 0, kView64Access,
                                     &attributes, &key, NULL);
    printf("RegCreateKeyEx result %u\n", static_cast<unsigned>(result));
    if (result != ERROR_SUCCESS)
        return false;
    RegCloseKey(key);
    return true;
}

// The registry layer on the prefix's real registry, in both views. Keys live
// under SOFTWARE\TesselTest (HKLM, HKCR, HKCU), which the fixture clears.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "toolkit/registry.h"

#include <fcntl.h>
#include <io.h>
#include <sddl.h>

using harness::CreateKey;
using harness::KeyExists;
using harness::Lines;
using harness::Repeat;
using harness::SetText;
using harness::SubKeysOf;
using harness::TextOf;
using harness::ValueNamesOf;

namespace {

const HKEY HKLM = HKEY_LOCAL_MACHINE;
const REGSAM k32 = KEY_WOW64_32KEY;
const REGSAM k64 = KEY_WOW64_64KEY;
const std::wstring kRoot = L"SOFTWARE\\TesselTest\\";

void SetKeyDacl(HKEY root, const std::wstring& path, REGSAM view, const std::wstring& sddl)
{
    HKEY key;
    PSECURITY_DESCRIPTOR descriptor = NULL;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(root, path.c_str(), 0, WRITE_DAC | view, &key));
    ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, &descriptor, NULL);
    EXPECT_EQ(ERROR_SUCCESS, RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor));
    LocalFree(descriptor);
    RegCloseKey(key);
}

// A key that denies `rights` to Everyone while this lives ("SD": delete; "0x2": set value, and with it every
// full-access open); full access comes back at the end, so that the fixture can clear it.
class DeniedKey {
public:
    DeniedKey(HKEY root, const std::wstring& path, REGSAM view, const std::wstring& rights)
        : root_(root), path_(path), view_(view)
    {
        CreateKey(root, path, view);
        SetKeyDacl(root, path, view, L"D:(D;;" + rights + L";;;WD)(A;;KA;;;WD)");
    }
    ~DeniedKey() { SetKeyDacl(root_, path_, view_, L"D:(A;;KA;;;WD)"); }

private:
    HKEY root_;
    std::wstring path_;
    REGSAM view_;
};

// What `call` prints on the C runtime's standard output.
template <typename Call>
std::string CapturedStdout(Call call)
{
    const std::wstring file = std::wstring(harness::kScratchFolder) + L"stdout.txt";
    harness::MakeFolders(harness::kScratchFolder);
    fflush(stdout);
    const int saved = _dup(_fileno(stdout));
    const int capture = _wopen(file.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY, 0600);
    _dup2(capture, _fileno(stdout));
    _close(capture);
    call();
    fflush(stdout);
    _dup2(saved, _fileno(stdout));
    _close(saved);
    return harness::ReadFileBytes(file);
}

class RegistryTest : public harness::ActionTest {
protected:
    RegistryTest() : ActionTest(ToolkitArea()) {}
};

TEST_F(RegistryTest, AValueIsReadNativeViewFirstAndWrittenInBoth)
{
    // The path splits at its last backslash; with none, both parts are the whole text.
    const struct { const wchar_t* path; const wchar_t* subkey; const wchar_t* name; } splits[] = {
        {L"A\\B\\Location", L"A\\B", L"Location"}, {L"A\\B\\", L"A\\B", L""}, {L"A\\\\", L"A\\", L""},
        {L"Location", L"Location", L"Location"}};
    for (const auto& split : splits) {
        registry_value value(split.path);
        EXPECT_EQ(std::make_tuple(std::wstring(split.subkey), std::wstring(split.name), HKLM),
                  std::make_tuple(value.subkey, value.value_name, value.hive));
    }
    registry_string value(kRoot + L"Install\\Location");
    EXPECT_FALSE(value.exists());
    EXPECT_EQ(L"", value.read());
    SetText(HKLM, kRoot + L"Install", L"Location", L"C:\\Old32\\", k32);
    SetText(HKLM, kRoot + L"Install", L"Other", L"x", k64);  // the native key, without the value
    EXPECT_TRUE(value.exists());
    EXPECT_EQ(L"C:\\Old32\\", value.read());
    SetText(HKLM, kRoot + L"Install", L"Location", L"C:\\New64\\", k64);
    EXPECT_EQ(L"C:\\New64\\", registry_string(kRoot + L"Install\\LOCATION").read());
    EXPECT_FALSE(registry_value(kRoot + L"Install\\Locatio").exists());

    // Any type, up to its first null; the default value and the one named by a blank.
    const DWORD ab = 0x00420041;
    harness::SetValue(HKLM, kRoot + L"Types", L"Number", REG_DWORD, &ab, 4, k64);
    harness::SetValue(HKLM, kRoot + L"Types", L"Bare", REG_SZ, L"abc", 6, k64);
    harness::SetValue(HKLM, kRoot + L"Types", L"Empty", REG_SZ, L"", 0, k64);
    SetText(HKLM, kRoot + L"Types", L"", L"default", k64);
    SetText(HKLM, kRoot + L"Types", L" ", L"blank's", k64);
    Lines read;
    for (const wchar_t* name : {L"Number", L"Bare", L"Empty", L"", L" "})
        read.push_back(registry_string(kRoot + L"Types\\" + name).read());
    EXPECT_EQ((Lines{L"AB", L"abc", L"", L"default", L"blank's"}), read);
    EXPECT_TRUE(registry_value(kRoot + L"Types\\Empty").exists());

    EXPECT_EQ(&value, &value.write(L"Yes"));
    EXPECT_EQ(std::make_tuple(L"Yes", L"Yes", (HKEY)NULL, (HKEY)NULL),
              std::make_tuple(TextOf(HKLM, kRoot + L"Install", L"Location", k64),
                              TextOf(HKLM, kRoot + L"Install", L"Location", k32), value.key32, value.key64));
    DWORD type = 0, bytes = 0;
    RegGetValueW(HKLM, (kRoot + L"Install").c_str(), L"Location", RRF_RT_ANY, &type, NULL, &bytes);
    EXPECT_EQ(std::make_pair(DWORD(REG_SZ), DWORD(8)), std::make_pair(type, bytes));  // the terminator kept

    SetText(HKLM, kRoot + L"RunOnce", L"EnableAero", L"32-bit", k32);
    registry_string64(kRoot + L"RunOnce\\EnableAero").write(L"winsat");
    EXPECT_EQ(L"winsat", TextOf(HKLM, kRoot + L"RunOnce", L"EnableAero", k64));
    EXPECT_EQ(L"32-bit", TextOf(HKLM, kRoot + L"RunOnce", L"EnableAero", k32));
}

TEST_F(RegistryTest, OpenLeavesItsHandlesToTheCallerAndRemoveValueClearsBothViews)
{
    registry_string value(kRoot + L"Open\\Name");
    EXPECT_FALSE(value.open(false));
    EXPECT_FALSE(KeyExists(HKLM, kRoot + L"Open", k64));
    ASSERT_TRUE(value.open(true));
    EXPECT_TRUE(KeyExists(HKLM, kRoot + L"Open", k32));
    const wchar_t text[] = L"via key32";
    RegSetValueExW(value.key32, L"Name", 0, REG_SZ, reinterpret_cast<const BYTE*>(text), sizeof(text));
    EXPECT_EQ(L"via key32", TextOf(HKLM, kRoot + L"Open", L"Name", k32));
    EXPECT_EQ(L"<missing>", TextOf(HKLM, kRoot + L"Open", L"Name", k64));
    value.write(L"both");  // after open, as EnableAero does on a 32-bit system: writes and closes
    EXPECT_EQ(std::make_tuple(L"both", (HKEY)NULL, (HKEY)NULL),
              std::make_tuple(TextOf(HKLM, kRoot + L"Open", L"Name", k64), value.key32, value.key64));

    SetText(HKLM, kRoot + L"Open", L"Keep", L"k", k64);
    value.remove_value();
    EXPECT_EQ(Lines{L"Keep"}, ValueNamesOf(HKLM, kRoot + L"Open", k64));
    EXPECT_EQ(Lines(), ValueNamesOf(HKLM, kRoot + L"Open", k32));
    registry_value(kRoot + L"Services\\kmd\\Blacklist").remove_value();  // makes the missing key
    EXPECT_TRUE(KeyExists(HKLM, kRoot + L"Services\\kmd", k64) && KeyExists(HKLM, kRoot + L"Services\\kmd", k32));
}

TEST_F(RegistryTest, TreeDeletesWorkInTheirOwnViewAndStopAtAKeyThatWontGo)
{
    for (REGSAM view : {k32, k64}) {
        SetText(HKLM, kRoot + L"Tree\\A\\A1", L"v", L"x", view);
        CreateKey(HKLM, kRoot + L"Tree\\B", view);
    }
    EXPECT_TRUE(registry_value::delete_key32(HKLM, kRoot + L"Tree"));
    EXPECT_FALSE(KeyExists(HKLM, kRoot + L"Tree", k32));
    EXPECT_EQ((Lines{L"A", L"B"}), SubKeysOf(HKLM, kRoot + L"Tree", k64));
    EXPECT_TRUE(registry_value::delete_key(HKLM, kRoot + L"Tree"));
    EXPECT_FALSE(KeyExists(HKLM, kRoot + L"Tree", k64));
    EXPECT_TRUE(registry_value::delete_key32(HKLM, kRoot + L"Tree") && registry_value::delete_key(HKLM, kRoot + L"Tree"));

    // The older walk works in its caller's buffer and gives it back as it came.
    for (REGSAM view : {k32, k64})
        CreateKey(HKLM, kRoot + L"Old\\One\\Two", view);
    CreateKey(HKLM, kRoot + L"Old\\Three", k32);
    wchar_t path[kKeyPathChars] = L"SOFTWARE\\TesselTest\\Old\\";
    EXPECT_EQ(1, DeleteKeyRecursive32(path));
    EXPECT_STREQ(L"SOFTWARE\\TesselTest\\Old\\", path);
    EXPECT_EQ(std::make_pair(false, true), std::make_pair(KeyExists(HKLM, kRoot + L"Old", k32),
                                                          KeyExists(HKLM, kRoot + L"Old\\One\\Two", k64)));
    EXPECT_EQ(1, DeleteKeyRecursive32(path));

    // Children go from index 0: A goes, B won't, C is never reached. B refuses DELETE; Wine lets an open for
    // DELETE alone through, so B also has a child, which the walk can't reach.
    for (REGSAM view : {k32, k64})
        for (const wchar_t* key : {L"A\\Deep", L"B\\Inner", L"C"})
            CreateKey(HKLM, kRoot + L"Locked\\" + key, view);
    {
        DeniedKey native(HKLM, kRoot + L"Locked\\B", k64, L"SD");
        DeniedKey wow(HKLM, kRoot + L"Locked\\B", k32, L"SD");
        EXPECT_FALSE(registry_value::delete_key(HKLM, kRoot + L"Locked"));
        EXPECT_EQ((Lines{L"B", L"C"}), SubKeysOf(HKLM, kRoot + L"Locked", k64));
        EXPECT_EQ((Lines{L"A", L"B", L"C"}), SubKeysOf(HKLM, kRoot + L"Locked", k32));
        EXPECT_FALSE(registry_value::delete_key32(HKLM, kRoot + L"Locked"));
        EXPECT_EQ((Lines{L"B", L"C"}), SubKeysOf(HKLM, kRoot + L"Locked", k32));
        CreateKey(HKLM, kRoot + L"Locked\\A", k32);
        wchar_t locked[kKeyPathChars] = L"SOFTWARE\\TesselTest\\Locked";
        EXPECT_EQ(0, DeleteKeyRecursive32(locked));
        EXPECT_STREQ(L"SOFTWARE\\TesselTest\\Locked", locked);
        EXPECT_EQ((Lines{L"B", L"C"}), SubKeysOf(HKLM, kRoot + L"Locked", k32));
    }
}

TEST_F(RegistryTest, KeyListsMergeTheViewsAndOnlyEverAppend)
{
    for (const wchar_t* name : {L"Shared", L"Native", L"case"})
        CreateKey(HKLM, kRoot + L"List\\" + name, k64);
    for (const wchar_t* name : {L"Shared", L"Only32", L"CASE"})
        CreateKey(HKLM, kRoot + L"List\\" + name, k32);
    SetText(HKLM, kRoot + L"List", L"value", L"x", k64);
    SetText(HKLM, kRoot + L"List", L"value32", L"x", k32);
    // Native names in the registry's order, then the 32-bit ones not yet listed, case counting; values from the
    // 32-bit view only when the native one has none.
    registry_key_list list(HKLM, kRoot + L"List");
    list.list_sub_keys();
    list.list_values();
    EXPECT_EQ((Lines{L"case", L"Native", L"Shared", L"CASE", L"Only32", L"value"}), list.names);
    EXPECT_EQ(std::make_pair((HKEY)NULL, (HKEY)NULL), std::make_pair(list.key32, list.key64));

    // Sub-key names listed before don't count as native names; the default's empty name is one.
    CreateKey(HKLM, kRoot + L"Empty64\\Sub", k64);
    SetText(HKLM, kRoot + L"Empty64", L"", L"default", k32);
    harness::SetValue(HKLM, kRoot + L"Empty64", Repeat(L'n', 600), REG_SZ, L"", 2, k32);  // longer than the buffer: left out
    registry_key_list fallback(HKLM, kRoot + L"Empty64");
    fallback.list_sub_keys();
    fallback.list_values();
    fallback.list_values();
    EXPECT_EQ((Lines{L"Sub", L"", L""}), fallback.names);

    // A key both views share (HKCU's software branch) is listed once.
    CreateKey(HKEY_CURRENT_USER, kRoot + L"Child");
    registry_key_list user(HKEY_CURRENT_USER, L"SOFTWARE\\TesselTest");
    user.list_sub_keys();
    EXPECT_EQ(Lines{L"Child"}, user.names);
}

TEST_F(RegistryTest, FreeOperationsOnValuesAndKeys)
{
    harness::Session session;
    g_hSession = session.handle();
    HKEY key;
    // DeleteKeyValues keeps the default value and the one named by a single blank, whatever name it is given.
    for (const wchar_t* name : {L"", L" ", L"  ", L"keep me"})
        SetText(HKLM, kRoot + L"Pixel", name, L"x", k64);
    CreateKey(HKLM, kRoot + L"Pixel\\Child", k64);
    RegOpenKeyExW(HKLM, (kRoot + L"Pixel").c_str(), 0, KEY_ALL_ACCESS, &key);
    DeleteKeyValues(key, L"keep me");
    RegCloseKey(key);
    EXPECT_EQ((Lines{L"", L" "}), ValueNamesOf(HKLM, kRoot + L"Pixel", k64));

    // QueryKeyNames: sub-keys of up to 254 characters, then REG_SZ texts of up to 129, slashed.
    for (size_t length : {5, 254, 255})
        CreateKey(HKLM, kRoot + L"Branding\\" + Repeat(L'k', length), k64);
    const std::wstring fits = L"C:\\" + Repeat(L'f', 126);
    SetText(HKLM, kRoot + L"Branding", L"a", L"C:\\Suite\\Bin\\", k64);
    harness::SetDword(HKLM, kRoot + L"Branding", L"b", 1, k64);
    harness::SetValue(HKLM, kRoot + L"Branding", L"c", REG_EXPAND_SZ, L"%x%", 8, k64);
    SetText(HKLM, kRoot + L"Branding", L"d", fits, k64);
    SetText(HKLM, kRoot + L"Branding", L"e", fits + L"g", k64);
    g_keyNameList.assign(1, L"earlier");
    RegOpenKeyExW(HKLM, (kRoot + L"Branding").c_str(), 0, KEY_READ, &key);
    QueryKeyNames(key);
    RegCloseKey(key);
    EXPECT_EQ((Lines{L"earlier", Repeat(L'k', 5), Repeat(L'k', 254), L"C:/Suite/Bin/", L"C:/" + Repeat(L'f', 126)}),
              g_keyNameList);
    g_keyNameList.clear();

    // CreateRegStringValue opens under HKLM, else creates under HKCR; always 0, a line only when it wrote.
    CreateKey(HKLM, kRoot + L"PerfOS", k64);
    EXPECT_EQ(0, CreateRegStringValue(kRoot + L"PerfOS\\", L"Disable", L"0"));
    EXPECT_EQ(0, CreateRegStringValue(kRoot + L"Gauge", L"DCSEnabled", L"Yes"));
    DeniedKey denied(HKEY_CLASSES_ROOT, kRoot + L"Denied", 0, L"0x2");
    EXPECT_EQ(0, CreateRegStringValue(kRoot + L"Denied", L"DCSEnabled", L"Yes"));
    EXPECT_EQ((Lines{L"0", L"<missing>", L"Yes", L"<missing>"}),
              (Lines{TextOf(HKLM, kRoot + L"PerfOS", L"Disable", k64), TextOf(HKLM, kRoot + L"PerfOS", L"Disable", k32),
                     TextOf(HKEY_CLASSES_ROOT, kRoot + L"Gauge", L"DCSEnabled"),
                     TextOf(HKEY_CLASSES_ROOT, kRoot + L"Denied", L"DCSEnabled")}));
    EXPECT_FALSE(KeyExists(HKLM, kRoot + L"Gauge", k64) || KeyExists(HKLM, kRoot + L"Gauge", k32));

    // CreateRegDWValue makes HKCU\SOFTWARE\Orvel if need be, then opens it; it never logs.
    EXPECT_EQ(1, CreateRegDWValue(L"Mode", 3));
    EXPECT_EQ(1, CreateRegDWValue(L"Mode", 0xFFFFFFFF));
    EXPECT_EQ(0xFFFFFFFFu, harness::DwordOf(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", L"Mode"));
    EXPECT_EQ(Lines(2, L"Tessel_CA CreateBrioContextMenu() - Successfully created GUID"), session.Log());

    // DeleteRunValue: HKLM's native Run key only.
    const std::wstring run = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
    SetText(HKLM, run, L"TesselTestTask", L"64", k64);
    SetText(HKLM, run, L"TesselTestTask", L"32", k32);
    EXPECT_TRUE(DeleteRunValue(L"TesselTestTask"));
    EXPECT_FALSE(DeleteRunValue(L"TesselTestTask"));
    EXPECT_EQ(L"32", TextOf(HKLM, run, L"TesselTestTask", k32));
    RegOpenKeyExW(HKLM, run.c_str(), 0, KEY_SET_VALUE | k32, &key);
    RegDeleteValueW(key, L"TesselTestTask");
    RegCloseKey(key);
}

TEST_F(RegistryTest, CreateKeyWithAclPrintsOneLineAndCreatesInThe64BitView)
{
    // Windows gives the key full access for Everyone and Administrators; Wine ignores the list it is given.
    bool created = false;
    for (int time = 0; time < 2; ++time) {  // created, then opened
        EXPECT_EQ("RegCreateKeyEx result 0\n", CapturedStdout([&] { created = CreateKeyWithAcl(kRoot + L"Analytics"); }));
        EXPECT_TRUE(created);
    }
    EXPECT_EQ(std::make_pair(true, false), std::make_pair(KeyExists(HKLM, kRoot + L"Analytics", k64),
                                                          KeyExists(HKLM, kRoot + L"Analytics", k32)));
    DeniedKey locked(HKLM, kRoot + L"Locked", k64, L"0x2");
    EXPECT_EQ("RegCreateKeyEx result 5\n", CapturedStdout([&] { created = CreateKeyWithAcl(kRoot + L"Locked"); }));
    EXPECT_FALSE(created);
}

}  // namespace

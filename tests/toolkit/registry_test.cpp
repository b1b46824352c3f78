// The registry layer on the prefix's real registry, in both views, under
// SOFTWARE\TesselTest, which the fixture clears.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "toolkit/registry.h"

#include <fcntl.h>
#include <io.h>
#include <sddl.h>

using namespace harness;

namespace {

using RegistryTest = ToolkitTest;
const HKEY HKLM = HKEY_LOCAL_MACHINE, HKCR = HKEY_CLASSES_ROOT;
const REGSAM k32 = KEY_WOW64_32KEY, k64 = KEY_WOW64_64KEY;
const std::wstring kKey = L"SOFTWARE\\TesselTest\\";

// Takes KEY_SET_VALUE, and with it every full-access open, from Everyone; or gives full access back.
void Deny(HKEY root, const std::wstring& path, REGSAM view, bool deny = true)
{
    HKEY key;
    PSECURITY_DESCRIPTOR descriptor = NULL;
    RegOpenKeyExW(root, path.c_str(), 0, WRITE_DAC | view, &key);
    ConvertStringSecurityDescriptorToSecurityDescriptorW(deny ? L"D:(D;;0x2;;;WD)(A;;KA;;;WD)" : L"D:(A;;KA;;;WD)",
                                                         SDDL_REVISION_1, &descriptor, NULL);
    RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor);
    LocalFree(descriptor);
    RegCloseKey(key);
}

// What `call` prints on the C runtime's standard output.
template <typename Call>
std::string CapturedStdout(Call call)
{
    const std::wstring file = std::wstring(kScratchFolder) + L"stdout.txt";
    MakeFolders(kScratchFolder);
    fflush(stdout);
    const int saved = _dup(_fileno(stdout));
    const int capture = _wopen(file.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY, 0600);
    _dup2(capture, _fileno(stdout));
    _close(capture);
    call();
    fflush(stdout);
    _dup2(saved, _fileno(stdout));
    _close(saved);
    return ReadFileBytes(file);
}

std::wstring Text(const std::wstring& key, const wchar_t* name, REGSAM view)
{
    return TextOf(HKLM, kKey + key, name, view);
}

TEST(RegistryValue, SplitsItsPathAtTheLastBackslash)
{
    const wchar_t* cases[][3] = {
        {L"A\\B\\N", L"A\\B", L"N"}, {L"A\\B\\", L"A\\B", L""}, {L"A\\\\", L"A\\", L""}, {L"N", L"N", L"N"}};
    for (const auto& c : cases) {
        registry_string value(c[0]);
        EXPECT_TRUE(value.subkey == c[1] && value.value_name == c[2] && value.hive == HKLM) << c[0];
        EXPECT_TRUE(!value.key32 && !value.key64);
    }
}

TEST_F(RegistryTest, ValuesAreReadNativeViewFirstAndWrittenInBothViews)
{
    // J's value is in the 32-bit view alone; I has a native key, its values in either view or both.
    SetText(HKLM, kKey + L"J", L"V", L"old", k32);
    SetText(HKLM, kKey + L"I", L"Old", L"old", k32);
    SetText(HKLM, kKey + L"I", L"Both", L"old", k32);
    SetText(HKLM, kKey + L"I", L"Both", L"new", k64);
    SetDword(HKLM, kKey + L"I", L"Number", 0x00420041);  // any type, read up to its first null
    harness::SetValue(HKLM, kKey + L"K", L"Empty", REG_SZ, L"", 0);
    SetText(HKLM, kKey + L"K", L"", L"default");
    const wchar_t* reads[][2] = {{L"J\\V", L"1old"}, {L"I\\Old", L"1old"},   {L"I\\Both", L"1new"},
                                 {L"I\\Number", L"1AB"}, {L"I\\None", L"0"}, {L"K\\Empty", L"1"},
                                 {L"K\\", L"1default"}};
    for (const auto& read : reads) {
        registry_string value(kKey + read[0]);
        const bool exists = value.exists();
        EXPECT_EQ(read[1], std::to_wstring(exists) + value.read() + (value.key32 || value.key64 ? L" open" : L""));
    }

    registry_string value(kKey + L"W\\V");
    EXPECT_FALSE(value.open(false) || KeyExists(HKLM, kKey + L"W", k64));
    EXPECT_EQ(&value, &value.write(L"Yes"));
    registry_string64 aero(kKey + L"J\\V");
    aero.write(L"64");
    EXPECT_TRUE(Text(L"W", L"V", k64) == L"Yes" && Text(L"W", L"V", k32) == L"Yes");
    EXPECT_TRUE(Text(L"J", L"V", k64) == L"64" && Text(L"J", L"V", k32) == L"old" && !aero.key32);
    // open() leaves a handle in each view to its caller; a write then closes them.
    EXPECT_TRUE(!value.key32 && !value.key64 && value.open(true));
    RegSetValueExW(value.key32, L"V", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"32"), 6);
    EXPECT_TRUE(Text(L"W", L"V", k32) == L"32" && Text(L"W", L"V", k64) == L"Yes");
    value.write(L"No");
    EXPECT_TRUE(!value.key32 && !value.key64 && Text(L"W", L"V", k32) == L"No");

    // remove_value deletes in both views, and leaves a missing key made, empty.
    registry_value(kKey + L"I\\Both").remove_value();
    registry_value(kKey + L"Absent\\V").remove_value();
    EXPECT_TRUE(ValueNamesOf(HKLM, kKey + L"I", k32) == Lines{L"Old"} &&
                ValueNamesOf(HKLM, kKey + L"I") == Lines{L"Number"});
    EXPECT_TRUE(KeyExists(HKLM, kKey + L"Absent", k64) && KeyExists(HKLM, kKey + L"Absent", k32));
}

// DeleteKeyRecursive32 in its caller's buffer, which it gives back as it came.
bool InBuffer(const std::wstring& path)
{
    wchar_t buffer[kKeyPathChars];
    wcscpy(buffer, path.c_str());
    const int result = DeleteKeyRecursive32(buffer);
    return path == buffer && result == 1;
}

TEST_F(RegistryTest, TreeDeletesWorkInTheirViewAndStopAtAChildThatWontGo)
{
    const std::wstring tree = kKey + L"T";
    const struct { const char* row; REGSAM view, other; std::function<bool()> remove; } rows[] = {
        {"delete_key", k64, k32, [&] { return registry_value::delete_key(HKLM, tree); }},
        {"delete_key32", k32, k64, [&] { return registry_value::delete_key32(HKLM, tree); }},
        {"DeleteKeyRecursive32", k32, k64, [&] { return InBuffer(tree); }},
        {"DeleteKeyRecursive32, trailing backslash", k32, k64, [&] { return InBuffer(tree + L"\\"); }}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.row);
        for (const wchar_t* child : {L"\\A\\Deep", L"\\B\\Inner", L"\\C"}) {
            CreateKey(HKLM, tree + child, k32);
            CreateKey(HKLM, tree + child, k64);
        }
        // B refuses the walk's open; Wine would let its delete through, but its child stops that.
        // From index 0, A goes, and C is never reached.
        Deny(HKLM, tree + L"\\B", row.view);
        EXPECT_TRUE(!row.remove() && SubKeysOf(HKLM, tree, row.view) == Lines({L"B", L"C"}));
        Deny(HKLM, tree + L"\\B", row.view, false);
        EXPECT_TRUE(row.remove() && row.remove());  // the second time, an absent key counts as deleted
        EXPECT_TRUE(!KeyExists(HKLM, tree, row.view) && SubKeysOf(HKLM, tree, row.other) == Lines({L"A", L"B", L"C"}));
        DeleteRegTree(HKLM, tree, row.other);
    }
}

TEST_F(RegistryTest, KeyListsMergeTheViews)
{
    for (const wchar_t* name : {L"L\\Shared", L"L\\Native", L"L\\case", L"F\\Sub"})
        CreateKey(HKLM, kKey + name, k64);
    for (const wchar_t* name : {L"L\\Shared", L"L\\Only32", L"L\\CASE"})
        CreateKey(HKLM, kKey + name, k32);
    SetText(HKLM, kKey + L"L", L"a", L"x", k64);
    SetText(HKLM, kKey + L"L", L"b32", L"x", k32);
    // In F neither sub-key names nor a name too long for the buffer count as native names.
    SetText(HKLM, kKey + L"F", Repeat(L'n', 600), L"x", k64);
    SetText(HKLM, kKey + L"F", L"", L"default", k32);
    SetText(HKLM, kKey + L"F", L"z", L"x", k32);
    // Native names first, then the 32-bit ones not yet listed, case counting; the 32-bit
    // values only stand in for a native view without names.
    const std::pair<const wchar_t*, Lines> rows[] = {
        {L"L", {L"case", L"Native", L"Shared", L"CASE", L"Only32", L"a"}}, {L"F", {L"Sub", L"", L"z"}}, {L"X", {}}};
    for (const auto& row : rows) {
        registry_key_list list(HKLM, kKey + row.first);
        list.list_sub_keys();
        list.list_values();
        EXPECT_TRUE(row.second == list.names && !list.key32 && !list.key64) << row.first;
    }
}

TEST_F(RegistryTest, HandleOperationsQueryNamesAndTextsAndDeleteAllButTwoValues)
{
    const std::wstring key = kKey + L"B", fits = L"C:\\" + Repeat(L'f', 126);  // 260 bytes with its null
    for (const std::wstring& name : {std::wstring(L"Alpha"), Repeat(L'k', 254), Repeat(L'l', 255)})
        CreateKey(HKLM, key + L"\\" + name);  // 255 characters don't fit with the null
    const Lines names = {L"", L" ", L"  ", L"c", L"d", L"e"};
    const Lines texts = {L"", L"1", L"2", L"C:\\Bin\\", fits, fits + L"g"};
    for (size_t i = 0; i < names.size(); ++i)
        SetText(HKLM, key, names[i], texts[i]);
    SetDword(HKLM, key, L"b", 1);
    SetValue(HKLM, key, L"ba", REG_EXPAND_SZ, L"%x%\\y", 12);
    HKEY open;
    RegOpenKeyExW(HKLM, key.c_str(), 0, KEY_ALL_ACCESS, &open);
    g_keyNameList.assign(1, L"earlier");
    QueryKeyNames(open);
    DeleteKeyValues(open, L"c");  // the name passed changes nothing
    RegCloseKey(open);
    EXPECT_EQ(Lines({L"earlier", L"Alpha", Repeat(L'k', 254), L"", L"1", L"2", L"C:/Bin/", L"C:/" + Repeat(L'f', 126)}),
              g_keyNameList);
    EXPECT_TRUE(ValueNamesOf(HKLM, key) == Lines({L"", L" "}) && SubKeysOf(HKLM, key).size() == 3);
    g_keyNameList.clear();
}

TEST_F(RegistryTest, FreeOperationsOnTheirFixedKeys)
{
    Session session;
    g_hSession = session.handle();
    EXPECT_TRUE(CreateRegDWValue(L"Mode", 3) == 1 && CreateRegDWValue(L"Other", 0xFFFFFFFF) == 1);  // key made, opened
    EXPECT_TRUE(DwordOf(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", L"Mode") == 3 &&
                DwordOf(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", L"Other") == 0xFFFFFFFF);

    // Opened under HKLM, else made under HKCR, else nothing; a line for each value set.
    CreateKey(HKLM, kKey + L"P");
    for (HKEY root : {HKLM, HKCR}) {
        CreateKey(root, kKey + L"D");
        Deny(root, kKey + L"D", 0);
    }
    for (const wchar_t* key : {L"P\\", L"Q", L"D"})
        EXPECT_EQ(0, CreateRegStringValue(kKey + key, L"V", key));
    EXPECT_TRUE(TextOf(HKCR, kKey + L"Q", L"V") == L"Q" && !HasValue(HKCR, kKey + L"D", L"V"));
    EXPECT_TRUE(Text(L"P", L"V", k64) == L"P\\" && !KeyExists(HKCR, kKey + L"P") && !KeyExists(HKLM, kKey + L"Q"));
    EXPECT_EQ(Lines(2, L"Tessel_CA CreateBrioContextMenu() - Successfully created GUID"), session.Log());

    // Made in the 64-bit view, where a refused key fails it.
    bool created = false;
    EXPECT_EQ("RegCreateKeyEx result 0\n", CapturedStdout([&] { created = CreateKeyWithAcl(kKey + L"A"); }));
    EXPECT_TRUE(created);
    EXPECT_EQ("RegCreateKeyEx result 5\n", CapturedStdout([&] { created = CreateKeyWithAcl(kKey + L"D"); }));
    EXPECT_FALSE(created);
    EXPECT_TRUE(KeyExists(HKLM, kKey + L"A", k64) && !KeyExists(HKLM, kKey + L"A", k32));
    for (HKEY root : {HKLM, HKCR})
        Deny(root, kKey + L"D", 0, false);

    const wchar_t run[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
    SetText(HKLM, run, L"TesselTestTask", L"64", k64);
    SetText(HKLM, run, L"TesselTestTask", L"32", k32);
    EXPECT_TRUE(DeleteRunValue(L"TesselTestTask") && !DeleteRunValue(L"TesselTestTask"));
    EXPECT_EQ(L"32", TextOf(HKLM, run, L"TesselTestTask", k32));
    RegDeleteKeyValueW(HKLM, L"SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Run", L"TesselTestTask");
}

}  // namespace

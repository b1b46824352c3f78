// The registry layer on the prefix's real registry, in both views, under
// SOFTWARE\TesselTest, which the fixture clears.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "toolkit/registry.h"

using namespace harness;

namespace {

using RegistryTest = ToolkitTest;
const HKEY HKLM = HKEY_LOCAL_MACHINE;
const REGSAM k32 = KEY_WOW64_32KEY, k64 = KEY_WOW64_64KEY;
const std::wstring kKey = L"SOFTWARE\\TesselTest\\";

// The value's text in the 64-bit view, then in the 32-bit one.
std::wstring Texts(const std::wstring& key, const wchar_t* name)
{
    return TextOf(HKLM, kKey + key, name, k64) + L"|" + TextOf(HKLM, kKey + key, name, k32);
}

TEST_F(RegistryTest, ValuesAreReadNativeViewFirstAndWrittenInBothViews)
{
    // J's value is in the 32-bit view alone; I has a native key, its values in either view or both.
    SetText(HKLM, kKey + L"J", L"V", L"old", k32);
    SetText(HKLM, kKey + L"I", L"Old", L"old", k32);
    SetText(HKLM, kKey + L"I", L"Both", L"old", k32);
    SetText(HKLM, kKey + L"I", L"Both", L"new", k64);
    SetText(HKLM, kKey + L"I", L"Native", L"native", k64);
    SetText(HKLM, kKey + L"K", L"", L"default");
    // Whether it exists, what is read, and whether a handle stayed open.
    const wchar_t* reads[][2] = {{L"J\\V", L"1old"}, {L"I\\Old", L"1old"}, {L"I\\Both", L"1new"},
                                 {L"I\\None", L"0"}, {L"I\\Native", L"1native"}, {L"K\\", L"1default"}};
    for (const auto& read : reads) {
        registry_string value(kKey + read[0]);
        const bool exists = value.exists();
        EXPECT_EQ(read[1], std::to_wstring(exists) + value.read() + (value.key32 || value.key64 ? L" open" : L""));
    }

    registry_string value(kKey + L"W\\V");
    EXPECT_FALSE(value.open(false) || KeyExists(HKLM, kKey + L"W", k64));
    // open() leaves a handle in each view to its caller; a write closes them.
    EXPECT_TRUE(value.open(true) && value.key32 && value.key64);
    value.write(L"Yes");
    registry_string64(kKey + L"J\\V").write(L"64");
    EXPECT_TRUE(!value.key32 && !value.key64 && Texts(L"W", L"V") == L"Yes|Yes" && Texts(L"J", L"V") == L"64|old");

    // remove_value deletes in both views, and leaves a missing key made, empty.
    registry_value(kKey + L"I\\Both").remove_value();
    registry_value(kKey + L"Absent\\V").remove_value();
    EXPECT_TRUE(ValueNamesOf(HKLM, kKey + L"I", k32) == Lines{L"Old"} && ValueNamesOf(HKLM, kKey + L"I") == Lines{L"Native"});
    EXPECT_TRUE(KeyExists(HKLM, kKey + L"Absent", k64) && KeyExists(HKLM, kKey + L"Absent", k32));
}

// DeleteKeyRecursive32 in its caller's buffer, which it gives back as it came.
bool InBuffer(const std::wstring& path)
{
    wchar_t buffer[kKeyPathChars];
    wcscpy(buffer, path.c_str());
    return DeleteKeyRecursive32(buffer) == 1 && path == buffer;
}

TEST_F(RegistryTest, TreeDeletesWorkInTheirView)
{
    const std::wstring tree = kKey + L"T";
    const struct { const char* row; REGSAM view, other; std::function<bool()> remove; } rows[] = {
        {"delete_key", k64, k32, [&] { return registry_value::delete_key(HKLM, tree); }},
        {"delete_key32", k32, k64, [&] { return registry_value::delete_key32(HKLM, tree); }},
        {"DeleteKeyRecursive32", k32, k64, [&] { return InBuffer(tree); }},
        {"DeleteKeyRecursive32, trailing backslash", k32, k64, [&] { return InBuffer(tree + L"\\"); }}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.row);
        for (REGSAM view : {k32, k64})
            for (const wchar_t* child : {L"\\A\\Deep", L"\\B\\Inner", L"\\C"})
                CreateKey(HKLM, tree + child, view);
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
    // In F sub-key names don't count as native names; in G a value name too long for the buffer does, listed empty.
    SetText(HKLM, kKey + L"G", Repeat(L'n', 600), L"x", k64);
    SetText(HKLM, kKey + L"G", L"z", L"x", k32);
    SetText(HKLM, kKey + L"F", L"", L"default", k32);
    SetText(HKLM, kKey + L"F", L"z", L"x", k32);
    CreateKey(HKLM, kKey + L"F\\Only32", k32);  // one sub-key in that view alone
    // Native names first, then the 32-bit ones not yet listed, case counting; the 32-bit
    // values only stand in for a native view without names.
    const std::pair<const wchar_t*, Lines> rows[] = {
        {L"L", {L"case", L"Native", L"Shared", L"CASE", L"Only32", L"a"}},
        {L"F", {L"Sub", L"Only32", L"", L"z"}},
        {L"G", {L""}},
        {L"X", {}}};
    for (const auto& row : rows) {
        registry_key_list list(HKLM, kKey + row.first);
        list.list_sub_keys();
        list.list_values();
        EXPECT_TRUE(row.second == list.names && !list.key32 && !list.key64) << row.first;
    }
}

TEST_F(RegistryTest, FreeOperations)
{
    // QueryKeyNames and DeleteKeyValues on a handle; the second keeps the value named by one blank.
    const std::wstring key = kKey + L"B", fits = L"C:\\" + Repeat(L'f', 126);  // 260 bytes with its null
    for (const std::wstring& name : {std::wstring(L"Alpha"), Repeat(L'k', 254), Repeat(L'l', 255)})
        CreateKey(HKLM, key + L"\\" + name);  // 255 characters don't fit with the null
    const Lines names = {L"", L" ", L"  ", L"c"}, texts = {L"", L"C:\\Bin\\", fits, fits + L"g"};
    for (size_t i = 0; i < names.size(); ++i)
        SetText(HKLM, key, names[i], texts[i]);
    SetValue(HKLM, key, L"b", REG_EXPAND_SZ, L"%x%\\y", 12);
    HKEY open;
    RegOpenKeyExW(HKLM, key.c_str(), 0, KEY_ALL_ACCESS, &open);
    g_keyNameList.assign(1, L"earlier");
    QueryKeyNames(open);
    DeleteKeyValues(open, L"c");  // the name passed changes nothing
    RegCloseKey(open);
    EXPECT_EQ(Lines({L"earlier", L"Alpha", Repeat(L'k', 254), L"", L"C:/Bin/", L"C:/" + Repeat(L'f', 126)}),
              g_keyNameList);
    EXPECT_TRUE(ValueNamesOf(HKLM, key) == Lines({L"", L" "}) && SubKeysOf(HKLM, key).size() == 3);
    g_keyNameList.clear();

    // CreateRegDWValue: the key made, then opened.
    Session session;
    g_hSession = session.handle();
    EXPECT_TRUE(CreateRegDWValue(L"Mode", 3) == 1 && DwordOf(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", L"Mode") == 3);
    EXPECT_TRUE(CreateRegDWValue(L"Mode", 4) == 1 && DwordOf(HKEY_CURRENT_USER, L"SOFTWARE\\Orvel", L"Mode") == 4);

    // CreateRegStringValue: opened under HKLM, else made under HKCR; a line for each value set.
    CreateKey(HKLM, kKey + L"P");
    for (const wchar_t* name : {L"P\\", L"Q"})
        EXPECT_EQ(0, CreateRegStringValue(kKey + name, L"V", name));
    EXPECT_TRUE(TextOf(HKEY_CLASSES_ROOT, kKey + L"Q", L"V") == L"Q" && !KeyExists(HKLM, kKey + L"Q"));
    EXPECT_TRUE(Texts(L"P", L"V") == L"P\\|<missing>" && !KeyExists(HKEY_CLASSES_ROOT, kKey + L"P"));
    EXPECT_EQ(Lines(2, L"Tessel_CA CreateBrioContextMenu() - Successfully created GUID"), session.Log());

    // CreateKeyWithAcl: made in the 64-bit view; its one line goes to standard output.
    testing::internal::CaptureStdout();
    EXPECT_TRUE(CreateKeyWithAcl(kKey + L"A"));
    EXPECT_EQ("RegCreateKeyEx result 0\n", testing::internal::GetCapturedStdout());
    EXPECT_TRUE(KeyExists(HKLM, kKey + L"A", k64) && !KeyExists(HKLM, kKey + L"A", k32));

    // DeleteRunValue: true only when it deleted the value.
    SetText(HKLM, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run", L"TesselTestTask", L"x");
    EXPECT_TRUE(DeleteRunValue(L"TesselTestTask") && !DeleteRunValue(L"TesselTestTask"));
}

}  // namespace

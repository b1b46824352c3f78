// The registry layer on the prefix's real registry, in both views. Keys live
// under SOFTWARE\TesselTest (HKLM, HKCR, HKCU), which the fixture clears; under
// the layer's fixed paths only the values set here are removed.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "toolkit/registry.h"

#include <gmock/gmock.h>
#include <fcntl.h>
#include <io.h>
#include <sddl.h>
#include <shlobj.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <sstream>

using harness::Repeat;
using harness::Session;
using harness::SetText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const HKEY HKLM = HKEY_LOCAL_MACHINE;
const REGSAM k32 = KEY_WOW64_32KEY;
const REGSAM k64 = KEY_WOW64_64KEY;

std::wstring Under(const std::wstring& path)
{
    return L"SOFTWARE\\TesselTest\\" + path;
}

bool KeyExists(HKEY root, const std::wstring& path, REGSAM view)
{
    HKEY key;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | view, &key) != ERROR_SUCCESS)
        return false;
    RegCloseKey(key);
    return true;
}

void WriteValue(HKEY root, const std::wstring& path, const std::wstring& name, DWORD type, const void* data,
                DWORD bytes, REGSAM view)
{
    HKEY key;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(root, path.c_str(), 0, NULL, 0, KEY_ALL_ACCESS | view, NULL, &key, NULL));
    if (data != NULL)
        RegSetValueExW(key, name.c_str(), 0, type, static_cast<const BYTE*>(data), bytes);
    RegCloseKey(key);
}

void CreateKey(HKEY root, const std::wstring& path, REGSAM view)
{
    WriteValue(root, path, L"", REG_NONE, NULL, 0, view);
}

void WriteDword(HKEY root, const std::wstring& path, const std::wstring& name, DWORD data, REGSAM view)
{
    WriteValue(root, path, name, REG_DWORD, &data, sizeof(data), view);
}

// "type:bytes" of a value, or "absent".
std::string ValueShape(HKEY root, const std::wstring& path, const std::wstring& name, REGSAM view)
{
    HKEY key;
    DWORD type = 0, bytes = 0;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | view, &key) != ERROR_SUCCESS)
        return "absent";
    LSTATUS status = RegQueryValueExW(key, name.c_str(), NULL, &type, NULL, &bytes);
    RegCloseKey(key);
    return status == ERROR_SUCCESS ? std::to_string(type) + ":" + std::to_string(bytes) : "absent";
}

std::wstring ReadText(HKEY root, const std::wstring& path, const std::wstring& name, REGSAM view)
{
    std::wstring text = harness::TextOf(root, path, name, view);
    return text == L"<missing>" ? L"<absent>" : text;
}

// Sub-key names, or with `values` value names, in the registry's order.
std::vector<std::wstring> Names(HKEY root, const std::wstring& path, REGSAM view, bool values = false)
{
    std::vector<std::wstring> names;
    HKEY key;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | view, &key) != ERROR_SUCCESS)
        return names;
    wchar_t name[1024];
    for (DWORD i = 0;; ++i) {
        DWORD chars = 1024;
        LSTATUS status = values ? RegEnumValueW(key, i, name, &chars, NULL, NULL, NULL, NULL)
                                : RegEnumKeyExW(key, i, name, &chars, NULL, NULL, NULL, NULL);
        if (status != ERROR_SUCCESS)
            break;
        names.push_back(name);
    }
    RegCloseKey(key);
    return names;
}

void SetKeyDacl(HKEY root, const std::wstring& path, REGSAM view, const std::wstring& sddl)
{
    HKEY key;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(root, path.c_str(), 0, WRITE_DAC | view, &key));
    PSECURITY_DESCRIPTOR descriptor = NULL;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, &descriptor, NULL));
    EXPECT_EQ(ERROR_SUCCESS, RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor));
    LocalFree(descriptor);
    RegCloseKey(key);
}

// A key whose access list denies `rights` to Everyone while this lives; full
// access comes back at the end, so that the fixture can clear it.
class DeniedKey {
public:
    DeniedKey(HKEY root, const std::wstring& path, REGSAM view, const wchar_t* rights)
        : root_(root), path_(path), view_(view)
    {
        CreateKey(root, path, view);
        SetKeyDacl(root, path, view, std::wstring(L"D:(D;;") + rights + L";;;WD)(A;;KA;;;WD)");
    }
    ~DeniedKey() { SetKeyDacl(root_, path_, view_, L"D:(A;;KA;;;WD)"); }

private:
    HKEY root_;
    std::wstring path_;
    REGSAM view_;
};

const wchar_t kDenyDelete[] = L"SD";
const wchar_t kDenySetValue[] = L"0x2";  // KEY_SET_VALUE: refuses every full-access open

// What `call` prints on the C runtime's standard output.
template <typename Call>
std::string CapturedStdout(Call call)
{
    const wchar_t file[] = L"C:\\tessel\\scratch\\stdout.txt";
    SHCreateDirectoryExW(NULL, harness::kScratchFolder, NULL);
    fflush(stdout);
    int saved = _dup(_fileno(stdout));
    int capture = _wopen(file, _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY, _S_IREAD | _S_IWRITE);
    _dup2(capture, _fileno(stdout));
    _close(capture);
    call();
    fflush(stdout);
    _dup2(saved, _fileno(stdout));
    _close(saved);
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class RegistryTest : public harness::ActionTest {
protected:
    RegistryTest() : ActionTest(ToolkitArea()) {}
};

TEST(RegistryValue, SplitsItsPathAtTheLastBackslash)
{
    registry_value value(L"SOFTWARE\\Suite\\Install\\Location");
    EXPECT_EQ(L"SOFTWARE\\Suite\\Install", value.subkey);
    EXPECT_EQ(L"Location", value.value_name);
    EXPECT_EQ(HKLM, value.hive);
    EXPECT_EQ(NULL, value.key32);
    EXPECT_EQ(NULL, value.key64);

    registry_value key(L"SOFTWARE\\Suite\\Install\\");
    EXPECT_EQ(L"SOFTWARE\\Suite\\Install", key.subkey);
    EXPECT_EQ(L"", key.value_name);

    // Two backslashes at the end: one stays on the key path.
    registry_value doubled(L"SOFTWARE\\Suite\\\\");
    EXPECT_EQ(L"SOFTWARE\\Suite\\", doubled.subkey);
    EXPECT_EQ(L"", doubled.value_name);

    registry_string bare(L"Location");
    EXPECT_EQ(L"Location", bare.subkey);
    EXPECT_EQ(L"Location", bare.value_name);
}

TEST_F(RegistryTest, ReadTakesTheNativeViewFirstAndFallsBackToThe32BitView)
{
    registry_string value(Under(L"Install\\Location"));
    EXPECT_FALSE(value.exists());
    EXPECT_EQ(L"", value.read());

    // Only the 32-bit key exists; then the native key exists without the value.
    SetText(HKLM, Under(L"Install"), L"Location", L"C:\\Old32\\", k32);
    EXPECT_TRUE(value.exists());
    EXPECT_EQ(L"C:\\Old32\\", value.read());
    SetText(HKLM, Under(L"Install"), L"Other", L"x", k64);
    EXPECT_TRUE(value.exists());
    EXPECT_EQ(L"C:\\Old32\\", value.read());

    SetText(HKLM, Under(L"Install"), L"Location", L"C:\\New64\\", k64);
    EXPECT_EQ(L"C:\\New64\\", value.read());
    EXPECT_EQ(NULL, value.key32);
    EXPECT_EQ(NULL, value.key64);

    // Names are matched without regard to case, and whole.
    EXPECT_EQ(L"C:\\New64\\", registry_string(Under(L"Install\\LOCATION")).read());
    EXPECT_FALSE(registry_value(Under(L"Install\\Locatio")).exists());
}

TEST_F(RegistryTest, ReadTakesAnyTypeUpToItsFirstNullCharacter)
{
    // The default value (a path ending in a backslash) and the value named by one blank.
    SetText(HKLM, Under(L"Types"), L"", L"default text", k64);
    SetText(HKLM, Under(L"Types"), L" ", L"blank's text", k64);
    EXPECT_EQ(L"default text", registry_string(Under(L"Types\\")).read());
    EXPECT_EQ(L"blank's text", registry_string(Under(L"Types\\ ")).read());

    WriteDword(HKLM, Under(L"Types"), L"Number", 0x00420041, k64);
    EXPECT_TRUE(registry_value(Under(L"Types\\Number")).exists());
    EXPECT_EQ(L"AB", registry_string(Under(L"Types\\Number")).read());

    // Text stored without its terminator, and no data at all.
    WriteValue(HKLM, Under(L"Types"), L"Bare", REG_SZ, L"abc", 6, k64);
    EXPECT_EQ(L"abc", registry_string(Under(L"Types\\Bare")).read());
    WriteValue(HKLM, Under(L"Types"), L"Empty", REG_SZ, L"", 0, k64);
    EXPECT_TRUE(registry_value(Under(L"Types\\Empty")).exists());
    EXPECT_EQ(L"", registry_string(Under(L"Types\\Empty")).read());
}

TEST_F(RegistryTest, WriteCreatesTheKeyAndSetsTheTextInBothViews)
{
    registry_string value(Under(L"Install\\Manager\\Ferrule_Reboot"));
    EXPECT_EQ(&value, &value.write(L"Yes"));
    EXPECT_EQ(L"Yes", ReadText(HKLM, Under(L"Install\\Manager"), L"Ferrule_Reboot", k64));
    EXPECT_EQ(L"Yes", ReadText(HKLM, Under(L"Install\\Manager"), L"Ferrule_Reboot", k32));
    EXPECT_EQ("1:8", ValueShape(HKLM, Under(L"Install\\Manager"), L"Ferrule_Reboot", k64));  // REG_SZ, terminator kept
    EXPECT_EQ(NULL, value.key32);
    EXPECT_EQ(NULL, value.key64);

    value.write(L"No");
    EXPECT_EQ(L"No", ReadText(HKLM, Under(L"Install\\Manager"), L"Ferrule_Reboot", k32));
    EXPECT_EQ(L"No", ReadText(HKLM, Under(L"Install\\Manager"), L"Ferrule_Reboot", k64));
}

TEST_F(RegistryTest, String64WritesThe64BitViewAlone)
{
    SetText(HKLM, Under(L"RunOnce"), L"EnableAero", L"32-bit text", k32);
    registry_string64 value(Under(L"RunOnce\\EnableAero"));
    value.write(L"winsat formal -xml log.xml");
    EXPECT_EQ(L"winsat formal -xml log.xml", ReadText(HKLM, Under(L"RunOnce"), L"EnableAero", k64));
    EXPECT_EQ(L"32-bit text", ReadText(HKLM, Under(L"RunOnce"), L"EnableAero", k32));
    EXPECT_EQ(NULL, value.key32);
}

TEST_F(RegistryTest, OpenLeavesItsHandlesToTheCaller)
{
    registry_string value(Under(L"Open\\Name"));
    EXPECT_FALSE(value.open(false));
    EXPECT_EQ(NULL, value.key32);
    EXPECT_EQ(NULL, value.key64);
    EXPECT_FALSE(KeyExists(HKLM, Under(L"Open"), k64));

    ASSERT_TRUE(value.open(true));
    EXPECT_TRUE(KeyExists(HKLM, Under(L"Open"), k32));
    EXPECT_TRUE(KeyExists(HKLM, Under(L"Open"), k64));
    // Each handle is in its own view.
    const wchar_t text[] = L"via key32";
    EXPECT_EQ(ERROR_SUCCESS, RegSetValueExW(value.key32, L"Name", 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                                            sizeof(text)));
    EXPECT_EQ(L"via key32", ReadText(HKLM, Under(L"Open"), L"Name", k32));
    EXPECT_EQ("absent", ValueShape(HKLM, Under(L"Open"), L"Name", k64));

    // A write after open, as EnableAero makes on a 32-bit system, writes and closes.
    value.write(L"both");
    EXPECT_EQ(NULL, value.key32);
    EXPECT_EQ(NULL, value.key64);
    EXPECT_EQ(L"both", ReadText(HKLM, Under(L"Open"), L"Name", k64));
}

TEST_F(RegistryTest, RemoveValueDeletesBothViewsAndCreatesAMissingKey)
{
    SetText(HKLM, Under(L"Proxy"), L"Install", L"64", k64);
    SetText(HKLM, Under(L"Proxy"), L"Keep", L"k", k64);
    SetText(HKLM, Under(L"Proxy"), L"Install", L"32", k32);
    registry_value(Under(L"Proxy\\Install")).remove_value();
    EXPECT_THAT(Names(HKLM, Under(L"Proxy"), k64, true), ElementsAre(L"Keep"));
    EXPECT_THAT(Names(HKLM, Under(L"Proxy"), k32, true), IsEmpty());
    EXPECT_TRUE(KeyExists(HKLM, Under(L"Proxy"), k32));

    registry_value(Under(L"Services\\kmd\\Blacklist")).remove_value();
    EXPECT_TRUE(KeyExists(HKLM, Under(L"Services\\kmd"), k64));
    EXPECT_TRUE(KeyExists(HKLM, Under(L"Services\\kmd"), k32));
}

TEST_F(RegistryTest, TreeDeletesWorkInTheirOwnViewAndCountAnAbsentKeyAsDeleted)
{
    for (REGSAM view : {k32, k64}) {
        SetText(HKLM, Under(L"Tree\\A\\A1\\A2"), L"v", L"x", view);
        SetText(HKLM, Under(L"Tree\\B"), L"v", L"x", view);
        SetText(HKLM, Under(L"Tree"), L"v", L"x", view);
    }
    CreateKey(HKLM, Under(L"TreeSibling"), k64);

    registry_value tree(Under(L"Tree\\"));
    EXPECT_TRUE(tree.delete_key32(tree.hive, tree.subkey));
    EXPECT_FALSE(KeyExists(HKLM, Under(L"Tree"), k32));
    EXPECT_THAT(Names(HKLM, Under(L"Tree"), k64), ElementsAre(L"A", L"B"));
    EXPECT_TRUE(tree.delete_key(tree.hive, tree.subkey));
    EXPECT_FALSE(KeyExists(HKLM, Under(L"Tree"), k64));
    EXPECT_TRUE(KeyExists(HKLM, Under(L"TreeSibling"), k64));

    EXPECT_TRUE(tree.delete_key32(tree.hive, tree.subkey));
    EXPECT_TRUE(tree.delete_key(tree.hive, tree.subkey));

    // The older walk, in its caller's buffer, which it gives back as it came.
    for (REGSAM view : {k32, k64})
        CreateKey(HKLM, Under(L"Kestra\\One\\Two"), view);
    CreateKey(HKLM, Under(L"Slash\\Child"), k32);
    wchar_t path[kKeyPathChars] = L"SOFTWARE\\TesselTest\\Kestra";
    EXPECT_EQ(1, DeleteKeyRecursive32(path));
    EXPECT_STREQ(L"SOFTWARE\\TesselTest\\Kestra", path);
    EXPECT_FALSE(KeyExists(HKLM, Under(L"Kestra"), k32));
    EXPECT_THAT(Names(HKLM, Under(L"Kestra"), k64), ElementsAre(L"One"));
    EXPECT_EQ(1, DeleteKeyRecursive32(path));
    wchar_t slash[kKeyPathChars] = L"SOFTWARE\\TesselTest\\Slash\\";
    EXPECT_EQ(1, DeleteKeyRecursive32(slash));
    EXPECT_STREQ(L"SOFTWARE\\TesselTest\\Slash\\", slash);
    EXPECT_FALSE(KeyExists(HKLM, Under(L"Slash"), k32));
}

TEST_F(RegistryTest, TreeDeletesStopAtASubKeyThatCannotBeDeleted)
{
    // Children go from index 0: A goes, B won't, so C is never reached. B
    // refuses DELETE, and with it the walk's full-access open. Wine lets an open
    // for DELETE alone through all the same, so B also has a child: a key with
    // children can't be deleted, and the walk can't open B to reach it.
    for (REGSAM view : {k32, k64}) {
        CreateKey(HKLM, Under(L"Locked\\A\\Deep"), view);
        CreateKey(HKLM, Under(L"Locked\\B\\Inner"), view);
        CreateKey(HKLM, Under(L"Locked\\C"), view);
    }
    {
        DeniedKey native(HKLM, Under(L"Locked\\B"), k64, kDenyDelete);
        DeniedKey wow(HKLM, Under(L"Locked\\B"), k32, kDenyDelete);

        EXPECT_FALSE(registry_value::delete_key(HKLM, Under(L"Locked")));
        EXPECT_THAT(Names(HKLM, Under(L"Locked"), k64), ElementsAre(L"B", L"C"));
        EXPECT_THAT(Names(HKLM, Under(L"Locked"), k32), ElementsAre(L"A", L"B", L"C"));
        EXPECT_FALSE(registry_value::delete_key32(HKLM, Under(L"Locked")));
        EXPECT_THAT(Names(HKLM, Under(L"Locked"), k32), ElementsAre(L"B", L"C"));

        CreateKey(HKLM, Under(L"Locked\\A\\Deep"), k32);
        wchar_t path[kKeyPathChars] = L"SOFTWARE\\TesselTest\\Locked";
        EXPECT_EQ(0, DeleteKeyRecursive32(path));
        EXPECT_STREQ(L"SOFTWARE\\TesselTest\\Locked", path);
        EXPECT_THAT(Names(HKLM, Under(L"Locked"), k32), ElementsAre(L"B", L"C"));
    }
    EXPECT_TRUE(registry_value::delete_key(HKLM, Under(L"Locked")));
    EXPECT_TRUE(registry_value::delete_key32(HKLM, Under(L"Locked")));
    EXPECT_FALSE(KeyExists(HKLM, Under(L"Locked"), k64));
    EXPECT_FALSE(KeyExists(HKLM, Under(L"Locked"), k32));
}

TEST_F(RegistryTest, ListSubKeysMergesBothViewsWithoutDuplicates)
{
    for (const wchar_t* name : {L"Shared", L"Native", L"case"})
        CreateKey(HKLM, Under(L"List\\") + name, k64);
    for (const wchar_t* name : {L"Shared", L"Only32", L"CASE"})
        CreateKey(HKLM, Under(L"List\\") + name, k32);
    SetText(HKLM, Under(L"List"), L"value", L"x", k64);

    // Native names in the registry's order, then the 32-bit ones not yet
    // listed; names differing in case count as different.
    registry_key_list list(HKLM, Under(L"List"));
    list.list_sub_keys();
    EXPECT_THAT(list.names, ElementsAre(L"case", L"Native", L"Shared", L"CASE", L"Only32"));
    EXPECT_EQ(NULL, list.key32);
    EXPECT_EQ(NULL, list.key64);
    // Only ever appended to.
    list.list_values();
    EXPECT_THAT(list.names, ElementsAre(L"case", L"Native", L"Shared", L"CASE", L"Only32", L"value"));

    registry_key_list absent(HKLM, Under(L"Absent"));
    absent.list_sub_keys();
    absent.list_values();
    EXPECT_THAT(absent.names, IsEmpty());

    // A key that both views share (HKCU's software branch) is listed once.
    CreateKey(HKEY_CURRENT_USER, Under(L"Child"), 0);
    registry_key_list user(HKEY_CURRENT_USER, L"SOFTWARE\\TesselTest");
    user.list_sub_keys();
    EXPECT_THAT(user.names, ElementsAre(L"Child"));
}

TEST_F(RegistryTest, ListValuesReadsThe32BitViewOnlyWhenTheNativeViewHasNoNames)
{
    SetText(HKLM, Under(L"Values"), L"a", L"x", k64);
    SetText(HKLM, Under(L"Values"), L"b", L"x", k64);
    SetText(HKLM, Under(L"Values"), L"c32", L"x", k32);
    registry_key_list both(HKLM, Under(L"Values"));
    both.list_values();
    EXPECT_THAT(both.names, ElementsAre(L"a", L"b"));

    // A native key without values: the 32-bit names, the default's empty one
    // included; sub-key names listed before don't count as native names.
    CreateKey(HKLM, Under(L"Empty64\\Sub"), k64);
    SetText(HKLM, Under(L"Empty64"), L"", L"default", k32);
    SetText(HKLM, Under(L"Empty64"), L"z", L"x", k32);
    registry_key_list fallback(HKLM, Under(L"Empty64"));
    fallback.list_sub_keys();
    fallback.list_values();
    fallback.list_values();
    EXPECT_THAT(fallback.names, ElementsAre(L"Sub", L"", L"z", L"", L"z"));

    // A name longer than the name buffer is left out, and the buffer isn't overrun.
    SetText(HKLM, Under(L"Long"), Repeat(L'n', 600), L"x", k64);
    SetText(HKLM, Under(L"Long"), L"short", L"x", k32);
    registry_key_list tooLong(HKLM, Under(L"Long"));
    tooLong.list_values();
    EXPECT_THAT(tooLong.names, ElementsAre(L"short"));
}

TEST_F(RegistryTest, DeleteKeyValuesKeepsTheDefaultAndTheSingleBlank)
{
    for (const wchar_t* name : {L"", L" ", L"  ", L"Alpha", L"keep me"})
        SetText(HKLM, Under(L"Pixel"), name, L"x", k64);
    WriteDword(HKLM, Under(L"Pixel"), L"Number", 7, k64);
    CreateKey(HKLM, Under(L"Pixel\\Child"), k64);

    HKEY key;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKLM, Under(L"Pixel").c_str(), 0, KEY_ALL_ACCESS, &key));
    DeleteKeyValues(key, L"keep me");  // the name passed changes nothing
    RegCloseKey(key);
    EXPECT_THAT(Names(HKLM, Under(L"Pixel"), k64, true), ElementsAre(L"", L" "));
    EXPECT_THAT(Names(HKLM, Under(L"Pixel"), k64), ElementsAre(L"Child"));
}

TEST_F(RegistryTest, CreateRegStringValueOpensInHklmButCreatesInHkcr)
{
    Session session;
    g_hSession = session.handle();
    const std::vector<std::wstring> twoLines(2, L"Tessel_CA CreateBrioContextMenu() - Successfully created GUID");

    CreateKey(HKLM, Under(L"PerfOS"), k64);
    EXPECT_EQ(0, CreateRegStringValue(Under(L"PerfOS\\"), L"Disable Performance Counters", L"0"));
    EXPECT_EQ(L"0", ReadText(HKLM, Under(L"PerfOS"), L"Disable Performance Counters", k64));
    EXPECT_EQ("absent", ValueShape(HKLM, Under(L"PerfOS"), L"Disable Performance Counters", k32));
    EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, Under(L"PerfOS"), 0));

    EXPECT_EQ(0, CreateRegStringValue(Under(L"Gauge"), L"DCSEnabled", L"Yes"));
    EXPECT_EQ(L"Yes", ReadText(HKEY_CLASSES_ROOT, Under(L"Gauge"), L"DCSEnabled", 0));
    EXPECT_FALSE(KeyExists(HKLM, Under(L"Gauge"), k64));
    EXPECT_FALSE(KeyExists(HKLM, Under(L"Gauge"), k32));
    EXPECT_EQ(twoLines, session.Log());

    // Neither opened nor created: still 0, and no line.
    DeniedKey denied(HKEY_CLASSES_ROOT, Under(L"Denied"), 0, kDenySetValue);
    EXPECT_EQ(0, CreateRegStringValue(Under(L"Denied"), L"DCSEnabled", L"Yes"));
    EXPECT_EQ("absent", ValueShape(HKEY_CLASSES_ROOT, Under(L"Denied"), L"DCSEnabled", 0));
    EXPECT_EQ(twoLines, session.Log());
}

TEST_F(RegistryTest, QueryKeyNamesAppendsSubKeysThenTextsWithSlashes)
{
    // Key names of 254 characters fit its 255; one of 255 doesn't, with its terminator.
    for (const std::wstring& name : {std::wstring(L"Alpha"), std::wstring(L"beta"), Repeat(L'k', 254), Repeat(L'l', 255)})
        CreateKey(HKLM, Under(L"Branding\\") + name, k64);
    CreateKey(HKLM, Under(L"Branding\\Only32"), k32);

    // Texts of 129 characters fill the 260 bytes with their terminator.
    std::wstring fits = L"C:\\" + Repeat(L'f', 126);
    SetText(HKLM, Under(L"Branding"), L"a", L"C:\\Suite\\Bin\\", k64);
    WriteDword(HKLM, Under(L"Branding"), L"b", 1, k64);
    WriteValue(HKLM, Under(L"Branding"), L"c", REG_EXPAND_SZ, L"%x%\\y", 12, k64);
    SetText(HKLM, Under(L"Branding"), L"d", fits, k64);
    SetText(HKLM, Under(L"Branding"), L"e", fits + L"g", k64);
    SetText(HKLM, Under(L"Branding"), L"f", L"", k64);

    g_keyNameList.assign(1, L"earlier");
    HKEY key;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKLM, Under(L"Branding").c_str(), 0, KEY_READ, &key));
    QueryKeyNames(key);
    RegCloseKey(key);
    EXPECT_THAT(g_keyNameList, ElementsAre(L"earlier", L"Alpha", L"beta", Repeat(L'k', 254), L"C:/Suite/Bin/",
                                           L"C:/" + Repeat(L'f', 126), L""));
    g_keyNameList.clear();
}

// The value names set here under the layer's fixed keys.
const wchar_t kOrvelKey[] = L"SOFTWARE\\Orvel";
const wchar_t kOrvelValue[] = L"TesselTestMode";
const wchar_t kRunKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
const wchar_t kRunValue[] = L"TesselTestTask";

void DeleteValue(HKEY root, const wchar_t* path, const wchar_t* name, REGSAM view)
{
    HKEY key;
    if (RegOpenKeyExW(root, path, 0, KEY_SET_VALUE | view, &key) != ERROR_SUCCESS)
        return;
    RegDeleteValueW(key, name);
    RegCloseKey(key);
}

// Takes the values set here off the fixed keys, before and after; the Orvel
// key goes too if it wasn't there before and is empty.
class FixedKeyCleanup {
public:
    FixedKeyCleanup() : orvelExisted_(KeyExists(HKEY_CURRENT_USER, kOrvelKey, 0)) { Clean(); }
    ~FixedKeyCleanup()
    {
        Clean();
        if (!orvelExisted_)
            RegDeleteKeyW(HKEY_CURRENT_USER, kOrvelKey);
    }

private:
    static void Clean()
    {
        DeleteValue(HKEY_CURRENT_USER, kOrvelKey, kOrvelValue, 0);
        DeleteValue(HKLM, kRunKey, kRunValue, k64);
        DeleteValue(HKLM, kRunKey, kRunValue, k32);
    }
    bool orvelExisted_;
};

TEST_F(RegistryTest, CreateRegDWValueSetsADwordUnderTheUsersOrvelKey)
{
    FixedKeyCleanup cleanup;
    Session session;
    g_hSession = session.handle();

    // The first call makes the key if it is missing; the second opens it.
    EXPECT_EQ(1, CreateRegDWValue(kOrvelValue, 3));
    EXPECT_EQ("4:4", ValueShape(HKEY_CURRENT_USER, kOrvelKey, kOrvelValue, 0));
    EXPECT_EQ(1, CreateRegDWValue(kOrvelValue, 0xFFFFFFFF));
    DWORD data = 0, bytes = sizeof(data);
    EXPECT_EQ(ERROR_SUCCESS, RegGetValueW(HKEY_CURRENT_USER, kOrvelKey, kOrvelValue, RRF_RT_REG_DWORD, NULL, &data,
                                          &bytes));
    EXPECT_EQ(0xFFFFFFFFu, data);
    // Its traces never reach the log.
    EXPECT_THAT(session.Log(), IsEmpty());
}

TEST_F(RegistryTest, DeleteRunValueDeletesFromTheNativeRunKeyOnly)
{
    FixedKeyCleanup cleanup;
    SetText(HKLM, kRunKey, kRunValue, L"C:\\App\\Task.exe", k64);
    SetText(HKLM, kRunKey, kRunValue, L"C:\\App\\Task32.exe", k32);

    EXPECT_TRUE(DeleteRunValue(kRunValue));
    EXPECT_EQ("absent", ValueShape(HKLM, kRunKey, kRunValue, k64));
    EXPECT_EQ(L"C:\\App\\Task32.exe", ReadText(HKLM, kRunKey, kRunValue, k32));
    EXPECT_FALSE(DeleteRunValue(kRunValue));
}

TEST_F(RegistryTest, CreateKeyWithAclPrintsOneLineAndCreatesInThe64BitView)
{
    bool created = false;
    EXPECT_EQ("RegCreateKeyEx result 0\n", CapturedStdout([&] { created = CreateKeyWithAcl(Under(L"Analytics")); }));
    EXPECT_TRUE(created);
    EXPECT_TRUE(KeyExists(HKLM, Under(L"Analytics"), k64));
    EXPECT_FALSE(KeyExists(HKLM, Under(L"Analytics"), k32));
    // Windows gives the key the two full-access entries; Wine's RegCreateKeyExW
    // ignores security attributes, so the key shows the inherited list here.

    // An existing key is opened: the same line.
    EXPECT_EQ("RegCreateKeyEx result 0\n", CapturedStdout([&] { created = CreateKeyWithAcl(Under(L"Analytics")); }));
    EXPECT_TRUE(created);

    DeniedKey locked(HKLM, Under(L"Locked"), k64, kDenySetValue);
    EXPECT_EQ("RegCreateKeyEx result 5\n", CapturedStdout([&] { created = CreateKeyWithAcl(Under(L"Locked")); }));
    EXPECT_FALSE(created);
}

}  // namespace

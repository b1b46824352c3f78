// The settings store on real files: what it loads, and exactly what its saves
// leave in the file.
#include "config/area.h"

#include "config/config_store.h"
#include "framework/kestra_logger.h"

using harness::Lines;

namespace {

// The store with its settings in view, as "name=value|" each in the store's order.
class Store : public Config {
public:
    using ConfigBase::m_settings;
    std::wstring Settings() const
    {
        std::wstring text;
        for (const auto& setting : m_settings)
            text += setting.first + L"=" + setting.second + L"|";
        return text;
    }
};

class ConfigStoreTest : public ConfigTest {
protected:
    const std::wstring path_ = std::wstring(harness::kScratchFolder) + L"InstallManager.cfg";
};

// Each file is read-only, loaded, changed and saved twice: a save makes the file writable, patches it key by
// key and keeps what it doesn't know; a second save changes nothing, but an empty value, which counts as
// absent, is added again. Each rewrite gives the lines it keeps one CR more.
TEST_F(ConfigStoreTest, LoadsAndSavesFilesAsTheFrameworkAlwaysHas)
{
    const struct {
        std::string before;
        int encoding;
        const wchar_t* loaded;
        harness::Rows set;
        Lines removed;
        std::string after;  // empty: as before
    } files[] = {
        {"a=b=c\r\n=x\r\n#hidden=1\r\n[Section]\r\nv=1\rwith\r\n\r\nspaced = yes \r\n", 0,
         L"=x|a=b=c|spaced = yes |v=1with|"},
        {"a=1\rb=2\r", 0, L"a=1b=2|"},
        {std::string("\xFF\xFE" "k\0=\0v\0\r\0\n\0", 12), 3, L"k=v|"},
        {std::string("k\0=\0v\0", 6), 0, L""},                  // narrow text ends at its first zero byte
        {"\xEF\xBB\xBFk=v\r\n", 0, L"\x00EF\x00BB\x00BFk=v|"},  // the UTF-8 mark is never recognised
        {std::string("\xFE\xEF\0\0k\0=\0v\0", 10), 6, L"k=v|"},
        {std::string("\0\0\xFF\xFEk\0=\0v\0", 10), 7, L"k=v|"},
        {std::string("\xFE\xFFk\0=\0v\0", 8), 4, L"k=v|"},  // a big-endian mark is skipped, nothing swapped
        {"", 0, L"<not loaded>", {{L"b", L"2"}, {L"a", L"1"}}, {}, "a=1\r\nb=2\r\n"},
        {"# comment\r\n[Unknown]\r\na=1\r\nb=2\r\nc=3\r\n", 0, L"a=1|b=2|c=3|", {{L"b", L"20"}, {L"d", L"4"}}, {L"c"},
         "# comment\r\r\r\n[Unknown]\r\r\r\na=1\r\r\r\nb=20\r\nd=4\r\n"},
        {"a=1\r\r\r\nb=20\r\n", 0, L"a=1|b=20|"},
        // A name read last is patched first, and removed everywhere.
        {"a=1\na=2\nb=x\n", 0, L"a=2|b=x|", {{L"a", L"3"}}, {}, "a=3\r\na=2\r\nb=x\r\n"},
        {"a=1\na=2\nb=x\n", 0, L"a=2|b=x|", {}, {L"a"}, "b=x\r\n"},
        {"e=\r\n", 0, L"e=|", {}, {}, "e=\r\ne=\r\ne=\r\n"},
    };
    for (size_t i = 0; i < sizeof(files) / sizeof(files[0]); ++i) {
        SCOPED_TRACE("file " + std::to_string(i));
        const std::wstring path = path_ + std::to_wstring(i);
        harness::MakeFile(path, files[i].before, FILE_ATTRIBUTE_READONLY);
        Store store;
        store.SetString(L"before", L"1", 0);  // a load starts afresh, whether it works or not
        const std::wstring loaded = store.LoadFile(path) ? L"" : L"<not loaded>";
        EXPECT_EQ(files[i].encoding, DetectEncoding(path));
        EXPECT_EQ(files[i].loaded, loaded + store.Settings());
        for (const harness::Row& setting : files[i].set)
            store.SetString(setting.name, setting.value, 0);
        for (const std::wstring& name : files[i].removed)
            EXPECT_TRUE(store.Remove(name, false));
        EXPECT_TRUE(store.SaveFile(path));
        EXPECT_TRUE(store.SaveFile(path));
        EXPECT_EQ(files[i].after.empty() ? files[i].before : files[i].after, harness::ReadFileBytes(path));
    }

    // The patchers' reader is the loose one: comments count, the first line wins, a line without "=" is its name.
    const std::wstring first = path_ + L"0";
    Config store;
    std::wstring value;
    EXPECT_EQ(1u, store.ReadFileValue(L"#hidden", value, first));
    EXPECT_EQ(9u, store.ReadFileValue(L"[Section]\r", value, first));
    EXPECT_EQ(L"[Section]", value);
    EXPECT_EQ(1u, store.ReadFileValue(L"a", value, path_ + L"11"));
    EXPECT_EQ(L"3", value);
    EXPECT_EQ(0u, store.ReadFileValue(L"missing", value, first));
    EXPECT_FALSE(store.DeleteFileValue(L"missing", first));
    EXPECT_FALSE(store.WriteFileValue(L"missing", L"9", first));
}

// A parent that can't be written is refused before any change, and the framework's log says so. An existing
// folder always passes (the run-time library checks only that it exists); a read-only file in its place doesn't.
TEST_F(ConfigStoreTest, ASaveUnderAReadOnlyParentIsRefusedAndLogged)
{
    const std::wstring folder = std::wstring(harness::kScratchFolder) + L"ro";
    const std::wstring library = harness::ProgramFolder() + L"kestraLog.dll";
    harness::MakeFile(folder, "x", FILE_ATTRIBUTE_READONLY);
    CopyFileW((harness::ProgramFolder() + L"kestra_log_standin.dll").c_str(), library.c_str(), FALSE);
    Config store;
    store.SetString(L"a", L"1", 0);
    EXPECT_FALSE(store.SaveFile(folder + L"\\InstallManager.cfg"));
    KestraLogger::GetInstance().Unload();
    DeleteFileW(library.c_str());
    const std::string bytes = harness::ReadFileBytes(std::wstring(harness::kScratchFolder) + L"kestraLog.lines");
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 2)
        text += bytes[i];
    EXPECT_NE(std::string::npos, text.find("1|Configuration::[")) << text;
    EXPECT_NE(std::string::npos, text.find("] The directory >C:\\tessel\\scratch\\ro< is not writable\n")) << text;
}

class RecordingObserver : public IConfigObserver {
public:
    void OnSettingChanged(const std::wstring& name, ULONG64 context, bool isList) override
    {
        changes.push_back(name + L"/" + std::to_wstring(context) + (isList ? L"/list" : L""));
    }
    Lines changes;
};

// A getter records its default unless empty; a setter refuses an empty name and removes on an empty text. A
// list is settings name.1, name.2, ..., read back in the map's text order.
TEST_F(ConfigStoreTest, TypedSettingsListsObserversAndMerges)
{
    Store store;
    RecordingObserver observer;
    store.AddObserver(&observer);
    StringList items;
    for (int i = 1; i <= 10; ++i)
        items.push_back(L"item" + std::to_wstring(i));
    items.push_back(L"");
    store.SetList(L"a", StringList(13, L"stale"), 0);  // a list set anew loses its old items
    store.SetList(L"a", items, 0);
    store.SetString(L"a", L"plain", 0);
    store.SetInt(L"ab.1", 5, 7);
    store.RemoveObserver(&observer);
    EXPECT_EQ((Lines{L"a/0/list", L"a/0/list", L"a/0", L"ab.1/7"}), observer.changes);
    StringList list;
    EXPECT_TRUE(store.GetList(L"a", list));
    EXPECT_EQ((StringList{L"plain", L"item1", L"item10", L"", L"item2", L"item3", L"item4", L"item5", L"item6",
                          L"item7", L"item8", L"item9"}),
              list);
    EXPECT_TRUE(store.Exists(L"a", true));
    EXPECT_TRUE(store.Remove(L"a", true));
    EXPECT_FALSE(store.Exists(L"a", true));
    EXPECT_FALSE(store.Remove(L"a", true));

    store.SetString(L"n", L"-42x", 0);
    store.SetBool(L"t", true, 0);
    store.SetString(L"T", L"True", 0);  // only "true" is true
    long number = 0;
    unsigned int big = 0;
    bool t = false, T = true;
    std::wstring text;
    EXPECT_TRUE(store.GetLong(L"n", number, 7));
    EXPECT_TRUE(store.GetBool(L"t", t, false));
    EXPECT_TRUE(store.GetBool(L"T", T, true));
    EXPECT_FALSE(store.GetUInt(L"absentUInt", big, 4000000000u));
    EXPECT_FALSE(store.GetString(L"absentText", text, L""));
    EXPECT_EQ(std::make_tuple(-42L, true, false, 4000000000u), std::make_tuple(number, t, T, big));
    EXPECT_TRUE(store.SetString(L"", L"x", 0));  // refused all the same
    store.SetString(L"n", L"", 0);
    EXPECT_EQ(L"T=True|a=plain|ab.1=5|absentUInt=4000000000|t=true|", store.Settings());

    EXPECT_FALSE(store.MergeFile(path_));
    harness::MakeFile(path_, "a=new\r\nb=1\r\n");
    EXPECT_TRUE(store.MergeFile(path_));
    EXPECT_EQ(L"T=True|a=new|ab.1=5|absentUInt=4000000000|b=1|t=true|", store.Settings());
    StringList tokens;
    Tokenize(L";;dir\\;Yes;;NO;", L";", tokens);
    EXPECT_EQ((StringList{L"dir\\", L"Yes", L"NO"}), tokens);
}

}  // namespace

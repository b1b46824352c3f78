// The settings store on real files, and the actions that change the install
// manager's settings file, called through the DLL: what a load finds, and
// exactly what a save leaves in the file.
#include "harness/harness.h"

#include "config/config_store.h"
#include "framework/error_handler.h"
#include "framework/kestra_logger.h"

#include <algorithm>
#include <sstream>

using namespace harness;

namespace {

// What these tests touch: files in the scratch folder alone, which every test clears anyway.
class ConfigTest : public ActionTest {
protected:
    ConfigTest() : ActionTest({}) {}
};
using ConfigStoreTest = ConfigTest;
using UpdateActionsTest = ConfigTest;

// The store with its settings in view, as "name=value|" each in the store's order.
class Store : public Config {
public:
    std::wstring Settings() const
    {
        std::wstring text;
        for (const auto& setting : m_settings)
            text += setting.first + L"=" + setting.second + L"|";
        return text;
    }
};

const std::wstring kScratch = kScratchFolder;
const std::wstring kPath = kScratch + L"InstallManager.cfg";

// Each file is read-only, loaded, changed and saved twice: a save makes the file writable, patches it key by
// key and keeps what it doesn't know; a second save changes nothing, but an empty value, which counts as
// absent, is added again. Each rewrite gives the lines it keeps one CR more.
TEST_F(ConfigStoreTest, LoadsAndSavesFilesAsTheFrameworkAlwaysHasAndRefusesAReadOnlyParent)
{
    const struct {
        std::string before;
        int encoding;
        const wchar_t* loaded;
        Rows set;  // an empty text removes
        std::string after;  // empty: as before
    } files[] = {
        {"a=b=c\r\n=x\r\n#hidden=1\r\n[Section]\r\nv=1\rwith\r\n\r\nspaced = yes \r\n", 0,
         L"=x|a=b=c|spaced = yes |v=1with|"},
        {std::string("\xFF\xFE" "k\0=\0v\0\r\0\n\0", 12), 3, L"k=v|"},
        {std::string("k\0=\0v\0", 6), 0, L""},                  // narrow text ends at its first zero byte
        {"\xEF\xBB\xBFk=v\r\n", 0, L"\x00EF\x00BB\x00BFk=v|"},  // the UTF-8 mark is never recognised
        {std::string("\xFE\xEF\0\0k\0=\0v\0", 10), 6, L"k=v|"},
        {std::string("\0\0\xFF\xFEk\0=\0v\0", 10), 7, L"k=v|"},
        {"\xFE\xEF", 6, L""},  // the bytes a short file lacks count as zeros
        {std::string("\xFE\xFFk\0=\0v\0", 8), 4, L"k=v|"},  // a big-endian mark is skipped, nothing swapped
        {"", 0, L"<not loaded>", {{L"b", L"2"}, {L"a", L"1"}}, "a=1\r\nb=2\r\n"},
        {"# comment\r\n[Unknown]\r\na=1\r\nb=2\r\nc=3\r\n", 0, L"a=1|b=2|c=3|",
         {{L"b", L"20"}, {L"d", L"4"}, {L"c", L""}}, "# comment\r\r\r\n[Unknown]\r\r\r\na=1\r\r\r\nb=20\r\nd=4\r\n"},
        // A name read last is patched first, and removed everywhere.
        {"a=1\na=2\nb=x\n", 0, L"a=2|b=x|", {{L"a", L"3"}}, "a=3\r\na=2\r\nb=x\r\n"},
        {"a=1\na=2\nb=x\n", 0, L"a=2|b=x|", {{L"a", L""}}, "b=x\r\n"},
        {"e=\r\n", 0, L"e=|", {}, "e=\r\ne=\r\ne=\r\n"},
        // A name that holds "=" never names a line: it is appended at each save.
        {"a=b=c\r\n", 0, L"a=b=c|", {{L"a=b", L"d"}}, "a=b=c\r\na=b=d\r\na=b=d\r\n"},
        // A value's LF goes out as CR LF, and a zero ends what is written of it.
        {"a=1\r\n", 0, L"a=1|", {{L"n", L"x\ny"}, {L"z", std::wstring(L"v\0w", 3)}},
         "a=1\r\r\r\nn=x\r\r\ny\r\r\ny\r\r\r\nz=v\r\n"},
    };
    for (size_t i = 0; i < sizeof(files) / sizeof(files[0]); ++i) {
        SCOPED_TRACE("file " + std::to_string(i));
        const std::wstring path = kPath + std::to_wstring(i);
        MakeFile(path, files[i].before, FILE_ATTRIBUTE_READONLY);
        Store store;
        store.SetString(L"before", L"1", 0);  // a load starts afresh, whether it works or not
        const std::wstring loaded = store.LoadFile(path) ? L"" : L"<not loaded>";
        EXPECT_EQ(files[i].encoding, DetectEncoding(path));
        EXPECT_EQ(files[i].loaded, loaded + store.Settings());
        for (const Row& setting : files[i].set)
            store.SetString(setting.name, setting.value, 0);
        EXPECT_TRUE(store.SaveFile(path) && store.SaveFile(path));
        EXPECT_EQ(files[i].after.empty() ? files[i].before : files[i].after, ReadFileBytes(path));
    }

    // The patchers' reader is the loose one: comments count, and a line without "=" is its name.
    const std::wstring first = kPath + L"0";
    Config store;
    std::wstring value;
    EXPECT_EQ(1u, store.ReadFileValue(L"#hidden", value, first));
    EXPECT_EQ(9u, store.ReadFileValue(L"[Section]\r", value, first));
    EXPECT_EQ(L"[Section]", value);
    EXPECT_FALSE(store.DeleteFileValue(L"missing", first));
    EXPECT_FALSE(store.WriteFileValue(L"missing", L"9", first));
    // A three- or four-byte file of two-byte text keeps its mark as text: the short files' mark tests take
    // bytes for units.
    for (const std::string& bytes : {std::string("\xFF\xFE\xFF"), std::string("\xFF\xFE\xFE"),
                                     std::string("\xFF\xFE\xFF\0", 4), std::string("\xFF\xFE\xFE\0", 4)}) {
        MakeFile(kPath, bytes);
        EXPECT_EQ(2u, store.ReadFileValue(L"\xFEFF" + std::wstring(1, bytes[2] & 0xFF), value, kPath)) << bytes.size();
    }

    // A parent that can't be written is refused before any change, and the framework's log says so. An existing
    // folder always passes (the run-time library checks only that it exists); a read-only file in its place
    // doesn't.
    const std::wstring library = ProgramFolder() + L"kestraLog.dll";
    MakeFile(kScratch + L"ro", "x", FILE_ATTRIBUTE_READONLY);
    CopyFileW((ProgramFolder() + L"kestra_log_standin.dll").c_str(), library.c_str(), FALSE);
    store.SetString(L"a", L"1", 0);
    EXPECT_FALSE(store.SaveFile(kScratch + L"ro\\InstallManager.cfg"));
    // A setting whose line can't be rewritten (the file held against writers): error 165, and the save goes on.
    MakeFile(kPath, "a=1\r\n");
    HANDLE held = CreateFileW(kPath.c_str(), GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    ErrorHandler::GetInstance()->SetLastErrorCode(0);
    Store blocked;
    blocked.SetString(L"a", L"2", 0);
    EXPECT_TRUE(blocked.SaveFile(kPath));
    CloseHandle(held);
    EXPECT_EQ(165, ErrorHandler::GetInstance()->GetLastErrorCode());
    EXPECT_EQ("a=1\r\n", ReadFileBytes(kPath));
    MakeFile(kPath, "");
    EXPECT_FALSE(blocked.MergeFile(kPath));
    // A setting whose step throws: a record with the last error (whatever the run-time's throw left there), and
    // the save goes on.
    struct Throwing : Store {
        size_t ReadFileValue(const std::wstring&, std::wstring&, const std::wstring&) override { throw 1; }
    } throwing;
    throwing.SetString(L"a", L"3", 0);
    EXPECT_TRUE(throwing.SaveFile(kPath));
    EXPECT_EQ(1607, ErrorHandler::GetInstance()->GetLastErrorCode());
    KestraLogger::GetInstance().Unload();
    DeleteFileW(library.c_str());
    const std::string bytes = ReadFileBytes(kScratch + L"kestraLog.lines");
    const std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / 2);
    EXPECT_EQ(0u, text.find(L"1|Configuration::[")) << text;
    EXPECT_NE(std::wstring::npos, text.find(L"] The directory >C:\\tessel\\scratch\\ro< is not writable\n")) << text;
    // Each later record begins after the one before, at level 1 with its time.
    for (const std::wstring& line : {std::wstring(L"Failed to save the setting a vaule=2\n"),
                                     L"Failed to load the configuration file >" + kPath + L"<\n",
                                     std::wstring(L"Failed in SaveFile, lastError=")}) {
        const size_t at = text.find(L"] " + line);
        EXPECT_TRUE(at != std::wstring::npos && text.rfind(L"\r\n1|Configuration::[", at) == text.rfind(L"\r\n", at))
            << text;
    }
}

// A file far larger than one read: a line that runs on over several reads, and a zero byte well inside the file,
// after which the narrow text has ended, look the same to the loader and to the patchers.
TEST_F(ConfigStoreTest, ReadsLongFilesAndLinesWhole)
{
    std::string lines, rewritten;
    for (int i = 0; i < 3000; ++i) {
        const std::string name = "f" + std::to_string(i);
        lines += name + "=v\r\n";
        rewritten += name + (i == 2999 ? "=w\r\n" : "=v\r\r\n");
    }
    const std::string longLine = "long=" + std::string(40000, 'x');
    MakeFile(kPath, lines + longLine + "\r\ncut=ab" + std::string(1, '\0') + "cd\r\nafter=1\r\n");
    Store store;
    EXPECT_TRUE(store.LoadFile(kPath));
    const std::wstring settings = store.Settings();
    EXPECT_EQ(3002, std::count(settings.begin(), settings.end(), L'|'));
    EXPECT_EQ(0u, settings.find(L"cut=ab|f0=v|"));
    EXPECT_NE(std::wstring::npos, settings.find(L"|f999=v|long=" + std::wstring(40000, L'x') + L"|"));
    std::wstring value;
    EXPECT_EQ(std::make_tuple(40000u, 2u, 0u),
              std::make_tuple(store.ReadFileValue(L"long", value, kPath), store.ReadFileValue(L"cut", value, kPath),
                              store.ReadFileValue(L"after", value, kPath)));
    EXPECT_TRUE(store.WriteFileValue(L"f2999", L"w", kPath));
    EXPECT_EQ(rewritten + longLine + "\r\r\ncut=ab\r\n", ReadFileBytes(kPath));
    // An exception of the walk is no failed read: it passes up, with the file closed behind it.
    EXPECT_THROW(ForEachLine(kPath, [](std::wstring_view) -> bool { throw 7; }), int);
    EXPECT_TRUE(DeleteFileW(kPath.c_str()));
}

Lines g_debugTexts;
void WINAPI Debugger(LPCWSTR text) { g_debugTexts.push_back(text); }

// A getter records its default unless empty; a setter refuses an empty name. A
// list is settings name.1, name.2, ..., read back in the map's text order.
TEST_F(ConfigStoreTest, TypedSettingsListsAndMerges)
{
    Store store;
    StringList items;
    for (int i = 1; i <= 10; ++i)
        items.push_back(std::to_wstring(i));
    items.push_back(L"");
    store.SetList(L"a", StringList(13, L"stale"), 0);  // a list set anew loses its old items
    store.SetList(L"a", items, 0);
    store.SetString(L"a", L"plain", 0);
    store.SetInt(L"ab.1", 5, 0);
    store.SetBool(L"t", true, 0);
    StringList list;
    store.GetList(L"a", list);
    EXPECT_EQ((StringList{L"plain", L"1", L"10", L"", L"2", L"3", L"4", L"5", L"6", L"7", L"8", L"9"}), list);
    EXPECT_TRUE(store.Remove(L"a", true));
    EXPECT_FALSE(store.Exists(L"a", true));
    EXPECT_FALSE(store.Remove(L"a", true));

    store.SetString(L"n", L"-42x", 0);
    store.SetString(L"T", L"True", 0);  // only "true" is true
    long number = 0;
    unsigned int big = 0;
    bool t = false, T = true;
    std::wstring text;
    EXPECT_EQ(std::make_tuple(true, true, true, false, false),
              std::make_tuple(store.GetLong(L"n", number, 7), store.GetBool(L"t", t, false),
                              store.GetBool(L"T", T, true), store.GetUInt(L"absentUInt", big, 4000000000u),
                              store.GetString(L"absentText", text, L"")));
    EXPECT_EQ(std::make_tuple(-42L, true, false, 4000000000u), std::make_tuple(number, t, T, big));
    store.SetString(L"", L"x", 0);  // refused
    EXPECT_EQ(L"T=True|a=plain|ab.1=5|absentUInt=4000000000|n=-42x|t=true|", store.Settings());

    MakeFile(kPath, "a=new\r\nb=1\r\n");
    EXPECT_TRUE(store.MergeFile(kPath));
    EXPECT_EQ(L"T=True|a=new|ab.1=5|absentUInt=4000000000|b=1|n=-42x|t=true|", store.Settings());
    {
        ImportPatch debugger(GetModuleHandleW(NULL), "kernel32.dll", "OutputDebugStringW",
                             reinterpret_cast<void*>(&Debugger));
        store.Dump();  // for a debugger's eyes alone
    }
    EXPECT_EQ((Lines{L"==========[ Settings ]==========\n", L"T=True\n", L"a=new\n", L"ab.1=5\n",
                     L"absentUInt=4000000000\n", L"b=1\n", L"n=-42x\n", L"t=true\n"}),
              g_debugTexts);
    // The line readers take a line of up to 1023 characters whole.
    std::istringstream narrow(std::string(1023, 'n') + "\nnext");
    std::wistringstream wide(std::wstring(1023, L'w') + L"\nnext");
    std::string narrowLine;
    std::wstring wideLine;
    store.ReadLineNarrow(narrow, narrowLine);
    store.ReadLineWide(wide, wideLine);
    EXPECT_TRUE(narrowLine.size() == 1023 && wideLine.size() == 1023);
}

const std::wstring kSuite = std::wstring(kScratchFolder) + L"Suite\\";
const std::wstring kCfg = kSuite + L"Config\\InstallManager.cfg";  // UpdateCfg's
const std::wstring kTesselCfg = kSuite + L"InstallManager.cfg";    // UpdateTesselCfg's

// Arranges the file; checks that it then holds `after`.
std::function<void()> File(const std::wstring& path, const std::string& before)
{
    return [path, before] { MakeFile(path, before); };
}
std::function<void(Session&)> Holds(const std::wstring& path, const std::string& after)
{
    return [path, after](Session&) { EXPECT_EQ(after, ReadFileBytes(path)); };
}

TEST_F(UpdateActionsTest, UpdateCfgRemovesTheColourSettingsFromTheFileBelowTheFolder)
{
    // The ten colour settings in their order, "+" for those there to delete.
    Lines log = {L"TESSEL_CA UpdateCfg: " + kSuite + L" \n"};
    for (std::wstring colour :
         {L"+UseCustomColor", L"+BackgroundColor", L"+FontColor", L"-FontDisableColor", L"-ButtonColor",
          L"-ButtonDisableColor", L"+TextColorPast", L"-TextColorPresent", L"-TextColorFuture", L"+ButtonBrightness"})
        log.push_back((colour[0] == L'+' ? L"TESSEL_CA successfully deleted " : L"TESSEL_CA failed to delete ") +
                      colour.substr(1) + L" setting\n");
    const std::wstring saved = L"TESSEL_CA successfully saved with " + kCfg + L" new settings \n";
    log.push_back(saved);
    RunCases({
        // Five deletes, five rewrites: each kept line gains a CR at each.
        {"colours", "UpdateCfg", Data(kSuite),
         File(kCfg, "# Install manager settings\r\nLanguage=en\r\nUseCustomColor=1\r\nBackgroundColor=#202020\r\n"
                    "[not a section]\r\nFontColor=white\r\nTextColorPast=grey\r\nButtonBrightness=80\r\n"
                    "load_DLM=true\r\n"),
         0, Exactly(log),
         Holds(kCfg, "# Install manager settings\r\r\r\r\r\r\nLanguage=en\r\r\r\r\r\r\n[not a section]\r\r\r\r\r\r\n"
                     "load_DLM=true\r\r\r\r\r\r\n")},
        // A separator is put in where missing, and slashes are turned. A name twice is removed once, everywhere.
        {"slashes", "UpdateCfg", Data(L"C:/tessel/scratch/Suite"),
         File(kCfg, "UseCustomColor=1\nA=1\nUseCustomColor=0\n"), 0, Includes({log[1], saved}), Holds(kCfg, "A=1\r\n")},
        {"no file", "UpdateCfg", Data(kSuite + L"Elsewhere\\"), nullptr, 0,
         Exactly({L"TESSEL_CA UpdateCfg: " + kSuite + L"Elsewhere\\ \n"}), nullptr},
        // An empty file can't be loaded: nothing is removed and nothing said.
        {"empty file", "UpdateCfg", Data(kSuite), File(kCfg, ""), 0, Exactly({log[0]}), Holds(kCfg, "")},
        {"unreadable", "UpdateCfg", Data(L"C:\\" + Repeat(L'd', 257)), nullptr, 0,
         Exactly({L"TESSEL_CA Could not get INSTALLDIR in UpdateCfg  \n"}), nullptr},
    });
}

// Three items or more: folder (with its separator), UseCustomColor, and with exactly three, load_DLM.
TEST_F(UpdateActionsTest, UpdateTesselCfgSetsTheSettingsFoldedToLowerCase)
{
    const LogCheck started = Exactly({L"TESSEL_CA: UpdateTesselCfg  \n"});
    const std::string colour = "UseCustomColor=x\r\n";
    auto untouched = [&](const char* row, const std::wstring& data, const LogCheck& log) {
        const char* action = "UpdateTesselCfg";
        return ActionCase{row, action, Data(data), File(kTesselCfg, colour), 0, log, Holds(kTesselCfg, colour)};
    };
    RunCases({
        {"three", "UpdateTesselCfg", Data(kSuite + L";Yes;;NO"),
         File(kTesselCfg, "Language=en\r\nUseCustomColor=true\r\n"), 0,
         Exactly({started.lines[0], L"TESSEL_CA Update config file " + kTesselCfg + L"\n"}),
         Holds(kTesselCfg, "Language=en\r\r\nUseCustomColor=yes\r\nload_DLM=no\r\n")},
        untouched("two", kSuite + L";1", started),
        untouched("four", kSuite + L";X;a;b", {}),  // the same text already there: the file is not rewritten
        untouched("no separator", kScratchFolder + std::wstring(L"Suite;a;b"), started),
        untouched("unreadable", kSuite + L";" + Repeat(L'v', 1000) + L";b", started),
    });
}

}  // namespace

// The crash reporter in copies of a host of its own (tests/framework/crash_host.cpp)
// that load the DLL and then fault, or unload it again.
#include "harness/harness.h"

#include <map>
#include <regex>

namespace {

using namespace harness;

const wchar_t kStandInOverride[] = L"Software\\Wine\\AppDefaults\\nohelp_host.exe\\DllOverrides";
// The C++ exception's case sets the install manager's OriginalDB; Wine is told
// to prefer the stand-in IMAGEHLP.DLL beside one copy of the host.
const Area kArea = {{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"}, {HKEY_CURRENT_USER, kStandInOverride}}};

class CrashReporterTest : public ActionTest {
protected:
    CrashReporterTest() : ActionTest(kArea) {}
};

// Each case runs a copy of the host, placed with the DLL and the stand-in
// IMAGEHLP.DLL in a scratch folder: the process ends with the exception's code,
// the debugger's channel carries what it should, and the report beside the
// host (UTF-16 text) grows by one report, or nothing is written.
TEST_F(CrashReporterTest, ReportsEachUnhandledExceptionBesideTheHost)
{
    SetText(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies\\Install\\Kestra Quillon Install Manager",
            L"OriginalDB", L"C:\\Suite\\Suite.msi");
    SetText(HKEY_CURRENT_USER, kStandInOverride, L"imagehlp", L"native");
    const std::wstring head = L"=====================================================\r\n"
                              L"Time of exception:\t\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d\r\nException code: ";
    const std::wstring frame = L"[0-9A-F]{8}  [0-9A-F]{8}  ", lines = L"([^\r\n]*\r\n)*";
    const std::wstring located = L"\r\nFault address:  [0-9A-F]{8} 01:[0-9A-F]{8} ";
    const std::wstring stack = L"\r\n\r\nStackWalk::Call stack:\r\nAddress   Frame\r\n" + lines;
    const std::wstring inWmain = frame + L"wmain line \\d{4} (\\+ \\d{4} bytes )?\r\n" + lines + L"\r\n";
    const std::wstring inHost = located + L"C:\\\\tessel\\\\scratch\\\\faults\\\\crash_host\\.exe" + stack + inWmain;
    const std::wstring fallback =
        L"C0000005 ACCESS_VIOLATION" + located + L".+\r\n\r\nIntelStackWalk::Call stack:\r\n"
        L"Address   Frame     Logical addr  Module\r\n" + frame +
        L"0001:[0-9A-F]{8} C:\\\\tessel\\\\scratch\\\\nohelp\\\\nohelp_host\\.exe\r\n" + lines;
    const wchar_t* faults = L"faults\\crash_host.exe";
    const struct {
        const char* row;
        const wchar_t *host, *argument;
        DWORD exitCode;
        std::wstring report;  // behind "Exception code: "; none written when empty
        Lines debugTexts;
    } cases[] = {
        {"write through null", faults, L"access", 0xC0000005, L"C0000005 ACCESS_VIOLATION" + inHost},
        {"integer division by zero", faults, L"divide", 0xC0000094, L"C0000094 INT_DIVIDE_BY_ZERO" + inHost},
        // Wine's NTDLL.DLL has no text for the code; Windows' has "{Not Enough Quota} ...".
        {"a code outside the table", faults, L"raise", 0xC0000017, L"C0000017 " + located + L".+" + stack + inWmain},
        // Raised by the export's boundary in the DLL, which lies above 4 GiB:
        // the handle cut to 32 bits finds no module there.
        {"a C++ exception out of an export", faults, L"escape", 0xE06D7363,
         L"E06D7363 " + located + L".+" + stack + frame + L"Failed in GetModuleFileName\r\n0000:00000000  \r\n" +
             lines + L"\r\n"},
        {"a fault above 4 GiB", faults, L"headers", 0xC0000005,
         L"C0000005 ACCESS_VIOLATION\r\nFailed in GetModuleFileName\r\nFailded to get GetLogicalAddress Information"
         L"\r\n\r\n"},
        {"unloaded, the host's own filter is back", faults, L"unload", 0, L""},
        {"no debugging help", L"nohelp\\nohelp_host.exe", L"access", 0xC0000005, fallback,
         {L"IMAGEHLP.DLL or its exported procs not found"}},
        // The report would go into the running host itself.
        {"an extension too short", L"short\\crash_host.ex", L"access", 0xC0000005, L""},
    };
    std::map<std::wstring, std::wstring> reports;  // by path: the pattern of all its reports
    for (const auto& fault : cases) {
        SCOPED_TRACE(fault.row);
        const std::wstring host = kScratchFolder + std::wstring(fault.host);
        const std::wstring folder = host.substr(0, host.rfind(L'\\') + 1);
        MakeFolders(folder);
        CopyFileW((ProgramFolder() + L"crash_host.exe").c_str(), host.c_str(), FALSE);
        CopyFileW((ProgramFolder() + L"Tessel_CA.dll").c_str(), (folder + L"Tessel_CA.dll").c_str(), FALSE);
        CopyFileW((ProgramFolder() + L"imagehlp_standin.dll").c_str(), (folder + L"IMAGEHLP.DLL").c_str(), FALSE);
        Lines debugTexts;
        EXPECT_EQ(fault.exitCode, RunCapturingDebugText(L"\"" + host + L"\" " + fault.argument, debugTexts, 30000));
        EXPECT_EQ(fault.debugTexts, debugTexts);
        EXPECT_EQ(ReadFileBytes(ProgramFolder() + L"crash_host.exe"), ReadFileBytes(host));
        const std::wstring path = host.substr(0, host.rfind(L'.')) + L".RPT";
        if (!fault.report.empty())
            reports[path] += head + fault.report;
        const std::string bytes = ReadFileBytes(path);
        const std::wstring report(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / 2);
        EXPECT_TRUE(reports[path].empty() ? !Exists(path) : std::regex_match(report, std::wregex(reports[path])))
            << report;
    }
}

}  // namespace

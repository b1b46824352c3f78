// The driver actions through the DLL: the log values on our adapters only,
// the driver version from the private table, the block list's value and file.
#include "integration/area.h"

#include <memory>

using namespace harness;

namespace {

using DriverTest = IntegrationTest;

const std::wstring kServices = L"SYSTEM\\CurrentControlSet\\Services\\", kMissing = L"<missing>",
                   kCopy = L"C:\\windows\\system32\\kestradualbl.dat";

// Wine's own adapter has no manufacturer and comes first: its failed read must not hold ours back.
TEST_F(DriverTest, LogValuesOnOurAdaptersOnly)
{
    const Lines makers = {L"Graphics by Orvel Corporation", L"Orvel", L"Kestra Technologies Inc.",
                          L"Orvel Corporation", L"Made by Orvel", L"orvel corporation"};
    std::vector<std::unique_ptr<DisplayAdapter>> adapters;
    for (const std::wstring& maker : makers)  // the fourth without DriverVersion
        adapters.emplace_back(new DisplayAdapter(maker, adapters.size() == 3 ? L"" : L"31.0"));
    EXPECT_EQ(0u, Session().Call("SetDCLogFileRegistry"));
    const std::wstring log = TempFolder() + L"Orvel\\Halyard\\Analytics\\kestrakmd_dce.log";
    for (size_t i = 0; i < makers.size(); ++i) {
        const std::wstring& key = adapters[i]->driverKey;
        const size_t split = key.rfind(L'\\');
        EXPECT_EQ(i < 4 ? log : kMissing, TextOf(HKEY_LOCAL_MACHINE, key, L"DalDCELogFilePath")) << i;
        EXPECT_EQ(i < 4 ? L"260" : kMissing, TextOf(HKEY_LOCAL_MACHINE, key, L"DalDCEFilePathSize")) << i;
        // No separator: the class key holds these, named after the instance.
        const std::wstring parent = key.substr(0, split), named = key.substr(split + 1);
        EXPECT_EQ(i < 3 ? log : kMissing, TextOf(HKEY_LOCAL_MACHINE, parent, named + L"DalDCELogFilePath")) << i;
        EXPECT_EQ(i < 3 ? L"260" : kMissing, TextOf(HKEY_LOCAL_MACHINE, parent, named + L"DalDCEFilePathSize")) << i;
    }
}

TEST_F(DriverTest, VersionBlockListAndFiles)
{
    const auto list = [] { SetText(HKEY_LOCAL_MACHINE, kServices + L"orvelkmd", L"Blacklist", L"old"); };
    const Lines none;
    RunCases({
        {"version row", "UpdateDriverVersionInReg", {}, nullptr, 1,
         Exactly({L"TESSEL_CA: Driver version Registry values updated."}),
         // Written without its terminator, which Wine adds.
         [](Session&) {
             EXPECT_EQ(L"31.0", TextOf(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel\\Halyard", L"DriverVersion"));
         },
         {{L"DriverVersion", L"31.0"}}},
        {"no version row", "UpdateDriverVersionInReg", {}, nullptr, 1, Exactly(none),
         [](Session&) { EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel")); }, {{L"Kestra_PID", L"1"}}},
        {"no intelkmd", "SetDualisBLRegKey", {}, list, 1,
         Exactly({L"TESSEL_CA: Search Service RegKey  \n", L"TESSEL_CA: Set key successfully  \n",
                  L"TESSEL_CA: failed to set key  \n"}),
         [](Session&) {
             wchar_t data[MAX_PATH] = L"";  // the copy's path, as a list
             DWORD bytes = sizeof(data);
             RegGetValueW(HKEY_LOCAL_MACHINE, (kServices + L"orvelkmd").c_str(), L"Blacklist", RRF_RT_REG_MULTI_SZ,
                          NULL, data, &bytes);
             EXPECT_EQ(kCopy, data);
         }},
        {"no service", "SetDualisBLRegKey", {}, nullptr, 0, Exactly({L"TESSEL_CA: Search Service RegKey  \n"}),
         nullptr},
        {"the absent intelkmd made", "DelDualisBLRegKey", {}, list, 1,
         Exactly({L"TESSEL_CA: SearchDriverRegKey  \n"}),
         [](Session&) { EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, kServices + L"intelkmd")); }},
        {"a copy is kept", "CopyDualisFile", {},
         [] { MakeFile(L"C:\\Program Files\\Kestra Technologies\\Dualis\\kestradualbl.dat"); MakeFile(kCopy, "kept"); },
         1, Exactly(none), [](Session&) { EXPECT_EQ("kept", ReadFileBytes(kCopy)); }},
        {"version library", "DeleteIOVDll", {}, Make({L"C:\\windows\\system32\\OrvelIOVVer.dll"}), 1, Exactly(none),
         Present({}, {L"C:\\windows\\system32\\OrvelIOVVer.dll"})},
        {"the other version library", "DeleteSMBusDll", {}, Make({L"C:\\windows\\system32\\OrvelSMBusVer.dll"}), 1,
         Exactly(none), Present({}, {L"C:\\windows\\system32\\OrvelSMBusVer.dll"})},
        {"read-only", "DelDualisBLFile", {}, [] { MakeFile(kCopy, "x", FILE_ATTRIBUTE_READONLY); }, 1, Exactly(none),
         Present({}, {kCopy})},
    });
}

}  // namespace

// The framework's error catalogue: its table, the last error and run-time errors.
#include "harness/harness.h"

#include "framework/error_handler.h"

#include <map>

namespace {

// Each code with a text has a name of its own; a count per level and a few telling rows guard the table.
TEST(ErrorCatalogue, Holds201UniquelyNamedCodes)
{
    ErrorHandler catalogue;
    std::map<UINT, int> levels;
    for (int code = 0; code < ErrorHandler::kFirstRegisteredCode; ++code) {
        if (catalogue.GetErrorText(code) == L"Failed to return Error String")
            continue;
        ++levels[catalogue.GetErrorLevel(code)];
        EXPECT_EQ(code, catalogue.GetErrorCode(catalogue.GetErrorName(code))) << code;
    }
    EXPECT_EQ((std::map<UINT, int>{{0, 2}, {1, 47}, {2, 50}, {3, 67}, {4, 35}}), levels);
    auto row = [&catalogue](int code) {
        return std::to_wstring(catalogue.GetErrorLevel(code)) + L" " + catalogue.GetErrorName(code) + L" " +
               catalogue.GetErrorText(code);
    };
    EXPECT_EQ(L"0 ERROR_NONE No Error", row(0));
    EXPECT_EQ(L"3 IM_ERROR_DLM_NOT_INITIALIZED Install Manager: Failed to initialize Download Managerr", row(21));
    EXPECT_EQ(L"1 ERROR_UNKNOWN Unknown Error", row(1607));
    // The one text that breaks a line.
    EXPECT_EQ(L"2 IM_BLOCK_RAIDUPGRADE Previously installed RAID driver is not compatible with new RAID driver, "
              L"installing new driver may damage existing RAID array.\r\n If you wish to proceed with new RAID driver "
              L"installation then take back up of your array install the new RAID driver manually with fresh OS "
              L"installation.",
              row(1606));
    // Names are found exactly; anything else is the unknown error.
    EXPECT_EQ(1607, catalogue.GetErrorCode(L"error_none"));
    EXPECT_EQ(1607, catalogue.GetErrorCode(L"ERROR_NONE "));
}

class RecordingListener : public IErrorListener {
public:
    void OnErrorCode(int code) override { codes.push_back(code); }
    std::vector<int> codes;
};

TEST(ErrorCatalogue, RegisteredErrorsFollowTheTableAndBecomeTheLastError)
{
    ErrorHandler catalogue;
    RecordingListener listener;
    catalogue.AddListener(&listener);
    catalogue.AddListener(&listener);
    EXPECT_EQ(1608, catalogue.RegisterError(L"Plug-in failed to load", 3));
    EXPECT_EQ(1609, catalogue.RegisterError(L"Plug-in timed out", 1));
    EXPECT_EQ(1609, catalogue.GetLastErrorCode());
    EXPECT_EQ(L"Plug-in failed to load Plug-in failed to load",
              catalogue.GetErrorName(1608) + L" " + catalogue.GetErrorText(1608));
    EXPECT_EQ(1u, catalogue.GetErrorLevel(1609));
    EXPECT_EQ(1607, catalogue.GetErrorCode(L"Plug-in timed out"));  // not found by name
    catalogue.SetLastErrorCode(165);
    catalogue.SetLastErrorCodeEx(1607, false);
    EXPECT_EQ(1607, catalogue.GetLastErrorCode());
    catalogue.RemoveListener(&listener);
    catalogue.SetLastErrorCodeEx(5, true);
    // Held once though added twice; not told of the quiet set nor after its removal.
    EXPECT_EQ((std::vector<int>{1608, 1609, 165}), listener.codes);
    // Each set lets the lock go: another thread takes it at once.
    HANDLE other = CreateThread(
        NULL, 0,
        [](LPVOID handler) -> DWORD {
            static_cast<ErrorHandler*>(handler)->SetLastErrorCodeEx(8, false);
            return 0;
        },
        &catalogue, 0, NULL);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(other, 5000));
    CloseHandle(other);

    // The process's one catalogue; one set from outside is not owned, so releasing forgets it undeleted.
    EXPECT_EQ(ErrorHandler::GetInstance(), ErrorHandler::GetInstance());
    ErrorHandler::SetInstance(&catalogue);
    EXPECT_EQ(&catalogue, ErrorHandler::GetInstance());
    ErrorHandler::ReleaseInstance();
    ErrorHandler::SetInstance(&catalogue);
    ErrorHandler::ReleaseInstance();
    EXPECT_NE(&catalogue, ErrorHandler::GetInstance());
    ErrorHandler::ReleaseInstance();
}

}  // namespace

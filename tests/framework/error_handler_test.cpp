// The framework's error catalogue: its table, the last error and run-time errors.
#include "harness/harness.h"

#include "framework/error_handler.h"

#include <gmock/gmock.h>

#include <map>

using ::testing::ElementsAre;

namespace {

// Every code the table holds: 0 to 200 and 1603 to 1607, less the unused ones.
std::vector<int> TableCodes()
{
    std::vector<int> codes;
    for (int code = 0; code <= 200; ++code)
        if (code != 12 && code != 13 && code != 27 && code != 68 && code != 139)
            codes.push_back(code);
    for (int code = 1603; code <= 1607; ++code)
        codes.push_back(code);
    return codes;
}

TEST(ErrorCatalogue, HoldsTwoHundredAndOneRowsWithTheirLevelCounts)
{
    ErrorHandler catalogue;
    std::vector<int> codes = TableCodes();
    ASSERT_EQ(201u, codes.size());
    std::map<UINT, int> levels;
    for (int code : codes) {
        std::wstring name = catalogue.GetErrorName(code);
        EXPECT_EQ(code, catalogue.GetErrorCode(name)) << code;
        EXPECT_NE(L"Failed to return Error String", catalogue.GetErrorText(code)) << code;
        ++levels[catalogue.GetErrorLevel(code)];
    }
    EXPECT_EQ((std::map<UINT, int>{{0, 2}, {1, 47}, {2, 50}, {3, 67}, {4, 35}}), levels);
}

struct TellingRow {
    UINT level;
    int code;
    const wchar_t* name;
    const wchar_t* text;
};

TEST(ErrorCatalogue, TellingRowsReadExactly)
{
    const TellingRow rows[] = {
        {0, 0, L"ERROR_NONE", L"No Error"},
        {4, 1, L"ERROR_OUTOFMEM", L"Out of Memory"},
        {2, 5, L"ERROR_FILE_NOT_EXISTS", L"File does not exists"},
        {2, 8, L"IM_ERROR_NOERROR", L"Install Manager passed"},
        {4, 10, L"IM_ERROR_CRITICAL", L"Install Manager critical failure"},
        {3, 21, L"IM_ERROR_DLM_NOT_INITIALIZED", L"Install Manager: Failed to initialize Download Managerr"},
        {3, 169, L"IM_ERROR_INTERNETLOST", L"Download Failed, please check internet connection."},
        {2, 23, L"PM_ERROR_NOERROR", L"Package Manager pass"},
        {4, 28, L"PM_ERROR_FILE_LOCKED", L"Package Manager File in Use"},
        {4, 32, L"PM_ERROR_FATAL_EXIT", L"Package Manager Fatal Exit"},
        {0, 49, L"PM_ERROR_MSI_REBOOT_REQUIRED", L"Package Manager Install reboot required."},
        {1, 79, L"DIFX_TRUST_E_NOSIGNATURE", L"Package Manager The driver package is not signed."},
        {2, 88, L"DM_ERRPR_GENERAL_FAILED", L"Data Manager Failed"},
        {3, 97, L"DCMPciInfo_ERROR_ACCESS_DENIED", L"Detection Manager: Acess Denied"},
        {1, 109, L"DCMPciInfo_ERROR_KESTRAHARDWARE_NOT_FOUND", L"Detection Manager: Kestra hardware not found"},
        {2, 120, L"DLM_ERROR_FALIED_GET_SETTING", L"Failed to get Download Manager's settings"},
        {1, 148, L"DLM_ERROR_STOPED", L"Stoped"},
        {3, 165, L"CONFIG_ERROR_FAILED_SAVED", L"Failed to save configuration settings"},
        {3, 170, L"IM_ERROR_INTERNET_FAIL",
         L"Cannot connect to the Orvel Web service. Please check your Internet connection and try again."},
        {3, 173, L"IM_ERROR_NO_ORVEL_HW_FOUND", L"No Orvel hardware found on the machine."},
        {2, 178, L"IM_MAX_PATH_LIMIT_EXCEEDED",
         L"You have exceeded the maximum allowed length of %d for the Default Installation Location"},
        {2, 181, L"IM_ERROR_CREATING_INSTALL_DIR",
         L"Unknown error creating or accessing install folder '%s'. Ensure that you have rights to create or access "
         L"this folder or select a different destination to install to. "},
        {2, 185, L"IM_ERROR_INVALID_INSTALL_DIR",
         L"Error creating or accessing specified folder '%s'. Ensure that you have rights to create or access this "
         L"folder or select a different destination to install to."},
        {2, 187, L"IM_ERROR_INSTALL_DIR_INVALID",
         L"The file '%s' already exists but it's not a folder. Either delete this file first or choose a valid folder "
         L"to install to."},
        {3, 194, L"IM_ERROR_LOAD_MODULE", L"Unbale to load install framework DLL files."},
        {3, 199, L"IM_ERROR_FILENOTFOUND_ON_SERVER", L"Failed to download the package, File not avilable on the server."},
        {3, 1603, L"IM_GENERAL_ERROR_INSTALL", L"General error during package installation"},
        {3, 1604, L"IM_GENERAL_ERROR_UNINSTALL", L"General error during package uninstallation"},
        {3, 1605, L"IM_GENERAL_ERROR_NOCOMPONENTS", L"No eligible components are found to install"},
        {2, 1606, L"IM_BLOCK_RAIDUPGRADE",
         L"Previously installed RAID driver is not compatible with new RAID driver, installing new driver may damage "
         L"existing RAID array.\r\n If you wish to proceed with new RAID driver installation then take back up of "
         L"your array install the new RAID driver manually with fresh OS installation."},
        {1, 1607, L"ERROR_UNKNOWN", L"Unknown Error"},
        {2, 171, L"RM_ALLAREUPTODATE",
         L"Components are already installed. For new updates, check https://www.orvel.com/support"},
        {2, 191, L"IM_ERROR_UPTODATE",
         L"Components are already installed. For new updates, check https://www.orvel.com/support."},
    };
    ErrorHandler catalogue;
    for (const TellingRow& row : rows) {
        EXPECT_EQ(row.level, catalogue.GetErrorLevel(row.code)) << row.code;
        EXPECT_EQ(row.name, catalogue.GetErrorName(row.code)) << row.code;
        EXPECT_EQ(row.text, catalogue.GetErrorText(row.code)) << row.code;
        EXPECT_EQ(row.code, catalogue.GetErrorCode(row.name)) << row.code;
    }
}

TEST(ErrorCatalogue, UnknownCodesAndNamesHaveTheirDefaults)
{
    ErrorHandler catalogue;
    EXPECT_EQ(L"Failed to return Error String", catalogue.GetErrorText(12));
    EXPECT_EQ(L"Failed to return Error String", catalogue.GetErrorText(-1));
    EXPECT_EQ(0, catalogue.GetErrorCode(L"ERROR_NONE"));
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
    EXPECT_EQ(L"Plug-in failed to load", catalogue.GetErrorName(1608));
    EXPECT_EQ(L"Plug-in failed to load", catalogue.GetErrorText(1608));
    EXPECT_EQ(1u, catalogue.GetErrorLevel(1609));
    // Registered errors are not found by name.
    EXPECT_EQ(1607, catalogue.GetErrorCode(L"Plug-in timed out"));

    catalogue.SetLastErrorCode(165);
    catalogue.SetLastErrorCodeEx(1607, false);
    EXPECT_EQ(1607, catalogue.GetLastErrorCode());
    catalogue.RemoveListener(&listener);
    catalogue.RemoveListener(&listener);
    catalogue.SetLastErrorCodeEx(5, true);
    // Held once though added twice; not told of the quiet set or after removal.
    EXPECT_THAT(listener.codes, ElementsAre(1608, 1609, 165));
}

TEST(ErrorCatalogue, HasOneInstanceUntilReleased)
{
    ErrorHandler* first = ErrorHandler::GetInstance();
    EXPECT_EQ(first, ErrorHandler::GetInstance());

    ErrorHandler own;
    ErrorHandler::SetInstance(&own);
    EXPECT_EQ(&own, ErrorHandler::GetInstance());
    // Not owned: releasing forgets it without deleting it.
    ErrorHandler::ReleaseInstance();
    ErrorHandler* fresh = ErrorHandler::GetInstance();
    EXPECT_NE(&own, fresh);
    ErrorHandler::ReleaseInstance();
}

}  // namespace

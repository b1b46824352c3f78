// The error catalogue. The table is constant and searched from its first row;
// its order is the framework's and not that of the codes.
#include "framework/error_handler.h"

#include "frame/frame.h"

namespace {

struct ErrorRow {
    UINT level;
    int code;
    const wchar_t* name;
    const wchar_t* text;
};

const ErrorRow kErrorTable[] = {
    {0, 0, L"ERROR_NONE", L"No Error"},
    {4, 1, L"ERROR_OUTOFMEM", L"Out of Memory"},
    {4, 2, L"ERROR_WRITE_FILE_FAILED", L"Write file failed"},
    {4, 3, L"ERROR_FAILED_CREATE_DIR", L"Failed create dir"},
    {4, 4, L"ERROR_FAILED_DELETE_FILE", L"Failed delete file"},
    {2, 5, L"ERROR_FILE_NOT_EXISTS", L"File does not exists"},
    {3, 6, L"ERROR_FAILED_RENAME_FILE", L"Failed rename file"},
    {3, 7, L"ERROR_FAILED_PARSE_XML", L"Failed parse xml"},
    {2, 8, L"IM_ERROR_NOERROR", L"Install Manager passed"},
    {3, 9, L"IM_ERROR_GENERAL_FAILED", L"Install Manager: general failed"},
    {4, 10, L"IM_ERROR_CRITICAL", L"Install Manager critical failure"},
    {4, 11, L"IM_ERROR_SEVERE", L"Install Manager: severe"},
    {2, 14, L"IM_ERROR_PATH_INVALID", L"Install Manager: path invalid"},
    {3, 15, L"IM_ERROR_VERSION_NOT_MATCH", L"Install Manager: version not match"},
    {3, 16, L"IM_ERROR_EXECUTE_STATE_FAILED", L"Install Manager: execute state failed"},
    {3, 17, L"IM_ERROR_DCM_NOT_INITIALIZED", L"Install Manager: dcm not initialized"},
    {3, 18, L"IM_ERROR_LM_NOT_INITIALIZED", L"Install Manager: lm not initialized"},
    {3, 19, L"IM_ERROR_PM_NOT_INITIALIZED", L"Install Manager: pm not initialized"},
    {3, 20, L"IM_ERROR_DM_NOT_INITIALIZED", L"Install Manager: dm not initialized"},
    {3, 21, L"IM_ERROR_DLM_NOT_INITIALIZED", L"Install Manager: Failed to initialize Download Managerr"},
    {3, 169, L"IM_ERROR_INTERNETLOST", L"Download Failed, please check internet connection."},
    {3, 22, L"IM_ERROR_DCMSIMULATION_NOT_INITIALIZED", L"Install Manager: dcmsimulation not initialized"},
    {2, 23, L"PM_ERROR_NOERROR", L"Package Manager pass"},
    {4, 24, L"PM_ERROR_CRITICAL", L"Package Manager critical"},
    {3, 25, L"PM_ERROR_GENERAL_FAILED", L"Package Manager general failed"},
    {3, 26, L"PM_ERROR_UNINST_GENERAL_FAILED", L"Package Manager uninst general failed"},
    {3, 29, L"PM_ERROR_INVALID_PACKAGE_INFO", L"Package Manager invalid package info"},
    {4, 28, L"PM_ERROR_FILE_LOCKED", L"Package Manager File in Use"},
    {3, 30, L"PM_ERROR_ENUMERATION_FAILED", L"Package Manager enumeration failed"},
    {4, 31, L"PM_ERROR_NO_DISK_SPACE", L"Package Manager no disk space"},
    {4, 32, L"PM_ERROR_FATAL_EXIT", L"Package Manager Fatal Exit"},
    {3, 33, L"PM_ERROR_INVALID_PACKAGE_PARAMETER", L"Package Manager invalid package parameter"},
    {4, 34, L"PM_ERROR_MSI_INSTALL_SERVICE_FAILURE", L"Package Manager msi install service failure"},
    {2, 35, L"PM_ERROR_USER_EXIT", L"Package Manager user exit"},
    {2, 36, L"PM_ERROR_USER_EXIT_UNINST", L"Package Manager user exit uninst"},
    {3, 37, L"PM_ERROR_MSI_INSTALL_FAILURE", L"Package Manager msi install failure"},
    {3, 38, L"PM_ERROR_MSI_UNINSTALL_FAILURE", L"Package Manager msi uninstall failure"},
    {2, 39, L"PM_ERROR_MSI_INSTALL_INCOMPLETE", L"Package Manager msi install incomplete"},
    {2, 40, L"PM_ERROR_MSI_UNINSTALL_INCOMPLETE", L"Package Manager msi uninstall incomplete"},
    {3, 41, L"PM_ERROR_MSI_SOURCE_ABSENT", L"Package Manager msi source absent"},
    {3, 42, L"PM_ERROR_MSI_INSTALL_VERSION", L"Package Manager msi install version"},
    {3, 43, L"PM_ERROR_MSI_INSTALL_AREADY_RUNNING", L"Package Manager msi install aready running"},
    {3, 44, L"PM_ERROR_MSI_UNINSTALL_AREADY_RUNNING", L"Package Manager msi uninstall aready running"},
    {3, 45, L"PM_ERROR_MSI_INSTALL_PACKAGE_REJECTED", L"Package Manager msi install package rejected"},
    {3, 46, L"PM_ERROR_MSI_UNINSTALL_PACKAGE_REJECTED", L"Package Manager msi uninstall package rejected"},
    {3, 47, L"PM_ERROR_MSI_INSTALL_TEMP_UNWRITABLE", L"Package Manager msi install temp unwritable"},
    {3, 48, L"PM_ERROR_MSI_PLATFORM_UNSUPPORTED", L"Package Manager msi platform unsupported"},
    {0, 49, L"PM_ERROR_MSI_REBOOT_REQUIRED", L"Package Manager Install reboot required."},
    {3, 50, L"PM_ERROR_EXE_INSTALL_ERROR", L"Package Manager exe install error"},
    {2, 51, L"PM_ERROR_FILE_NOT_FOUND", L"Package Manager file not found"},
    {2, 52, L"PM_ERROR_PATH_NOT_FOUND", L"Package Manager path not found"},
    {3, 53, L"PM_ERROR_TOO_MANY_OPEN_FILES", L"Package Manager too many open files"},
    {4, 54, L"PM_ERROR_ACCESS_DENIED", L"Package Manager access denied"},
    {4, 55, L"PM_ERROR_NOT_ENOUGH_MEMORY", L"Package Manager not enough memory"},
    {3, 56, L"PM_ERROR_CHANGE_RESOLUTION", L"Package Manager change resolution"},
    {1, 57, L"DIFX_CRYPT_E_FILE_ERROR", L"Package Manager driver install: crypt e file error"},
    {4, 58, L"DIFX_ERROR_ACCESS_DENIED", L"Package Manager driver install: access denied"},
    {1, 59, L"DIFX_ERROR_BAD_ENVIRONMENT", L"Package Manager driver install: bad environment"},
    {4, 60, L"DIFX_ERROR_CANT_ACCESS_FILE", L"Package Manager driver install: cant access file"},
    {1, 61, L"DIFX_ERROR_DRIVER_PACKAGE_NOT_IN_STORE", L"Package Manager driver install: driver package not in store"},
    {1, 62, L"DIFX_ERROR_FILE_NOT_FOUND", L"Package Manager driver install: file not found"},
    {1, 63, L"DIFX_ERROR_FILENAME_EXCED_RANGE", L"Package Manager driver install: filename exced range"},
    {1, 64, L"DIFX_ERROR_IN_WOW64", L"Package Manager driver install: in wow64"},
    {1, 65, L"DIFX_ERROR_INSUFFICIENT_BUFFER", L"Package Manager driver install: insufficient buffer"},
    {1, 66, L"DIFX_ERROR_INVALID_NAME", L"Package Manager driver install: invalid name"},
    {1, 67, L"DIFX_ERROR_INVALID_PARAMETER", L"Package Manager driver install: invalid parameter"},
    {1, 69, L"DIFX_ERROR_UNSUPPORTED_TYPE", L"Package Manager driver install: unsupported type"},
    {1, 70, L"DIFX_CERT_E_EXPIRED", L"Package Manager driver install: cert e expired"},
    {1, 71, L"DIFX_CERT_E_WRONG_USAGE", L"Package Manager driver install: cert e wrong usage"},
    {1, 72, L"DIFX_ERROR_INSTALL_FAILURE", L"Package Manager driver install: install failure"},
    {1, 73, L"DIFX_ERROR_INVALID_CATALOG_DATA", L"Package Manager driver install: invalid catalog data"},
    {1, 74, L"DIFX_ERROR_NO_DEVICE_ID", L"Package Manager driver install: no device id"},
    {1, 75, L"DIFX_ERROR_NO_MORE_ITEMS", L"Package Manager driver install: no more items"},
    {1, 76, L"DIFX_ERROR_NO_SUCH_DEVINST", L"Package Manager driver install: no such devinst"},
    {1, 77, L"DIFX_ERROR_SHARING_VIOLATION", L"Package Manager driver install: sharing violation"},
    {1, 78, L"DIFX_ERROR_SIGNATURE_OSATTRIBUTE_MISMATCH", L"Package Manager driver install: signature osattribute mismatch"},
    {1, 79, L"DIFX_TRUST_E_NOSIGNATURE", L"Package Manager The driver package is not signed."},
    {1, 80, L"DIFX_ERROR_DEPENDENT_APPLICATIONS_EXIST", L"Package Manager driver install: dependent applications exist"},
    {1, 81, L"DIFX_ERROR_ALREADY_EXISTS", L"Package Manager driver install: already exists"},
    {1, 82, L"DIFX_ERROR_CANNOT_MAKE", L"Package Manager driver install: cannot make"},
    {1, 83, L"DIFX_ERROR_INVALID_FUNCTION", L"Package Manager driver install: invalid function"},
    {1, 84, L"DIFX_ERROR_MISSING_FILE", L"Package Manager driver install: missing file"},
    {4, 85, L"DIFX_ERROR_WRITE_FAULT", L"Package Manager driver install: write fault"},
    {4, 86, L"DIFX_ERROR_LOGON_FAILURE", L"Package Manager driver install: logon failure"},
    {2, 87, L"DM_ERROR_NOERROR", L"Data Manager noerror"},
    {2, 88, L"DM_ERRPR_GENERAL_FAILED", L"Data Manager Failed"},
    {4, 89, L"DM_ERROR_CRITICAL", L"Data Manager critical"},
    {2, 90, L"DCM_ERROR_NOERROR", L"Detection Manager: noerror"},
    {3, 91, L"DCM_ERROR_GENERAL_FAILED", L"Detection Manager: general failed"},
    {4, 92, L"DCM_ERROR_CRITICAL", L"Detection Manager: critical"},
    {3, 93, L"DCM_ERROR_FAILED_WMI", L"Detection Manager: failed wmi"},
    {3, 94, L"DCM_ERROR_FAILED_WMI_QUERY", L"Detection Manager: failed wmi query"},
    {3, 95, L"DCM_ERROR_FAILED_WMI_SECURITY", L"Detection Manager: failed wmi security"},
    {4, 96, L"DCMPciInfo_ERROR_NO_MORE_MEMORY", L"Detection Manager: no more memory"},
    {3, 97, L"DCMPciInfo_ERROR_ACCESS_DENIED", L"Detection Manager: Acess Denied"},
    {2, 98, L"DCMPciInfo_ERROR_DRIVER_SYS_FILE_NOT_FOUND", L"Detection Manager: driver sys file not found"},
    {4, 99, L"DCMPciInfo_ERROR_DRIVER_LOAD_FAIL", L"Detection Manager: driver load fail"},
    {2, 100, L"DCMPciInfo_ERROR_VIDEO_BIOS_FILE_NOT_FOUND", L"Detection Manager: video bios file not found"},
    {3, 101, L"DCMPciInfo_ERROR_VIDEO_BIOS_FILE_LENGTH_ERROR", L"Detection Manager: video bios file length error"},
    {3, 102, L"DCMPciInfo_ERROR_VIDEO_BIOS_FILE_FORMAT_ERROR", L"Detection Manager: video bios file format error"},
    {2, 103, L"DCMPciInfo_ERROR_DEVICE_NOT_FOUND_FOR_REPLACE_V_BIOS", L"Detection Manager: device not found for replace v bios"},
    {2, 104, L"DCMPciInfo_ERROR_DCM_FILE_NOT_FOUND", L"Detection Manager: dcm file not found"},
    {3, 105, L"DCMPciInfo_ERROR_DCM_FILE_FORMAT_ERROR", L"Detection Manager: dcm file format error"},
    {3, 106, L"DCMPciInfo_ERROR_DCM_FILE_OBSOLETE_VERSION", L"Detection Manager: dcm file obsolete version"},
    {2, 107, L"DCMPciInfo_ERROR_MSI_FILE_NOT_FOUND", L"Detection Manager: msi file not found"},
    {2, 108, L"DCMPciInfo_ERROR_RESOURCE_FILE_NOT_FOUND", L"Detection Manager: resource file not found"},
    {1, 109, L"DCMPciInfo_ERROR_KESTRAHARDWARE_NOT_FOUND", L"Detection Manager: Kestra hardware not found"},
    {2, 110, L"LM_ERROR_NOERROR", L"Language Manager: noerror"},
    {3, 111, L"LM_ERROR_GENERAL_FAILED", L"Language Manager: general failed"},
    {4, 112, L"LM_ERROR_CRITICAL", L"Language Manager: critical"},
    {2, 113, L"LM_ERROR_FILE_NOT_FOUND", L"Language Manager: file not found"},
    {3, 114, L"DLM_ERROR_GENERAL_FAILED", L"Download Manager: general failed"},
    {4, 115, L"DLM_ERROR_FAILED_CREATE_TRANSPORT", L"Download Manager: failed create transport"},
    {3, 116, L"DLM_ERROR_FAILED_CALL_TRAFFIC_MON", L"Download Manager: failed call traffic mon"},
    {3, 117, L"DLM_ERROR_FAILED_SET_TRANS_THREAD", L"Download Manager: failed set trans thread"},
    {3, 118, L"DLM_ERROR_REMOTE_FILE_EMPTY", L"Download Manager: remote file empty"},
    {3, 119, L"DLM_ERROR_NOT_CONNECTED", L"Download Manager: not connected"},
    {2, 120, L"DLM_ERROR_FALIED_GET_SETTING", L"Failed to get Download Manager's settings"},
    {3, 121, L"DLM_ERROR_NO_INTERNET_CONNECT", L"Download Manager: no internet connect"},
    {3, 122, L"DLM_ERROR_FAILED_CONNECT_SERVER", L"Download Manager: failed connect server"},
    {3, 123, L"DLM_ERROR_FAILED_OPEN_URL", L"Download Manager: failed open url"},
    {3, 124, L"DLM_ERROR_FAILED_LOAD_OEM_MANIFEST", L"Download Manager: failed load oem manifest"},
    {3, 125, L"DLM_ERROR_FAILED_PARSE_OEM_MANIFEST", L"Download Manager: failed parse oem manifest"},
    {3, 126, L"DLM_ERROR_FAILED_OEM_MANIFEST_NAME", L"Download Manager: failed oem manifest name"},
    {2, 127, L"DLM_ERROR_FAILED_NO_MANIFEST_PRODUCTS", L"Download Manager: failed no manifest products"},
    {2, 128, L"DLM_ERROR_FAILED_PRODUCT_NAME", L"Download Manager: failed product name"},
    {2, 129, L"DLM_ERROR_FAILED_PRODUCT_TYPE", L"Download Manager: failed product type"},
    {2, 130, L"DLM_ERROR_FAILED_PRODUCT_PID", L"Download Manager: failed product pid"},
    {2, 131, L"DLM_ERROR_FAILED_PRODUCT_VERSION", L"Download Manager: failed product version"},
    {2, 132, L"DLM_ERROR_FAILED_PRODUCT_DEPENDENCY", L"Download Manager: failed product dependency"},
    {2, 133, L"DLM_ERROR_FAILED_PRODUCT_SOURCE", L"Download Manager: failed product source"},
    {2, 134, L"DLM_ERROR_FAILED_PRODUCT_SOURCE_TYPE", L"Download Manager: failed product source type"},
    {2, 135, L"DLM_ERROR_FAILED_PRODUCT_SOURCE_CRC", L"Download Manager: failed product source crc"},
    {2, 136, L"DLM_ERROR_FAILED_PRODUCT_SOURCE_SIZE", L"Download Manager: failed product source size"},
    {2, 137, L"DLM_ERROR_FAILED_PRODUCT_SOURCE_URL", L"Download Manager: failed product source url"},
    {2, 138, L"DLM_ERROR_FAILED_PRODUCT_SOURCE_EXTRACTION", L"Download Manager: failed product source extraction"},
    {1, 140, L"DLM_ERROR_FAILED_MARKETING_NAME", L"Download Manager: failed marketing name"},
    {1, 141, L"DLM_ERROR_FAILED_MARKETING_CONTENTTYPE", L"Download Manager: failed marketing contenttype"},
    {1, 142, L"DLM_ERROR_FAILED_MARKETING_ID", L"Download Manager: failed marketing id"},
    {1, 143, L"DLM_ERROR_FAILED_MARKETING_DESCRIPTION", L"Download Manager: failed marketing description"},
    {1, 144, L"DLM_ERROR_FAILED_MARKETING_LINK", L"Download Manager: failed marketing link"},
    {1, 145, L"DLM_ERROR_FAILED_MARKETING_CRC", L"Download Manager: failed marketing crc"},
    {1, 146, L"DLM_ERROR_FAILED_MARKETING_DATE", L"Download Manager: failed marketing date"},
    {3, 147, L"DLM_ERROR_NO_ITEM_WAS_DOWNLOADED", L"Download Manager: no item was downloaded"},
    {1, 148, L"DLM_ERROR_STOPED", L"Stoped"},
    {3, 149, L"DLM_ERROR_FILE_CANNOT_RESUME", L"Download Manager: file cannot resume"},
    {3, 150, L"DLM_ERROR_FAILED_VERIFY_FILE", L"Download Manager: failed verify file"},
    {3, 151, L"DLM_ERROR_FAILED_DOWNLOAD", L"Download Manager: failed download"},
    {4, 152, L"IPC_ERROR_CREATE_PIPE_SERVER", L"Pipe transport: create pipe server"},
    {4, 153, L"IPC_ERROR_COULD_NOT_OPEN_PIPE", L"Pipe transport: could not open pipe"},
    {4, 154, L"IPC_ERROR_PIPEHANDLE_FAILED", L"Pipe transport: pipehandle failed"},
    {1, 155, L"SCM_ERROR_INVALID_YEAR", L"Schedule: invalid year"},
    {1, 156, L"SCM_ERROR_INVALID_MONTH", L"Schedule: invalid month"},
    {1, 157, L"SCM_ERROR_INVALID_DAY", L"Schedule: invalid day"},
    {1, 158, L"SCM_ERROR_INVALID_TIME_INTERVAL", L"Schedule: invalid time interval"},
    {1, 159, L"SCM_ERROR_FAILED_CONVERT_TIME", L"Schedule: failed convert time"},
    {1, 160, L"SCM_ERROR_FAILED_GET_CUR_TIME", L"Schedule: failed get cur time"},
    {1, 161, L"SCM_ERROR_FAILED_TO_INCREMENT_DAY", L"Schedule: failed to increment day"},
    {1, 162, L"SCM_ERROR_FAILED_TO_INCREMENT_HOUR", L"Schedule: failed to increment hour"},
    {1, 163, L"SCM_ERROR_FAILED_TO_INCREMENT_MIN", L"Schedule: failed to increment min"},
    {1, 164, L"SCM_ERROR_FAILED_TO_INCREMENT_SEC", L"Schedule: failed to increment sec"},
    {3, 165, L"CONFIG_ERROR_FAILED_SAVED", L"Failed to save configuration settings"},
    {1, 166, L"DLM_PLUGIN_NAME_INVALID", L"Download plug-in: name invalid"},
    {1, 167, L"DLM_PLUGIN_VALUE_INVALID", L"Download plug-in: value invalid"},
    {3, 168, L"DLM_PLUGIN_NO_NAME_PARAM", L"Download plug-in: no name param"},
    {3, 170, L"IM_ERROR_INTERNET_FAIL", L"Cannot connect to the Orvel Web service. Please check your Internet connection and try again."},
    {2, 171, L"RM_ALLAREUPTODATE", L"Components are already installed. For new updates, check " KESTRA_MAKER_WEB_SITE},
    {2, 172, L"RM_NOTHINGINSTALLED", L"Nothinginstalled"},
    {3, 173, L"IM_ERROR_NO_ORVEL_HW_FOUND", L"No Orvel hardware found on the machine."},
    {3, 174, L"IM_LEGACYCARDFOUND", L"Install Manager: legacycardfound"},
    {3, 175, L"IM_ERROR_LEGACYCARD_NODRIVER", L"Install Manager: legacycard nodriver"},
    {4, 176, L"IM_NO_DISKSPACE", L"Install Manager: no diskspace"},
    {4, 177, L"IM_NO_OSDISKSPACE", L"Install Manager: no osdiskspace"},
    {2, 178, L"IM_MAX_PATH_LIMIT_EXCEEDED", L"You have exceeded the maximum allowed length of %d for the Default Installation Location"},
    {2, 179, L"IM_INVALID_FOLDER", L"Install Manager: invalid folder"},
    {2, 180, L"IM_INSTALL_DIR_NOT_SPEC", L"Install Manager: no install folder was specified"},
    {2, 181, L"IM_ERROR_CREATING_INSTALL_DIR", L"Unknown error creating or accessing install folder '%s'. Ensure that you have rights to create or access this folder or select a different destination to install to. "},
    {3, 182, L"IM_UNKNOWN_ORVEL_HARDWARE", L"Install Manager: unknown orvel hardware"},
    {2, 183, L"IM_THIRDPARTY_CONFLICTS", L"Install Manager: thirdparty conflicts"},
    {4, 184, L"IM_ERROR_UNSUPPORTED_OS", L"Install Manager: unsupported os"},
    {2, 185, L"IM_ERROR_INVALID_INSTALL_DIR", L"Error creating or accessing specified folder '%s'. Ensure that you have rights to create or access this folder or select a different destination to install to."},
    {2, 186, L"IM_ERROR__NO_MANIFEST", L"Install Manager: no manifest"},
    {2, 187, L"IM_ERROR_INSTALL_DIR_INVALID", L"The file '%s' already exists but it's not a folder. Either delete this file first or choose a valid folder to install to."},
    {2, 188, L"IM_ERROR_NO_PROPERPREVILIGES", L"Install Manager: no properpreviliges"},
    {4, 189, L"IM_ERROR_NO_DRIVER", L"Install Manager: no driver"},
    {2, 190, L"IM_ERROR_LOAD_FILE_FAILED", L"Install Manager: load file failed"},
    {2, 191, L"IM_ERROR_UPTODATE", L"Components are already installed. For new updates, check " KESTRA_MAKER_WEB_SITE L"."},
    {4, 192, L"IM_ERROR_CORRUPTED_OS", L"Install Manager: corrupted os"},
    {2, 193, L"IM_ERROR_PREREQUISITE_MISSING", L"Install Manager: prerequisite missing"},
    {3, 194, L"IM_ERROR_LOAD_MODULE", L"Unbale to load install framework DLL files."},
    {4, 195, L"IM_ERROR_ORVELSERVER", L"Install Manager: orvelserver"},
    {4, 196, L"IM_ERROR_DOWNLOAD_FAIL", L"Install Manager: download fail"},
    {4, 197, L"IM_ERROR_SETSTATE_FAILED", L"Install Manager: setstate failed"},
    {4, 198, L"IM_ERROR_TARGET_LONG", L"Install Manager: target long"},
    {3, 199, L"IM_ERROR_FILENOTFOUND_ON_SERVER", L"Failed to download the package, File not avilable on the server."},
    {2, 200, L"IM_EXTERNAL_HDDMEDIA_FOLDER", L"Install Manager: external hddmedia folder"},
    {3, 1603, L"IM_GENERAL_ERROR_INSTALL", L"General error during package installation"},
    {3, 1604, L"IM_GENERAL_ERROR_UNINSTALL", L"General error during package uninstallation"},
    {3, 1605, L"IM_GENERAL_ERROR_NOCOMPONENTS", L"No eligible components are found to install"},
    {2, 1606, L"IM_BLOCK_RAIDUPGRADE",
     L"Previously installed RAID driver is not compatible with new RAID driver, installing new driver may damage "
     L"existing RAID array.\r\n If you wish to proceed with new RAID driver installation then take back up of your "
     L"array install the new RAID driver manually with fresh OS installation."},
    {1, 1607, L"ERROR_UNKNOWN", L"Unknown Error"},
};

ErrorHandler* g_instance = NULL;
bool g_ownedInstance = false;

}  // namespace

ErrorHandler::ErrorHandler()
{
    // m_lastError is given no value: it is read only after a set.
    m_names.reserve(10);
    m_levels.reserve(10);
}

ErrorHandler::~ErrorHandler() {}

int ErrorHandler::GetLastErrorCode()
{
    return m_lastError;
}

std::wstring ErrorHandler::GetErrorText(int code)
{
    if (code >= kFirstRegisteredCode)
        return m_names[code - kFirstRegisteredCode];
    std::wstring text = L"Failed to return Error String";
    for (const ErrorRow& row : kErrorTable)
        if (row.code == code)
            text = row.text;
    return text;
}

// For the level and the name, a code below the boundary that the table lacks
// falls through to the registered errors, as it always has; no caller passes one.
UINT ErrorHandler::GetErrorLevel(int code)
{
    if (code < kFirstRegisteredCode)
        for (const ErrorRow& row : kErrorTable)
            if (row.code == code)
                return row.level;
    return m_levels[code - kFirstRegisteredCode];
}

std::wstring ErrorHandler::GetErrorName(int code)
{
    if (code < kFirstRegisteredCode)
        for (const ErrorRow& row : kErrorTable)
            if (row.code == code)
                return row.name;
    return m_names[code - kFirstRegisteredCode];
}

int ErrorHandler::GetErrorCode(const std::wstring& name)
{
    for (const ErrorRow& row : kErrorTable)
        if (name == row.name)
            return row.code;
    return kUnknownErrorCode;
}

void ErrorHandler::SetLastErrorCode(int code)
{
    SetLastErrorCodeEx(code, true);
}

void ErrorHandler::SetLastErrorCodeEx(int code, bool notify)
{
    m_lock.Enter();
    m_lastError = code;
    m_lock.Leave();
    if (!notify)
        return;
    // Outside the lock: a listener may call back into the catalogue.
    for (IErrorListener* listener : m_listeners)
        if (listener != NULL)
            listener->OnErrorCode(code);
}

int ErrorHandler::RegisterError(const std::wstring& text, UINT level)
{
    int code = static_cast<int>(m_names.size()) + kFirstRegisteredCode;
    m_lock.Enter();
    m_names.push_back(text);
    m_levels.push_back(level);
    m_lock.Leave();
    SetLastErrorCode(code);
    return code;
}

void ErrorHandler::AddListener(IErrorListener* listener)
{
    m_lock.Enter();
    m_listeners.insert(listener);
    m_lock.Leave();
}

void ErrorHandler::RemoveListener(IErrorListener* listener)
{
    m_lock.Enter();
    m_listeners.erase(listener);
    m_lock.Leave();
}

ErrorHandler* ErrorHandler::GetInstance()
{
    if (g_instance == NULL) {
        g_instance = new ErrorHandler();
        g_ownedInstance = true;
    }
    return g_instance;
}

void ErrorHandler::SetInstance(ErrorHandler* instance)
{
    if (g_ownedInstance)
        ReleaseInstance();
    g_instance = instance;
}

void ErrorHandler::ReleaseInstance()
{
    if (g_ownedInstance)
        delete g_instance;
    g_instance = NULL;
    g_ownedInstance = false;
}

// The logger facade over kestraLog.dll.
#include "framework/kestra_logger.h"

#include "frame/frame.h"

#include <cstdarg>
#include <ctime>
#include <sstream>
#include <vector>

namespace {

typedef int(__cdecl* GetLogLevelFn)(void* instance);
typedef BOOL(__cdecl* WriteLogWFn)(void* instance, const wchar_t* line, int level);
typedef void(__cdecl* DeleteInstanceFn)(void* instance);

const wchar_t kLogKey[] = L"SOFTWARE\\Kestra Technologies\\Log";
// KEY_READ with both view flags, as the suite has always opened it.
const REGSAM kLogKeyAccess = 0x20319;

std::wstring FormatMessageText(const wchar_t* format, va_list args)
{
    va_list counting;
    va_copy(counting, args);
    int length = _vscwprintf(format, counting);
    va_end(counting);
    if (length <= 0)
        return std::wstring();
    std::vector<wchar_t> text(static_cast<size_t>(length) + 1);
    _vsnwprintf(text.data(), text.size(), format, args);
    return std::wstring(text.data(), static_cast<size_t>(length));
}

std::wstring LocalTimeText()
{
    time_t now = time(NULL);
    struct tm local;
    localtime_s(&local, &now);
    wchar_t text[80];
    wcsftime(text, 80, L"%d-%m-%Y %I:%M:%S", &local);
    return text;
}

}  // namespace

KestraLogger& KestraLogger::GetInstance()
{
    return g_kestraLogger;
}

KestraLogger::KestraLogger()
    : Log_init(NULL), Log_setFileName(NULL), Log_setFileNameW(NULL), Log_getFileName(NULL), Log_getFileNameW(NULL),
      Log_setLogLevel(NULL), Log_getLogLevel(NULL), Log_setAppend(NULL), Log_setMaxSize(NULL), Log_WriteLog(NULL),
      Log_WriteLogW(NULL), Log_BatchWriteLog(NULL), Log_BatchWriteLogW(NULL), Log_close(NULL),
      Log_isInitialize(NULL), Log_isAppend(NULL), Log_BackupLog(NULL), Log_BackupLogW(NULL),
      Log_getLastBackupFileName(NULL), Log_getLastBackupFileNameW(NULL), Log_StringTime(NULL),
      Log_SetOStream(NULL), CreateLogFileFactory(NULL), DeleteLogFileInstance(NULL), m_instance(NULL),
      m_module(NULL)
{
    InitializeCriticalSection(&m_lock);
}

KestraLogger::~KestraLogger()
{
    Unload();
    DeleteCriticalSection(&m_lock);
}

void KestraLogger::FindLibraryLocation(std::wstring& location)
{
    location.clear();
    ReadRegistryText(kLogKey, kLogKeyAccess, L"Location", 260, 520, kCloseKey, location);
}

FARPROC KestraLogger::GetEntryPoint(const std::wstring& name)
{
    std::string narrowName(name.begin(), name.end());
    FARPROC entry = GetProcAddress(m_module, narrowName.c_str());
    if (entry == NULL) {
        std::wostringstream text;
        text << L"Failed int GetProcAddress, last error =" << GetLastError() << L"\n";
        OutputDebugStringW(text.str().c_str());
    }
    return entry;
}

bool KestraLogger::Load()
{
    if (m_module != NULL)
        return true;
    EnterCriticalSection(&m_lock);
    std::wstring location;
    FindLibraryLocation(location);
    if (!location.empty() && location[location.size() - 1] != L'\\' && location[location.size() - 1] != L'/')
        location += L"\\";
    // With no location the system's search order finds it, if anything does.
    m_module = LoadLibraryW((location + L"kestraLog.dll").c_str());
    if (m_module == NULL) {
        LeaveCriticalSection(&m_lock);
        return false;
    }
    Log_init = GetEntryPoint(L"Log_init");
    Log_setFileName = GetEntryPoint(L"Log_setFileName");
    Log_setFileNameW = GetEntryPoint(L"Log_setFileNameW");
    Log_getFileName = GetEntryPoint(L"Log_getFileName");
    Log_getFileNameW = GetEntryPoint(L"Log_getFileNameW");
    Log_setLogLevel = GetEntryPoint(L"Log_setLogLevel");
    Log_getLogLevel = GetEntryPoint(L"Log_getLogLevel");
    Log_setAppend = GetEntryPoint(L"Log_setAppend");
    Log_setMaxSize = GetEntryPoint(L"Log_setMaxSize");
    Log_WriteLog = GetEntryPoint(L"Log_WriteLog");
    Log_WriteLogW = GetEntryPoint(L"Log_WriteLogW");
    Log_BatchWriteLog = GetEntryPoint(L"Log_BatchWriteLog");
    Log_BatchWriteLogW = GetEntryPoint(L"Log_BatchWriteLogW");
    Log_close = GetEntryPoint(L"Log_close");
    Log_isInitialize = GetEntryPoint(L"Log_isInitialize");
    Log_isAppend = GetEntryPoint(L"Log_isAppend");
    Log_BackupLog = GetEntryPoint(L"Log_BackupLog");
    Log_BackupLogW = GetEntryPoint(L"Log_BackupLogW");
    Log_getLastBackupFileName = GetEntryPoint(L"Log_getLastBackupFileName");
    Log_getLastBackupFileNameW = GetEntryPoint(L"Log_getLastBackupFileNameW");
    Log_StringTime = GetEntryPoint(L"Log_StringTime");
    CreateLogFileFactory = GetEntryPoint(L"CreateLogFileFactory");
    DeleteLogFileInstance = GetEntryPoint(L"DeleteLogFileInstance");
    Log_SetOStream = GetEntryPoint(L"Log_SetOStream");
    LeaveCriticalSection(&m_lock);
    return true;
}

bool KestraLogger::Unload()
{
    if (m_module == NULL)
        return true;
    EnterCriticalSection(&m_lock);
    if (m_instance != NULL && DeleteLogFileInstance != NULL) {
        try {
            reinterpret_cast<DeleteInstanceFn>(reinterpret_cast<void*>(DeleteLogFileInstance))(m_instance);
        } catch (...) {
            LeaveCriticalSection(&m_lock);
            return false;
        }
        m_instance = NULL;
    }
    Log_init = Log_setFileName = Log_setFileNameW = Log_getFileName = Log_getFileNameW = NULL;
    Log_setLogLevel = Log_getLogLevel = Log_setAppend = Log_setMaxSize = Log_WriteLog = NULL;
    Log_WriteLogW = Log_BatchWriteLog = Log_BatchWriteLogW = Log_close = Log_isInitialize = NULL;
    Log_isAppend = Log_BackupLog = Log_BackupLogW = Log_getLastBackupFileName = NULL;
    Log_getLastBackupFileNameW = Log_StringTime = Log_SetOStream = CreateLogFileFactory = NULL;
    DeleteLogFileInstance = NULL;
    bool freed = FreeLibrary(m_module) != FALSE;
    m_module = NULL;
    LeaveCriticalSection(&m_lock);
    return freed;
}

int KestraLogger::GetLogLevel()
{
    if (Log_getLogLevel == NULL && !Load())
        return 1;
    if (Log_getLogLevel == NULL)
        return 1;
    return reinterpret_cast<GetLogLevelFn>(reinterpret_cast<void*>(Log_getLogLevel))(m_instance);
}

bool KestraLogger::WriteLine(const std::wstring& line, int level)
{
    if (Log_WriteLogW == NULL && !Load())
        return false;
    if (Log_WriteLogW == NULL)
        return false;
    return reinterpret_cast<WriteLogWFn>(reinterpret_cast<void*>(Log_WriteLogW))(m_instance, line.c_str(), level) !=
           FALSE;
}

bool KestraLogger::Log(const char* category, int level, const wchar_t* format, ...)
{
    // Unwanted detail costs one call and no formatting.
    if (level != 0 && level > GetLogLevel())
        return false;
    va_list args;
    va_start(args, format);
    std::wstring message = FormatMessageText(format, args);
    va_end(args);
    std::wstring time = LocalTimeText();
    std::wstring wideCategory(category, category + strlen(category));

    std::wstring line;
    if (message.find(L"====") != std::wstring::npos)
        line = wideCategory + message + L"\r\n";
    else
        line = wideCategory + L"::[" + time + L"] " + message + L"\r\n";
    return WriteLine(line, level);
}

// The facade of the suite's file log, kestraLog.dll: found through the
// registry, loaded at the first need, called by name. Without the library
// nothing happens and nothing fails.
#pragma once

#include <windows.h>

#include <string>

class KestraLogger {
public:
    KestraLogger();
    virtual ~KestraLogger();
    KestraLogger(const KestraLogger&) = delete;
    KestraLogger& operator=(const KestraLogger&) = delete;

    static KestraLogger& GetInstance();

    // One line under `category` (a blank-free word) if `level` is wanted;
    // level 0 always goes out. True when the library took the line.
    bool Log(const char* category, int level, const wchar_t* format, ...);
    int GetLogLevel();
    bool WriteLine(const std::wstring& line, int level);

    bool Load();
    bool Unload();
    void FindLibraryLocation(std::wstring& location);
    FARPROC GetEntryPoint(const std::wstring& name);

private:
    // The library's published entry points, in its own order. Only
    // Log_getLogLevel, Log_WriteLogW and DeleteLogFileInstance are called.
    FARPROC Log_init;
    FARPROC Log_setFileName;
    FARPROC Log_setFileNameW;
    FARPROC Log_getFileName;
    FARPROC Log_getFileNameW;
    FARPROC Log_setLogLevel;
    FARPROC Log_getLogLevel;
    FARPROC Log_setAppend;
    FARPROC Log_setMaxSize;
    FARPROC Log_WriteLog;
    FARPROC Log_WriteLogW;
    FARPROC Log_BatchWriteLog;
    FARPROC Log_BatchWriteLogW;
    FARPROC Log_close;
    FARPROC Log_isInitialize;
    FARPROC Log_isAppend;
    FARPROC Log_BackupLog;
    FARPROC Log_BackupLogW;
    FARPROC Log_getLastBackupFileName;
    FARPROC Log_getLastBackupFileNameW;
    FARPROC Log_StringTime;
    FARPROC Log_SetOStream;
    FARPROC CreateLogFileFactory;
    FARPROC DeleteLogFileInstance;
    // The log file object handed to each call; nothing here creates one.
    void* m_instance;
    HMODULE m_module;
    CRITICAL_SECTION m_lock;
};

// The one instance, built at load.
extern KestraLogger g_kestraLogger;

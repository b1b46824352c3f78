// The install framework's error catalogue: a fixed table of numbered errors,
// the last error with its listeners, and errors registered at run time.
#pragma once

#include <windows.h>

#include <set>
#include <string>
#include <vector>

// Owns one CRITICAL_SECTION for its lifetime.
class CriticalSectionLock {
public:
    CriticalSectionLock() { InitializeCriticalSection(&m_section); }
    ~CriticalSectionLock() { DeleteCriticalSection(&m_section); }
    CriticalSectionLock(const CriticalSectionLock&) = delete;
    CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;
    void Enter() { EnterCriticalSection(&m_section); }
    void Leave() { LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section;
};

// Told of each change of the last error.
class IErrorListener {
public:
    virtual ~IErrorListener() {}
    virtual void OnErrorCode(int code) = 0;
};

class ErrorHandler {
public:
    // The first code of errors registered at run time; the table's are below.
    static const int kFirstRegisteredCode = 1608;
    static const int kUnknownErrorCode = 1607;

    ErrorHandler();
    virtual ~ErrorHandler();
    ErrorHandler(const ErrorHandler&) = delete;
    ErrorHandler& operator=(const ErrorHandler&) = delete;

    virtual int GetLastErrorCode();
    virtual std::wstring GetErrorText(int code);
    virtual UINT GetErrorLevel(int code);
    virtual std::wstring GetErrorName(int code);
    virtual int GetErrorCode(const std::wstring& name);
    virtual void SetLastErrorCode(int code);
    virtual void SetLastErrorCodeEx(int code, bool notify);
    virtual int RegisterError(const std::wstring& text, UINT level);
    virtual void AddListener(IErrorListener* listener);
    virtual void RemoveListener(IErrorListener* listener);

    static ErrorHandler* GetInstance();
    static void SetInstance(ErrorHandler* instance);
    static void ReleaseInstance();

private:
    int m_lastError;
    std::set<IErrorListener*> m_listeners;
    std::vector<std::wstring> m_names;
    std::vector<UINT> m_levels;
    CriticalSectionLock m_lock;
};

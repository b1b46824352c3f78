// What the component integration actions share among their files: the
// settings application's install key, the task-definition copy that the
// benchmark task runs through, and the web-shortcut steps.
#pragma once

#include <windows.h>
#include <objidl.h>

#include <ctime>
#include <string>

// HKLM key whose Location value names the settings application's folder.
const wchar_t kHalyardInstallKey[] = L"SOFTWARE\\Kestra Technologies\\Install\\Halyard";

// An IStream over a file handle, as far as XmlLite's reader and writer need one.
// The object owns the handle and closes it with its last reference.
class FileStream final : public IStream {
public:
    // Opens `path` for reading, or creates it empty for writing; share mode read.
    // The new stream has one reference, the caller's.
    static HRESULT OpenFile(LPCWSTR path, IStream** stream, bool write);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) override;
    HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG count, ULONG* written) override;

    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override;
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override;
    HRESULT STDMETHODCALLTYPE CopyTo(IStream* stream, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                     ULARGE_INTEGER* written) override;
    HRESULT STDMETHODCALLTYPE Commit(DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Revert() override;
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD type) override;
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD type) override;
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Clone(IStream** stream) override;

private:
    explicit FileStream(HANDLE file);
    ~FileStream();

    HANDLE file_;
    LONG references_;
};

// Copies the task definition `source` to `destination` node by node, every
// StartBoundary text replaced by tomorrow at the present time of day. Failures
// are printed to standard output. Ordinary completion gives 1 (the reader's
// S_FALSE at the end of the document); below zero is a failure.
HRESULT RewriteStartBoundary(std::wstring source, std::wstring destination);

// The clock the start boundary is worked out from: the runtime's time() unless
// a test has set another.
typedef time_t (*TaskClock)(time_t*);
extern TaskClock g_taskClock;

// One desktop shortcut to a web page, as the fill procedures describe it.
struct WebShortcutInfo {
    std::wstring file_path;  // the .url file's full path
    std::wstring url;
    std::wstring description;
    std::wstring icon_path;  // the icon file's full path
    int icon_index = 0;  // always 0
};

// Describe the Bethesda launcher's and the compute-sharing partner's shortcut
// from the install key's values, or their defaults. False when no shortcut is
// to be made: the desktop can't be found, or the file is there already.
bool FillBethesdaShortcut(WebShortcutInfo& info);
bool FillBlockChainShortcut(WebShortcutInfo& info);

// Makes a .url file through the shell's InternetShortcut object.
HRESULT CreateInternetShortcut(LPCWSTR filePath, LPCWSTR url, LPCWSTR description, LPCWSTR iconPath,
                               int iconIndex);

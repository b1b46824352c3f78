// The recursive copy and the three deletes of a directory.
#include "toolkit/file.h"

#include "frame/frame.h"
#include "toolkit/file_walk.h"
#include "toolkit/process.h"

#include <shellapi.h>

#include <memory>
#include <new>
#include <wchar.h>

namespace {

// SHFileOperationW reads a list of paths that ends in two NULs.
std::unique_ptr<wchar_t[]> DoubleNulCopy(const wchar_t* path, size_t length)
{
    std::unique_ptr<wchar_t[]> copy(new wchar_t[length + 2]);
    wmemcpy(copy.get(), path, length);
    copy[length] = L'\0';
    copy[length + 1] = L'\0';
    return copy;
}

// 0, or the error that kept the link.
DWORD RemoveLink(const std::wstring& link)
{
    return RemoveDirectoryW(link.c_str()) ? 0 : GetLastError();
}

// Removes the links below `folder`, each as the link itself; the error of
// the first that stayed, else 0.
DWORD RemoveLinksBelow(const std::wstring& folder)
{
    const std::wstring prefix = folder + PathSeparatorFor(folder.c_str());
    DWORD error = 0;
    ForEachEntry(prefix + L"*", false, [&](const WIN32_FIND_DATAW& entry) {
        const std::wstring full = prefix + entry.cFileName;
        DWORD stayed = 0;
        if (IsFolderLink(entry.dwFileAttributes))
            stayed = RemoveLink(full);
        else if (IsFolderToWalk(entry.dwFileAttributes) && !IsDotName(entry.cFileName))
            stayed = RemoveLinksBelow(full);
        if (error == 0)
            error = stayed;
    });
    return error;
}

// The shell may walk into a link and delete what it points at, so the links
// go first, as links, and a link at the top is all there is to delete. While
// one stays the shell isn't called, and its error is the answer.
int ShellDelete(const wchar_t* from, bool allowUndo)
{
    if (IsFolderLink(GetFileAttributesW(from)))
        return static_cast<int>(RemoveLink(from));
    if (DWORD error = RemoveLinksBelow(from))
        return static_cast<int>(error);
    SHFILEOPSTRUCTW operation = {};
    operation.hwnd = NULL;
    operation.wFunc = FO_DELETE;
    operation.pFrom = from;
    operation.pTo = NULL;
    operation.fFlags = static_cast<FILEOP_FLAGS>(FOF_SILENT | FOF_NOCONFIRMATION | (allowUndo ? FOF_ALLOWUNDO : 0));
    return SHFileOperationW(&operation);
}

// SHFileOperationW's answers for a root (DE_ROOTDIR) and for no path (DE_INVALIDFILES).
const int kShellRootDirectory = 116;
const int kShellInvalidFiles = 124;

// Texts for SHFileOperationW's own result codes; NULL for the system's codes.
const wchar_t* ShellErrorText(int result)
{
    switch (result) {
    case 113: return L"Source and destination file are the same";
    case 114: return L"Multiple paths were specified in the source of the operation, but only one destination path";
    case 115: return L"Rename operation was specified but the destination path is a different directory.  Use move instead.";
    case 116: return L"Source is a root directory, cannot be moved or renamed";
    case 117: return L"Operation was cancelled by the user (or silently cancelled if the specified flags were supplied to SHFileOperation)";
    case 118: return L"The destination is a sub-tree of the source";
    case 120: return L"Security problems on source";
    case 121: return L"The source or destination path exceeded or would exceed MAX_PATH";
    case 122: return L"Operation involved multiple destination paths which can fail in the case of a move operation";
    case 124: return L"The paths in the source or destination were invalid";
    case 125: return L"Source and destination have the same parent folder.";
    case 126: return L"The destination path is to an existing file";
    case 128: return L"The destination path is to an existing folder";
    case 129: return L"The name of the file exceeds MAX_PATH";
    case 130: return L"Destination is a Read-Only CDRom, possibly unformatted";
    case 131: return L"Destination is a Read-Only DVD, possibly unformatted";
    case 132: return L"Destination is a Recordable (AudioL) CDRom, possibly unformatted";
    // 0x10074 has always been reported with the text of 183.
    case 183:
    case 0x10074: return L"MAX_PATH was exceeded during the operation.";
    case 0x10000: return L"An unspecified error occurred on the destination.";
    default: return NULL;
    }
}

}  // namespace

bool CopyDirectory(const std::wstring& source, const std::wstring& destination)
{
    bool result = true;
    if (!IsDirectory(source))
        return false;
    if (!PathExists(destination)) {
        if (!CreateDirectoryW(destination.c_str(), NULL))
            result = false;
        SetWritable(destination, true);
    }
    std::wstring sourcePrefix = source + PathSeparatorFor(source.c_str());
    std::wstring targetPrefix = destination + PathSeparatorFor(destination.c_str());
    // The first entry is ".", so the walk starts with the next one.
    bool searched = ForEachEntry(sourcePrefix + L"*.*", true, [&](const WIN32_FIND_DATAW& entry) {
        std::wstring from = sourcePrefix + entry.cFileName;
        std::wstring to = targetPrefix + entry.cFileName;
        SetWritable(to, true);  // a read-only target must still be overwritten
        // A link is left out: the tree it points at isn't this one's to copy,
        // and a copied link would point the copy back at the source's target.
        if (!IsFolderEntry(entry)) {
            if (!CopyFileW(from.c_str(), to.c_str(), FALSE))
                result = false;
        } else if (IsFolderToWalk(entry.dwFileAttributes) && !IsDotName(entry.cFileName)) {
            if (!CopyDirectory(from, to))
                result = false;
        }
    });
    return searched && result;
}

bool removeDirRecursive(const std::wstring& path)
{
    if (!NamesFolderBelowRoot(path) || !IsDirectory(path))
        return false;
    if (!PathExists(path))
        return true;
    // A link, at the top or met below, is not walked: the retries remove the
    // link itself.
    if (IsFolderToWalk(GetFileAttributesW(path.c_str()))) {
        std::wstring prefix = path + PathSeparatorFor(path.c_str());
        // Failures below are not kept: only whether the top directory goes counts.
        bool searched = ForEachEntry(prefix + L"*.*", false, [&](const WIN32_FIND_DATAW& entry) {
            std::wstring full = prefix + entry.cFileName;
            SetWritable(full, true);
            if (!IsFolderEntry(entry)) {
                // A file in use goes at the next restart.
                if (!DeleteFileW(full.c_str()))
                    MoveFileExW(full.c_str(), NULL, MOVEFILE_DELAY_UNTIL_REBOOT);
            } else if (!IsDotName(entry.cFileName)) {
                removeDirRecursive(full);
            }
        });
        if (!searched)
            return false;
        SetWritable(path, true);
    }

    // A scanner or indexer may still hold the folder for a moment: retry for
    // half a second, without sleeping, until it has gone.
    bool result = false;
    const DWORD limit = 500;
    DWORD start = GetTickCount();
    while (!result && GetTickCount() - start <= limit) {
        RemoveDirectoryW(path.c_str());
        if (!PathExists(path))
            result = true;
    }
    return result;
}

bool DeleteTree(const wchar_t* path, int permanent)
{
    if (!NamesFolderBelowRoot(path))
        return false;
    std::unique_ptr<wchar_t[]> from = DoubleNulCopy(path, wcslen(path));
    return ShellDelete(from.get(), permanent == 0) == 0;
}

bool DeleteDirectory(const wchar_t* path, int allow_undo)
{
    if (path == NULL)
        return false;
    size_t length = wcslen(path);
    std::unique_ptr<wchar_t[]> from;
    try {
        from = DoubleNulCopy(path, length);
    } catch (const std::bad_alloc&) {
        LogMessage(g_hSession, L"TESSEL_CA Could not allocate temp buffer !  \n");
        return false;
    }
    // Paths reach us from command lines with the closing quote still on.
    if (length > 0 && from[length - 1] == L'"')
        from[length - 1] = L'\0';

    LogMessage(g_hSession, L"TESSEL_CA DeleteDirectory attempting to delete %s \n", from.get());
    // A root, or nothing at all, never reaches the shell; the shell's own
    // codes for those say why.
    int result = NamesFolderBelowRoot(from.get()) ? ShellDelete(from.get(), allow_undo != 0)
                 : from[0] == L'\0'                ? kShellInvalidFiles
                                                   : kShellRootDirectory;
    if (result == 0) {
        LogMessage(g_hSession, L"TESSEL_CA DeleteDirectory %s: no errors using SHFileOperation.  \n", from.get());
        return true;
    }
    const wchar_t* text = ShellErrorText(result);
    // Not cleared: a number without a system text logs what the buffer held.
    wchar_t systemText[260];
    if (text == NULL) {
        FormatSystemMessage(static_cast<DWORD>(result), systemText, 260);
        text = systemText;
    }
    LogMessage(g_hSession, L"TESSEL_CA DeleteDirectory %s Error: %s. \n", from.get(), text);
    return false;
}

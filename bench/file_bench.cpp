// FindFiles and removeDirRecursive over a tree of 10,000 files, each next to
// the plain Win32 walk that does the same work. Prints figures, never fails.
#include "harness/harness.h"

#include "toolkit/file.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

const wchar_t kRoot[] = L"C:\\tessel\\scratch\\file_bench";
const int kFolders = 10;
const int kSubfolders = 10;
const int kFilesPerFolder = 100;  // 10 x 10 x 100 = 10,000 files

double Milliseconds(const LARGE_INTEGER& start, const LARGE_INTEGER& end)
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return 1000.0 * static_cast<double>(end.QuadPart - start.QuadPart) / static_cast<double>(frequency.QuadPart);
}

template <typename Work>
double Time(Work work)
{
    LARGE_INTEGER start, end;
    QueryPerformanceCounter(&start);
    work();
    QueryPerformanceCounter(&end);
    return Milliseconds(start, end);
}

void BuildTree()
{
    CreateDirectoryW(L"C:\\tessel", NULL);
    CreateDirectoryW(L"C:\\tessel\\scratch", NULL);
    CreateDirectoryW(kRoot, NULL);
    wchar_t path[MAX_PATH];
    for (int f = 0; f < kFolders; ++f) {
        swprintf(path, MAX_PATH, L"%ls\\folder%02d", kRoot, f);
        CreateDirectoryW(path, NULL);
        for (int s = 0; s < kSubfolders; ++s) {
            swprintf(path, MAX_PATH, L"%ls\\folder%02d\\sub%02d", kRoot, f, s);
            CreateDirectoryW(path, NULL);
            for (int n = 0; n < kFilesPerFolder; ++n) {
                swprintf(path, MAX_PATH, L"%ls\\folder%02d\\sub%02d\\file%03d.dat", kRoot, f, s, n);
                HANDLE file = CreateFileW(path, GENERIC_WRITE, 0, NULL, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, NULL);
                if (file != INVALID_HANDLE_VALUE)
                    CloseHandle(file);
            }
        }
    }
}

// The plain walk: an explicit stack of folders, every file's full path kept.
void PlainFindFiles(std::list<std::wstring>& found)
{
    std::vector<std::wstring> pending(1, kRoot);
    while (!pending.empty()) {
        std::wstring folder = pending.back();
        pending.pop_back();
        WIN32_FIND_DATAW data;
        HANDLE handle = FindFirstFileW((folder + L"\\*").c_str(), &data);
        if (handle == INVALID_HANDLE_VALUE)
            continue;
        for (BOOL more = TRUE; more; more = FindNextFileW(handle, &data)) {
            std::wstring name = data.cFileName;
            if (name == L"." || name == L"..")
                continue;
            if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
                pending.push_back(folder + L"\\" + name);
            else
                found.push_back(folder + L"\\" + name);
        }
        FindClose(handle);
    }
}

// The plain delete: files as they are met, each folder once it is empty.
bool PlainDeleteTree(const std::wstring& folder)
{
    WIN32_FIND_DATAW data;
    HANDLE handle = FindFirstFileW((folder + L"\\*").c_str(), &data);
    if (handle != INVALID_HANDLE_VALUE) {
        for (BOOL more = TRUE; more; more = FindNextFileW(handle, &data)) {
            std::wstring name = data.cFileName;
            std::wstring full = folder + L"\\" + name;
            if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
                DeleteFileW(full.c_str());
            else if (name != L"." && name != L"..")
                PlainDeleteTree(full);
        }
        FindClose(handle);
    }
    return RemoveDirectoryW(folder.c_str()) != 0;
}

double Median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

void Report(const char* what, double library, const char* plainWhat, double plain)
{
    std::printf("%-44s %9.1f ms\n", what, library);
    std::printf("%-44s %9.1f ms\n", plainWhat, plain);
    std::printf("%-44s %9.2fx (target 1.5x or less)\n", "ratio", library / plain);
}

}  // namespace

int main()
{
    const int runs = 5;
    const size_t files = static_cast<size_t>(kFolders) * kSubfolders * kFilesPerFolder;
    PlainDeleteTree(kRoot);

    double building = Time(BuildTree);
    std::printf("tree of %zu files in %d folders built in %.0f ms\n", files, kFolders * (kSubfolders + 1), building);

    std::vector<double> library, plain;
    size_t libraryCount = 0, plainCount = 0;
    for (int run = 0; run < runs; ++run) {
        NameList found;
        library.push_back(Time([&] { FindFiles(kRoot, found, L"*", true); }));
        libraryCount = found.size();
        std::list<std::wstring> plainFound;
        plain.push_back(Time([&] { PlainFindFiles(plainFound); }));
        plainCount = plainFound.size();
    }
    std::printf("== search, median of %d runs (%zu and %zu files found)\n", runs, libraryCount, plainCount);
    Report("FindFiles(\"*\", recursive)", Median(library), "FindFirstFileW/FindNextFileW walk", Median(plain));

    // A fresh tree for every delete, the two deletes taking turns to go first.
    std::vector<double> libraryDeletes, plainDeletes;
    bool removed = true;
    for (int round = 0; round < 3; ++round) {
        for (int turn = 0; turn < 2; ++turn) {
            BuildTree();
            if ((round + turn) % 2 == 0)
                libraryDeletes.push_back(Time([&] { removed = removeDirRecursive(kRoot) && removed; }));
            else
                plainDeletes.push_back(Time([] { PlainDeleteTree(kRoot); }));
        }
    }
    std::printf("== delete of %zu files, median of 3 runs (removeDirRecursive answered %s)\n", files,
                removed ? "true" : "false");
    Report("removeDirRecursive", Median(libraryDeletes), "DeleteFileW/RemoveDirectoryW walk", Median(plainDeletes));

    PlainDeleteTree(kRoot);
    return 0;
}

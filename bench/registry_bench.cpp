// Cost of a registry_string round trip (write into both views, read back)
// next to the bare Win32 calls doing the same work. The layer opens every key
// afresh, both views on every read and once more after each create, so some
// overhead is its design: the third figure, the layer's own calls made by
// hand, tells that part from the cost of the code around them.
#include "harness/harness.h"

#include "toolkit/registry.h"

#include <algorithm>
#include <cstdio>
#include <functional>

namespace {

const wchar_t kKey[] = L"SOFTWARE\\TesselTest\\Bench";
const wchar_t kValue[] = L"Location";
const wchar_t kText[] = L"C:\\Program Files\\Kestra Technologies\\Install Manager\\";

void ClearKeys()
{
    harness::DeleteRegTree(HKEY_LOCAL_MACHINE, kKey, KEY_WOW64_64KEY);
    harness::DeleteRegTree(HKEY_LOCAL_MACHINE, kKey, KEY_WOW64_32KEY);
}

// Median time of one call of each, in microseconds. The calls take turns, so
// that a busy machine weighs on all of them alike.
std::vector<double> MedianMicroseconds(const std::vector<std::function<void()>>& variants, int calls)
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    std::vector<std::vector<double>> times(variants.size());
    for (int i = 0; i < calls; ++i) {
        for (size_t v = 0; v < variants.size(); ++v) {
            LARGE_INTEGER start, end;
            QueryPerformanceCounter(&start);
            variants[v]();
            QueryPerformanceCounter(&end);
            times[v].push_back(1e6 * static_cast<double>(end.QuadPart - start.QuadPart) / frequency.QuadPart);
        }
    }
    std::vector<double> medians;
    for (std::vector<double>& series : times) {
        std::nth_element(series.begin(), series.begin() + calls / 2, series.end());
        medians.push_back(series[calls / 2]);
    }
    return medians;
}

std::wstring g_sink;

void LayerRoundTrip()
{
    registry_string value(std::wstring(kKey) + L"\\" + kValue);
    value.write(kText);
    g_sink = value.read();
}

// The same work by hand: create and set in the 32-bit view, then in the native
// view, then read the native text back.
void BareRoundTrip()
{
    const DWORD bytes = sizeof(kText);
    for (REGSAM view : {static_cast<REGSAM>(KEY_WOW64_32KEY), static_cast<REGSAM>(0)}) {
        HKEY key;
        if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, NULL, 0, KEY_ALL_ACCESS | view, NULL, &key, NULL) ==
            ERROR_SUCCESS) {
            RegSetValueExW(key, kValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(kText), bytes);
            RegCloseKey(key);
        }
    }
    HKEY key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_ALL_ACCESS, &key) == ERROR_SUCCESS) {
        wchar_t data[MAX_PATH];
        DWORD size = sizeof(data) - sizeof(wchar_t);
        if (RegQueryValueExW(key, kValue, NULL, NULL, reinterpret_cast<BYTE*>(data), &size) == ERROR_SUCCESS) {
            data[size / sizeof(wchar_t)] = L'\0';
            g_sink = data;
        }
        RegCloseKey(key);
    }
}

// The layer's own sequence of calls, written out: what the bare loop can't
// skip plus the opens the layer's design adds. The handle from each create is
// dropped unclosed, as open() drops it.
void LayerSequenceByHand()
{
    const DWORD bytes = sizeof(kText);
    HKEY key32 = NULL, key64 = NULL;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, NULL, 0, kView32Access, NULL, &key32, NULL);
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, kView32Access, &key32);
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, NULL, 0, kNativeViewAccess, NULL, &key64, NULL);
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, kNativeViewAccess, &key64);
    RegSetValueExW(key32, kValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(kText), bytes);
    RegSetValueExW(key64, kValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(kText), bytes);
    RegCloseKey(key32);
    RegCloseKey(key64);

    RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, kView32Access, &key32);
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, kNativeViewAccess, &key64);
    DWORD size = 0;
    if (RegQueryValueExW(key64, kValue, NULL, NULL, NULL, &size) == ERROR_SUCCESS) {
        std::vector<wchar_t> data(size + 1, L'\0');
        DWORD doubled = size * 2;
        if (RegQueryValueExW(key64, kValue, NULL, NULL, reinterpret_cast<BYTE*>(data.data()), &doubled) ==
            ERROR_SUCCESS)
            g_sink = data.data();
    }
    RegCloseKey(key32);
    RegCloseKey(key64);
}

}  // namespace

int main()
{
    const int calls = 2000;
    ClearKeys();
    LayerRoundTrip();  // the first calls pay for creating the keys
    BareRoundTrip();

    bool same = false;
    std::vector<double> medians = MedianMicroseconds(
        {[&] {
             LayerRoundTrip();
             same = g_sink == kText;
         },
         BareRoundTrip, LayerSequenceByHand},
        calls);
    double layer = medians[0], bare = medians[1], sequence = medians[2];
    ClearKeys();

    std::printf("registry_string write+read, both views (14 calls), median of %d: %.1f us\n", calls, layer);
    std::printf("bare Win32 create/set/close x2 + open/query/close (9 calls), median of %d: %.1f us\n", calls,
                bare);
    std::printf("the layer's 14 calls by hand, median of %d: %.1f us\n", calls, sequence);
    std::printf("ratio layer/bare: %.2f (target 1.5)%s\n", layer / bare, same ? "" : "  [text read back differs]");
    std::printf("ratio layer/its calls by hand: %.2f\n", layer / sequence);
    return 0;
}

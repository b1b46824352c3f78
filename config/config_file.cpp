// The store and its file: loading, merging, and saving by patching the file
// key by key. Every reader here finds a line's name its own way, and they
// disagree on purpose: ParseFile skips comments and lines without "=", the
// three patchers don't.
#include "config/config_store.h"

#include "config/named_event_lock.h"
#include "framework/error_handler.h"
#include "framework/kestra_logger.h"
#include "toolkit/file.h"

#include <share.h>

#include <cstdio>
#include <sstream>

namespace {

const char kCategory[] = "Configuration";
const int kConfigSaveFailed = 165;

// Whether a line's name, as the patchers see it, is `name`: the text ahead of
// the first "=", or the whole line when it has none. So the line starts with
// `name` and goes on with "=" or not at all, and `name` holds no "=". Every
// line of the file is asked: the test of `name` alone, rarely reached, is last.
bool LineNameIs(std::wstring_view line, const std::wstring& name)
{
    size_t length = name.size();
    return line.size() >= length && line.compare(0, length, name) == 0 &&
           (line.size() == length || line[length] == L'=') && name.find(L'=') == std::wstring::npos;
}

// A line's value as the patchers see it, without its CR.
std::wstring LineValue(std::wstring_view line)
{
    size_t equals = line.find(L'=');
    std::wstring_view value = equals == std::wstring_view::npos ? line : line.substr(equals + 1);
    std::wstring kept;
    kept.reserve(value.size());
    for (wchar_t c : value)
        if (c != L'\r')
            kept += c;
    return kept;
}

// The file opened as a text stream that shares all access, by its narrow path.
FILE* OpenText(const std::wstring& path, const char* mode)
{
    return _fsopen(ToNarrowString(path).c_str(), mode, _SH_DENYNO);
}

// Writes one line and the text mode's line end, in the ANSI code page.
void WriteLine(FILE* file, const std::wstring& line)
{
    int length = WideCharToMultiByte(CP_ACP, 0, line.c_str(), static_cast<int>(line.size()), NULL, 0, NULL, NULL);
    std::string narrow(static_cast<size_t>(length), '\0');
    if (length > 0)
        WideCharToMultiByte(CP_ACP, 0, line.c_str(), static_cast<int>(line.size()), &narrow[0], length, NULL, NULL);
    fputs(narrow.c_str(), file);
    fputs("\n", file);
    fflush(file);
}

}  // namespace

bool ParseFile(const std::wstring& path, std::map<std::wstring, std::wstring>& settings)
{
    std::wstring filePath = path;
    ReplaceAll(filePath, L"/", L"\\");
    NamedEventLock lock;
    try {
        std::wstring text;
        if (!LoadBuffer(filePath, text))
            return false;
        StringList lines;
        Tokenize(text, L"\n", lines);
        for (const std::wstring& line : lines) {
            size_t equals = line.find(L'=');
            if (equals == std::wstring::npos || line[0] == L'#')
                continue;
            std::wstring value = line.substr(equals + 1);
            ReplaceAll(value, L"\r", L"");
            ReplaceAll(value, L"\n", L"");
            settings[line.substr(0, equals)] = value;
        }
        return true;
    } catch (...) {
        return false;
    }
}

bool ConfigBase::LoadFile(const std::wstring& path)
{
    m_settings.clear();
    m_deleted.clear();
    return ParseFile(path, m_settings);
}

size_t ConfigBase::ReadFileValue(const std::wstring& name, std::wstring& out, const std::wstring& path)
{
    out.clear();
    ForEachLine(path, [&](std::wstring_view line) {
        if (!LineNameIs(line, name))
            return true;
        out = LineValue(line);
        return false;
    });
    return out.size();
}

bool ConfigBase::WriteFileValue(const std::wstring& name, const std::wstring& value, const std::wstring& path)
{
    StringList patched;
    bool replaced = false;
    bool read = ForEachLine(path, [&](std::wstring_view line) {
        if (!replaced && LineNameIs(line, name)) {
            patched.push_back(name + L"=" + value);
            replaced = true;
        } else {
            patched.emplace_back(line);
        }
        return true;
    });
    return read && replaced && WriteFileLines(patched, path);
}

bool ConfigBase::DeleteFileValue(const std::wstring& name, const std::wstring& path)
{
    StringList kept;
    bool removed = false;
    bool read = ForEachLine(path, [&](std::wstring_view line) {
        if (LineNameIs(line, name))
            removed = true;
        else
            kept.emplace_back(line);
        return true;
    });
    return read && removed && WriteFileLines(kept, path);
}

// Rewrites the file in place: no temporary file, no rename. A kept line still
// ends in its CR, so text mode gives it one CR more each time.
bool ConfigBase::WriteFileLines(const StringList& lines, const std::wstring& path)
{
    FILE* file = OpenText(path, "w");
    if (file == NULL)
        return false;
    for (const std::wstring& line : lines)
        WriteLine(file, line);
    fflush(file);
    fclose(file);
    return true;
}

bool ConfigBase::SaveFile(const std::wstring& path)
{
    std::wstring parent = CFileInfo(path).GetParentPath();
    if (PathExists(parent) && !IsWritable(parent)) {
        KestraLogger::GetInstance().Log(kCategory, 1, L"The directory >%s< is not writable\n", parent.c_str());
        return false;
    }

    NamedEventLock lock;
    if (!PathExists(path) && !m_settings.empty()) {
        FILE* created = OpenText(path, "a");
        if (created != NULL)
            fclose(created);
    } else if (!m_settings.empty() && !IsReadWritable(path)) {
        SetWritable(path, true);
    }

    for (const std::wstring& name : m_deleted)
        DeleteFileValue(name, path);

    bool reportedFailedSave = false;
    bool reportedException = false;
    for (const auto& setting : m_settings) {
        try {
            std::wstring found;
            size_t length = ReadFileValue(setting.first, found, path);
            if (length != 0 && found != setting.second) {
                if (!WriteFileValue(setting.first, setting.second, path)) {
                    KestraLogger::GetInstance().Log(kCategory, 1, L"Failed to save the setting %s vaule=%s\n",
                                                    setting.first.c_str(), setting.second.c_str());
                    if (!reportedFailedSave)
                        ErrorHandler::GetInstance()->SetLastErrorCode(kConfigSaveFailed);
                    reportedFailedSave = true;
                }
            } else if (length == 0) {
                FILE* file = OpenText(path, "a");
                if (file != NULL) {
                    WriteLine(file, setting.first + L"=" + setting.second);
                    fclose(file);
                }
            }
        } catch (...) {
            // Taken before the stream is built, whose allocations may reset it.
            const DWORD lastError = GetLastError();
            std::wostringstream text;
            text << L"Failed in SaveFile, lastError=" << lastError << L"\n";
            KestraLogger::GetInstance().Log(kCategory, 1, L"%s", text.str().c_str());
            if (!reportedException)
                ErrorHandler::GetInstance()->SetLastErrorCode(ErrorHandler::kUnknownErrorCode);
            reportedException = true;
        }
    }
    return true;
}

bool ConfigBase::MergeFile(const std::wstring& path)
{
    if (!PathExists(path)) {
        KestraLogger::GetInstance().Log(kCategory, 1, L"configuration file does not exists >%s<\n", path.c_str());
        return false;
    }
    std::map<std::wstring, std::wstring> merged;
    if (!ParseFile(path, merged)) {
        KestraLogger::GetInstance().Log(kCategory, 1, L"Failed to load the configuration file >%s<\n", path.c_str());
        return false;
    }
    for (const auto& setting : merged) {
        std::wstring& current = m_settings[setting.first];
        if (current != setting.second) {
            KestraLogger::GetInstance().Log(kCategory, 2, L"Updating settings %s from >%s< to >%s<\n",
                                            setting.first.c_str(), current.c_str(), setting.second.c_str());
            current = setting.second;
        }
    }
    return true;
}

void ConfigBase::AddObserver(IConfigObserver* observer)
{
    NamedEventLock lock;
    m_observers.push_back(observer);
}

void ConfigBase::RemoveObserver(IConfigObserver* observer)
{
    NamedEventLock lock;
    m_observers.remove(observer);
}

std::istream& ConfigBase::ReadLineNarrow(std::istream& stream, std::string& out)
{
    char line[1024] = "";
    stream.getline(line, 1024, stream.widen('\n'));
    out = line;
    return stream;
}

std::wistream& ConfigBase::ReadLineWide(std::wistream& stream, std::wstring& out)
{
    wchar_t line[1024] = L"";
    stream.getline(line, 1024, stream.widen('\n'));
    out = line;
    return stream;
}

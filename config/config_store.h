// The settings store of the install manager's InstallManager.cfg: name=value
// lines kept in an ordered map, with typed access. Saving patches the file key
// by key under the cross-process "ConfigBase" event; it never rewrites what it
// does not know. It writes nothing to the installer's log: its failures go to
// the logger facade and the error catalogue.
#pragma once

#include <windows.h>

#include <functional>
#include <istream>
#include <list>
#include <map>
#include <string>
#include <string_view>

typedef std::list<std::wstring> StringList;

// Told of each change made through a setter.
class IConfigObserver {
public:
    virtual ~IConfigObserver() {}
    virtual void OnSettingChanged(const std::wstring& name, ULONG64 context, bool isList) = 0;
};

class IConfig {
public:
    virtual ~IConfig() {}
    virtual bool GetString(const std::wstring& name, std::wstring& out, const std::wstring& defaultValue) = 0;
    virtual bool GetLong(const std::wstring& name, long& out, long defaultValue) = 0;
    virtual bool GetInt(const std::wstring& name, int& out, int defaultValue) = 0;
    virtual bool GetBool(const std::wstring& name, bool& out, bool defaultValue) = 0;
    virtual bool GetUInt(const std::wstring& name, unsigned int& out, unsigned int defaultValue) = 0;
    virtual bool GetULong(const std::wstring& name, unsigned long& out, unsigned long defaultValue) = 0;
    virtual bool GetList(const std::wstring& name, StringList& out) = 0;
    virtual bool SetString(const std::wstring& name, const std::wstring& value, ULONG64 context) = 0;
    virtual bool SetLong(const std::wstring& name, long value, ULONG64 context) = 0;
    virtual bool SetInt(const std::wstring& name, int value, ULONG64 context) = 0;
    virtual bool SetBool(const std::wstring& name, bool value, ULONG64 context) = 0;
    virtual bool SetUInt(const std::wstring& name, unsigned int value, ULONG64 context) = 0;
    virtual bool SetULong(const std::wstring& name, unsigned long value, ULONG64 context) = 0;
    virtual bool SetList(const std::wstring& name, const StringList& items, ULONG64 context) = 0;
    virtual bool Remove(const std::wstring& name, bool isList) = 0;
    virtual bool Exists(const std::wstring& name, bool isList) = 0;
    virtual void AddObserver(IConfigObserver* observer) = 0;
    virtual void RemoveObserver(IConfigObserver* observer) = 0;
};

class ConfigBase : public IConfig {
public:
    ConfigBase();
    ~ConfigBase() override;

    bool GetString(const std::wstring& name, std::wstring& out, const std::wstring& defaultValue) override;
    bool GetLong(const std::wstring& name, long& out, long defaultValue) override;
    bool GetInt(const std::wstring& name, int& out, int defaultValue) override;
    bool GetBool(const std::wstring& name, bool& out, bool defaultValue) override;
    bool GetUInt(const std::wstring& name, unsigned int& out, unsigned int defaultValue) override;
    bool GetULong(const std::wstring& name, unsigned long& out, unsigned long defaultValue) override;
    bool GetList(const std::wstring& name, StringList& out) override;
    bool SetString(const std::wstring& name, const std::wstring& value, ULONG64 context) override;
    bool SetLong(const std::wstring& name, long value, ULONG64 context) override;
    bool SetInt(const std::wstring& name, int value, ULONG64 context) override;
    bool SetBool(const std::wstring& name, bool value, ULONG64 context) override;
    bool SetUInt(const std::wstring& name, unsigned int value, ULONG64 context) override;
    bool SetULong(const std::wstring& name, unsigned long value, ULONG64 context) override;
    bool SetList(const std::wstring& name, const StringList& items, ULONG64 context) override;
    bool Remove(const std::wstring& name, bool isList) override;
    bool Exists(const std::wstring& name, bool isList) override;
    void AddObserver(IConfigObserver* observer) override;
    void RemoveObserver(IConfigObserver* observer) override;

    virtual bool LoadFile(const std::wstring& path);
    virtual bool SaveFile(const std::wstring& path);
    virtual bool GetFlag();
    virtual ConfigBase& SetFlag(bool flag);
    virtual bool MergeFile(const std::wstring& path);
    virtual std::istream& ReadLineNarrow(std::istream& stream, std::string& out);
    virtual std::wistream& ReadLineWide(std::wistream& stream, std::wstring& out);
    // The length of the value of the first line named `name`; 0 also when absent.
    virtual size_t ReadFileValue(const std::wstring& name, std::wstring& out, const std::wstring& path);
    virtual bool WriteFileValue(const std::wstring& name, const std::wstring& value, const std::wstring& path);
    virtual bool DeleteFileValue(const std::wstring& name, const std::wstring& path);
    virtual bool WriteFileLines(const StringList& lines, const std::wstring& path);
    virtual void Dump();
    virtual void Notify(const std::wstring& name, ULONG64 context, bool isList);

protected:
    bool SetValue(const std::wstring& name, const std::wstring& text);

    std::map<std::wstring, std::wstring> m_settings;
    StringList m_deleted;
    std::list<IConfigObserver*> m_observers;
    bool m_flag;
};

class Config : public ConfigBase {
public:
    ~Config() override;
};

// The one Config of the process, made at the first call.
Config* GetConfig();
void ReleaseConfig();

// Reading the file. These serve the store and its users.
bool ParseFile(const std::wstring& path, std::map<std::wstring, std::wstring>& settings);
int DetectEncoding(const std::wstring& path);
bool LoadBuffer(const std::wstring& path, std::wstring& text);
// The lines of LoadBuffer's text as Tokenize by LF would give them, handed to
// `visit` in order without a copy, until it returns false. The whole file is
// read either way. False when LoadBuffer would be.
bool ForEachLine(const std::wstring& path, const std::function<bool(std::wstring_view)>& visit);
void Tokenize(const std::wstring& text, const std::wstring& delimiters, StringList& items);
void ReplaceAll(std::wstring& text, const wchar_t* from, const wchar_t* to);

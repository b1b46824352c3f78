// The store in memory: typed getters and setters over text values, lists as
// numbered settings, observers, and the process's one Config.
#include "config/config_store.h"

#include <cwchar>
#include <sstream>

namespace {

Config* g_config = NULL;

template <typename Number>
std::wstring DecimalText(Number value)
{
    std::wostringstream text;
    text << value;
    return text.str();
}

// The getters' scheme for numbers: an absent setting gives the default and
// records its decimal text.
template <typename Number, typename Parse>
bool GetNumber(IConfig& config, const std::wstring& name, Number& out, Number defaultValue, Parse parse)
{
    std::wstring text;
    if (!config.GetString(name, text, DecimalText(defaultValue))) {
        out = defaultValue;
        return false;
    }
    out = parse(text.c_str());
    return true;
}

std::wstring ItemName(const std::wstring& name, int index)
{
    return name + L"." + DecimalText(index);
}

}  // namespace

ConfigBase::ConfigBase() : m_flag(false) {}

ConfigBase::~ConfigBase() {}

Config::~Config() {}

Config* GetConfig()
{
    if (g_config == NULL)
        g_config = new Config();
    return g_config;
}

void ReleaseConfig()
{
    delete g_config;
    g_config = NULL;
}

bool ConfigBase::SetValue(const std::wstring& name, const std::wstring& text)
{
    if (name.empty())
        return false;
    if (text.empty())
        return Remove(name, false);
    m_settings[name] = text;
    return true;
}

// Reading a setting with a default records the default, so that a later save
// writes it; an empty default is not recorded.
bool ConfigBase::GetString(const std::wstring& name, std::wstring& out, const std::wstring& defaultValue)
{
    std::map<std::wstring, std::wstring>::const_iterator found = m_settings.find(name);
    if (found == m_settings.end()) {
        out = defaultValue;
        SetValue(name, defaultValue);
        return false;
    }
    out = found->second;
    return true;
}

bool ConfigBase::GetLong(const std::wstring& name, long& out, long defaultValue)
{
    return GetNumber(*this, name, out, defaultValue, [](const wchar_t* text) { return wcstol(text, NULL, 10); });
}

bool ConfigBase::GetInt(const std::wstring& name, int& out, int defaultValue)
{
    long value = 0;
    bool found = GetLong(name, value, defaultValue);
    out = static_cast<int>(value);
    return found;
}

bool ConfigBase::GetULong(const std::wstring& name, unsigned long& out, unsigned long defaultValue)
{
    return GetNumber(*this, name, out, defaultValue, [](const wchar_t* text) { return wcstoul(text, NULL, 10); });
}

bool ConfigBase::GetUInt(const std::wstring& name, unsigned int& out, unsigned int defaultValue)
{
    unsigned long value = 0;
    bool found = GetULong(name, value, defaultValue);
    out = static_cast<unsigned int>(value);
    return found;
}

bool ConfigBase::GetBool(const std::wstring& name, bool& out, bool defaultValue)
{
    std::wstring text;
    if (!GetString(name, text, defaultValue ? L"true" : L"false")) {
        out = defaultValue;
        return false;
    }
    out = text == L"true";
    return true;
}

bool ConfigBase::SetString(const std::wstring& name, const std::wstring& value, ULONG64 context)
{
    SetValue(name, value);
    Notify(name, context, false);
    return true;
}

bool ConfigBase::SetLong(const std::wstring& name, long value, ULONG64 context)
{
    return SetString(name, DecimalText(value), context);
}

bool ConfigBase::SetInt(const std::wstring& name, int value, ULONG64 context)
{
    return SetString(name, DecimalText(value), context);
}

bool ConfigBase::SetBool(const std::wstring& name, bool value, ULONG64 context)
{
    return SetString(name, value ? L"true" : L"false", context);
}

bool ConfigBase::SetUInt(const std::wstring& name, unsigned int value, ULONG64 context)
{
    return SetString(name, DecimalText(value), context);
}

bool ConfigBase::SetULong(const std::wstring& name, unsigned long value, ULONG64 context)
{
    return SetString(name, DecimalText(value), context);
}

// Items are stored as name.1, name.2, ... directly, so an empty item stays.
bool ConfigBase::SetList(const std::wstring& name, const StringList& items, ULONG64 context)
{
    Remove(name, true);
    int index = 1;
    for (const std::wstring& item : items)
        m_settings[ItemName(name, index++)] = item;
    Notify(name, context, true);
    return true;
}

// Every setting whose name up to its last "." is `name`, in the map's text
// order: item 10 comes before item 2.
bool ConfigBase::GetList(const std::wstring& name, StringList& out)
{
    for (const auto& setting : m_settings) {
        size_t dot = setting.first.rfind(L'.');
        std::wstring base = dot == std::wstring::npos ? setting.first : setting.first.substr(0, dot);
        if (base == name)
            out.push_back(setting.second);
    }
    return true;
}

bool ConfigBase::Remove(const std::wstring& name, bool isList)
{
    if (isList) {
        bool removed = false;
        for (int index = 1; Remove(ItemName(name, index), false); ++index)
            removed = true;
        return removed;
    }
    std::map<std::wstring, std::wstring>::iterator found = m_settings.find(name);
    if (found == m_settings.end())
        return false;
    m_settings.erase(found);
    m_deleted.push_back(name);
    return true;
}

bool ConfigBase::Exists(const std::wstring& name, bool isList)
{
    if (isList)
        return Exists(ItemName(name, 1), false);
    return m_settings.find(name) != m_settings.end();
}

bool ConfigBase::GetFlag()
{
    return m_flag;
}

ConfigBase& ConfigBase::SetFlag(bool flag)
{
    m_flag = flag;
    return *this;
}

void ConfigBase::Notify(const std::wstring& name, ULONG64 context, bool isList)
{
    for (IConfigObserver* observer : m_observers)
        if (observer != NULL)
            observer->OnSettingChanged(name, context, isList);
}

void ConfigBase::Dump()
{
    OutputDebugStringW(L"==========[ Settings ]==========\n");
    for (const auto& setting : m_settings) {
        std::wostringstream line;
        line << setting.first << L"=" << setting.second << std::endl;
        OutputDebugStringW(line.str().c_str());
    }
}

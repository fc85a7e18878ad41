#include "settings/ShippedSettings.h"

#include <filesystem>
#include <set>
#include <string>
#include <system_error>

#include "host/file/LumFile.h"
#include "host/ini/IniFile.h"
#include "host/text/LumSystemError.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kScriptSections[] = {"SqlRun", "SqlRunOnce", "SqlUpgrade"};

/// The names of the ini files in a directory, in order, so that two runs do the same.
std::set<std::string> ListIniFiles(const LumString& directory, std::error_code& error) {
    std::set<std::string> names;
    for (fs::directory_iterator entry(directory.GetString(), error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().extension() == ".ini") {
            names.insert(entry->path().filename().string());
        }
    }
    return names;
}

bool BringScripts(const IniFile& shipped, IniFile& own, LumString& error) {
    for (const char* section : kScriptSections) {
        for (const auto& [name, statement] : shipped.GetEntries(section)) {
            if (!own.WriteEntryValue(section, name, statement)) {
                error.Printf("Cannot bring the scripts of %S up to date", own.GetPath());
                return false;
            }
        }
    }
    return true;
}

bool BringFile(const LumString& shipped, const LumString& own, LumString& error) {
    std::error_code unreadable;
    if (fs::exists(own.GetString(), unreadable)) {
        IniFile file(own);
        return BringScripts(IniFile(shipped), file, error);
    }
    if (!FileCopy(shipped, own, true)) {
        error.Printf("Cannot copy %S to %S: %S", shipped, own, LumSystemErrorText());
        return false;
    }
    return true;
}

}  // namespace

bool BringSettings(const LumString& from, const LumString& to, LumString& error) {
    std::error_code unreadable;
    const std::set<std::string> names = ListIniFiles(from, unreadable);
    if (unreadable) {
        error.Printf("Cannot read the directory %S: %s", from, unreadable.message().c_str());
        return false;
    }
    bool done = true;
    for (const std::string& name : names) {
        LumString reason;
        const LumString file = LumString("/") + LumString(std::string_view(name));
        if (!BringFile(from + file, to + file, reason)) {
            error = done ? reason : error;
            done = false;
        }
    }
    return done;
}

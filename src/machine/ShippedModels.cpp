#include "machine/ShippedModels.h"

#include <algorithm>
#include <string_view>

#include "host/file/LumFile.h"
#include "machine/EventStore.h"
#include "machine/source/MachineLog.h"
#include "machine/source/Models.h"

namespace {

constexpr std::string_view kRoutine = "BringModels";
constexpr std::size_t kMaxListBytes = std::size_t{1} << 16U;

using Names = std::set<std::string>;

/// The list of the models that were dropped once: a name a line.
Names ReadList(const LumString& path) {
    std::string content;
    LumString error;
    Names names;
    if (!FileRead(path, kMaxListBytes, content, error)) {
        return names;
    }
    for (std::size_t from = 0; from < content.size();) {
        const std::size_t end = std::min(content.find('\n', from), content.size());
        names.insert(content.substr(from, end - from));
        from = end + 1;
    }
    return names;
}

void WriteList(const LumString& path, const Names& names) {
    std::string content;
    for (const std::string& name : names) {
        content += name + "\n";
    }
    LumString error;
    if (!FileReplace(path, content, error)) {
        MachineDebug.WarningWithNL("%S: Failed to keep the list of dropped models, %S", kRoutine, error);
    }
}

/// The source model of an automatic model: what stands in its SOURCE element before its parameters.
std::string_view SourceOf(const ShippedModel& model) {
    constexpr std::string_view kOpen = "<SOURCE>";
    const std::string_view head =
        std::string_view(model.definition).substr(0, std::string_view(model.definition).find("<PARAMS>"));
    const std::size_t from = head.find(kOpen);
    return from == std::string_view::npos
               ? std::string_view(model.name)
               : head.substr(from + kOpen.size(), head.find('<', from + 1) - from - kOpen.size());
}

bool IsWanted(const ShippedModel& model, const std::vector<const char*>& wanted) {
    const std::string_view source = SourceOf(model);
    return std::any_of(wanted.begin(), wanted.end(), [&](const char* name) { return source == name; });
}

bool IsAnyRegistered(const Names& registered) {
    return std::any_of(kShippedModels.begin(), kShippedModels.end(),
                       [&](const ShippedModel& model) { return registered.contains(model.name); });
}

/// True where the definition was put into the models directory.
bool Drop(const ShippedModel& model, const LumString& path) {
    LumString error;
    if (FileReplace(path, model.definition, error)) {
        return true;
    }
    MachineDebug.ErrorWithNL("%S: Failed to drop model '%s', %S", kRoutine, model.name, error);
    return false;
}

}  // namespace

void BringModels(const LumString& modelsDirectory, const LumString& listPath,
                 const std::vector<const char*>& wanted) {
    Names registered;
    if (!ListModels(registered)) {
        MachineDebug.WarningWithNL("%S: The event log does not answer, so nothing is dropped", kRoutine);
        return;
    }
    const Names before = IsAnyRegistered(registered) ? ReadList(listPath) : Names();
    Names known = before;
    bool hasDropped = false;
    for (const ShippedModel& model : kShippedModels) {
        const LumString path = modelsDirectory + model.name + ".xml";
        if (!IsWanted(model, wanted) || registered.contains(model.name) || known.contains(model.name) ||
            IsRegularFile(path)) {
            continue;
        }
        if (Drop(model, path)) {
            hasDropped = true;
            known.insert(model.name);
            MachineDebug.PrintWithNL("%S: Model '%s' was missing and has been dropped", kRoutine, model.name);
        }
    }
    if (known != before) {
        WriteList(listPath, known);
    }
    if (hasDropped) {
        ReloadModels();
    }
}

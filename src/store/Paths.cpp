#include "store/Paths.h"

#include <string_view>

#include "contract/Directories.h"

namespace {

constexpr const char* kSeparator = "/";
constexpr const char* kModuleName = kEventLogManagerName;

}  // namespace

ModulePaths BuildModulePaths(const LumString& configDirectory, const LumString& dataDirectory) {
    ModulePaths paths;
    paths.iniFile = configDirectory + kModuleName + ".ini";
    paths.dataDirectory = dataDirectory + kModuleName;
    paths.database = paths.dataDirectory + kSeparator + kModuleName + ".sqlite3";
    paths.modelsDirectory = paths.dataDirectory + kSeparator + kModelsDirectoryName + kSeparator;
    return paths;
}

LumString ModelDirectory(const LumString& modelName) {
    return ModelsDirectory + modelName;
}

LumString FiledDirectory(const LumString& modelName, const LumString& checksum) {
    return PathInDirectory(ModelDirectory(modelName), checksum);
}

LumString PathInDirectory(const LumString& directory, const LumString& name) {
    return directory + kSeparator + name;
}

LumString DroppedFile(const LumString& fileName) {
    return ModelsDirectory + fileName;
}

LumString UploadsDirectory() {
    return PathInDirectory(DataDirectory, "uploads");
}

LumString UploadJournalFile(const LumString& modelName) {
    return PathInDirectory(UploadsDirectory(), modelName);
}

LumString DatabaseCopy(const LumString& version) {
    return PathInDirectory(DataDirectory, kModuleName) + "-" + version + ".sqlite3";
}

LumString ModelsCopy(const LumString& version) {
    return PathInDirectory(DataDirectory, kModuleName) + "-" + version + "-models";
}

bool IsPathComponent(const LumString& text) {
    using namespace std::string_view_literals;
    const std::string_view view = text.View();
    return !view.empty() && view != "." && view != ".." &&
           view.find_first_of("/\0"sv) == std::string_view::npos;
}

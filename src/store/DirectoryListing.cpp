#include "store/DirectoryListing.h"

#include <memory>

#include "host/file/LumFile.h"
#include "host/text/LumPattern.h"

bool ListDirectory(const LumString& path, std::vector<LumString>& entries) {
    const std::unique_ptr<LumDirectory, decltype(&CloseDirectory)> directory(OpenDirectory(path),
                                                                             CloseDirectory);
    if (directory == nullptr) {
        return false;
    }
    for (LumString name; ReadDirectory(directory.get(), name);) {
        if (name != "." && name != "..") {
            entries.push_back(name);
        }
    }
    return true;
}

bool IsDefinitionName(const LumString& fileName) {
    return MatchPattern(fileName, "*.xml", false);
}

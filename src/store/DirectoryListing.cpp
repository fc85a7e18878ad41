#include "store/DirectoryListing.h"

#include "host/file/LumFile.h"
#include "host/text/LumPattern.h"

bool ListDirectory(const LumString& path, std::vector<LumString>& entries) {
    LumDirectory* const directory = OpenDirectory(path);
    if (directory == nullptr) {
        return false;
    }
    for (LumString name; ReadDirectory(directory, name);) {
        if (name != "." && name != "..") {
            entries.push_back(name);
        }
    }
    CloseDirectory(directory);
    return true;
}

bool IsDefinitionName(const LumString& fileName) {
    return MatchPattern(fileName, "*.xml", false);
}

#include "client/check/DefinitionFile.h"

#include <algorithm>
#include <array>

#include "client/check/DefinitionReader.h"

DefinitionFile ReadDefinition(const std::string& path) {
    DefinitionFile file;
    file.path = path;
    MarkupTree tree;
    if (!tree.ParseFile(LumString(path))) {
        const MarkupFault& fault = tree.GetFault();
        file.faults.push_back({fault.position, std::string(fault.reason.View())});
        return file;
    }
    DefinitionReader(file, *tree.GetRootNode()).Read();
    std::stable_sort(file.faults.begin(), file.faults.end(),
                     [](const DefinitionFault& a, const DefinitionFault& b) {
                         return std::pair(a.position.line, a.position.column) <
                                std::pair(b.position.line, b.position.column);
                     });
    return file;
}

void CheckReferences(DefinitionFile& file, const std::map<std::string, std::vector<std::string>>& known) {
    if (!file.isAutomatic || file.source.empty()) {
        return;
    }
    const auto source = known.find(file.source);
    if (source == known.end()) {
        file.faults.push_back(
            {file.sourcePosition, "the source model '" + file.source +
                                      "' is in none of the files given, beside them, or registered here"});
        return;
    }
    const std::vector<std::string>& parameters = source->second;
    for (const DefinitionFile::Reference& reference : file.references) {
        if (std::find(parameters.begin(), parameters.end(), reference.parameter) == parameters.end()) {
            file.faults.push_back({reference.position, "the source model '" + file.source +
                                                           "' has no parameter '" + reference.parameter +
                                                           "'" +
                                                           DidYouMean(reference.parameter, parameters)});
        }
    }
}

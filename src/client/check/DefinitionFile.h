#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/xml/MarkupTree.h"

/// A fault of a definition file, and where it is.
struct DefinitionFault {
    MarkupPosition position;
    std::string text;  ///< a sentence without its end
};

/// A definition file as far as it could be read, with every fault that it has by itself.
struct DefinitionFile {
    std::string path;
    std::string model;   ///< empty where it is not given
    std::string source;  ///< of an automatic model
    MarkupPosition sourcePosition;
    bool isAutomatic = false;
    /// The parameters, and for an automatic model what of the source model each refers to.
    std::vector<std::string> parameters;
    struct Reference {
        std::string parameter;  ///< of the source model
        MarkupPosition position;
    };
    std::vector<Reference> references;
    std::vector<DefinitionFault> faults;  ///< in the order of the file
};

/// Reads the file. Whatever is wrong with it is among its faults.
[[nodiscard]] DefinitionFile ReadDefinition(const std::string& path);

/// Adds what is wrong between the files: a source model, or a parameter of it, that is in none of `known`.
void CheckReferences(DefinitionFile& file, const std::map<std::string, std::vector<std::string>>& known);

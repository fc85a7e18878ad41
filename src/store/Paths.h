#pragma once

#include "host/text/LumString.h"

/// Every path of the module is built here, as text: nothing is normalised and nothing is looked up.

/// The module's places below the agent's directories. Those are taken as the host gives them, with their
/// trailing separator: a directory without one ends up glued to the name that follows.
struct ModulePaths {
    LumString iniFile;
    LumString dataDirectory;
    LumString database;
    LumString modelsDirectory;  ///< ends with a separator
};

[[nodiscard]] ModulePaths BuildModulePaths(const LumString& configDirectory, const LumString& dataDirectory);

/// Written by ModuleInitialise, before any other thread runs in the module, and only read from then on.
extern LumString IniFilePath;
extern LumString DataDirectory;
extern LumString DatabasePath;
extern LumString ModelsDirectory;

/// Where everything that is filed of a model lies.
[[nodiscard]] LumString ModelDirectory(const LumString& modelName);
/// Where the definition with that checksum is filed.
[[nodiscard]] LumString FiledDirectory(const LumString& modelName, const LumString& checksum);
/// The entry called `name` of a directory given without trailing separator.
[[nodiscard]] LumString PathInDirectory(const LumString& directory, const LumString& name);
/// A definition file that was dropped into the models directory.
[[nodiscard]] LumString DroppedFile(const LumString& fileName);

/// Where the journals of uploads lie that are under way, and that of one model, whose name it bears.
[[nodiscard]] LumString UploadsDirectory();
[[nodiscard]] LumString UploadJournalFile(const LumString& modelName);

/// Where a start that upgrades a database of `version` keeps a copy of it, and of the filed definitions that
/// the upgrade replaces.
[[nodiscard]] LumString DatabaseCopy(const LumString& version);
[[nodiscard]] LumString ModelsCopy(const LumString& version);

/// True where `text` is one name of a directory: not empty, not "." or "..", without separator or null byte.
/// What a database row holds must pass before it becomes part of a path.
[[nodiscard]] bool IsPathComponent(const LumString& text);

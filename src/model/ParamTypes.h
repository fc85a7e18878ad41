#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "host/container/LumContainer.h"
#include "host/database/Database.h"
#include "host/text/LumString.h"
#include "model/Vocabulary.h"

/// Everything that depends on the type of a parameter, one row a type.
struct ParamTypeTraits {
    ParamType type;
    std::string_view token;       ///< as model files and upload files spell it
    std::string_view columnType;  ///< the declared type of the table column

    /// Reads the value called `name` and appends it to `sql` as a literal; false, and `sql` as it was, where
    /// the container holds no value of the type under that name.
    bool (*appendValue)(const LumContainer& values, const LumString& name, std::string& sql);
    /// Appends the default text of a model file to `sql`, which is not empty. Only text defaults are quoted:
    /// the others are trusted model text and go in as they stand.
    void (*appendDefault)(const LumString& text, std::string& sql);
    /// Copies column `column` of the selected row into `container` under `name` at position `index`;
    /// returns the bytes of a text, 0 for other values.
    std::size_t (*copyCell)(const GenSqlResult& rows, uint32_t column, LumContainer& container,
                            const LumString& name, uint32_t index);
};

/// The known types in the order of their codes.
extern const std::span<const ParamTypeTraits> kParamTypes;

/// The row of `type`; null for an unknown type.
[[nodiscard]] const ParamTypeTraits* FindParamType(ParamType type);

#pragma once

#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/check/DefinitionFile.h"
#include "client/text/Suggestion.h"

/// Walks the tree of one definition file and notes every fault, where the agent stops at the first.
class DefinitionReader {
public:
    DefinitionReader(DefinitionFile& file, const MarkupElementNode& root) : file_(file), root_(root) {}

    void Read();

private:
    /// A value, and where it stands.
    struct Given {
        std::string text;
        MarkupPosition position;
    };

    void Note(MarkupPosition position, std::string text);
    /// The elements among the children; text beside them is a fault, and so is an element of no known name.
    [[nodiscard]] std::vector<const MarkupElementNode*> Children(const MarkupElementNode& parent,
                                                                 std::span<const std::string_view> known);
    /// The first child of that name; a second one is a fault.
    [[nodiscard]] const MarkupElementNode* Child(const MarkupElementNode& parent, std::string_view name);
    /// The value of a child. Nothing where there is none; with `required` that is a fault.
    [[nodiscard]] std::optional<Given> Value(const MarkupElementNode& parent, std::string_view name,
                                             bool required);
    /// The same where only some words may stand.
    std::optional<Given> Word(const MarkupElementNode& parent, std::string_view name,
                              std::span<const std::string_view> allowed, bool required);
    void RefuseUnread(const MarkupElementNode& parent, std::string_view name, std::string_view why);

    void ReadHead();
    void ReadParameters();
    void ReadParameter(const MarkupElementNode& param);
    void CheckParameterName(const Given& name);
    void CheckDefault(const Given& type, const Given& value);
    void ReadAggregation();

    DefinitionFile& file_;
    const MarkupElementNode& root_;
    std::set<std::string> seen_;  ///< names of parameters, letter case folded
};

#include "client/check/DefinitionReader.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "client/ClientError.h"
#include "client/check/DefinitionNames.h"
#include "client/model/ParameterValue.h"
#include "contract/ModelTokens.h"

namespace {

constexpr std::array<std::string_view, 11> kModelElements{
    "NAME",   "CLASS",           "NOTE",   "SEVERITY",           "TYPE",       "UPLOAD-POLICY",
    "SOURCE", "DELETION-POLICY", "PARAMS", "AGGREGATION-POLICY", "AGGREGATION"};
constexpr std::array<std::string_view, 1> kParamsElements{"PARAM"};
constexpr std::array<std::string_view, 5> kParamElements{"NAME", "TYPE", "DEFAULT", "SOURCE", "OPERATION"};
constexpr std::array<std::string_view, 1> kAggregationElements{"NAME"};

std::vector<std::string> AsTexts(std::span<const std::string_view> words) {
    return {words.begin(), words.end()};
}

std::string Listed(std::span<const std::string_view> words) {
    std::string list;
    for (const std::string_view word : words) {
        list.append(list.empty() ? "" : ", ").append(word);
    }
    return list;
}

bool IsBlank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

}  // namespace

void DefinitionReader::Read() {
    if (!root_.IsNamed("MODEL")) {
        Note(root_.GetPosition(), "the root element is '" + std::string(root_.GetTagName().View()) +
                                      "', where MODEL must stand (letter case counts)");
        return;
    }
    ReadHead();
    ReadParameters();
    ReadAggregation();
}

void DefinitionReader::Note(MarkupPosition position, std::string text) {
    file_.faults.push_back({position, std::move(text)});
}

std::vector<const MarkupElementNode*> DefinitionReader::Children(const MarkupElementNode& parent,
                                                                 std::span<const std::string_view> known) {
    std::vector<const MarkupElementNode*> elements;
    for (uint32_t i = 0; i < parent.GetChildCount(); ++i) {
        const MarkupNode& child = *parent.GetChildAt(i);
        if (const MarkupTextNode* text = child.CastAsTextNode()) {
            if (!IsBlank(text->GetData().View())) {
                Note(child.GetPosition(), "text stands where only elements may");
            }
            continue;
        }
        const MarkupElementNode& element = *child.CastAsElementNode();
        const std::string name(element.GetTagName().View());
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            Note(element.GetPosition(), "unknown element '" + name + "' in " +
                                            std::string(parent.GetTagName().View()) + ", which is not read" +
                                            DidYouMean(name, AsTexts(known)));
        }
        elements.push_back(&element);
    }
    return elements;
}

const MarkupElementNode* DefinitionReader::Child(const MarkupElementNode& parent, std::string_view name) {
    const MarkupElementNode* found = nullptr;
    for (uint32_t i = 0; i < parent.GetChildCount(); ++i) {
        const MarkupElementNode* const element = parent.GetChildAt(i)->CastAsElementNode();
        if (element == nullptr || element->GetTagName().View() != name) {
            continue;
        }
        if (found != nullptr) {
            Note(element->GetPosition(), std::string(name) + " is given twice; the first counts");
            return found;
        }
        found = element;
    }
    return found;
}

std::optional<DefinitionReader::Given> DefinitionReader::Value(const MarkupElementNode& parent,
                                                               std::string_view name, bool required) {
    const MarkupElementNode* const element = Child(parent, name);
    if (element == nullptr) {
        if (required) {
            Note(parent.GetPosition(),
                 std::string(name) + " is missing in " + std::string(parent.GetTagName().View()));
        }
        return std::nullopt;
    }
    const MarkupNode* const first = element->GetChildAt(0);
    const MarkupTextNode* const text = first != nullptr ? first->CastAsTextNode() : nullptr;
    if (text == nullptr) {
        if (required || first != nullptr) {
            Note(element->GetPosition(),
                 std::string(name) + (first == nullptr ? " is empty" : " holds an element before its text"));
        }
        return std::nullopt;
    }
    return Given{std::string(text->GetData().View()), text->GetPosition()};
}

std::optional<DefinitionReader::Given> DefinitionReader::Word(const MarkupElementNode& parent,
                                                              std::string_view name,
                                                              std::span<const std::string_view> allowed,
                                                              bool required) {
    std::optional<Given> given = Value(parent, name, required);
    if (given && std::find(allowed.begin(), allowed.end(), given->text) == allowed.end()) {
        Note(given->position, "'" + given->text + "' is not a word for " + std::string(name) + " (" +
                                  Listed(allowed) + ")" + DidYouMean(given->text, AsTexts(allowed)));
    }
    return given;
}

void DefinitionReader::RefuseUnread(const MarkupElementNode& parent, std::string_view name,
                                    std::string_view why) {
    if (const MarkupElementNode* element = Child(parent, name)) {
        Note(element->GetPosition(), std::string(name) + " is not read " + std::string(why));
    }
}

void DefinitionReader::ReadHead() {
    static_cast<void>(Children(root_, kModelElements));  // notes what it does not know
    if (const std::optional<Given> name = Value(root_, "NAME", true)) {
        file_.model = name->text;
        const std::string fault = FaultOfModelName(name->text);
        if (!fault.empty()) {
            Note(name->position, fault);
        }
    }
    for (const std::string_view name : {"CLASS", "NOTE", "SEVERITY"}) {
        static_cast<void>(Value(root_, name, true));  // any text will do
    }
    const std::optional<Given> type = Word(root_, "TYPE", tokens::kModelTypes, true);
    file_.isAutomatic = type && type->text == tokens::kAutomaticModel;
    Word(root_, "UPLOAD-POLICY", tokens::kPolicies, true);
    Word(root_, "DELETION-POLICY", tokens::kPolicies, true);
    if (file_.isAutomatic) {
        if (const std::optional<Given> source = Value(root_, "SOURCE", true)) {
            file_.source = source->text;
            file_.sourcePosition = source->position;
        }
        Word(root_, "AGGREGATION-POLICY", tokens::kPolicies, true);
        return;
    }
    for (const std::string_view name : {"SOURCE", "AGGREGATION-POLICY", "AGGREGATION"}) {
        RefuseUnread(root_, name, "in a user model");
    }
}

void DefinitionReader::ReadParameters() {
    const MarkupElementNode* const params = Child(root_, "PARAMS");
    if (params == nullptr) {
        Note(root_.GetPosition(), "PARAMS is missing in MODEL");
        return;
    }
    uint32_t count = 0;
    for (const MarkupElementNode* element : Children(*params, kParamsElements)) {
        if (element->IsNamed("PARAM")) {
            ++count;
            ReadParameter(*element);
        }
    }
    if (count == 0) {
        Note(params->GetPosition(), "PARAMS holds no PARAM");
    }
}

void DefinitionReader::ReadParameter(const MarkupElementNode& param) {
    static_cast<void>(Children(param, kParamElements));  // notes what it does not know
    const std::optional<Given> name = Value(param, "NAME", false);
    if (!name) {
        Note(param.GetPosition(), "a PARAM without NAME ends the list: it and those after it are left out");
    } else {
        CheckParameterName(*name);
    }
    const std::optional<Given> type = Word(param, "TYPE", tokens::kParamTypes, true);
    if (!file_.isAutomatic) {
        const std::optional<Given> value = Value(param, "DEFAULT", false);
        if (type && value) {
            CheckDefault(*type, *value);
        }
        RefuseUnread(param, "SOURCE", "in a user model");
        RefuseUnread(param, "OPERATION", "in a user model");
        return;
    }
    if (const std::optional<Given> source = Value(param, "SOURCE", true)) {
        file_.references.push_back({source->text, source->position});
    }
    Word(param, "OPERATION", tokens::kOperations, false);
    RefuseUnread(param, "DEFAULT", "in an automatic model");
}

void DefinitionReader::CheckParameterName(const Given& name) {
    const std::string fault = FaultOfParameterName(name.text);
    if (!fault.empty()) {
        Note(name.position, fault);
    }
    if (!seen_.insert(FoldedName(name.text)).second) {
        Note(name.position, "the parameter '" + name.text + "' is there twice (letter case aside)");
    }
    file_.parameters.push_back(name.text);
}

void DefinitionReader::CheckDefault(const Given& type, const Given& value) {
    // A default of another type than text becomes part of an SQL statement as it stands.
    try {
        if (type.text == kTypeInteger || type.text == kTypeTimestamp) {
            static_cast<void>(ParseInteger(value.text));
        } else if (type.text == kTypeDouble) {
            static_cast<void>(ValueFromText(kTypeDouble, value.text));
        } else if (type.text == kTypeBoolean && value.text != "0" && value.text != "1") {
            throw ClientError("'" + value.text + "' is not 0 or 1");
        }
    } catch (const ClientError& error) {
        Note(value.position, "the default does not fit " + type.text + ": " + error.what());
    }
}

void DefinitionReader::ReadAggregation() {
    const MarkupElementNode* const aggregation = file_.isAutomatic ? Child(root_, "AGGREGATION") : nullptr;
    if (aggregation == nullptr) {
        return;
    }
    for (const MarkupElementNode* element : Children(*aggregation, kAggregationElements)) {
        const MarkupNode* const first = element->GetChildAt(0);
        const MarkupTextNode* const text = first != nullptr ? first->CastAsTextNode() : nullptr;
        if (!element->IsNamed("NAME")) {
            continue;
        }
        if (text == nullptr) {
            Note(element->GetPosition(), "a NAME without text ends the list of AGGREGATION");
        } else {
            file_.references.push_back({std::string(text->GetData().View()), text->GetPosition()});
        }
    }
}

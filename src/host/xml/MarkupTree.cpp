#include "host/xml/MarkupTree.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <system_error>

#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "host/text/LumUtf8.h"

namespace {

constexpr std::string_view kParseFileRoutine = "MarkupTree::ParseFile";
constexpr std::string_view kParseTextRoutine = "MarkupTree::ParseText";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Values stay raw, so that a position in one is a position in the file; Decode does the rest.
constexpr unsigned kParseOptions = pugi::parse_cdata | pugi::parse_ws_pcdata_single |
                                   pugi::parse_declaration | pugi::parse_doctype | pugi::parse_fragment;

/// What is wrong with a document, and where. The reason is a constant text.
struct Defect {
    std::size_t offset;
    std::string_view reason;
};

using MaybeDefect = std::optional<Defect>;

bool IsXmlCharacter(char32_t c) {
    return c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c != 0xFFFE && c != 0xFFFF);
}

/// Checks the encoding and the characters, which the parser does not.
MaybeDefect CheckCharacters(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = at;
        const char32_t character = LumNextUtf8(text, at);
        if (character == kLumReplacementCharacter && at - start == 1) {
            return Defect{start, "not UTF-8"};
        }
        if (!IsXmlCharacter(character)) {
            return Defect{start, "a character that is not allowed"};
        }
    }
    return std::nullopt;
}

/// The character that the reference between & and ; stands for; 0 where there is none.
char32_t ReferencedCharacter(std::string_view name) {
    constexpr std::pair<std::string_view, char32_t> kNamed[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto& [known, character] : kNamed) {
        if (name == known) {
            return character;
        }
    }
    const int base = name.starts_with("#x") ? 16 : 10;
    if (!name.starts_with('#')) {
        return 0;
    }
    name.remove_prefix(base == 16 ? 2 : 1);
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number, base);
    const bool whole = error == std::errc() && end == name.data() + name.size();
    const auto character = static_cast<char32_t>(number);
    const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
    return whole && IsXmlCharacter(character) && !isSurrogate && character <= 0x10FFFF ? character : 0;
}

/// Appends `raw`, which begins at `offset` of the document, with its line ends made one newline each and,
/// where `withReferences`, its references replaced.
MaybeDefect Decode(std::string_view raw, std::size_t offset, bool withReferences, std::string& out) {
    for (std::size_t at = 0; at < raw.size(); ++at) {
        if (raw[at] == '\r') {
            out += '\n';
            at += raw.substr(at + 1).starts_with('\n') ? 1 : 0;
        } else if (raw[at] == '&' && withReferences) {
            const std::size_t end = std::min(raw.find(';', at), raw.size());
            const char32_t character = ReferencedCharacter(raw.substr(at + 1, end - at - 1));
            if (end == raw.size() || character == 0) {
                return Defect{offset + at, "an unknown reference"};
            }
            LumAppendUtf8(out, character);
            at = end;
        } else {
            out += raw[at];
        }
    }
    return std::nullopt;
}

std::size_t OffsetOf(const char* position, const char* document) {
    return static_cast<std::size_t>(position - document);
}

MaybeDefect CheckAttributes(pugi::xml_node node, const char* document) {
    std::vector<std::string_view> names;
    for (const pugi::xml_attribute attribute : node.attributes()) {
        const std::string_view value = attribute.value();
        const std::size_t offset = OffsetOf(attribute.value(), document);
        if (value.find('<') != std::string_view::npos) {
            return Defect{offset + value.find('<'), "< in an attribute"};
        }
        std::string unused;
        if (const MaybeDefect defect = Decode(value, offset, true, unused)) {
            return defect;
        }
        names.emplace_back(attribute.name());
    }
    std::sort(names.begin(), names.end());
    const auto twice = std::adjacent_find(names.begin(), names.end());
    if (twice != names.end()) {
        return Defect{OffsetOf(std::max(twice->data(), (twice + 1)->data()), document),
                      "an attribute stands twice"};
    }
    return std::nullopt;
}

MaybeDefect CheckDeclaration(pugi::xml_node declaration, const char* document) {
    const std::size_t offset = OffsetOf(declaration.name(), document);
    if (offset != std::strlen("<?")) {
        return Defect{offset, "an XML declaration behind the start"};
    }
    const pugi::xml_attribute encoding = declaration.attribute("encoding");
    const LumString name(encoding.value());
    if (encoding && !name.IsEqualTo("UTF-8", false) && !name.IsEqualTo("US-ASCII", false)) {
        return Defect{OffsetOf(encoding.value(), document), "declared as another encoding than UTF-8"};
    }
    return std::nullopt;
}

MaybeDefect CheckDoctype(pugi::xml_node doctype, bool isFirst, const char* document) {
    const std::string_view value = doctype.value();
    const std::size_t offset = OffsetOf(doctype.value(), document);
    if (!isFirst) {
        return Defect{offset, "a document type behind its place"};
    }
    const std::size_t entity = value.find("<!ENTITY");
    if (entity != std::string_view::npos) {
        return Defect{offset + entity, "an entity is declared"};
    }
    return std::nullopt;
}

/// Finds the root element, and checks what stands beside it.
MaybeDefect FindRoot(const pugi::xml_document& document, const std::string& text, pugi::xml_node& root) {
    const char* const buffer = text.data();
    bool hasDoctype = false;
    for (const pugi::xml_node node : document.children()) {
        MaybeDefect defect;
        if (node.type() == pugi::node_declaration) {
            defect = CheckDeclaration(node, buffer);
        } else if (node.type() == pugi::node_doctype) {
            defect = CheckDoctype(node, !hasDoctype && !root, buffer);
            hasDoctype = true;
        } else if (node.type() != pugi::node_element) {
            defect = Defect{OffsetOf(node.value(), buffer), "text outside of the root element"};
        } else if (root) {
            defect = Defect{OffsetOf(node.name(), buffer), "a second root element"};
        } else {
            root = node;
        }
        if (defect.has_value()) {
            return defect;
        }
    }
    return root ? std::nullopt : MaybeDefect(Defect{text.size(), "no root element"});
}

/// Line and column of `offset`, both from 1, the column in characters.
std::pair<uint32_t, uint32_t> LineAndColumn(std::string_view text, std::size_t offset) {
    uint32_t line = 1;
    uint32_t column = 1;
    for (std::size_t at = 0; at < std::min(offset, text.size());) {
        const bool endsLine =
            text[at] == '\n' || (text[at] == '\r' && !text.substr(at + 1).starts_with('\n'));
        static_cast<void>(LumNextUtf8(text, at));  // only the step counts
        line += endsLine ? 1 : 0;
        column = endsLine ? 1 : column + 1;
    }
    return {line, column};
}

/// One name of a path: a tag name and the index among the siblings of that name.
struct PathStep {
    LumString name;
    uint32_t index;
};

std::optional<PathStep> ParseStep(const LumString& text) {
    const std::string_view whole = text.View();
    const std::size_t at = whole.rfind('@');
    if (at == std::string_view::npos) {
        return PathStep{text, 0};
    }
    const std::string_view digits = whole.substr(at + 1);
    uint32_t index = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), index);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return PathStep{LumString(whole.substr(0, at)), index};
}

}  // namespace

/// Where the searches along a path ended last, so that the next index is one step away.
struct MarkupTree::Cursor {
    struct Place {
        const MarkupElementNode* parent = nullptr;
        LumString name;
        uint32_t index = 0;
        uint32_t child = 0;

        /// The child of `element` that `step` names, or null; a place that was found is kept.
        const MarkupElementNode* Find(const MarkupElementNode& element, const PathStep& step) {
            const bool goesOn = parent == &element && name == step.name && index <= step.index;
            uint32_t seen = goesOn ? index : 0;
            for (uint32_t at = goesOn ? child : 0; at < element.GetChildCount(); ++at) {
                const MarkupElementNode* const candidate = element.GetChildAt(at)->CastAsElementNode();
                if (candidate == nullptr || !candidate->IsNamed(step.name)) {
                    continue;
                }
                if (seen == step.index) {
                    *this = {&element, step.name, seen, at};
                    return candidate;
                }
                ++seen;
            }
            return nullptr;
        }
    };

    /// One for each length of path, so that the steps of a path do not take it from each other.
    std::vector<Place> places;
};

/// Parses one document, refuses what the parser lets pass, and turns the parser's tree into nodes.
class MarkupTree::Builder {
public:
    explicit Builder(std::string_view text) : buffer_(text) {}

    /// Puts the root element with all that it holds into `root`. After a defect `root` may hold a part of it.
    MaybeDefect Build(std::unique_ptr<MarkupElementNode>& root) {
        // The null byte behind the text counts as read: without it the parser gives up the last character.
        const pugi::xml_parse_result result = document_.load_buffer_inplace(
            buffer_.data(), buffer_.size() + 1, kParseOptions, pugi::encoding_utf8);
        if (!result) {
            return Defect{static_cast<std::size_t>(result.offset), result.description()};
        }
        pugi::xml_node node;
        const MaybeDefect defect = FindRoot(document_, buffer_, node);
        return defect.has_value() ? defect : BuildElements(node, root);
    }

private:
    /// Without recursion, as it is the document that chooses the depth.
    MaybeDefect BuildElements(pugi::xml_node rootNode, std::unique_ptr<MarkupElementNode>& root) {
        root.reset(new MarkupElementNode(rootNode.name()));
        MaybeDefect defect = CheckAttributes(rootNode, buffer_.data());
        std::vector<std::pair<pugi::xml_node, MarkupElementNode*>> open{{rootNode.first_child(), root.get()}};
        while (!defect.has_value() && !open.empty()) {
            const auto [node, parent] = open.back();
            if (!node) {
                open.pop_back();
                continue;
            }
            open.back().first = node.next_sibling();
            if (node.type() != pugi::node_element) {
                defect = AddText(node, *parent);
            } else if (open.size() == kMaxDepth) {
                defect = Defect{OffsetOf(node.name(), buffer_.data()), "nested too deep"};
            } else {
                defect = CheckAttributes(node, buffer_.data());
                open.emplace_back(node.first_child(), AddElement(node, *parent));
            }
        }
        return defect;
    }

    static MarkupElementNode* AddElement(pugi::xml_node node, MarkupElementNode& parent) {
        std::unique_ptr<MarkupElementNode> element(new MarkupElementNode(node.name()));
        MarkupElementNode* const added = element.get();
        parent.children_.push_back(std::move(element));
        return added;
    }

    MaybeDefect AddText(pugi::xml_node node, MarkupElementNode& parent) {
        const bool isCharacterData = node.type() == pugi::node_cdata;
        const std::string_view raw = node.value();
        const std::size_t offset = OffsetOf(node.value(), buffer_.data());
        const std::size_t sectionEnd = isCharacterData ? std::string_view::npos : raw.find("]]>");
        if (sectionEnd != std::string_view::npos) {
            return Defect{offset + sectionEnd, "]]> outside of a character data section"};
        }
        std::string data;
        const MaybeDefect defect = Decode(raw, offset, !isCharacterData, data);
        if (!defect.has_value()) {
            parent.children_.push_back(
                std::unique_ptr<MarkupNode>(new MarkupTextNode(LumString(std::move(data)))));
        }
        return defect;
    }

    std::string buffer_;
    pugi::xml_document document_;
};

MarkupNode::MarkupNode() = default;
MarkupNode::~MarkupNode() = default;

MarkupTree::MarkupTree() : cursor_(std::make_unique<Cursor>()) {}
MarkupTree::~MarkupTree() = default;

bool MarkupTree::ParseFile(const LumString& path) {
    root_.reset();
    std::string content;
    LumString reason;
    if (!FileRead(path, kMaxFileBytes, content, reason)) {
        LumHostDebug().WarningWithNL("%S: %S: %S", kParseFileRoutine, path, reason);
        return false;
    }
    return Parse(content, kParseFileRoutine, path);
}

bool MarkupTree::ParseText(const LumString& text, const LumString& name) {
    root_.reset();
    if (text.GetLength() > kMaxFileBytes) {
        LumHostDebug().WarningWithNL("%S: %S: Larger than %u bytes", kParseTextRoutine, name,
                                     static_cast<uint32_t>(kMaxFileBytes));
        return false;
    }
    return Parse(text.View(), kParseTextRoutine, name);
}

bool MarkupTree::Parse(std::string_view text, std::string_view routine, const LumString& name) {
    cursor_->places.clear();
    if (text.starts_with(kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    MaybeDefect defect = CheckCharacters(text);
    if (!defect.has_value()) {
        Builder builder(text);
        defect = builder.Build(root_);
    }
    if (!defect.has_value()) {
        return true;
    }
    root_.reset();
    const auto [line, column] = LineAndColumn(text, defect->offset);
    LumHostDebug().WarningWithNL("%S: %S: line %u, column %u: %S", routine, name, line, column,
                                 defect->reason);
    return false;
}

const MarkupElementNode* MarkupTree::FetchNode(const std::vector<LumString>& path) const {
    const MarkupElementNode* element = nullptr;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const std::optional<PathStep> step = ParseStep(path[i]);
        if (!step.has_value()) {
            return nullptr;
        }
        if (i == 0) {
            const bool isRoot = root_ != nullptr && step->index == 0 && root_->IsNamed(step->name);
            element = isRoot ? root_.get() : nullptr;
        } else {
            cursor_->places.resize(std::max(cursor_->places.size(), i));
            element = cursor_->places[i - 1].Find(*element, *step);
        }
        if (element == nullptr) {
            return nullptr;
        }
    }
    return element;
}

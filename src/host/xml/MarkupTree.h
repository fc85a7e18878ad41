#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

class MarkupElementNode;
class MarkupTextNode;

/// A place in a document: line and column from 1, the column in characters.
struct MarkupPosition {
    uint32_t line = 1;
    uint32_t column = 1;
};

/// A node of a parsed document. Nodes belong to their MarkupTree and live as long as it does.
class LUM_API MarkupNode {
public:
    MarkupNode(const MarkupNode&) = delete;
    MarkupNode& operator=(const MarkupNode&) = delete;
    virtual ~MarkupNode();

    /// This node as what it is; null where it is something else.
    [[nodiscard]] virtual const MarkupTextNode* CastAsTextNode() const { return nullptr; }
    [[nodiscard]] virtual const MarkupElementNode* CastAsElementNode() const { return nullptr; }

    /// Where the node begins: the < of an element, the first character of a text.
    [[nodiscard]] MarkupPosition GetPosition() const { return position_; }

protected:
    explicit MarkupNode(MarkupPosition position);

private:
    const MarkupPosition position_;
};

/// A run of text as the document spells it: nothing is trimmed, references are replaced, each line end is one
/// newline. A character data section is a run of its own, an empty one is nothing. Blank text beside elements
/// is not a node, blank text that is all an element has is one, so the first child of an element that holds a
/// value is that value.
class LUM_API MarkupTextNode : public MarkupNode {
public:
    [[nodiscard]] const LumString& GetData() const { return data_; }
    [[nodiscard]] const MarkupTextNode* CastAsTextNode() const override { return this; }

private:
    friend class MarkupTree;
    MarkupTextNode(MarkupPosition position, LumString data) : MarkupNode(position), data_(std::move(data)) {}

    const LumString data_;
};

class LUM_API MarkupElementNode : public MarkupNode {
public:
    [[nodiscard]] const LumString& GetTagName() const { return tagName_; }
    /// Exact comparison, letter case included.
    [[nodiscard]] bool IsNamed(const LumString& name) const { return tagName_ == name; }
    [[nodiscard]] uint32_t GetChildCount() const { return static_cast<uint32_t>(children_.size()); }
    /// The child at `index` from 0 in document order, elements and texts alike (comments and processing
    /// instructions are not children); null at or after the count.
    [[nodiscard]] const MarkupNode* GetChildAt(uint32_t index) const {
        return index < children_.size() ? children_[index].get() : nullptr;
    }
    [[nodiscard]] const MarkupElementNode* CastAsElementNode() const override { return this; }

private:
    friend class MarkupTree;
    MarkupElementNode(MarkupPosition position, LumString tagName)
        : MarkupNode(position), tagName_(std::move(tagName)) {}

    const LumString tagName_;
    std::vector<std::unique_ptr<MarkupNode>> children_;
};

/// Why a document was refused, and where; a file that could not be read is refused at its beginning.
struct MarkupFault {
    MarkupPosition position;
    LumString reason;
    bool memoryRanOut = false;  ///< nothing need be wrong with the document
    bool isUnread = false;      ///< the file could not be read, so what is in it is not known
};

/// An XML document in memory. An object belongs to one thread at a time.
class LUM_API MarkupTree {
public:
    /// A larger file is refused.
    static constexpr std::size_t kMaxFileBytes = 4U << 20U;
    /// A document nested deeper is refused.
    static constexpr uint32_t kMaxDepth = 256;

    MarkupTree();
    MarkupTree(const MarkupTree&) = delete;
    MarkupTree& operator=(const MarkupTree&) = delete;
    ~MarkupTree();

    /// Reads the document of a regular file in place of what the tree held, in UTF-8, UTF-16 with a byte
    /// order mark, US-ASCII or ISO-8859-1. False, the tree then empty and the reason one warning of the
    /// host's logger (file, line, column, what is wrong), where the file cannot be read, is not a regular
    /// file, is over kMaxFileBytes, is in another encoding, is not well-formed, declares an entity, refers in
    /// a text to one other than the five of XML itself, or is nested deeper than kMaxDepth.
    [[nodiscard]] bool ParseFile(const LumString& path);
    /// The same from memory; `name` stands for the file in the warning.
    [[nodiscard]] bool ParseText(const LumString& text, const LumString& name);

    /// Why the last document was refused; empty where it was not.
    [[nodiscard]] const MarkupFault& GetFault() const { return fault_; }

    /// The root element, or null where nothing was parsed.
    [[nodiscard]] const MarkupElementNode* GetRootNode() const { return root_.get(); }

    /// The element at `path`, a list of tag names of which the first is the root's; null where there is none.
    /// A name followed by @ and a decimal number selects, among the sibling elements of that name, the one
    /// with that index from 0; a name without is the first. Walking up an index costs one step a call.
    [[nodiscard]] const MarkupElementNode* FetchNode(const std::vector<LumString>& path) const;

private:
    struct Cursor;
    class Builder;

    bool Parse(std::string_view text, std::string_view routine, const LumString& name);

    std::unique_ptr<MarkupElementNode> root_;
    std::unique_ptr<Cursor> cursor_;
    MarkupFault fault_;
};

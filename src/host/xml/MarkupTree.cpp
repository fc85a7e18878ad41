#include "host/xml/MarkupTree.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <expat.h>

#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"

namespace {

constexpr std::string_view kParseFileRoutine = "MarkupTree::ParseFile";
constexpr std::string_view kParseTextRoutine = "MarkupTree::ParseText";

constexpr const char* kMemoryError = "Memory error";

/// What is wrong with a document, and where.
using MaybeDefect = std::optional<MarkupFault>;

/// The parser's name of the encoding that a document declares; null where the encoding is not supported.
const char* KnownEncoding(const LumString& declared) {
    constexpr std::pair<const char*, const char*> kNames[] = {{"UTF-8", "UTF-8"},
                                                              {"UTF8", "UTF-8"},
                                                              {"UTF-16", "UTF-16"},
                                                              {"UTF16", "UTF-16"},
                                                              {"UTF-16LE", "UTF-16LE"},
                                                              {"UTF-16BE", "UTF-16BE"},
                                                              {"US-ASCII", "US-ASCII"},
                                                              {"ASCII", "US-ASCII"},
                                                              {"ANSI_X3.4-1968", "US-ASCII"},
                                                              {"ISO646-US", "US-ASCII"},
                                                              {"ISO-8859-1", "ISO-8859-1"},
                                                              {"ISO8859-1", "ISO-8859-1"},
                                                              {"ISO_8859-1", "ISO-8859-1"},
                                                              {"LATIN1", "ISO-8859-1"},
                                                              {"LATIN-1", "ISO-8859-1"},
                                                              {"L1", "ISO-8859-1"},
                                                              {"CP819", "ISO-8859-1"},
                                                              {"IBM819", "ISO-8859-1"}};
    for (const auto& [name, known] : kNames) {
        if (declared.IsEqualTo(name, false)) {
            return known;
        }
    }
    return nullptr;
}

/// Whether a document may declare `known` where it is in `actual`, as its mark or its declaration says.
bool Agrees(std::string_view known, std::string_view actual) {
    return known == actual || (known == "UTF-16" && actual.starts_with(known)) ||
           (known == "US-ASCII" && actual == "UTF-8");
}

/// Removes the byte order mark and returns the encoding that it stands for; null where there is none.
const char* RemoveMark(std::string_view& text) {
    constexpr std::pair<std::string_view, const char*> kMarks[] = {
        {"\xEF\xBB\xBF", "UTF-8"}, {"\xFF\xFE", "UTF-16LE"}, {"\xFE\xFF", "UTF-16BE"}};
    for (const auto& [mark, encoding] : kMarks) {
        if (text.starts_with(mark)) {
            text.remove_prefix(mark.size());
            return encoding;
        }
    }
    return nullptr;
}

/// UTF-16 is taken with a byte order mark only: without one its first character has a null byte.
bool IsUnmarkedUtf16(std::string_view text) {
    return text.substr(0, 2).find('\0') != std::string_view::npos;
}

bool IsBlank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
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

/// Parses one document in one encoding and makes nodes of it.
class MarkupTree::Builder {
public:
    /// `encoding` is what the document is in, whatever it declares; null for the declared one.
    Builder(std::string_view text, const char* encoding)
        : text_(text), parser_(XML_ParserCreate(encoding), XML_ParserFree), encoding_(encoding) {}

    /// Puts the root element with all that it holds into `root`. After a defect `root` may hold a part of it.
    MaybeDefect Build(std::unique_ptr<MarkupElementNode>& root) {
        if (parser_ == nullptr) {
            return MarkupFault{{1, 1}, kMemoryError, true};
        }
        if (encoding_ == nullptr && IsUnmarkedUtf16(text_)) {
            return MarkupFault{{1, 1}, "UTF-16 without a byte order mark"};
        }
        root_ = &root;
        SetHandlers();
        const XML_Status status =
            XML_Parse(parser_.get(), text_.data(), static_cast<int>(text_.size()), XML_TRUE);
        if (status == XML_STATUS_ERROR && !defect_.has_value()) {
            const XML_Error error = XML_GetErrorCode(parser_.get());
            defect_ = MarkupFault{Position(), XML_ErrorString(error), error == XML_ERROR_NO_MEMORY};
        }
        return std::exchange(defect_, std::nullopt);
    }

    /// After Build: the parser's name of the encoding where the document declares it by another name. The
    /// document is then to be built again in this encoding.
    [[nodiscard]] const char* OtherNameOfEncoding() const { return otherName_; }

private:
    /// Calls a handler with what the parser gives. No exception may leave it, as the parser is written in C.
    template <auto Handler, class... Args>
    static void Call(void* builder, Args... args) {
        auto& self = *static_cast<Builder*>(builder);
        if (self.defect_.has_value()) {
            return;  // the parser may call on until it returns
        }
        try {
            (self.*Handler)(args...);
        } catch (const std::exception&) {
            self.Refuse(kMemoryError);
            self.defect_->memoryRanOut = true;
        }
    }

    void SetHandlers() {
        XML_Parser parser = parser_.get();
        XML_SetUserData(parser, this);
        XML_SetXmlDeclHandler(parser, Call<&Builder::OnDeclaration>);
        XML_SetElementHandler(parser, Call<&Builder::OnStart>, Call<&Builder::OnEnd>);
        XML_SetCharacterDataHandler(parser, Call<&Builder::OnText>);
        XML_SetCdataSectionHandler(parser, Call<&Builder::OnSectionStart>, Call<&Builder::OnSectionEnd>);
        XML_SetCommentHandler(parser, Call<&Builder::OnComment>);
        XML_SetProcessingInstructionHandler(parser, Call<&Builder::OnInstruction>);
        XML_SetEntityDeclHandler(parser, Call<&Builder::OnEntityDeclaration>);
        XML_SetSkippedEntityHandler(parser, Call<&Builder::OnSkippedEntity>);
    }

    void OnDeclaration(const XML_Char* /*version*/, const XML_Char* encoding, int /*standalone*/) {
        if (encoding == nullptr) {
            return;
        }
        const LumString declared(encoding);
        const char* const known = KnownEncoding(declared);
        LumString reason;
        if (known == nullptr) {
            reason.Printf("the encoding %S is not supported", declared);
            Refuse(reason);
        } else if (encoding_ != nullptr && !Agrees(known, encoding_)) {
            reason.Printf("the encoding %S is declared, but the byte order mark is that of %s", declared,
                          encoding_);
            Refuse(reason);
        } else if (encoding_ == nullptr && !declared.IsEqualTo(known, false)) {
            otherName_ = known;
            Refuse("declared by another name");
        }
    }

    void OnStart(const XML_Char* name, const XML_Char** /*attributes*/) {
        EndRun(false);
        if (open_.size() == kMaxDepth) {
            Refuse("nested too deep");
            return;
        }
        std::unique_ptr<MarkupElementNode> element(new MarkupElementNode(Position(), LumString(name)));
        MarkupElementNode* const added = element.get();
        if (open_.empty()) {
            *root_ = std::move(element);
        } else {
            open_.back()->children_.push_back(std::move(element));
        }
        open_.push_back(added);
    }

    void OnEnd(const XML_Char* /*name*/) {
        EndRun(open_.back()->children_.empty());
        open_.pop_back();
    }

    void OnText(const XML_Char* text, int length) {
        if (run_.empty()) {
            runStart_ = Position();
        }
        run_.append(text, static_cast<std::size_t>(length));
    }

    void OnSectionStart() { EndRun(false); }
    void OnSectionEnd() { EndRun(true); }
    void OnComment(const XML_Char* /*text*/) { EndRun(false); }
    void OnInstruction(const XML_Char* /*target*/, const XML_Char* /*data*/) { EndRun(false); }
    void OnEntityDeclaration(const XML_Char* /*name*/, int /*isParameter*/, const XML_Char* /*value*/,
                             int /*length*/, const XML_Char* /*base*/, const XML_Char* /*systemId*/,
                             const XML_Char* /*publicId*/, const XML_Char* /*notation*/) {
        Refuse("an entity is declared");
    }
    void OnSkippedEntity(const XML_Char* /*name*/, int /*isParameter*/) { Refuse("undefined entity"); }

    /// Makes a node of the text since the last node; blank text only where `withBlank`.
    void EndRun(bool withBlank) {
        if (!run_.empty() && !open_.empty() && (withBlank || !IsBlank(run_))) {
            open_.back()->children_.push_back(
                std::unique_ptr<MarkupNode>(new MarkupTextNode(runStart_, LumString(std::move(run_)))));
        }
        run_.clear();
    }

    void Refuse(const LumString& reason) {
        defect_ = MarkupFault{Position(), reason};
        static_cast<void>(
            XML_StopParser(parser_.get(), XML_FALSE));  // fails only where it is stopped already
    }

    /// Where the parser is. The column counts characters.
    [[nodiscard]] MarkupPosition Position() const {
        return {static_cast<uint32_t>(XML_GetCurrentLineNumber(parser_.get())),
                static_cast<uint32_t>(XML_GetCurrentColumnNumber(parser_.get())) + 1};
    }

    const std::string_view text_;
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser_;
    const char* const encoding_;
    const char* otherName_ = nullptr;
    std::unique_ptr<MarkupElementNode>* root_ = nullptr;
    std::vector<MarkupElementNode*> open_;
    std::string run_;
    MarkupPosition runStart_;
    MaybeDefect defect_;
};

MarkupNode::MarkupNode(MarkupPosition position) : position_(position) {}
MarkupNode::~MarkupNode() = default;

MarkupTree::MarkupTree() : cursor_(std::make_unique<Cursor>()) {}
MarkupTree::~MarkupTree() = default;

bool MarkupTree::ParseFile(const LumString& path) {
    root_.reset();
    std::string content;
    LumString reason;
    if (!FileRead(path, kMaxFileBytes, content, reason)) {
        LumHostDebug().WarningWithNL("%S: %S: %S", kParseFileRoutine, path, reason);
        fault_ = {{}, reason, false, true};
        return false;
    }
    return Parse(content, kParseFileRoutine, path);
}

bool MarkupTree::ParseText(const LumString& text, const LumString& name) {
    root_.reset();
    if (text.GetLength() > kMaxFileBytes) {
        LumHostDebug().WarningWithNL("%S: %S: Larger than %u bytes", kParseTextRoutine, name,
                                     static_cast<uint32_t>(kMaxFileBytes));
        fault_ = {{}, "It is too large"};
        return false;
    }
    return Parse(text.View(), kParseTextRoutine, name);
}

bool MarkupTree::Parse(std::string_view text, std::string_view routine, const LumString& name) {
    cursor_->places.clear();
    const char* const marked = RemoveMark(text);
    Builder asDeclared(text, marked);
    MaybeDefect defect = asDeclared.Build(root_);
    if (asDeclared.OtherNameOfEncoding() != nullptr) {
        Builder again(text, asDeclared.OtherNameOfEncoding());
        defect = again.Build(root_);
    }
    fault_ = {};
    if (!defect.has_value()) {
        return true;
    }
    root_.reset();
    fault_ = std::move(*defect);
    LumHostDebug().WarningWithNL("%S: %S: line %u, column %u: %S", routine, name, fault_.position.line,
                                 fault_.position.column, fault_.reason);
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

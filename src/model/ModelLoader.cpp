#include "model/ModelLoader.h"

#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "host/log/LumDebug.h"
#include "host/text/StringTokeniser.h"
#include "host/xml/MarkupTree.h"
#include "model/ModuleLog.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "LoadModel");
constexpr const char* kRoot = "MODEL";

/// Messages about the file as a whole, and about one text in it.
using FileMessage = LumFormat<LumString>;
using TextMessage = LumFormat<LumString, LumString>;

/// The text of the element at `path`, names separated by slashes; false, and `text` untouched, where there is
/// no such element or its first child is not text.
bool GetNodeText(const MarkupTree& tree, const LumString& path, LumString& text) {
    std::vector<LumString> names;
    StringTokeniser tokeniser(path, "/", 0);
    for (LumString name; tokeniser.GetNextToken(name) != 0;) {
        names.push_back(name);
    }
    const MarkupElementNode* const element = tree.FetchNode(names);
    const MarkupNode* const child = element != nullptr ? element->GetChildAt(0) : nullptr;
    const MarkupTextNode* const node = child != nullptr ? child->CastAsTextNode() : nullptr;
    if (node == nullptr) {
        return false;
    }
    text = node->GetData();
    return true;
}

/// What stands at the level of the model itself.
struct ModelHead {
    LumString name;
    LumString modelClass;
    LumString note;
    LumString severity;
    LumString source;
    ModelType type = ModelType::kUnknown;
    Policy uploadPolicy = Policy::kUnknown;
    Policy deletionPolicy = Policy::kUnknown;
    Policy aggregationPolicy = Policy::kUnknown;
};

class Loader {
public:
    explicit Loader(const LumString& path) : path_(path) {}

    bool Load(std::shared_ptr<Model_t>& model) {
        if (!tree_.ParseFile(path_)) {
            isPassing_ = tree_.GetFault().memoryRanOut || tree_.GetFault().isUnread;
            return false;
        }
        const MarkupElementNode* const root = tree_.GetRootNode();
        if (!root->IsNamed(kRoot)) {
            kRoutine.Warning("While parsing '%S', unexpected root node '%S'", path_, root->GetTagName());
            return false;
        }
        ModelHead head;
        if (!ReadHead(head)) {
            return false;
        }
        model = TryMake<Model_t>(head.name, head.modelClass, head.source, head.severity, head.note, head.type,
                                 head.aggregationPolicy, head.uploadPolicy, head.deletionPolicy);
        if (model == nullptr) {
            return false;
        }
        if (!Complete(*model)) {
            model.reset();
            return false;
        }
        kRoutine.Print("Model '%S' has been loaded with success", model->GetName());
        return true;
    }

    [[nodiscard]] bool IsPassing() const { return isPassing_; }

private:
    template <class T, class... Args>
    std::shared_ptr<T> TryMake(const Args&... args) const {
        try {
            return std::make_shared<T>(args...);
        } catch (const std::bad_alloc&) {
            isPassing_ = true;
            kRoutine.Error("Memory error");
            return nullptr;
        }
    }

    /// Reads MODEL/`element`; warns with `missing` where it is not given.
    bool ReadRequired(const char* element, FileMessage missing, LumString& text) const {
        LumString path;
        path.Printf("%s/%s", kRoot, element);
        if (GetNodeText(tree_, path, text)) {
            return true;
        }
        kRoutine.Warning(missing, path_);
        return false;
    }

    /// The same for a token of a vocabulary; warns with `unknown` where `convert` does not know it.
    template <class Code>
    bool ReadToken(const char* element, FileMessage missing, TextMessage unknown,
                   Code (*convert)(const LumString&), Code& code) const {
        LumString token;
        if (!ReadRequired(element, missing, token)) {
            return false;
        }
        code = convert(token);
        if (code == Code{0}) {
            kRoutine.Warning(unknown, path_, token);
            return false;
        }
        return true;
    }

    bool ReadHead(ModelHead& head) const {
        return ReadRequired("NAME", "While parsing '%S', failed to get model name", head.name) &&
               ReadRequired("CLASS", "While parsing '%S', failed to get model class", head.modelClass) &&
               ReadRequired("NOTE", "While parsing '%S', failed to get model note", head.note) &&
               ReadRequired("SEVERITY", "While parsing '%S', failed to get model severity", head.severity) &&
               ReadToken("TYPE", "While parsing '%S', failed to get model type",
                         "While parsing '%S', unknown model type '%S'", ModelTypeFromText, head.type) &&
               ReadToken("UPLOAD-POLICY", "While parsing '%S', failed to get model upload policy",
                         "While parsing '%S', unknown model upload policy '%S'", UploadPolicyFromText,
                         head.uploadPolicy) &&
               ReadToken("DELETION-POLICY", "While parsing '%S', failed to get model deletion policy",
                         "While parsing '%S', unknown model deletion policy '%S'", DeletionPolicyFromText,
                         head.deletionPolicy) &&
               (head.type != ModelType::kAutomatic || ReadAutomaticHead(head));
    }

    bool ReadAutomaticHead(ModelHead& head) const {
        return ReadRequired("SOURCE", "While parsing '%S', failed to get model source", head.source) &&
               ReadToken("AGGREGATION-POLICY", "While parsing '%S', failed to get model aggregation policy",
                         "While parsing '%S', unknown model aggregation policy '%S'",
                         AggregationPolicyFromText, head.aggregationPolicy);
    }

    bool Complete(Model_t& model) const {
        if (!ReadParams(model)) {
            return false;
        }
        if (model.GetType() == ModelType::kAutomatic && !ReadAggregations(model)) {
            return false;
        }
        if (!model.ComputeChecksum()) {
            kRoutine.Error("Failed to compute checksum for model '%S'", model.GetName());
            return false;
        }
        return true;
    }

    /// Elements are filed in the order of their names, so that each goes to the end of the collection: of
    /// many in another order each would move half of the others.
    bool ReadParams(Model_t& model) const {
        std::map<LumString, std::shared_ptr<ModelParam_t>> params;
        LumString name;
        for (uint32_t i = 0; GetParamText(i, "NAME", name); ++i) {
            if (params.contains(name)) {
                return FailParam("While parsing '%S', multiple definition for parameter '%S'", name);
            }
            const std::shared_ptr<ModelParam_t> param = ReadParam(i, name, model.GetType());
            if (param == nullptr) {
                return false;
            }
            params.emplace(name, param);
        }
        for (const auto& [paramName, param] : params) {
            if (!model.GetParams().Add(param)) {
                return FailParam("While parsing '%S', failed to add parameter '%S'", paramName);
            }
        }
        if (model.GetParams().GetCount() == 0) {
            kRoutine.Error("While parsing '%S', failed to get parameters", path_);
            return false;
        }
        return true;
    }

    /// The parameter at `index`, or null after its error line.
    [[nodiscard]] std::shared_ptr<ModelParam_t> ReadParam(uint32_t index, const LumString& name,
                                                          ModelType modelType) const {
        LumString typeText;
        if (!GetParamText(index, "TYPE", typeText)) {
            // Quotes the type text, which is empty here: readers of the log know the line by that.
            FailParam("While parsing '%S', failed to get type for parameter '%S'", typeText);
            return nullptr;
        }
        const ParamType type = ParamTypeFromText(typeText);
        if (type == ParamType::kUnknown) {
            FailParam("While parsing '%S', unknown parameter type '%S'", typeText);
            return nullptr;
        }
        LumString source;
        LumString defaultText;
        AggregationOperation operation = AggregationOperation::kNone;
        if (modelType != ModelType::kAutomatic) {
            static_cast<void>(GetParamText(index, "DEFAULT", defaultText));  // optional
        } else if (!ReadDerivation(index, name, source, operation)) {
            return nullptr;
        }
        return TryMake<ModelParam_t>(name, source, type, operation, defaultText);
    }

    /// How a parameter of an automatic model is computed.
    bool ReadDerivation(uint32_t index, const LumString& name, LumString& source,
                        AggregationOperation& operation) const {
        if (!GetParamText(index, "SOURCE", source)) {
            return FailParam("While parsing '%S', failed to get source for parameter '%S'", name);
        }
        LumString operationText;
        if (!GetParamText(index, "OPERATION", operationText)) {
            return true;
        }
        operation = OperationFromText(operationText);
        return operation != AggregationOperation::kNone ||
               FailParam("While parsing '%S', unknown parameter operation '%S'", operationText);
    }

    bool ReadAggregations(Model_t& model) const {
        std::map<LumString, std::shared_ptr<ModelParamAgg_t>> entries;
        LumString path;
        LumString name;
        for (uint32_t i = 0;; ++i) {
            path.Printf("%s/%s/%s@%u", kRoot, "AGGREGATION", "NAME", i);
            if (!GetNodeText(tree_, path, name)) {
                break;
            }
            const std::shared_ptr<ModelParamAgg_t> entry = TryMake<ModelParamAgg_t>(name);
            if (entry == nullptr) {
                return false;
            }
            entries.emplace(name, entry);  // naming a parameter twice groups by it once
        }
        for (const auto& [entryName, entry] : entries) {
            static_cast<void>(model.GetAggregations().Add(entry));  // each name comes once
        }
        return true;
    }

    bool GetParamText(uint32_t index, const char* child, LumString& text) const {
        LumString path;
        path.Printf("%s/%s/%s@%u/%s", kRoot, "PARAMS", "PARAM", index, child);
        return GetNodeText(tree_, path, text);
    }

    /// Always false, for a caller that has nothing else to return.
    // NOLINTNEXTLINE(modernize-use-nodiscard): one that has ignores it.
    bool FailParam(TextMessage message, const LumString& text) const {
        kRoutine.Error(message, path_, text);
        return false;
    }

    const LumString& path_;
    MarkupTree tree_;
    mutable bool isPassing_ = false;
};

}  // namespace

bool LoadModel(const LumString& path, std::shared_ptr<Model_t>& model, bool* isPassing) {
    kRoutine.Trace("Entering");
    Loader loader(path);
    const bool loaded = loader.Load(model);
    if (isPassing != nullptr && loader.IsPassing()) {
        *isPassing = true;
    }
    return loaded;
}

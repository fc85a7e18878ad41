#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "host/collection/LumMap.h"
#include "host/text/LumString.h"
#include "model/Vocabulary.h"

/// What can stand in a collection: something with a name.
class ModelElement_t {
public:
    ModelElement_t() = default;
    ModelElement_t(const ModelElement_t&) = delete;
    ModelElement_t& operator=(const ModelElement_t&) = delete;
    virtual ~ModelElement_t() = default;

    /// The key under which a collection files the element; empty for an element without one.
    [[nodiscard]] virtual const LumString& GetName() const;
};

/// One parameter of a model: one column of its event table. Constant after construction.
class ModelParam_t : public ModelElement_t {
public:
    /// `source` (the parameter of the source model that this one is computed from) and `operation` belong to
    /// automatic models, `defaultText` (the value of an event that omits the parameter) to user models.
    ModelParam_t(const LumString& name, const LumString& source, ParamType type,
                 AggregationOperation operation, const LumString& defaultText)
        : name_(name), source_(source), type_(type), operation_(operation), default_(defaultText) {}

    [[nodiscard]] const LumString& GetName() const override { return name_; }
    [[nodiscard]] const LumString& GetSource() const { return source_; }
    [[nodiscard]] ParamType GetType() const { return type_; }
    [[nodiscard]] AggregationOperation GetOperation() const { return operation_; }
    [[nodiscard]] const LumString& GetDefault() const { return default_; }

private:
    const LumString name_;
    const LumString source_;
    const ParamType type_;
    const AggregationOperation operation_;
    const LumString default_;
};

/// One aggregation entry of an automatic model: a parameter of the source model that events are grouped by.
class ModelParamAgg_t : public ModelElement_t {
public:
    explicit ModelParamAgg_t(const LumString& name) : name_(name) {}

    [[nodiscard]] const LumString& GetName() const override { return name_; }

private:
    const LumString name_;
};

/// Elements by name, in ascending byte order of their names. The collection shares each element with whoever
/// took it out by Get or GetAt, so that a removed element stays alive until its last user is done.
///
/// Every operation may be called from any thread and holds the collection's lock only while it runs. A walk
/// by GetAt while others add or remove may skip an element or see one twice.
class PtrModelElementColl_t {
public:
    PtrModelElementColl_t() { map_.EnableLocking(); }
    PtrModelElementColl_t(const PtrModelElementColl_t&) = delete;
    PtrModelElementColl_t& operator=(const PtrModelElementColl_t&) = delete;
    /// Gives the elements up one by one, in order.
    ~PtrModelElementColl_t();

    /// Files `element`. False, and the caller keeps it, where it is null or its name is taken.
    [[nodiscard]] bool Add(std::shared_ptr<ModelElement_t> element);

    /// Files `element` in place of the one that has its name, if there is one; nobody finds the name missing
    /// meanwhile. False for null.
    bool Replace(std::shared_ptr<ModelElement_t> element);

    /// The element called `name`, which must be a T; false, and `element` untouched, where there is none.
    template <class T>
    [[nodiscard]] bool Get(const LumString& name, std::shared_ptr<T>& element) const {
        std::shared_ptr<ModelElement_t> found;
        if (!map_.Get(name, found)) {
            return false;
        }
        element = std::static_pointer_cast<T>(std::move(found));
        return true;
    }

    /// The element at `index` in name order, which must be a T; false, and `element` untouched, after the
    /// last.
    template <class T>
    [[nodiscard]] bool GetAt(uint32_t index, std::shared_ptr<T>& element) const {
        std::shared_ptr<ModelElement_t> found;
        if (!map_.GetAt(index, found)) {
            return false;
        }
        element = std::static_pointer_cast<T>(std::move(found));
        return true;
    }

    /// Removes the element that has the name of `element` and makes `element` null; false, and nothing
    /// changed, where there is none.
    template <class T>
    bool Remove(std::shared_ptr<T>& element) {
        if (element == nullptr || !RemoveNamed(element->GetName())) {
            return false;
        }
        element.reset();
        return true;
    }

    void Clear() { map_.Clear(); }

    [[nodiscard]] bool Contains(const LumString& name) const { return map_.Find(name) >= 0; }
    [[nodiscard]] uint32_t GetCount() const { return map_.GetCount(); }

private:
    bool RemoveNamed(const LumString& name);

    LumMap<LumString, std::shared_ptr<ModelElement_t>> map_;
};

/// The models that the module knows: those that are registered and whose definition could be read.
extern PtrModelElementColl_t ModelCollection;
/// Those that it did not keep, because what they refer to is missing.
extern PtrModelElementColl_t IncompleteModels;

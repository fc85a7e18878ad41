#pragma once

#include <atomic>
#include <cstdint>

#include "host/core/LumMetrics.h"
#include "host/text/LumString.h"
#include "host/time/LumTime.h"
#include "model/ModelElement.h"
#include "model/Vocabulary.h"

/// One model: an event type as its definition file describes it, with what the registry knows of it.
///
/// The loader fills both collections and calls ComputeChecksum before any other thread sees the model. From
/// then on only the enabled flag and the two times change; each stands for itself and may be set and read
/// from any thread.
class Model_t : public ModelElement_t {
public:
    Model_t(const LumString& name, const LumString& modelClass, const LumString& source,
            const LumString& severity, const LumString& note, ModelType type, Policy aggregationPolicy,
            Policy uploadPolicy, Policy deletionPolicy)
        : name_(name),
          class_(modelClass),
          source_(source),
          severity_(severity),
          note_(note),
          type_(type),
          aggregationPolicy_(aggregationPolicy),
          uploadPolicy_(uploadPolicy),
          deletionPolicy_(deletionPolicy) {}

    [[nodiscard]] const LumString& GetName() const override { return name_; }
    [[nodiscard]] const LumString& GetClass() const { return class_; }
    /// The model whose events an automatic model aggregates; empty for a user model.
    [[nodiscard]] const LumString& GetSource() const { return source_; }
    [[nodiscard]] const LumString& GetSeverity() const { return severity_; }
    [[nodiscard]] const LumString& GetNote() const { return note_; }
    [[nodiscard]] ModelType GetType() const { return type_; }
    [[nodiscard]] Policy GetAggregationPolicy() const { return aggregationPolicy_; }
    [[nodiscard]] Policy GetUploadPolicy() const { return uploadPolicy_; }
    [[nodiscard]] Policy GetDeletionPolicy() const { return deletionPolicy_; }

    /// The ModelParam_t elements. Their order, ascending by name, is the order of the table's columns.
    [[nodiscard]] PtrModelElementColl_t& GetParams() { return params_; }
    [[nodiscard]] const PtrModelElementColl_t& GetParams() const { return params_; }
    /// The ModelParamAgg_t elements of an automatic model.
    [[nodiscard]] PtrModelElementColl_t& GetAggregations() { return aggregations_; }
    [[nodiscard]] const PtrModelElementColl_t& GetAggregations() const { return aggregations_; }

    /// The MD5 digest that ComputeChecksum made; empty before.
    [[nodiscard]] const LumString& GetChecksum() const { return checksum_; }
    /// Digests what the table depends on: the model's name and, in order, each parameter's name and type
    /// code. Every other field may change without the table. Stored checksums are compared with it, so its
    /// text never changes.
    [[nodiscard]] bool ComputeChecksum();

    [[nodiscard]] bool IsEnabled() const { return enabled_.load(std::memory_order_relaxed); }
    void SetEnabled(bool enabled) { enabled_.store(enabled, std::memory_order_relaxed); }

    /// Up to when events have been aggregated (into this model) or uploaded; 0 at first.
    [[nodiscard]] LumSeconds GetLastAggregationTime() const {
        return lastAggregationTime_.load(std::memory_order_relaxed);
    }
    void SetLastAggregationTime(LumSeconds time) {
        lastAggregationTime_.store(time, std::memory_order_relaxed);
    }
    [[nodiscard]] LumSeconds GetLastUploadTime() const {
        return lastUploadTime_.load(std::memory_order_relaxed);
    }
    void SetLastUploadTime(LumSeconds time) { lastUploadTime_.store(time, std::memory_order_relaxed); }

    /// How many events of the model were stored and deleted since the process started.
    [[nodiscard]] LumCounter& Stored() const {
        return Counter(stored_, "lum_events_stored_total", "Events stored, by model.");
    }
    [[nodiscard]] LumCounter& Deleted() const {
        return Counter(deleted_, "lum_events_deleted_total", "Events deleted, by model.");
    }

private:
    /// Looked up with its first use: a definition that is refused leaves no trace in /metrics.
    [[nodiscard]] LumCounter& Counter(std::atomic<LumCounter*>& kept, const char* metric,
                                      const char* help) const {
        LumCounter* counter = kept.load(std::memory_order_acquire);
        if (counter == nullptr) {
            counter = &LumMetricsCounter(metric, help, {{"model", name_}});
            kept.store(counter, std::memory_order_release);
        }
        return *counter;
    }

    const LumString name_;
    const LumString class_;
    const LumString source_;
    const LumString severity_;
    const LumString note_;
    const ModelType type_;
    const Policy aggregationPolicy_;
    const Policy uploadPolicy_;
    const Policy deletionPolicy_;
    LumString checksum_;
    PtrModelElementColl_t params_;
    PtrModelElementColl_t aggregations_;

    mutable std::atomic<LumCounter*> stored_{nullptr};
    mutable std::atomic<LumCounter*> deleted_{nullptr};
    std::atomic<bool> enabled_{true};
    std::atomic<LumSeconds> lastAggregationTime_{0};
    std::atomic<LumSeconds> lastUploadTime_{0};
};

/// Calls `visit(const ModelParam_t&, uint32_t position)` for each parameter of `model` in order, until it
/// answers false; true where it never did.
template <class Visit>
bool ForEachParam(const Model_t& model, Visit&& visit) {
    std::shared_ptr<ModelParam_t> param;
    for (uint32_t i = 0; model.GetParams().GetAt(i, param); ++i) {
        if (!visit(*param, i)) {
            return false;
        }
    }
    return true;
}

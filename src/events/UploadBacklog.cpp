#include "events/UploadBacklog.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "UploadEvents");

OutstandingUpload Describe(const UploadJournal& journal, const LumString& reason) {
    OutstandingUpload upload{journal.GetModel(),
                             journal.GetFirst().start,
                             journal.GetWindows().back().end,
                             journal.GetHandedOver(),
                             std::nullopt,
                             reason};
    if (journal.GetExtent().has_value()) {
        upload.left = journal.GetExtent()->events - journal.GetHandedOver();
    }
    return upload;
}

}  // namespace

UploadJournal* UploadBacklog_t::Find(const LumString& model, LumString& error) {
    const auto known = uploads_.find(model);
    if (known != uploads_.end()) {
        return &known->second.journal;
    }
    UploadJournal journal(model);
    switch (journal.Load(error)) {
        case UploadJournal::Found::kUnreadable:
            return nullptr;
        case UploadJournal::Found::kDamaged:
            kRoutine.Error("The journal of the upload of model '%S' is lost: %S", model, error);
            break;
        default:
            break;
    }
    return &uploads_.try_emplace(model, Upload{std::move(journal), false, {}}).first->second.journal;
}

bool UploadBacklog_t::IsOpen(const LumString& model) {
    if (postponed_.contains(model)) {
        return true;
    }
    LumString error;
    const UploadJournal* const journal = Find(model, error);
    if (journal == nullptr || !journal->IsEmpty()) {
        return true;
    }
    Settle(model, {});
    return false;
}

void UploadBacklog_t::ForEach(const std::function<void(const LumString& model)>& visit) {
    if (!isListed_) {
        std::vector<LumString> left;
        isListed_ = ListUploadJournals(left);
        for (const LumString& model : left) {
            LumString error;
            isListed_ &= Find(model, error) != nullptr;
        }
    }
    std::vector<LumString> models;
    for (const auto& [model, upload] : uploads_) {
        models.push_back(model);
    }
    for (const auto& [model, end] : postponed_) {
        if (!uploads_.contains(model)) {
            models.push_back(model);
        }
    }
    for (const LumString& model : models) {
        visit(model);
    }
}

bool UploadBacklog_t::Postpone(const LumString& model, LumSeconds end) {
    return postponed_.insert_or_assign(model, end).second;
}

std::optional<LumSeconds> UploadBacklog_t::TakePostponed(const LumString& model) {
    const auto found = postponed_.find(model);
    if (found == postponed_.end()) {
        return std::nullopt;
    }
    const LumSeconds end = found->second;
    postponed_.erase(found);
    return end;
}

void UploadBacklog_t::Settle(const LumString& model, const LumString& reason) {
    const auto found = uploads_.find(model);
    if (found == uploads_.end()) {
        return;
    }
    Upload& upload = found->second;
    LumString error = reason;
    if (!upload.journal.IsEmpty() || !upload.journal.Store(error)) {
        upload.reason = error;
        if (!std::exchange(upload.isOutstanding, true)) {
            kRoutine.Error("The upload of model '%S' is outstanding from %ld on and goes on by itself: %S",
                           model, int64_t{upload.journal.IsEmpty() ? 0 : upload.journal.GetFirst().start},
                           error);
        }
    } else {
        if (upload.isOutstanding) {
            kRoutine.Print("The upload of model '%S' that was outstanding is complete", model);
        }
        uploads_.erase(found);
    }
    Publish();
}

void UploadBacklog_t::Abandon(const LumString& model) {
    LumString error;
    UploadJournal* const journal = Find(model, error);
    if (journal == nullptr) {
        return;
    }
    kRoutine.Warning("The upload of model '%S' is given up, the model was deleted", model);
    // What cannot be deleted now is met again by the next start.
    static_cast<void>(journal->ForgetAfter(INT32_MIN, error));
    uploads_.erase(model);
    Publish();
}

std::vector<OutstandingUpload> UploadBacklog_t::GetOutstanding() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return published_;
}

void UploadBacklog_t::Publish() {
    std::vector<OutstandingUpload> all;
    for (const auto& [model, upload] : uploads_) {
        if (!upload.journal.IsEmpty()) {
            all.push_back(Describe(upload.journal, upload.reason));
        }
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    published_ = std::move(all);
}

void UploadBacklog_t::Forget() {
    uploads_.clear();
    postponed_.clear();
    isListed_ = false;
    Publish();
}

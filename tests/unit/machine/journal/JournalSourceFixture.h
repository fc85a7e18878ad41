#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>
#include <systemd/sd-messages.h>

#include "machine/journal/JournalSource.h"
#include "machine/source/MachineLog.h"
#include "support/AgentProcess.h"
#include "support/JournalFile.h"
#include "support/LogReader.h"
#include "support/TempDirectory.h"

/// Journals of a test's own, made by the system's tool.
class JournalSourceTest : public testing::Test {
protected:
    static constexpr int64_t kMoment = 1'780'000'000;
    static constexpr int kPatienceMs = 30'000;

    void SetUp() override {
        directory_.MakeDirectory("journal");
        MachineDebug.SetContext(&log_.Context());
    }
    void TearDown() override { MachineDebug.SetContext(nullptr); }

    void Add(const JournalFile::Fields& fields, int64_t seconds = kMoment) { journal_.Add(seconds, fields); }
    /// What the remote shell writes as root.
    void AddShell(const std::string& message, const std::string& process = "100") {
        Add({{"_UID", "0"}, {"_COMM", "sshd"}, {"_PID", process}, {"MESSAGE", message}});
    }
    void AddSession(const std::string& user, const std::string& leader) {
        Add({{"_UID", "0"},
             {"_COMM", "systemd-logind"},
             {"_SYSTEMD_UNIT", "systemd-logind.service"},
             {"MESSAGE_ID", SD_MESSAGE_SESSION_START_STR},
             {"USER_ID", user},
             {"LEADER", leader}});
    }
    /// Writes what was added into a file of its own; entries of before are in it again, as they are after a
    /// journal was copied.
    void Write(const std::string& name = "a.journal") const {
        ASSERT_TRUE(journal_.Write(directory_ / ("journal/" + name)));
    }

    template <class Made>
    void Open(std::time_t oldest = 0) {
        LumString error;
        source_ = std::make_unique<Made>(Place(), oldest);
        ASSERT_TRUE(source_->Open(error)) << error.GetString();
    }
    [[nodiscard]] JournalPlace Place(const std::string& name = "journal") const {
        return {directory_.At(name), LumString(BinaryDirectory() + "/../modules/lumjournal")};
    }
    /// Waits for what is on its way; false where nothing comes.
    [[nodiscard]] bool HasNews() const {
        pollfd wait = {source_->GetDescriptor(), POLLIN, 0};
        return poll(&wait, 1, kPatienceMs) == 1;
    }
    /// Reads some of the entries, `limit` at most.
    void ReadSome(std::size_t limit) {
        for (const std::size_t before = records_.size(); records_.size() == before;) {
            SourceBatch batch;
            ASSERT_TRUE(source_->ReadSince(position_, limit, batch, error_)) << error_.GetString();
            ASSERT_TRUE(!batch.events.empty() || HasNews());
            position_ = batch.position;
            for (const MachineEvent& event : batch.events) {
                records_.push_back(event.record);
            }
        }
    }
    /// All that is new: the events as JSON, without record and time.
    std::vector<std::string> New(std::size_t limit = 100) {
        std::vector<std::string> events;
        for (bool more = true; more;) {
            SourceBatch batch;
            if (!source_->ReadSince(position_, limit, batch, error_)) {
                events.emplace_back("gone");
                return events;
            }
            begunAnew_ = begunAnew_ || batch.begunAnew;
            more = batch.more || (batch.awaitsMore && HasNews());
            position_ = batch.position;
            for (MachineEvent& event : batch.events) {
                records_.push_back(event.record);
                int32_t time = 0;
                EXPECT_TRUE(event.params.GetInt32("Time", time));
                times_.push_back(time);
                event.params.ClearName("Record");
                event.params.ClearName("Time");
                events.push_back(std::string(event.model) + event.params.ToJson());
            }
        }
        return events;
    }

    LogLines log_;
    TempDirectory directory_;
    JournalFile journal_;
    std::unique_ptr<JournalSource> source_;
    std::string position_;
    bool begunAnew_ = false;
    LumString error_;
    std::vector<uint64_t> records_;
    std::vector<int32_t> times_;
};

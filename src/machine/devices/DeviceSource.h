#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "machine/devices/DeviceList.h"
#include "machine/source/Source.h"

/// Devices that are plugged in and out, by udev. The position is the list of those that are plugged in, so
/// what changed while nobody looked shows as the difference. The first list is where it begins: what is
/// plugged in then was not plugged in now.
class DeviceSource : public Source {
public:
    DeviceSource();
    ~DeviceSource() override;

    [[nodiscard]] const char* GetName() const override { return "Devices"; }
    [[nodiscard]] std::vector<const char*> GetModels() const override;
    [[nodiscard]] bool Open(LumString& error) override;
    [[nodiscard]] bool ReadSince(const std::string& position, std::size_t limit, SourceBatch& batch,
                                 LumString& error) override;
    [[nodiscard]] int GetDescriptor() const override;
    [[nodiscard]] uint32_t GetWaitMs() const override;

private:
    struct Udev;

    /// The changes of the messages that have come, each applied to `list`.
    void TakeMessages(std::size_t limit, DeviceList& list, SourceBatch& batch);

    std::unique_ptr<Udev> udev_;
    /// The messages go on from this position. A list of another one, and every list after messages were lost,
    /// is compared with what is there.
    std::string position_;
    bool isCompared_ = false;
};

/// The events that lead from `before` to `now`. Their records are made of the generation, so that the same
/// difference gives the same records again.
[[nodiscard]] std::vector<MachineEvent> CompareDevices(const DeviceList& before, const Devices& now);

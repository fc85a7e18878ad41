#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "machine/devices/DeviceList.h"
#include "machine/source/Models.h"
#include "machine/source/Source.h"

/// Devices that are plugged in and out, by udev. The position is the list of those that are plugged in, so
/// what changed while the module did not run shows as the difference to the present list. The first list
/// makes no events: nobody knows since when its devices have been plugged in.
class DeviceSource : public Source {
public:
    DeviceSource();
    DeviceSource(const DeviceSource&) = delete;
    DeviceSource& operator=(const DeviceSource&) = delete;
    ~DeviceSource() override;

    [[nodiscard]] const char* GetName() const override { return "Devices"; }
    [[nodiscard]] std::vector<const char*> GetModels() const override { return {models::kDeviceChange}; }
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
    /// The messages go on from this position. Where ReadSince is given another one, or
    /// messages were lost, the list is compared with the devices that are there.
    std::string position_;
    bool isCompared_ = false;
};

/// The events that lead from `before` to `now`. Their records are made of the generation, so that the same
/// difference gives the same records again.
[[nodiscard]] std::vector<MachineEvent> CompareDevices(const DeviceList& before, const Devices& now);

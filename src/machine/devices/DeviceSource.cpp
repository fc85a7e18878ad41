#include "machine/devices/DeviceSource.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include <libudev.h>
#include <unistd.h>

#include "host/text/LumSystemError.h"
#include "machine/source/FieldText.h"
#include "machine/source/RecordId.h"

namespace {

/// Where udev does not tell of a change it is looked for this often.
constexpr uint32_t kLookMs = 300'000;
constexpr char kRunning[] = "/run/udev/control";
constexpr char kAdd[] = "add";
constexpr char kRemove[] = "remove";

/// The kinds of devices that somebody plugs in and out; the system's other devices come and go with these.
constexpr struct {
    const char* subsystem;
    const char* type;
} kKinds[] = {{"usb", "usb_device"}, {"block", "disk"}, {"thunderbolt", "thunderbolt_device"}};

struct Unref {
    void operator()(udev* context) const { ::udev_unref(context); }
    void operator()(udev_monitor* monitor) const { ::udev_monitor_unref(monitor); }
    void operator()(udev_enumerate* list) const { ::udev_enumerate_unref(list); }
    void operator()(udev_device* device) const { ::udev_device_unref(device); }
};
using DevicePtr = std::unique_ptr<udev_device, Unref>;

std::string TextOf(const char* text) {
    return text != nullptr ? FieldText(text).GetString() : std::string();
}

/// The first of the two properties that the device has.
std::string Property(udev_device* device, const char* first, const char* second) {
    const char* const value = ::udev_device_get_property_value(device, first);
    return TextOf(value != nullptr ? value : ::udev_device_get_property_value(device, second));
}

bool IsPlugged(udev_device* device) {
    const std::string subsystem = TextOf(::udev_device_get_subsystem(device));
    const std::string type = TextOf(::udev_device_get_devtype(device));
    // Loop devices and the like are not plugged in.
    if (TextOf(::udev_device_get_devpath(device)).find("/virtual/") != std::string::npos) {
        return false;
    }
    return std::any_of(std::begin(kKinds), std::end(kKinds),
                       [&](const auto& kind) { return subsystem == kind.subsystem && type == kind.type; });
}

Device Describe(udev_device* device) {
    return {TextOf(::udev_device_get_subsystem(device)),
            Property(device, "ID_VENDOR_FROM_DATABASE", "ID_VENDOR"),
            Property(device, "ID_MODEL_FROM_DATABASE", "ID_MODEL"),
            Property(device, "ID_SERIAL_SHORT", "ID_SERIAL")};
}

MachineEvent MakeEvent(const char* action, const std::string& place, const Device& device,
                       const std::string& identity) {
    MachineEvent event;
    event.model = models::kDeviceChange;
    event.params.SetString("Action", action);
    event.params.SetString("Subsystem", FieldText(device.subsystem));
    event.params.SetString("Device", FieldText(place));
    SetKnownText(event, "Vendor", device.vendor);
    SetKnownText(event, "Product", device.product);
    SetKnownText(event, "Serial", device.serial);
    SetIdentity(event, RecordId(identity), static_cast<int32_t>(std::time(nullptr)));
    return event;
}

/// What tells one change of a device from every other one: the generation of the list, which changes with
/// each batch, and how often the same change has come within it.
std::string Identity(const char* action, const std::string& place, uint64_t generation, std::size_t times) {
    return std::string(action) + " " + place + " " + std::to_string(generation) + " " + std::to_string(times);
}

}  // namespace

struct DeviceSource::Udev {
    std::unique_ptr<udev, Unref> context;
    std::unique_ptr<udev_monitor, Unref> monitor;

    [[nodiscard]] Devices Enumerate() const {
        Devices devices;
        const std::unique_ptr<udev_enumerate, Unref> list(::udev_enumerate_new(context.get()));
        for (const auto& kind : kKinds) {
            ::udev_enumerate_add_match_subsystem(list.get(), kind.subsystem);
        }
        ::udev_enumerate_scan_devices(list.get());
        udev_list_entry* entry = nullptr;
        udev_list_entry_foreach(entry, ::udev_enumerate_get_list_entry(list.get())) {
            const DevicePtr device(
                ::udev_device_new_from_syspath(context.get(), ::udev_list_entry_get_name(entry)));
            if (device != nullptr && IsPlugged(device.get())) {
                devices.emplace(TextOf(::udev_device_get_devpath(device.get())), Describe(device.get()));
            }
        }
        return devices;
    }
};

DeviceSource::DeviceSource() = default;
DeviceSource::~DeviceSource() = default;

uint32_t DeviceSource::GetWaitMs() const {
    return kLookMs;
}

int DeviceSource::GetDescriptor() const {
    return udev_ != nullptr ? ::udev_monitor_get_fd(udev_->monitor.get()) : -1;
}

bool DeviceSource::Open(LumString& error) {
    udev_.reset();
    isCompared_ = false;
    if (::access(kRunning, F_OK) != 0) {
        error.Printf("udev does not run: %s: %S", kRunning, LumSystemErrorText());
        return false;
    }
    auto udev = std::make_unique<Udev>();
    udev->context.reset(::udev_new());
    udev->monitor.reset(
        udev->context != nullptr ? ::udev_monitor_new_from_netlink(udev->context.get(), "udev") : nullptr);
    if (udev->monitor == nullptr) {
        error = "udev cannot be listened to";
        return false;
    }
    for (const auto& kind : kKinds) {
        ::udev_monitor_filter_add_match_subsystem_devtype(udev->monitor.get(), kind.subsystem, kind.type);
    }
    if (const int result = ::udev_monitor_enable_receiving(udev->monitor.get()); result < 0) {
        error.Printf("udev cannot be listened to: %S", LumSystemErrorText(-result));
        return false;
    }
    udev_ = std::move(udev);
    return true;
}

bool DeviceSource::ReadSince(const std::string& position, std::size_t limit, SourceBatch& batch,
                             LumString& error) {
    DeviceList list;
    if (udev_ == nullptr) {
        error = "udev is not listened to";
        return false;
    }
    if (!list.Read(position)) {
        list.devices = udev_->Enumerate();
        batch.position = list.Write();
        position_ = batch.position;
        isCompared_ = true;
        return true;
    }
    if (!std::exchange(isCompared_, true) || position != position_) {
        Devices now = udev_->Enumerate();
        batch.events = CompareDevices(list, now);
        list.devices = std::move(now);
    } else {
        TakeMessages(limit, list, batch);
    }
    if (!batch.events.empty()) {
        ++list.generation;
    }
    batch.position = batch.events.empty() ? position : list.Write();
    position_ = batch.position;
    return true;
}

void DeviceSource::TakeMessages(std::size_t limit, DeviceList& list, SourceBatch& batch) {
    std::multiset<std::string> changes;
    while (batch.events.size() < limit) {
        errno = 0;
        const DevicePtr device(::udev_monitor_receive_device(udev_->monitor.get()));
        if (device == nullptr) {
            // Too many messages at once: some were lost, and the difference tells what they said.
            isCompared_ = errno != ENOBUFS;
            batch.more = !isCompared_;
            return;
        }
        const std::string action = TextOf(::udev_device_get_action(device.get()));
        const std::string place = TextOf(::udev_device_get_devpath(device.get()));
        const bool isAdded = action == kAdd;
        if (!IsPlugged(device.get()) || (!isAdded && action != kRemove) ||
            list.devices.contains(place) == isAdded) {
            continue;
        }
        const Device description = isAdded ? Describe(device.get()) : list.devices.at(place);
        changes.insert(action + place);
        batch.events.push_back(
            MakeEvent(isAdded ? kAdd : kRemove, place, description,
                      Identity(action.c_str(), place, list.generation, changes.count(action + place))));
        if (isAdded) {
            list.devices.emplace(place, description);
        } else {
            list.devices.erase(place);
        }
    }
    batch.more = true;
}

std::vector<MachineEvent> CompareDevices(const DeviceList& before, const Devices& now) {
    std::vector<MachineEvent> events;
    for (const auto& [place, device] : before.devices) {
        if (!now.contains(place)) {
            events.push_back(
                MakeEvent(kRemove, place, device, Identity(kRemove, place, before.generation, 1)));
        }
    }
    for (const auto& [place, device] : now) {
        if (!before.devices.contains(place)) {
            events.push_back(MakeEvent(kAdd, place, device, Identity(kAdd, place, before.generation, 1)));
        }
    }
    return events;
}

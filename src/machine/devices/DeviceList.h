#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>

/// A device as the system describes it. The texts are what the device says of itself.
struct Device {
    std::string subsystem;
    std::string vendor;
    std::string product;
    std::string serial;
};

/// The devices that are plugged in, by their place in the system.
using Devices = std::map<std::string, Device>;

/// The position of the device source: what is known to be plugged in, and how often that was written down.
struct DeviceList {
    uint64_t generation = 0;
    Devices devices;

    /// A line for the generation and one a device. Read returns false, and leaves the list as it was, where
    /// the text is of another form.
    [[nodiscard]] std::string Write() const;
    [[nodiscard]] bool Read(const std::string& text);
};

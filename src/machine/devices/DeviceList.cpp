#include "machine/devices/DeviceList.h"

#include <sstream>
#include <utility>

namespace {

constexpr char kSeparator = '\t';

/// A field on a line of its own form: what would end it becomes a blank.
std::string Field(std::string text) {
    for (char& letter : text) {
        letter = letter == kSeparator || letter == '\n' ? ' ' : letter;
    }
    return text;
}

}  // namespace

std::string DeviceList::Write() const {
    std::string text = std::to_string(generation) + "\n";
    for (const auto& [place, device] : devices) {
        text += Field(place) + kSeparator + Field(device.subsystem) + kSeparator + Field(device.vendor) +
                kSeparator + Field(device.product) + kSeparator + Field(device.serial) + "\n";
    }
    return text;
}

bool DeviceList::Read(const std::string& text) {
    std::istringstream lines(text);
    DeviceList list;
    std::string line;
    if (!std::getline(lines, line) || !(std::istringstream(line) >> list.generation)) {
        return false;
    }
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string place;
        Device device;
        std::getline(fields, place, kSeparator);
        std::getline(fields, device.subsystem, kSeparator);
        std::getline(fields, device.vendor, kSeparator);
        std::getline(fields, device.product, kSeparator);
        std::getline(fields, device.serial, kSeparator);
        list.devices.emplace(std::move(place), std::move(device));
    }
    *this = std::move(list);
    return true;
}

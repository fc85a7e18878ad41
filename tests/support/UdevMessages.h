#pragma once

#include <string>
#include <utility>
#include <vector>

/// Sends what the device manager sends to whoever listens for devices, in its place and in its form. To be
/// used in a network namespace of the test's own, so that nobody else hears it.
class UdevMessages {
public:
    using Properties = std::vector<std::pair<std::string, std::string>>;

    UdevMessages();
    UdevMessages(const UdevMessages&) = delete;
    UdevMessages& operator=(const UdevMessages&) = delete;
    ~UdevMessages();

    /// `properties` have ACTION, DEVPATH, SUBSYSTEM and DEVTYPE among them. False where it cannot be sent.
    [[nodiscard]] bool Send(const Properties& properties) const;

private:
    int socket_ = -1;
};

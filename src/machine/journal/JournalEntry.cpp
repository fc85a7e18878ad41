#include "machine/journal/JournalEntry.h"

std::string_view JournalEntry::Get(std::string_view name) const {
    const auto found = fields_.find(name);
    return found != fields_.end() ? std::string_view(found->second.value) : std::string_view();
}

bool JournalEntry::Is(std::string_view name, std::string_view value) const {
    const auto found = fields_.find(name);
    return found != fields_.end() && !found->second.isDoubled && found->second.value == value;
}

std::string_view JournalEntry::Identity() const {
    // The first two parts number the entry within one file.
    const std::size_t boot = cursor.find("b=");
    return boot == std::string::npos ? std::string_view(cursor) : std::string_view(cursor).substr(boot);
}

void JournalEntry::Add(std::string_view name, std::string_view value) {
    const auto [field, isNew] = fields_.try_emplace(std::string(name));
    if (isNew) {
        field->second.value = value.substr(0, kMaxValueBytes);
    } else {
        field->second.isDoubled = true;
    }
}

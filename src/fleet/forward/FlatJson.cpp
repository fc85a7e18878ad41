#include "fleet/forward/FlatJson.h"

#include <algorithm>
#include <nlohmann/json.hpp>

/// Takes what the parser finds; what lies deeper than the outermost object is counted and passed over.
class FlatJson::Reader : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit Reader(std::vector<std::pair<std::string, Value>>& members) : members_(members) {}

    bool null() override { return Take(std::monostate()); }
    bool boolean(bool value) override { return Take(value); }
    bool number_integer(number_integer_t /*value*/) override { return Take(std::monostate()); }
    bool number_unsigned(number_unsigned_t value) override { return Take(uint64_t{value}); }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override {
        return Take(std::monostate());
    }
    bool string(string_t& value) override { return Take(std::move(value)); }
    bool binary(binary_t& /*value*/) override { return false; }  // text has none

    bool start_object(std::size_t /*size*/) override { return Enter(); }
    bool key(string_t& name) override {
        if (depth_ == 1) {
            members_.emplace_back(std::move(name), std::monostate());
        }
        return true;
    }
    bool end_object() override { return Leave(); }
    bool start_array(std::size_t /*size*/) override { return depth_ > 0 && Enter(); }
    bool end_array() override { return Leave(); }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const nlohmann::json::exception& /*error*/) override {
        return false;
    }

private:
    bool Take(Value value) {
        if (depth_ == 1) {
            members_.back().second = std::move(value);
        }
        return depth_ > 0;
    }
    bool Enter() {
        ++depth_;
        return true;
    }
    bool Leave() {
        --depth_;
        return true;
    }

    std::vector<std::pair<std::string, Value>>& members_;
    std::size_t depth_ = 0;
};

bool FlatJson::Read(std::string_view text) {
    constexpr std::size_t usual = 8;
    members_.clear();
    members_.reserve(usual);
    Reader reader(members_);
    if (!nlohmann::json::sax_parse(text, &reader)) {
        members_.clear();
        return false;
    }
    return true;
}

const FlatJson::Value* FlatJson::Find(std::string_view name) const {
    const auto found = std::find_if(members_.rbegin(), members_.rend(),
                                    [name](const auto& member) { return member.first == name; });
    return found != members_.rend() ? &found->second : nullptr;
}

std::string FlatJson::Text(std::string_view name) const {
    const Value* const value = Find(name);
    const auto* const text = value != nullptr ? std::get_if<std::string>(value) : nullptr;
    return text != nullptr ? *text : std::string();
}

std::optional<uint64_t> FlatJson::Number(std::string_view name) const {
    const Value* const value = Find(name);
    const auto* const number = value != nullptr ? std::get_if<uint64_t>(value) : nullptr;
    return number != nullptr ? std::optional(*number) : std::nullopt;
}

bool FlatJson::IsTrue(std::string_view name) const {
    const Value* const value = Find(name);
    const auto* const flag = value != nullptr ? std::get_if<bool>(value) : nullptr;
    return flag != nullptr && *flag;
}
